#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <string>

#include <QTemporaryDir>

#include "store/Data.h"
#include "store/DataSaver.h"

namespace
{
constexpr int s_files = 100000;
constexpr int s_filesPerFolder = 100;

// The share part of the schema, saved the way the client saves it.
void Declare(Data& io_data, DataSaver& io_saver)
{
    Type* lp_file = io_data.NewType("shared_file", false, true, true);
    lp_file->RelateToType(io_data.NewType("is_scanned", false, true, true), Many, One, false);
    lp_file->RelateToType(io_data.NewType("search_token", false, false, true), Many, Many, false);
    io_saver.m_savedTypes.insert("is_scanned");
    io_saver.AddSavedByConnectionType("shared_file", "is_scanned");
    for (char const* l_name : {"shared_file_folder", "shared_file_name", "shared_file_size", "bitrate",
                               "channel_mode", "audio_frequency"})
    {
        lp_file->RelateToType(io_data.NewType(l_name, false, false, true), Many, One, false);
        io_saver.AddSavedByConnectionType(l_name, "shared_file");
    }
}

// One null item per file, tied to its folder, name, size, scan results and two unsaved tokens.
void BuildShare(Data& io_data)
{
    Type* lp_file = io_data.GetType("shared_file");
    Type* lp_folder = io_data.GetType("shared_file_folder");
    Type* lp_name = io_data.GetType("shared_file_name");
    Type* lp_size = io_data.GetType("shared_file_size");
    Type* lp_bitrate = io_data.GetType("bitrate");
    Type* lp_mode = io_data.GetType("channel_mode");
    Type* lp_frequency = io_data.GetType("audio_frequency");
    Type* lp_token = io_data.GetType("search_token");
    char const* const l_modes[] = {"stereo", "joint stereo", "mono"};
    char const* const l_bitrates[] = {"128", "160", "192", "256", "320"};
    for (int l_index = 0; l_index < s_files; ++l_index)
    {
        Item* lp_item = lp_file->NewItem();
        lp_item->NewItem("is_scanned");
        int const l_folder = l_index / s_filesPerFolder;
        lp_item->Connect(lp_folder->GetItem("/home/user/Music/Artist " + std::to_string(l_folder / 10) +
                                            "/Album " + std::to_string(l_folder)));
        lp_item->Connect(lp_name->GetItem("Track " + std::to_string(l_index) + " - Some Title.mp3"));
        lp_item->Connect(lp_size->GetItem(std::to_string(2000000 + (l_index * 7919) % 9000000)));
        lp_item->Connect(lp_bitrate->GetItem(l_bitrates[l_index % 5]));
        lp_item->Connect(lp_mode->GetItem(l_modes[l_index % 3]));
        lp_item->Connect(lp_frequency->GetItem(l_index % 4 ? "44100" : "48000"));
        lp_item->Connect(lp_token->GetItem("track"));
        lp_item->Connect(lp_token->GetItem(std::to_string(l_index)));
    }
}

std::string FileName(QTemporaryDir const& i_dir)
{
    return i_dir.path().toStdString() + "/.Tidewick";
}

std::int64_t FileSize(std::string const& i_name)
{
    struct stat l_stat = {};
    return ::stat(i_name.c_str(), &l_stat) == 0 ? l_stat.st_size : -1;
}
} // namespace

static void SaveShare(benchmark::State& io_state)
{
    QTemporaryDir l_dir;
    Data l_data;
    DataSaver l_saver;
    Declare(l_data, l_saver);
    BuildShare(l_data);
    std::string const l_file = FileName(l_dir);
    for (auto l_ : io_state)
        benchmark::DoNotOptimize(l_saver.Save(&l_data, l_file.c_str()));
    io_state.counters["file_bytes"] = static_cast<double>(FileSize(l_file));
}
BENCHMARK(SaveShare)->Unit(benchmark::kMillisecond)->Iterations(5);

// Each round loads into a fresh graph. A graph leaves its items behind when it goes, as at
// program exit, so the rounds are few.
static void LoadShare(benchmark::State& io_state)
{
    QTemporaryDir l_dir;
    std::string const l_file = FileName(l_dir);
    {
        Data l_data;
        DataSaver l_saver;
        Declare(l_data, l_saver);
        BuildShare(l_data);
        l_saver.Save(&l_data, l_file.c_str());
    }
    for (auto l_ : io_state)
    {
        io_state.PauseTiming();
        Data l_data;
        DataSaver l_saver;
        Declare(l_data, l_saver);
        io_state.ResumeTiming();
        l_saver.Load(&l_data, l_file.c_str());
        if (l_data.GetType("shared_file")->ItemCount() != s_files)
            io_state.SkipWithError("the load lost files");
    }
    io_state.counters["file_bytes"] = static_cast<double>(FileSize(l_file));
}
BENCHMARK(LoadShare)->Unit(benchmark::kMillisecond)->Iterations(5);

// The same graph made by hand: the floor under LoadShare, which goes through the same
// NewItem and Connect calls.
static void BuildShareGraph(benchmark::State& io_state)
{
    for (auto l_ : io_state)
    {
        io_state.PauseTiming();
        Data l_data;
        DataSaver l_saver;
        Declare(l_data, l_saver);
        io_state.ResumeTiming();
        BuildShare(l_data);
    }
}
BENCHMARK(BuildShareGraph)->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
