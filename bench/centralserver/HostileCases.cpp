#include "HostileCases.h"

#include "LoadServer.h"
#include "RunUntil.h"
#include "WireWriter.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cstdio>

namespace
{
constexpr int c_groupWaitMs = 15000;
QString const c_notLoggedIn = QStringLiteral("clients not logged in");
// Codes the server serves, each followed by the fields before its first string or count.
struct Served
{
    quint32 m_code;
    int m_leadingNumbers;
};
constexpr Served c_servedWithStrings[] = {{3, 0}, {5, 0}, {6, 0}, {7, 0}, {13, 0}, {14, 0}, {15, 0}, {18, 1}, {22, 0},
    {26, 1}, {36, 0}, {103, 1}, {127, 0}, {1001, 1}};
constexpr quint32 c_served[] = {1, 2, 3, 5, 6, 7, 13, 14, 15, 18, 22, 23, 26, 36, 64, 71, 100, 103, 121, 126, 127, 129, 1001};
// Slow writers are closed by the server's time for a frame to complete, half a minute.
constexpr qint64 c_slowWriterCloseMs = 30 * 1000 + 5000;

QByteArray Length(quint32 i_length)
{
    QByteArray l_bytes(4, '\0');
    qToLittleEndian(i_length, l_bytes.data());
    return l_bytes;
}

bool IsServed(quint32 i_code)
{
    return std::find(std::begin(c_served), std::end(c_served), i_code) != std::end(c_served);
}

// Sends i_bytes one at a time every i_intervalMs for as long as i_group lives.
void Trickle(HostileGroup& io_group, QByteArray i_bytes, int i_intervalMs)
{
    for (int l_index = 0; l_index < io_group.Size(); ++l_index)
    {
        LoadClient& l_link = io_group.At(l_index);
        auto* lp_timer = new QTimer(&l_link);
        auto lp_sent = std::make_shared<qsizetype>(0);
        QObject::connect(lp_timer, &QTimer::timeout, &l_link, [&l_link, lp_timer, lp_sent, i_bytes] {
            if (*lp_sent >= i_bytes.size() || l_link.IsGone())
                return lp_timer->stop();
            l_link.Send(i_bytes.mid((*lp_sent)++, 1));
        });
        lp_timer->start(i_intervalMs);
    }
}
}

HostileCases::HostileCases(quint16 i_port, LoadServer const& i_server)
    : m_port(i_port)
    , m_server(i_server)
{
}

HostileCases::~HostileCases() = default;

std::vector<HostileCases::Case> HostileCases::All()
{
    return {
        {"frame lengths 0, 3, 2^31, 2^32-1 and beyond their code's bound, announced then trickled or never sent",
            [this] { return BadLengths(); }},
        {"counts of a million with no bytes behind them", [this] { return HollowCounts(); }},
        {"1,000 connections left idle before login", [this] { return IdleBeforeLogin(1000); }},
        {"4,200 connections left idle before login, beyond the server's 4,096 connections",
            [this] { return IdleBeforeLogin(4200); }},
        {"1,000 connections opened and closed at once", [this] { return OpenedAndClosed(); }},
        {"room flood to clients that never read", [this] { return RoomFlood(); }},
        {"user lists of 1,000 asked by clients that never read", [this] { return UserLists(10); }},
        {"garbage after login", [this] { return Garbage(100); }},
        {"unknown codes", [this] { return UnknownCodes(50); }},
        {"frames of the largest size announced and left unfinished", [this] { return AssemblyFlood(200); }},
    };
}

std::unique_ptr<HostileGroup> HostileCases::LoggedIn(int i_count)
{
    auto lp_group = std::make_unique<HostileGroup>(m_port, i_count, true);
    return lp_group->WaitReady(c_groupWaitMs) ? std::move(lp_group) : nullptr;
}

std::unique_ptr<HostileGroup> HostileCases::LoggedInSending(int i_count, std::function<QByteArray()> const& i_bytes)
{
    auto lp_group = LoggedIn(i_count);
    for (int l_index = 0; lp_group && l_index < i_count; ++l_index)
        lp_group->At(l_index).Send(i_bytes() + WireWriter(64).Frame());
    return lp_group;
}

qsizetype HostileCases::NewLogLines(QString const& i_text)
{
    qsizetype const l_now = m_server.LogCount(i_text);
    qsizetype const l_new = l_now - m_logSeen.value(i_text);
    m_logSeen[i_text] = l_now;
    return l_new;
}

