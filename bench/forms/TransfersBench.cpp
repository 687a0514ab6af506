// Cost of the Transfers tab at the sizes a long-lived client reaches: 10,000 saved downloads
// (100 users x 10 folders x 10 files) built into the tree when the queue is loaded, 10,000
// uploads arriving one by one, and ten downloads and one upload reporting 12,800 times a second
// between them, with status changes, while a 1 ms timer watches the event loop.
// --run_seconds=N shortens the progress run (10 s by default).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QEventLoop>
#include <QLabel>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "forms/TransfersForm.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "support/SavedGraph.h"
#include "transfers/TransferQueueManager.h"
#include "ui_MainWindow.h"

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int s_users = 100;
constexpr int s_folders = 10;
constexpr int s_files = 10;
constexpr long long s_size = 1LL << 30;
constexpr int s_reportsPerSecond = 12800;
constexpr int s_reportBytes = 8192;
int g_runSeconds = 10;

double Ms(Clock::duration i_span)
{
    return std::chrono::duration<double, std::milli>(i_span).count();
}

std::string Name(char const* i_kind, int i_n)
{
    return i_kind + std::to_string(i_n);
}

void SeedDownloads(QString const& i_file)
{
    SavedGraph l_seed;
    l_seed.SetFreeListeningPort();
    l_seed.Set("global", "use_upnp", "no");
    int l_order = 0;
    for (int l_user = 0; l_user < s_users; ++l_user)
        for (int l_folder = 0; l_folder < s_folders; ++l_folder)
            for (int l_file = 0; l_file < s_files; ++l_file)
            {
                ++l_order;
                l_seed.AddDownload({Name("user", l_user), Name("file", l_file) + ".bin",
                                    "share\\" + Name("folder", l_folder), std::to_string(s_size + l_order),
                                    l_order % 4 == 0 ? "complete" : "queued", std::to_string(l_order), std::nullopt});
            }
    l_seed.Save(i_file);
}

// Notes when the download rows are made, from the graph's side: the first user row and the
// last file row.
struct RowClock : DataHandler
{
    RowClock() { d.m_itemAddedEvent.Add(MakeHandler(&RowClock::OnItemAdded)); }
    void OnItemAdded(Item* ip_item)
    {
        std::string const& l_type = ip_item->GetType()->GetName();
        if (l_type == "download_list_user_node" && m_first == Clock::time_point())
            m_first = Clock::now();
        else if (l_type == "download_list_node")
        {
            m_last = Clock::now();
            ++m_rows;
        }
    }
    Clock::time_point m_first;
    Clock::time_point m_last;
    int m_rows = 0;
};

double g_constructionMs = 0;
double g_rowsMs = 0;
double g_firstRowToReadyMs = 0;
int g_rowsMade = 0;

TransfersForm* Form()
{
    return mainWindow->Transfers();
}

void Spin(int i_ms)
{
    QEventLoop l_loop;
    QTimer::singleShot(i_ms, &l_loop, &QEventLoop::quit);
    l_loop.exec();
}

int RowCount(QTreeWidget* ip_tree)
{
    int l_rows = 0;
    for (QTreeWidgetItemIterator l_row(ip_tree); *l_row; ++l_row)
        ++l_rows;
    return l_rows;
}

void BM_DownloadTreeBuiltAtLoad(benchmark::State& io_state)
{
    for (auto _ : io_state)
        io_state.SetIterationTime(g_firstRowToReadyMs / 1000.0);
    io_state.counters["window_ms"] = g_constructionMs;
    io_state.counters["rows_made_ms"] = g_rowsMs;
    io_state.counters["first_row_to_ready_ms"] = g_firstRowToReadyMs;
    io_state.counters["entry_rows"] = g_rowsMade;
    io_state.counters["tree_rows"] = RowCount(Form()->DownloadsList());
    std::printf("Download tree: %d entry rows, %d rows in all; rows made in %.1f ms, first row to window ready "
                "%.1f ms (window %.1f ms)\n",
                g_rowsMade, RowCount(Form()->DownloadsList()), g_rowsMs, g_firstRowToReadyMs, g_constructionMs);
}
BENCHMARK(BM_DownloadTreeBuiltAtLoad)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

ItemPtr NewUpload(int i_user, int i_folder, int i_file)
{
    ItemPtr const l_file = d.GetType("shared_file")->NewItem();
    l_file += d.GetType("shared_file_folder")->GetItem("/srv/share/" + Name("folder", i_folder));
    l_file += d.GetType("shared_file_name")->GetItem(Name("up", i_file) + ".bin");
    l_file += d.GetType("shared_file_size")->GetItem(Value(s_size));
    ItemPtr const l_entry = d.GetType("upload_entry")->NewItem();
    l_entry += d.GetType("user")->GetItem(Name("peer", i_user));
    l_entry += l_file;
    l_entry += d.GetType("filename_as_requested")->GetItem(Name("folder", i_folder) + "\\" + Name("up", i_file) + ".bin");
    transferQueueManager->SetUploadEntryStatus(l_entry, "queued");
    return l_entry;
}

