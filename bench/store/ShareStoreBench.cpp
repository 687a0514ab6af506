// The store under a large share, shaped like the client's index of shared files: each file a
// null item tied to its folder, name, 64-bit size, the scan flag, three MP3 attributes and 14
// words of the search index drawn from a realistic vocabulary. Reports the bytes one file
// costs (heap and resident), the time to build, sweep, save and load the share, and how long
// a periodic save holds the main thread. Run with 100,000 and 1,000,000 files.
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <QTemporaryDir>

#include "store/Data.h"
#include "store/DataSaver.h"

namespace
{
constexpr int s_filesPerFolder = 100;
constexpr int s_tokensPerFile = 14;
constexpr int s_vocabulary = 50000;

std::size_t HeapInUse() { return mallinfo2().uordblks; }

std::size_t ResidentBytes()
{
    std::ifstream l_statm("/proc/self/statm");
    std::size_t l_pages = 0, l_resident = 0;
    l_statm >> l_pages >> l_resident;
    return l_resident * 4096;
}

// The share's part of the client's schema, saved the way the client saves it.
void Declare(Data& io_data, DataSaver& io_saver)
{
    Type* lp_sharedFolder = io_data.NewType("shared_folder", true, false, true);
    Type* lp_file = io_data.NewType("shared_file", false, true, true);
    Type* lp_folder = io_data.NewType("shared_file_folder", false, false, true);
    lp_sharedFolder->RelateToType(lp_folder, Many, Many, false);
    lp_file->RelateToType(lp_folder, Many, One, false);
    for (char const* l_name : {"shared_file_name", "shared_file_size", "bitrate", "channel_mode", "audio_frequency"})
    {
        lp_file->RelateToType(io_data.NewType(l_name, false, false, true), Many, One, false);
        io_saver.AddSavedByConnectionType(l_name, "shared_file");
    }
    lp_file->RelateToType(io_data.NewType("is_scanned", false, true, true), Many, One, false);
    io_data.NewType("search_token", false, false, true)->RelateToType(lp_file, Many, Many, false);
    io_saver.m_savedTypes.insert({"shared_folder", "is_scanned"});
    io_saver.AddSavedByConnectionType("shared_file", "is_scanned");
    io_saver.AddSavedByConnectionType("shared_file_folder", "shared_file");
}

// Words of file names follow a long-tailed law: a few are in most names, most are rare.
class Vocabulary
{
public:
    Vocabulary()
    {
        double l_sum = 0;
        for (int l_rank = 1; l_rank <= s_vocabulary; ++l_rank)
            m_cumulative.push_back(l_sum += 1.0 / l_rank);
        for (double& l_value : m_cumulative)
            l_value /= l_sum;
    }
    int Draw(std::mt19937& io_random) const
    {
        double const l_point = std::uniform_real_distribution<double>(0, 1)(io_random);
        return static_cast<int>(std::lower_bound(m_cumulative.begin(), m_cumulative.end(), l_point) - m_cumulative.begin());
    }

private:
    std::vector<double> m_cumulative;
};

void BuildShare(Data& io_data, int i_files)
{
    static Vocabulary const s_vocabulary;
    std::mt19937 l_random(42);
    Type* lp_file = io_data.GetType("shared_file");
    Type* lp_folder = io_data.GetType("shared_file_folder");
    Type* lp_name = io_data.GetType("shared_file_name");
    Type* lp_size = io_data.GetType("shared_file_size");
    Type* lp_bitrate = io_data.GetType("bitrate");
    Type* lp_mode = io_data.GetType("channel_mode");
    Type* lp_frequency = io_data.GetType("audio_frequency");
    Type* lp_token = io_data.GetType("search_token");
    Item* lp_root = io_data.GetType("shared_folder")->NewItem("/home/user/Music");
    char const* const l_modes[] = {"stereo", "joint stereo", "mono"};
    char const* const l_bitrates[] = {"128", "160", "192", "256", "320"};
    std::vector<Item*> l_folderWords;
    Item* lp_currentFolder = nullptr;
    for (int l_index = 0; l_index < i_files; ++l_index)
    {
        if (l_index % s_filesPerFolder == 0)
        {
            int const l_folder = l_index / s_filesPerFolder;
            lp_currentFolder = lp_folder->GetItem("/home/user/Music/Artist " + std::to_string(l_folder / 10) +
                                                  "/Album " + std::to_string(l_folder));
            lp_root->Connect(lp_currentFolder);
            // The words of the folder's path and the extension, shared by its files.
            l_folderWords = {lp_token->GetItem("mp3"), lp_token->GetItem("music"),
                             lp_token->GetItem("artist" + std::to_string(l_folder / 10)),
                             lp_token->GetItem("album" + std::to_string(l_folder))};
        }
        Item* lp_item = lp_file->NewItem();
        lp_item->Connect(lp_currentFolder);
        lp_item->Connect(lp_name->GetItem("Track " + std::to_string(l_index % s_filesPerFolder) + " - Title " +
                                          std::to_string(l_index) + ".mp3"));
        lp_item->Connect(lp_size->GetItem(std::to_string(2000000000LL + (l_index * 7919LL) % 9000000000LL)));
        lp_item->NewItem("is_scanned");
        lp_item->Connect(lp_bitrate->GetItem(l_bitrates[l_index % 5]));
        lp_item->Connect(lp_mode->GetItem(l_modes[l_index % 3]));
        lp_item->Connect(lp_frequency->GetItem(l_index % 4 ? "44100" : "48000"));
        for (Item* lp_word : l_folderWords)
            lp_item->Connect(lp_word);
        lp_item->Connect(lp_token->GetItem("track"));
        lp_item->Connect(lp_token->GetItem(std::to_string(1 + l_index % s_filesPerFolder)));
        // The title's words; a word drawn twice is one token, as the index has it.
        while (lp_item->ConnectedOfType(lp_token).size() < s_tokensPerFile)
            lp_item->Connect(lp_token->GetItem(std::to_string(s_vocabulary.Draw(l_random)).insert(0, 1, 'w')));
    }
}

std::size_t ItemCount(Data& i_data)
{
    std::size_t l_count = 0;
    for (auto const& l_entry : i_data.Types())
        l_count += l_entry.second->ItemCount();
    return l_count;
}

std::string FileName(QTemporaryDir const& i_dir) { return i_dir.path().toStdString() + "/.Tidewick"; }

double FileBytes(std::string const& i_name)
{
    struct stat l_stat = {};
    return ::stat(i_name.c_str(), &l_stat) == 0 ? static_cast<double>(l_stat.st_size) : -1;
}

// One graph with its saver, built fresh for each benchmark.
struct Share
{
    explicit Share(int i_files)
    {
        Declare(m_data, m_saver);
        BuildShare(m_data, i_files);
    }
    DataSaver m_saver;
    Data m_data;
};
} // namespace

