// The upload queue at 10,000 entries: a new request (the renumbering of every entry included)
// when it joins at the end of the line, and when its group priority puts it first and last in
// turn, so that every other entry moves each time; and StartNewUploads over the whole queue with nobody online. The managers
// are the client's own on its own graph; no peer is reached, since the askers are offline.
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <cstdio>
#include <string>

#include "bench/BenchClient.h"
#include "shares/SharedFoldersManager.h"
#include "store/Log.h"
#include "transfers/TransferQueueManager.h"

namespace
{
constexpr int g_users = 1000;
constexpr int g_filesPerUser = 10;
constexpr char const* g_folder = "/bench/share";

std::string FilePath(int i_index)
{
    return std::string(g_folder) + "/file " + std::to_string(i_index) + ".bin";
}

void SetUpQueue()
{
    SetUpBenchClient("alice");
    SetLogSink([](QString const&, int, QString const&, ItemPtr) {});
    new SharedFoldersManager();
    new TransferQueueManager();
    dataSaver->EmitDataLoaded();
    ItemPtr const l_share = d.GetType("shared_folder")->GetItem(Value(g_folder));
    l_share += d.GetType("shared_public")->GetGlobalNullItem();
    ItemPtr const l_folder = d.GetType("shared_file_folder")->GetItem(Value(g_folder));
    l_folder += l_share;
    for (int l_index = 0; l_index < g_users * g_filesPerUser + 1; ++l_index)
    {
        ItemPtr const l_file = l_folder.NewItem("shared_file");
        l_file += d.GetType("shared_file_name")->GetItem(Value("file " + std::to_string(l_index) + ".bin"));
        l_file += d.GetType("shared_file_size")->GetItem(Value(1000LL + l_index));
    }
    for (int l_user = 0; l_user < g_users; ++l_user)
        for (int l_file = 0; l_file < g_filesPerUser; ++l_file)
            transferQueueManager->OnQueueUploadRequested("user " + std::to_string(l_user), FilePath(l_user * g_filesPerUser + l_file));
    // The newcomer of the benchmarks, in a group that puts it first when the group has priority.
    ItemPtr const l_newcomer = d.GetType("user")->GetItem(Value("newcomer"));
    l_newcomer.NewItem("in_user_list") += d.GetType("user_list_group")->GetItem(Value("friends"));
}

void SetFriendsPriority(char const* i_priority)
{
    ItemPtr const l_group = d.GetType("user_list_group")->GetItem(Value("friends"));
    l_group += d.GetType("group_download_priority")->GetItem(Value(i_priority));
}

// One request of the newcomer per iteration; its entry is taken out again untimed, so that
// every request meets the same 10,000 entries. With i_alternate the newcomer's priority flips
// between iterations, so that it joins first and last in turn and every entry moves each time.
void NewRequest(benchmark::State& io_state, char const* i_priority, bool i_alternate)
{
    SetFriendsPriority(i_priority);
    std::string const l_path = FilePath(g_users * g_filesPerUser);
    ItemPtr const l_file = sharedFoldersManager->GetSharedFileItem(l_path);
    bool l_first = false;
    for (auto _ : io_state)
    {
        if (i_alternate)
        {
            io_state.PauseTiming();
            l_first = !l_first;
            SetFriendsPriority(l_first ? "5" : "0");
            io_state.ResumeTiming();
        }
        transferQueueManager->OnQueueUploadRequested("newcomer", l_path);
        io_state.PauseTiming();
        ItemPtr const l_entry = TransferQueueManager::GetUploadEntry(d.GetType("user")->HasItem(Value("newcomer")), l_file);
        if (!l_entry)
            io_state.SkipWithError("the request made no entry");
        transferQueueManager->RemoveUpload(l_entry);
        d.RemoveDisconnectedItems();
        io_state.ResumeTiming();
    }
    io_state.counters["entries"] = static_cast<double>(d.GetType("upload_entry")->ItemCount());
}

void BM_NewRequestAtTheEnd(benchmark::State& io_state)
{
    NewRequest(io_state, "0", false);
}

void BM_NewRequestEveryEntryMoves(benchmark::State& io_state)
{
    NewRequest(io_state, "0", true);
}

void BM_StartNewUploadsNobodyOnline(benchmark::State& io_state)
{
    for (auto _ : io_state)
        transferQueueManager->StartNewUploads();
    io_state.counters["queued"] = transferQueueManager->QueuedUploadCount();
}
} // namespace

BENCHMARK(BM_NewRequestAtTheEnd)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NewRequestEveryEntryMoves)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StartNewUploadsNobodyOnline)->Unit(benchmark::kMicrosecond);

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    SetUpQueue();
    std::printf("targets: a new request under 10 ms, StartNewUploads under 1 ms, with %d entries\n", g_users * g_filesPerUser);
    benchmark::Initialize(&i_argc, i_argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