// Each upload arrives alone, as a peer's request makes it, and gets its rows at once.
void BM_TenThousandUploadsArrive(benchmark::State& io_state)
{
    for (auto _ : io_state)
    {
        for (int l_user = 0; l_user < s_users; ++l_user)
            for (int l_folder = 0; l_folder < s_folders; ++l_folder)
                for (int l_file = 0; l_file < s_files; ++l_file)
                    NewUpload(l_user, l_folder, l_file);
        QApplication::processEvents();
    }
    int const l_rows = RowCount(Form()->UploadsList());
    io_state.counters["tree_rows"] = l_rows;
    if (l_rows != s_users * s_folders * s_files + s_users * s_folders + s_users)
        io_state.SkipWithError("not every upload got its rows");
}
BENCHMARK(BM_TenThousandUploadsArrive)->Iterations(1)->Unit(benchmark::kMillisecond);

struct Runner
{
    ItemPtr m_entry;
    char const* m_positionType;
    long long m_position = 0;
};

void GiveThread(Runner& io_runner)
{
    ItemPtr const l_entry = io_runner.m_entry;
    l_entry += d.GetType(io_runner.m_positionType)->GetItem(Value(new long long(io_runner.m_position)));
    l_entry += d.GetType("bytes_per_second")->GetItem(Value(new int(0)));
}

void Report(Runner& io_runner, int i_speed)
{
    io_runner.m_position += s_reportBytes;
    ItemPtr const l_entry = io_runner.m_entry;
    *l_entry.HasItem(io_runner.m_positionType).AsPointer<long long>() = io_runner.m_position;
    *l_entry.HasItem("bytes_per_second").AsPointer<int>() = i_speed;
    if (std::strcmp(io_runner.m_positionType, "write_position") == 0)
        emit transferQueueManager->DownloadProgressed(l_entry);
    else
        emit transferQueueManager->UploadProgressed(l_entry);
}

std::set<QTreeWidgetItem*> Rows()
{
    std::set<QTreeWidgetItem*> l_rows;
    for (QTreeWidget* lp_tree : {Form()->DownloadsList(), Form()->UploadsList()})
        for (QTreeWidgetItemIterator l_row(lp_tree); *l_row; ++l_row)
            l_rows.insert(*l_row);
    return l_rows;
}