static void BuildAndMeasure(benchmark::State& io_state)
{
    int const l_files = static_cast<int>(io_state.range(0));
    for (auto l_ : io_state)
    {
        malloc_trim(0);
        std::size_t const l_heap = HeapInUse();
        std::size_t const l_resident = ResidentBytes();
        auto const l_start = std::chrono::steady_clock::now();
        Share l_share(l_files);
        io_state.counters["build_ms"] =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - l_start).count();
        io_state.counters["heap_B_per_file"] = double(HeapInUse() - l_heap) / l_files;
        io_state.counters["rss_B_per_file"] = double(ResidentBytes() - l_resident) / l_files;
        io_state.counters["items"] = static_cast<double>(ItemCount(l_share.m_data));
        io_state.counters["tokens"] = static_cast<double>(l_share.m_data.GetType("search_token")->ItemCount());
    }
}
BENCHMARK(BuildAndMeasure)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);

// A sweep that finds nothing to remove walks every item: what the client pays after a rescan.
static void Sweep(benchmark::State& io_state)
{
    Share l_share(static_cast<int>(io_state.range(0)));
    for (auto l_ : io_state)
        if (l_share.m_data.RemoveDisconnectedItems() != 0)
            io_state.SkipWithError("the sweep removed items of the share");
    io_state.counters["items"] = static_cast<double>(ItemCount(l_share.m_data));
}
BENCHMARK(Sweep)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);

// A whole save as at shut-down: the bytes built, written, synced and renamed.
static void Save(benchmark::State& io_state)
{
    QTemporaryDir l_dir;
    Share l_share(static_cast<int>(io_state.range(0)));
    std::string const l_file = FileName(l_dir);
    for (auto l_ : io_state)
        benchmark::DoNotOptimize(l_share.m_saver.Save(&l_share.m_data, l_file.c_str()));
    io_state.counters["file_bytes"] = FileBytes(l_file);
}
BENCHMARK(Save)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);

// What a periodic save holds the main thread for: building the bytes; the write runs apart.
static void PeriodicSaveBlock(benchmark::State& io_state)
{
    QTemporaryDir l_dir;
    Share l_share(static_cast<int>(io_state.range(0)));
    std::string const l_file = FileName(l_dir);
    Item* lp_flag = l_share.m_data.GetType("shared_folder")->NewItem("/changing");
    for (auto l_ : io_state)
    {
        // Something saved changes each round, so that each round writes.
        lp_flag->Remove();
        lp_flag = l_share.m_data.GetType("shared_folder")->NewItem("/changing");
        if (!l_share.m_saver.SaveInBackground(&l_share.m_data, l_file.c_str()))
            io_state.SkipWithError("the periodic save did not start");
        io_state.PauseTiming();
        l_share.m_saver.WaitForBackgroundSave();
        io_state.ResumeTiming();
    }
}
BENCHMARK(PeriodicSaveBlock)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);

// Each round loads into a fresh graph, through the same NewItem and Connect calls as the
// listeners of the client hear them.
static void Load(benchmark::State& io_state)
{
    int const l_files = static_cast<int>(io_state.range(0));
    QTemporaryDir l_dir;
    std::string const l_file = FileName(l_dir);
    {
        Share l_share(l_files);
        l_share.m_saver.Save(&l_share.m_data, l_file.c_str());
    }
    for (auto l_ : io_state)
    {
        io_state.PauseTiming();
        auto lp_data = std::make_unique<Data>();
        DataSaver l_saver;
        Declare(*lp_data, l_saver);
        io_state.ResumeTiming();
        l_saver.Load(lp_data.get(), l_file.c_str());
        io_state.PauseTiming();
        if (lp_data->GetType("shared_file")->ItemCount() != static_cast<std::size_t>(l_files))
            io_state.SkipWithError("the load lost files");
        lp_data.reset();
        io_state.ResumeTiming();
    }
    io_state.counters["file_bytes"] = FileBytes(l_file);
}
BENCHMARK(Load)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(3);

BENCHMARK_MAIN();