QString HostileCases::BadLengths()
{
    // Each length before and after login; half of each group stops after the length, the other
    // half goes on a byte every 100 ms.
    constexpr int c_each = 12;
    std::vector<std::unique_ptr<HostileGroup>> l_groups;
    for (quint32 const l_length : {0u, 3u, 0x80000000u, 0xffffffffu})
    {
        for (bool const l_logIn : {false, true})
        {
            for (bool const l_trickle : {false, true})
            {
                l_groups.push_back(std::make_unique<HostileGroup>(m_port, c_each, l_logIn));
                if (!l_groups.back()->WaitReady(c_groupWaitMs))
                    return QStringLiteral("connections for length %1 not ready").arg(l_length);
                l_groups.back()->SendAll(Length(l_length));
                if (l_trickle)
                    Trickle(*l_groups.back(), QByteArray(64, 'x'), 100);
            }
        }
    }
    // Lengths within bounds for frames in general, beyond the bound of their own code.
    for (auto const& [l_code, l_length] : {std::pair{2u, 4096u}, {14u, 64u * 1024}, {22u, 512u * 1024}})
    {
        l_groups.push_back(std::make_unique<HostileGroup>(m_port, c_each, true));
        if (!l_groups.back()->WaitReady(c_groupWaitMs))
            return QStringLiteral("connections for code %1 not ready").arg(l_code);
        l_groups.back()->SendAll(Length(l_length) + WireWriter(l_code).Frame().mid(4));
        Trickle(*l_groups.back(), QByteArray(64, 'x'), 100);
    }
    int l_open = 0;
    for (auto& lp_group : l_groups)
    {
        lp_group->WaitClosed(lp_group->Size(), 3000);
        l_open += lp_group->Size() - lp_group->Closed();
    }
    std::printf("    %zu groups of %d; left open after 3 s: %d; closed on length: %lld\n", l_groups.size(), c_each, l_open,
        static_cast<long long>(NewLogLines(QStringLiteral("out of bounds"))));
    return l_open == 0 ? QString() : QStringLiteral("%1 connections still open").arg(l_open);
}

QString HostileCases::HollowCounts()
{
    constexpr quint32 c_million = 1000000;
    // Each served code whose body leads to a string or count: the count promises a million
    // bytes that never come, inside a frame that ends there.
    auto const lp_served = LoggedIn(static_cast<int>(std::size(c_servedWithStrings)));
    if (!lp_served)
        return c_notLoggedIn;
    HostileGroup& l_served = *lp_served;
    for (int l_index = 0; l_index < l_served.Size(); ++l_index)
    {
        Served const l_code = c_servedWithStrings[l_index];
        WireWriter l_frame(l_code.m_code);
        for (int l_number = 0; l_number < l_code.m_leadingNumbers; ++l_number)
            l_frame.U32(7);
        l_served.At(l_index).Send(l_frame.U32(c_million).Frame());
    }
    // Before login, the login's name.
    HostileGroup l_login(m_port, 1, false, WireWriter(1).U32(c_million).Frame());
    // Codes not served: the count is never read, and the connection goes on.
    QByteArray l_unserved;
    for (quint32 const l_code : {4u, 35u, 42u, 51u, 91u, 149u, 150u, 151u, 152u, 160u})
        l_unserved += WireWriter(l_code).U32(c_million).Frame() + WireWriter(l_code).U32(c_million).U32(c_million).Frame();
    HostileGroup l_ignored(m_port, 10, true, l_unserved + WireWriter(64).Frame());

    bool const l_closed = l_served.WaitClosed(l_served.Size(), 5000) && l_login.WaitClosed(1, 5000);
    bool const l_answered = RunUntil([&] { return l_ignored.Received(64, 2) == l_ignored.Size(); }, 5000);
    std::printf("    served codes: %d of %d closed; login: %s; codes not served: %d of %d answered after, %d closed\n",
        l_served.Closed(), l_served.Size(), l_login.Closed() ? "closed" : "open", l_ignored.Received(64, 2),
        l_ignored.Size(), l_ignored.Closed());
    if (!l_closed)
        return QStringLiteral("a hollow count did not close its connection");
    return l_answered && l_ignored.Closed() == 0 ? QString() : QStringLiteral("codes not served disturbed their connection");
}