void BM_ProgressAt12800ReportsPerSecond(benchmark::State& io_state)
{
    mainWindow->Widgets()->mainTabWidget->setCurrentWidget(mainWindow->Widgets()->transfersTab);
    // Ten downloads of ten users, and one upload.
    std::vector<Runner> l_runners;
    for (int l_user = 0; l_user < 10; ++l_user)
    {
        ItemPtr const l_entry =
            transferQueueManager->GetDownloadEntry(Name("user", l_user * 7), "file1.bin", "share\\folder3");
        if (!l_entry)
        {
            io_state.SkipWithError("a seeded download is missing");
            return;
        }
        transferQueueManager->SetDownloadEntryStatus(l_entry, "downloading");
        l_runners.push_back({l_entry, "write_position"});
        GiveThread(l_runners.back());
    }
    ItemSet const l_uploads = d.GetType("upload_entry")->GetItems();
    if (l_uploads.empty())
    {
        io_state.SkipWithError("no upload to run");
        return;
    }
    ItemPtr const l_upload = *l_uploads.begin();
    transferQueueManager->SetUploadEntryStatus(l_upload, "uploading");
    l_runners.push_back({l_upload, "read_position"});
    GiveThread(l_runners.back());
    // Every runner draws its first bar before the rows are counted.
    for (Runner& l_runner : l_runners)
        Report(l_runner, 1 << 20);
    Spin(TransfersForm::s_redrawIntervalMs * 2);
    std::set<QTreeWidgetItem*> const l_rowsBefore = Rows();

    std::vector<Item*> l_idle;
    for (Item* lp_entry : d.GetType("download_entry")->GetItems())
        if (TransferQueueManager::StatusOf(lp_entry) == "queued")
            l_idle.push_back(lp_entry);

    long long l_reports = 0;
    int l_statusChanges = 0;
    double l_longestGap = 0;
    double l_ranMs = 1;
    for (auto _ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        Clock::time_point l_lastTick = l_start;
        QTimer l_watch;
        l_watch.setTimerType(Qt::PreciseTimer);
        QObject::connect(&l_watch, &QTimer::timeout, [&] {
            Clock::time_point const l_now = Clock::now();
            l_longestGap = std::max(l_longestGap, Ms(l_now - l_lastTick));
            l_lastTick = l_now;
        });
        QTimer l_feed;
        l_feed.setTimerType(Qt::PreciseTimer);
        std::size_t l_next = 0;
        QObject::connect(&l_feed, &QTimer::timeout, [&] {
            long long const l_due = static_cast<long long>(Ms(Clock::now() - l_start) * s_reportsPerSecond / 1000.0);
            for (; l_reports < l_due; ++l_reports)
                Report(l_runners[l_next++ % l_runners.size()], 1000000 + static_cast<int>(l_reports % 50000));
        });
        // Waiting entries change status ten times a second, and a running one finishes and
        // starts again twice a second.
        QTimer l_statuses;
        char const* const s_cycle[] = {"denied", "aborted", "complete", "queued"};
        QObject::connect(&l_statuses, &QTimer::timeout, [&] {
            ++l_statusChanges;
            ItemPtr const l_entry = l_idle[static_cast<std::size_t>(l_statusChanges * 997) % l_idle.size()];
            transferQueueManager->SetDownloadEntryStatus(l_entry, s_cycle[l_statusChanges % 4]);
            if (l_statusChanges % 5 == 0)
            {
                Runner& l_runner = l_runners[static_cast<std::size_t>(l_statusChanges / 5) % (l_runners.size() - 1)];
                transferQueueManager->SetDownloadEntryStatus(l_runner.m_entry, "complete");
                transferQueueManager->SetDownloadEntryStatus(l_runner.m_entry, "downloading");
                GiveThread(l_runner);
            }
        });
        l_watch.start(1);
        l_feed.start(1);
        l_statuses.start(100);
        Spin(g_runSeconds * 1000);
        l_feed.stop();
        l_statuses.stop();
        l_watch.stop();
        l_ranMs = Ms(Clock::now() - l_start);
        io_state.SetIterationTime(l_ranMs / 1000.0);
    }
    Spin(TransfersForm::s_redrawIntervalMs * 2);
    std::set<QTreeWidgetItem*> const l_rowsAfter = Rows();
    io_state.counters["longest_gap_ms"] = l_longestGap;
    io_state.counters["reports"] = static_cast<double>(l_reports);
    io_state.counters["status_changes"] = l_statusChanges;
    io_state.counters["rows_changed"] = l_rowsBefore == l_rowsAfter ? 0 : 1;
    std::printf("Progress run of %d s: %lld reports (%.0f a second), %d status changes; longest event-loop gap "
                "%.1f ms; rows before %zu, after %zu, %s\n",
                g_runSeconds, l_reports, static_cast<double>(l_reports) * 1000.0 / l_ranMs, l_statusChanges, l_longestGap,
                l_rowsBefore.size(), l_rowsAfter.size(), l_rowsBefore == l_rowsAfter ? "the same rows" : "ROWS CHANGED");
    std::printf("Summary: %s\n", qPrintable(Form()->findChild<QLabel*>(QStringLiteral("downloadsSummaryLabel"))->text()));
}
BENCHMARK(BM_ProgressAt12800ReportsPerSecond)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
} // namespace

int main(int i_argc, char** i_argv)
{
    std::vector<char*> l_args;
    for (int l_arg = 0; l_arg < i_argc; ++l_arg)
        if (std::strncmp(i_argv[l_arg], "--run_seconds=", 14) == 0)
            g_runSeconds = std::max(1, std::atoi(i_argv[l_arg] + 14));
        else
            l_args.push_back(i_argv[l_arg]);
    int l_count = static_cast<int>(l_args.size());

    QTemporaryDir l_home;
    qputenv("HOME", l_home.path().toLocal8Bit());
    QApplication l_app(l_count, l_args.data());
    SeedDownloads(l_home.path() + QStringLiteral("/.Tidewick"));
    auto* lp_clock = new RowClock;
    Clock::time_point const l_start = Clock::now();
    auto* lp_window = new MainWindow;
    Clock::time_point const l_ready = Clock::now();
    g_constructionMs = Ms(l_ready - l_start);
    g_rowsMs = Ms(lp_clock->m_last - lp_clock->m_first);
    g_firstRowToReadyMs = Ms(l_ready - lp_clock->m_first);
    g_rowsMade = lp_clock->m_rows;
    delete lp_clock;
    lp_window->show();
    QApplication::processEvents();

    benchmark::Initialize(&l_count, l_args.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete lp_window;
    return 0;
}
