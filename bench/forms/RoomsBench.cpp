// Cost of the Rooms tab under the largest lists the server link lets through: entering a room
// of 10,000 users, one join and leave there, a room list of 10,000 rooms, and a busy chat.
// Messages go through the link's own handler, as if they had just been read from the socket.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QTreeWidget>
#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "forms/RoomForm.h"
#include "server/Server.h"
#include "server/ServerMessageHandler.h"
#include "server/UserStats.h"
#include "shell/MainWindow.h"
#include "stream/MemStream.h"
#include "ui_MainWindow.h"

namespace
{
constexpr int g_users = 10000;
int g_round = 0;

void Handle(int i_code, MemStream& i_message)
{
    ServerMessageHandler(*gp_server).Handle(i_code, i_message);
    QApplication::processEvents();
}

void WriteStrings(MemStream& o_message, std::vector<std::string> const& i_texts)
{
    o_message.Write(static_cast<std::uint32_t>(i_texts.size()));
    for (std::string const& l_text : i_texts)
        o_message.Write(l_text);
}

UserStats Stats(int i_n)
{
    UserStats l_stats;
    l_stats.m_averageSpeed = static_cast<std::uint32_t>(i_n * 37 % 500000);
    l_stats.m_sharedFiles = static_cast<std::uint32_t>(i_n * 13 % 90000);
    return l_stats;
}

std::string Country(int i_n)
{
    static char const* const s_codes[] = {"us", "de", "fr", "br", "jp", "gb", "zz", ""};
    return s_codes[i_n % 8];
}

// Message 14 for a room of fresh users, every one with numbers and a country.
void EnterRoom(std::string const& i_room, int i_users)
{
    std::vector<std::string> l_names, l_countries;
    std::string const l_prefix = QStringLiteral("r%1user").arg(g_round).toStdString();
    for (int l_n = 0; l_n < i_users; ++l_n)
    {
        l_names.push_back(l_prefix + std::to_string(l_n));
        l_countries.push_back(Country(l_n));
    }
    MemStream l_message;
    l_message.Write(i_room);
    WriteStrings(l_message, l_names);
    l_message.Write(std::uint32_t{0});
    l_message.Write(static_cast<std::uint32_t>(i_users));
    for (int l_n = 0; l_n < i_users; ++l_n)
        l_message.Write(Stats(l_n));
    l_message.Write(std::uint32_t{0});
    WriteStrings(l_message, l_countries);
    Handle(14, l_message);
    ++g_round;
}

void LeaveRoom(std::string const& i_room)
{
    MemStream l_message;
    l_message.Write(i_room);
    Handle(15, l_message);
}

QTabWidget* RoomTabs()
{
    return mainWindow->Widgets()->roomTabWidget;
}

int ShownUsers()
{
    auto* lp_form = qobject_cast<RoomForm*>(RoomTabs()->currentWidget());
    return lp_form ? lp_form->findChild<QTreeWidget*>(QStringLiteral("userList"))->topLevelItemCount() : -1;
}

void BM_EnterRoomOf10000Users(benchmark::State& io_state)
{
    for (auto _ : io_state)
    {
        std::string const l_room = "crowd " + std::to_string(g_round);
        EnterRoom(l_room, g_users);
        io_state.PauseTiming();
        if (ShownUsers() != g_users)
            io_state.SkipWithError("not every user got a row");
        LeaveRoom(l_room);
        io_state.ResumeTiming();
    }
}
BENCHMARK(BM_EnterRoomOf10000Users)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_JoinAndLeaveIn10000UserRoom(benchmark::State& io_state)
{
    std::string const l_room = "hall";
    EnterRoom(l_room, g_users);
    int l_n = 0;
    for (auto _ : io_state)
    {
        std::string const l_user = "guest" + std::to_string(++l_n);
        MemStream l_join;
        l_join.Write(l_room);
        l_join.Write(l_user);
        l_join.Write(std::uint32_t{1});
        l_join.Write(Stats(l_n));
        l_join.Write(std::uint32_t{0});
        l_join.Write(Country(l_n));
        Handle(16, l_join);
        MemStream l_leave;
        l_leave.Write(l_room);
        l_leave.Write(l_user);
        Handle(17, l_leave);
    }
    if (ShownUsers() != g_users)
        io_state.SkipWithError("joins and leaves did not balance");
    io_state.SetItemsProcessed(io_state.iterations() * 2);
    LeaveRoom(l_room);
}
BENCHMARK(BM_JoinAndLeaveIn10000UserRoom)->Unit(benchmark::kMicrosecond);

// Message 64 with the rooms in its first group; the other two empty.
void RoomList(int i_list)
{
    std::vector<std::string> l_names;
    for (int l_n = 0; l_n < g_users; ++l_n)
        l_names.push_back("list" + std::to_string(i_list) + " room " + std::to_string(l_n));
    MemStream l_message;
    WriteStrings(l_message, l_names);
    l_message.Write(static_cast<std::uint32_t>(g_users));
    for (int l_n = 0; l_n < g_users; ++l_n)
        l_message.Write(static_cast<std::int32_t>(l_n % 300));
    for (int l_empty = 0; l_empty < 6; ++l_empty)
        l_message.Write(std::uint32_t{0});
    Handle(64, l_message);
}

// Range 0: a list of new rooms; 1: the same list again.
void BM_RoomListOf10000Rooms(benchmark::State& io_state)
{
    static int s_list = 0;
    for (auto _ : io_state)
    {
        io_state.PauseTiming();
        int const l_list = ++s_list;
        if (io_state.range(0) == 1)
            RoomList(l_list);
        io_state.ResumeTiming();
        RoomList(l_list);
    }
}
BENCHMARK(BM_RoomListOf10000Rooms)->Arg(0)->Arg(1)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_BusyRoomChat(benchmark::State& io_state)
{
    std::string const l_room = "chatter";
    EnterRoom(l_room, 10);
    auto* lp_view = qobject_cast<RoomForm*>(RoomTabs()->currentWidget())->findChild<QTextBrowser*>();
    int const l_lines = int(io_state.range(0));
    double l_slowest = 0;
    qsizetype l_largestHtml = 0;
    for (auto _ : io_state)
    {
        for (int l_line = 0; l_line < l_lines; ++l_line)
        {
            std::string l_text = "see https://example.org/page/" + std::to_string(l_line) + " ";
            l_text.resize(100, 'w');
            MemStream l_message;
            l_message.Write(l_room);
            l_message.Write("talker" + std::to_string(l_line % 40));
            l_message.Write(l_text);
            auto const l_start = std::chrono::steady_clock::now();
            Handle(13, l_message);
            l_slowest = std::max(l_slowest, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - l_start).count());
            io_state.PauseTiming();
            l_largestHtml = std::max(l_largestHtml, lp_view->document()->toHtml().size());
            io_state.ResumeTiming();
        }
    }
    io_state.counters["slowest_ms"] = l_slowest;
    io_state.counters["largest_html"] = static_cast<double>(l_largestHtml);
    io_state.counters["per_line_ms"] = benchmark::Counter(
        static_cast<double>(io_state.iterations() * l_lines), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    LeaveRoom(l_room);
}
BENCHMARK(BM_BusyRoomChat)->Arg(20000)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace

int main(int i_argc, char** i_argv)
{
    QTemporaryDir l_home;
    qputenv("HOME", l_home.path().toLocal8Bit());
    QApplication l_app(i_argc, i_argv);
    auto* lp_window = new MainWindow;
    lp_window->show();
    QApplication::processEvents();
    benchmark::Initialize(&i_argc, i_argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete lp_window;
    return 0;
}