QString HostileCases::IdleBeforeLogin(int i_count)
{
    NewLogLines(QStringLiteral("no login while newer connections wait"));
    auto lp_idle = std::make_unique<HostileGroup>(m_port, i_count, false);
    lp_idle->WaitSettled(c_groupWaitMs);
    RunFor(500);
    std::printf("    %d connections opened, %d of them closed by the server as newer ones came; still open: %d\n",
        lp_idle->Size(), static_cast<int>(NewLogLines(QStringLiteral("no login while newer connections wait"))),
        lp_idle->Size() - lp_idle->Closed());
    m_held.push_back(std::move(lp_idle));
    return {};
}

QString HostileCases::OpenedAndClosed()
{
    auto lp_group = std::make_unique<HostileGroup>(m_port, 1000, false);
    int const l_open = lp_group->WaitSettled(c_groupWaitMs);
    int const l_closed = lp_group->Closed();
    lp_group.reset();
    RunFor(500);
    std::printf("    %d open and %d closed by the server when all were closed here\n", l_open, l_closed);
    return l_open + l_closed == 1000 ? QString() : QStringLiteral("not all connections opened");
}

QString HostileCases::RoomFlood()
{
    constexpr int c_readers = 20;
    constexpr int c_flooders = 12;
    constexpr int c_lineBytes = 120 * 1024;
    QByteArray const l_enter = WireWriter(14).String("flood").Frame();
    HostileGroup l_readers(m_port, c_readers, true, l_enter);
    HostileGroup l_flooders(m_port, c_flooders, true, l_enter);
    if (!l_readers.WaitReady(c_groupWaitMs) || !l_flooders.WaitReady(c_groupWaitMs)
        || !RunUntil([&] { return l_readers.Received(14) == c_readers && l_flooders.Received(14) == c_flooders; }, c_groupWaitMs))
        return QStringLiteral("clients not in the room");
    l_readers.StopReadingAll();
    NewLogLines(QStringLiteral("does not read"));
    NewLogLines(QStringLiteral("reads too slowly"));
    qsizetype l_alone = 0;
    qsizetype l_together = 0;
    QByteArray const l_line = WireWriter(13).String("flood").String(QByteArray(c_lineBytes, 'f')).Frame();
    // The burst the chat allowance lets through, then four lines a second, below its rate.
    for (int l_line_index = 0; l_line_index < 20; ++l_line_index)
        l_flooders.SendAll(l_line);
    qsizetype l_closed = 0;
    for (int l_round = 0; l_round < 60 && l_closed < c_readers; ++l_round)
    {
        RunFor(250);
        l_flooders.SendAll(l_line);
        l_alone += NewLogLines(QStringLiteral("does not read"));
        l_together += NewLogLines(QStringLiteral("reads too slowly"));
        l_closed = l_alone + l_together;
    }
    std::printf("    %d never-reading members, %d senders of %d KiB lines: %lld closed past their own bound, %lld past the "
                "bound of all output; %d senders closed\n",
        c_readers, c_flooders, c_lineBytes / 1024, static_cast<long long>(l_alone), static_cast<long long>(l_together),
        l_flooders.Closed());
    return l_closed >= c_readers ? QString() : QStringLiteral("only %1 non-readers closed").arg(l_closed);
}

QString HostileCases::UserLists(int i_readers)
{
    auto const lp_readers = LoggedIn(i_readers);
    if (!lp_readers)
        return c_notLoggedIn;
    lp_readers->StopReadingAll();
    NewLogLines(QStringLiteral("does not read"));
    QByteArray l_enters;
    for (int l_enter = 0; l_enter < 2000; ++l_enter)
        l_enters += WireWriter(14).String("crowd").Frame();
    lp_readers->SendAll(l_enters);
    qsizetype l_closed = 0;
    RunUntil([&] { return (l_closed += NewLogLines(QStringLiteral("does not read"))) >= i_readers; }, 30000);
    std::printf("    %d clients asking for the list of 1,000 members 2,000 times each: %lld closed as non-readers\n",
        i_readers, static_cast<long long>(l_closed));
    return l_closed >= i_readers ? QString() : QStringLiteral("only %1 non-readers closed").arg(l_closed);
}

