// The MP3 scanner on 1,000 generated files of about 512 KiB each, whose frames carry
// pseudo-random payloads, so that stray sync bytes occur. The files are written once to a
// temporary folder and read from the page cache. Each run asks for every file through the
// shares manager's signal, as the walk does, and ends when the last result has reached its
// file on the main thread; meanwhile a 5 ms main-thread timer measures the longest gap.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "ShareBenchSupport.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "support/MP3Frames.h"

using namespace ShareBench;

namespace
{
constexpr int s_files = 1000;
constexpr std::size_t s_fileBytes = 512 * 1024;
constexpr int s_timerMs = 5;

// One generated file: its path as it crosses to the scanner, and the rate it was made with.
// A stray header in the payload may move a variable file's average a little.
struct SongFile
{
    QString m_crossing;
    std::string m_path;
    int m_bitrate;
    bool m_variable;
};

std::vector<SongFile> g_songs;
std::size_t g_totalBytes = 0;

// Three of four files at a constant rate, the fourth cycling through four rates; frames are
// added, a whole cycle at a time, until the file reaches about 512 KiB.
void WriteSongs(std::string const& i_folder)
{
    static int const s_constantRates[] = {128, 192, 320};
    static int const s_variableRates[] = {128, 160, 192, 256}; // 184 on average
    std::mt19937 l_random(2024);
    std::string l_bytes;
    for (int l_index = 0; l_index < s_files; ++l_index)
    {
        bool const l_variable = l_index % 4 == 3;
        l_bytes.clear();
        while (l_bytes.size() < s_fileBytes)
            for (int l_frame = 0; l_frame < 4; ++l_frame)
            {
                int const l_rate = l_variable ? s_variableRates[l_frame] : s_constantRates[l_index % 3];
                MP3Frames::Append(l_bytes, MP3Frames::Frame{.m_bitrate = l_rate}, &l_random);
            }
        char l_name[32];
        std::snprintf(l_name, sizeof l_name, "/song %04d.mp3", l_index);
        std::string const l_path = i_folder + l_name;
        if (!MP3Frames::Save(l_path, l_bytes))
            return;
        g_totalBytes += l_bytes.size();
        g_songs.push_back({QString::fromLatin1(l_path), l_path, l_variable ? 184 : s_constantRates[l_index % 3], l_variable});
    }
}

// Spins the event loop until the scanner has logged i_lines results in all.
bool WaitForScans(std::uint64_t i_lines)
{
    QDeadlineTimer const l_deadline(120000);
    while (LogLines("MP3 Scanning") < i_lines && !l_deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return LogLines("MP3 Scanning") >= i_lines;
}

// The files that took the reading they were made for.
int RightlyScanned()
{
    int l_right = 0;
    for (SongFile const& l_song : g_songs)
    {
        ItemPtr const l_file = sharedFoldersManager->GetSharedFileItem(l_song.m_path);
        if (!l_file || !l_file.HasItem("is_scanned"))
            continue;
        int const l_rate = std::stoi("0" + l_file.HasItem("bitrate").AsString());
        bool const l_rateRight = l_song.m_variable ? std::abs(l_rate - l_song.m_bitrate) <= 2 : l_rate == l_song.m_bitrate;
        l_right += l_rateRight && l_file.HasItem("bitrate_mode").AsString() == (l_song.m_variable ? "vbr" : "cbr");
    }
    return l_right;
}

void BM_ScanThroughTheQueue(benchmark::State& io_state)
{
    if (static_cast<int>(g_songs.size()) != s_files)
    {
        io_state.SkipWithError("the files could not be written");
        return;
    }
    Item* const lp_scanned = d.GetType("is_scanned")->GetGlobalNullItem();
    double l_seconds = 0, l_gap = 0;
    for (auto l_ : io_state)
    {
        io_state.PauseTiming();
        for (SongFile const& l_song : g_songs)
            if (ItemPtr const l_file = sharedFoldersManager->GetSharedFileItem(l_song.m_path))
                l_file -= lp_scanned;
        std::uint64_t const l_target = LogLines("MP3 Scanning") + s_files;
        StallMeter l_meter(s_timerMs);
        io_state.ResumeTiming();

        Clock::time_point const l_start = Clock::now();
        l_meter.Start();
        for (SongFile const& l_song : g_songs)
            emit sharedFoldersManager->MP3ScanRequired(l_song.m_crossing);
        bool const l_done = WaitForScans(l_target);
        l_gap = std::max(l_gap, l_meter.Stop());
        l_seconds = Seconds(Clock::now() - l_start);
        if (!l_done)
        {
            io_state.SkipWithError("not every file was scanned");
            return;
        }
    }
    if (RightlyScanned() != s_files)
        io_state.SkipWithError("a file took a wrong reading");
    io_state.counters["files_per_s"] = s_files / l_seconds;
    io_state.counters["MB_per_s"] = double(g_totalBytes) / 1e6 / l_seconds;
    io_state.counters["longest_gap_ms"] = l_gap * 1000;
    Report("files scanned per second", s_files / l_seconds, "1/s", "target at least 500");
    Report("MB scanned per second", double(g_totalBytes) / 1e6 / l_seconds, "MB/s");
    Record("time per file (at most 2 ms is 500 files/s)", l_seconds * 1000 / s_files, "ms", 2.0);
    Record("longest gap of a 5 ms main-thread timer", l_gap * 1000, "ms", 50.0);
}
} // namespace

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    QTemporaryDir l_folder;
    std::string const l_root = l_folder.path().toStdString();
    WriteSongs(l_root);
    SetUpClient(false);
    sharedFoldersManager->Init();
    // Sharing the folder walks it, and the walk asks for every scan: the first, unmeasured
    // round, which also warms the page cache.
    d.GetType("shared_folder")->GetItem(Value(l_root));
    if (!WaitForScans(s_files) || RightlyScanned() != s_files)
        std::fprintf(stderr, "the first round of scans did not give every file its reading\n");
    Report("files", s_files, "", std::to_string(g_totalBytes / s_files) + " bytes on average");

    benchmark::RegisterBenchmark("MP3/ScanThroughTheQueue", BM_ScanThroughTheQueue)->Iterations(3)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&i_argc, i_argv);
    if (benchmark::ReportUnrecognizedArguments(i_argc, i_argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return PrintSummary() == 0 ? 0 : 1;
}