QString HostileCases::Garbage(int i_clients)
{
    QRandomGenerator l_random(42);
    auto const lp_group = LoggedInSending(i_clients, [&l_random] {
        QByteArray l_garbage(4096, '\0');
        l_random.fillRange(reinterpret_cast<quint32*>(l_garbage.data()), l_garbage.size() / 4);
        return l_garbage;
    });
    if (!lp_group)
        return c_notLoggedIn;
    HostileGroup& l_group = *lp_group;
    RunFor(2000);
    std::printf("    %d clients sent 4 KiB of random bytes: %d closed, %d still answered\n", i_clients, l_group.Closed(),
        l_group.Received(64, 2));
    return {};
}

QString HostileCases::UnknownCodes(int i_clients)
{
    QRandomGenerator l_random(7);
    auto const lp_group = LoggedInSending(i_clients, [&l_random] {
        QByteArray l_frames = WireWriter(0).Frame() + WireWriter(0xffffffffu).U32(1).Frame();
        while (l_frames.size() < 64 * 1024)
        {
            // Half of the codes near those of the network, half anywhere.
            quint32 l_code = l_random.generate();
            if (l_code % 2 == 0)
                l_code %= 2000;
            if (!IsServed(l_code))
                l_frames += WireWriter(l_code).String(QByteArray(l_random.bounded(512), 'u')).Frame();
        }
        return l_frames;
    });
    if (!lp_group)
        return c_notLoggedIn;
    HostileGroup& l_group = *lp_group;
    bool const l_answered = RunUntil([&] { return l_group.Received(64, 2) == i_clients; }, 10000);
    std::printf("    %d clients sent 64 KiB of messages of codes not served: %d answered after, %d closed\n", i_clients,
        l_group.Received(64, 2), l_group.Closed());
    return l_answered && l_group.Closed() == 0 ? QString() : QStringLiteral("unknown codes disturbed their connections");
}

QString HostileCases::AssemblyFlood(int i_clients)
{
    constexpr quint32 c_length = 1024 * 1024;
    auto lp_group = LoggedIn(i_clients);
    if (!lp_group)
        return c_notLoggedIn;
    NewLogLines(QStringLiteral("frames under assembly"));
    QByteArray const l_begun = Length(c_length) + WireWriter(999).Frame().mid(4) + QByteArray(c_length - 4 - 100, 'a');
    lp_group->SendAll(l_begun);
    RunFor(3000);
    qsizetype const l_closed = NewLogLines(QStringLiteral("frames under assembly"));
    std::printf("    %d clients each sent %u KiB of a frame of %u KiB: %lld closed on the bound of all frames under assembly\n",
        i_clients, (c_length - 100) / 1024, c_length / 1024, static_cast<long long>(l_closed));
    m_held.push_back(std::move(lp_group));
    return l_closed > 0 ? QString() : QStringLiteral("no connection closed on the bound of frames under assembly");
}

void HostileCases::StartSlowWriters()
{
    m_slowStartMs = QDateTime::currentMSecsSinceEpoch();
    mp_slowBeforeLogin = std::make_unique<HostileGroup>(m_port, 5, false);
    mp_slowAfterLogin = std::make_unique<HostileGroup>(m_port, 5, true);
    mp_slowBeforeLogin->WaitReady(c_groupWaitMs);
    mp_slowAfterLogin->WaitReady(c_groupWaitMs);
    Trickle(*mp_slowBeforeLogin, LoadClient::LoginFrame("slowpoke"), 1000);
    Trickle(*mp_slowAfterLogin, Length(64 * 1024) + WireWriter(999).Frame().mid(4) + QByteArray(64 * 1024, 's'), 1000);
}

QString HostileCases::CheckSlowWriters()
{
    qint64 const l_waitMs = m_slowStartMs + c_slowWriterCloseMs - QDateTime::currentMSecsSinceEpoch();
    RunUntil([this] { return mp_slowBeforeLogin->Closed() + mp_slowAfterLogin->Closed() == 10; }, static_cast<int>(qMax<qint64>(1, l_waitMs)));
    int const l_closed = mp_slowBeforeLogin->Closed() + mp_slowAfterLogin->Closed();
    std::printf("    10 clients sending a byte a second, 5 before and 5 after login: %d closed %lld s after they began, "
                "%lld on the time for a frame\n",
        l_closed, static_cast<long long>((QDateTime::currentMSecsSinceEpoch() - m_slowStartMs) / 1000),
        static_cast<long long>(NewLogLines(QStringLiteral("frame not completed within"))));
    mp_slowBeforeLogin.reset();
    mp_slowAfterLogin.reset();
    return l_closed == 10 ? QString() : QStringLiteral("%1 slow writers still open").arg(10 - l_closed);
}
