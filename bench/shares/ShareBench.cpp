// The own share at scale, on a generated tree (bench/shares/run): the walk against a plain walk
// of the same tree, a rescan, memory per file, searches, the share list, the data file with
// every file scanned, a sweep, and received lists made into items. A second phase, in a fresh
// process, loads that data file as the program starts and rescans.
//
// One process, one graph: the benchmarks run in the order they are registered and build on one
// another, so they run once each with fixed iteration counts.
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <malloc.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ShareBenchSupport.h"
#include "peer/Compression.h"
#include "peer/PeerMessenger.h"
#include "peer/ShareList.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/DataSaver.h"

using namespace ShareBench;

namespace
{
constexpr int s_queries = 1000;
constexpr std::size_t s_largeShare = 500000;

std::string g_root;
std::string g_dataFile;
std::size_t g_files = 0;
double g_plainSeconds = 0;
std::size_t g_walkGrowth = 0;
bool g_walked = false;
std::vector<std::string> g_paths; // below the root, sorted
FileInfoMap g_list;

bool IsLarge()
{
    return g_files >= s_largeShare;
}

double Ms(double i_seconds)
{
    return i_seconds * 1e3;
}

// Targets of the 100,000-file share, and the looser ones of the million-file share.
double StallTarget()
{
    return IsLarge() ? 100 : 50;
}

std::size_t ItemsOf(char const* i_type)
{
    return d.GetType(i_type)->ItemCount();
}

// Where the bytes of the share go: items, their key bytes and their connection groups, by type.
void PrintGraphBreakdown()
{
    std::printf("\n%-34s %10s %12s %10s %12s\n", "type", "items", "key bytes", "groups", "links");
    std::size_t l_items = 0, l_keys = 0, l_groups = 0, l_links = 0;
    for (auto const& [l_name, lp_type] : d.Types())
    {
        if (lp_type->ItemCount() == 0)
            continue;
        std::size_t l_typeKeys = 0, l_typeGroups = 0, l_typeLinks = 0;
        for (Item* lp_item : lp_type->Items())
        {
            l_typeKeys += lp_item->AsView().size();
            for (ConnectionGroup const& l_group : lp_item->ConnectedItems())
            {
                ++l_typeGroups;
                l_typeLinks += l_group.Size();
            }
        }
        std::printf("%-34s %10zu %12zu %10zu %12zu\n", l_name.c_str(), lp_type->ItemCount(), l_typeKeys, l_typeGroups,
                    l_typeLinks);
        l_items += lp_type->ItemCount();
        l_keys += l_typeKeys;
        l_groups += l_typeGroups;
        l_links += l_typeLinks;
    }
    std::printf("%-34s %10zu %12zu %10zu %12zu\n", "all", l_items, l_keys, l_groups, l_links);
    std::printf("sizeof(Item) %zu, sizeof(ConnectionGroup) %zu\n\n", sizeof(Item), sizeof(ConnectionGroup));
}

// Two lower-case words of a path below the root, by the index's first reading (runs of ASCII
// letters and digits and of bytes above 0x7f), the extension left out; empty when the path holds
// fewer than two different words.
// The plain baseline of every compressed message: one zlib compress2 at level 9, into a buffer of
// twice the body's length plus 12 bytes; in seconds. Zero when it fails.
double PlainCompressSeconds(char const* ip_body, std::size_t i_length, std::size_t* o_compressed = nullptr)
{
    std::vector<Bytef> l_out(2 * i_length + 12);
    uLongf l_outLength = static_cast<uLongf>(l_out.size());
    Clock::time_point const l_start = Clock::now();
    int const l_result = compress2(l_out.data(), &l_outLength, reinterpret_cast<Bytef const*>(ip_body),
                                   static_cast<uLong>(i_length), 9);
    double const l_seconds = Seconds(Clock::now() - l_start);
    if (o_compressed)
        *o_compressed = l_outLength;
    return l_result == Z_OK ? l_seconds : 0;
}

std::string TwoWords(std::string i_path, std::mt19937& io_random)
{
    std::size_t const l_nameAt = i_path.rfind('/') + 1;
    if (std::size_t const l_dot = i_path.rfind('.'); l_dot != std::string::npos && l_dot > l_nameAt)
        i_path.resize(l_dot);
    std::vector<std::string> l_words;
    std::string l_word;
    for (char const l_char : i_path + ' ')
    {
        unsigned char const l_byte = static_cast<unsigned char>(l_char);
        if (!SharedFoldersManager::IsSearchTokenSeparator(l_byte))
            l_word += (l_byte >= 'A' && l_byte <= 'Z') ? static_cast<char>(l_byte - 'A' + 'a') : l_char;
        else if (!l_word.empty())
        {
            if (std::find(l_words.begin(), l_words.end(), l_word) == l_words.end())
                l_words.push_back(l_word);
            l_word.clear();
        }
    }
    if (l_words.size() < 2)
        return std::string();
    std::shuffle(l_words.begin(), l_words.end(), io_random);
    return l_words[0] + ' ' + l_words[1];
}

// ---- The first phase: the share walked, searched, listed and saved

void BM_PlainWalk(benchmark::State& io_state)
{
    // The caches are warm for the plain walk and for the share's walk after it.
    PlainWalk(g_root);
    std::vector<double> l_times;
    for (auto l_ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        g_files = PlainWalk(g_root);
        l_times.push_back(Seconds(Clock::now() - l_start));
    }
    g_plainSeconds = Median(l_times);
    io_state.counters["files"] = static_cast<double>(g_files);
    Report("plain readdir+stat walk (baseline, median)", Ms(g_plainSeconds), "ms",
           std::to_string(g_files) + " files");
}

void BM_FirstWalk(benchmark::State& io_state)
{
    if (g_files == 0)
    {
        io_state.SkipWithError("the tree holds no file");
        return;
    }
    // A fresh graph holding only the shared folder, open to everyone.
    Item* lp_shared = d.GetType("shared_folder")->GetItem(Value(g_root));
    lp_shared->NewItem("shared_public");
    for (auto l_ : io_state)
    {
        malloc_trim(0);
        std::size_t const l_resident = ResidentBytes();
        std::size_t const l_heap = HeapBytes();
        Rescan const l_walk = RunRescan();
        std::size_t const l_residentAfter = ResidentBytes();
        std::size_t const l_heapAfter = HeapBytes();
        if (!l_walk.m_finished || static_cast<std::size_t>(l_walk.m_added) != g_files ||
            ItemsOf("shared_file") != g_files)
        {
            io_state.SkipWithError("the walk did not make one item per file");
            return;
        }
        g_walked = true;
        g_walkGrowth = l_residentAfter - l_resident;
        double const l_files = static_cast<double>(g_files);
        Report("first walk: RescanShares to SharedFilesRescanned", Ms(l_walk.m_seconds), "ms");
        Record("first walk / plain walk", l_walk.m_seconds / g_plainSeconds, "x", 3.0);
        Record("first walk: longest event-loop stall", Ms(l_walk.m_longestStall), "ms", StallTarget(), true);
        Record("first walk: RSS growth per file", double(g_walkGrowth) / l_files, "B", 1024, false, "aim 600");
        Report("first walk: heap growth per file", double(l_heapAfter - l_heap) / l_files, "B");
        io_state.counters["tokens"] = static_cast<double>(ItemsOf("search_token"));
    }
    PrintGraphBreakdown();
}

void BM_Rescan(benchmark::State& io_state)
{
    if (!g_walked)
    {
        io_state.SkipWithError("no walked share");
        return;
    }
    for (auto l_ : io_state)
    {
        std::size_t const l_resident = ResidentBytes();
        Rescan const l_rescan = RunRescan();
        std::size_t const l_residentAfter = ResidentBytes();
        if (!l_rescan.m_finished || l_rescan.m_added != 0 || l_rescan.m_removed != 0 || ItemsOf("shared_file") != g_files)
        {
            io_state.SkipWithError("the rescan of the unchanged tree changed the share");
            return;
        }
        double const l_growth = l_residentAfter > l_resident ? double(l_residentAfter - l_resident) : 0.0;
        Report("rescan of the unchanged tree", Ms(l_rescan.m_seconds), "ms");
        Report("rescan / plain walk", l_rescan.m_seconds / g_plainSeconds, "x");
        Record("rescan: longest event-loop stall", Ms(l_rescan.m_longestStall), "ms", StallTarget(), true);
        Record("rescan: RSS growth, % of the walk's", 100.0 * l_growth / double(g_walkGrowth), "%", 5.0);
    }
}

void BM_Search(benchmark::State& io_state)
{
    if (!g_walked)
    {
        io_state.SkipWithError("no walked share");
        return;
    }
    PlainWalk(g_root, &g_paths);
    std::sort(g_paths.begin(), g_paths.end());
    std::mt19937 l_random(20240611);
    std::vector<std::string> l_queries;
    while (l_queries.size() < s_queries)
    {
        std::string l_query =
            TwoWords(g_paths[std::uniform_int_distribution<std::size_t>(0, g_paths.size() - 1)(l_random)], l_random);
        if (!l_query.empty())
            l_queries.push_back(std::move(l_query));
    }
    // Timed up to the finished message: the send belongs to the peer messenger (bench/peer), and
    // without it ProcessSearch stops right after building and logging the answer.
    PeerMessenger* const lp_messenger = peerMessenger;
    peerMessenger = nullptr;
    std::uint64_t const l_answersBefore = LogLines("Search");
    std::vector<double> l_times;
    for (auto l_ : io_state)
    {
        unsigned int l_ticket = 0;
        for (std::string const& l_query : l_queries)
        {
            Clock::time_point const l_start = Clock::now();
            sharedFoldersManager->ProcessSearch("searching peer", ++l_ticket, l_query);
            l_times.push_back(Seconds(Clock::now() - l_start));
        }
    }
    peerMessenger = lp_messenger;
    std::uint64_t const l_answers = LogLines("Search") - l_answersBefore;
    // Every query holds words of an existing file; only a query matching more than 200 files
    // goes unanswered.
    if (l_answers == 0)
        io_state.SkipWithError("no search was answered");
    Record("two-word search: median", l_times.empty() ? 0 : Median(l_times) * 1e6, "us", IsLarge() ? 100 : 50, IsLarge());
    Report("two-word search: p99", Percentile(l_times, 0.99) * 1e6, "us");
    // The floor every answer pays: compress2 at level 9 of a small body, here the first 20
    // records of a folder as an answer holds them.
    {
        MemStream l_small;
        l_small.Write(std::string(s_clientName));
        l_small.Write(static_cast<std::uint32_t>(1));
        l_small.Write(static_cast<std::uint32_t>(20));
        Type* lp_name = d.GetType("shared_file_name");
        Item* lp_folder = nullptr;
        for (Item* lp_candidate : d.GetType("shared_file_folder")->Items())
            if (!lp_folder && lp_candidate->ConnectedOfType(d.GetType("shared_file")).size() >= 20)
                lp_folder = lp_candidate;
        if (!lp_folder)
            return;
        int l_records = 0;
        for (Item* lp_file : lp_folder->ConnectedOfType(d.GetType("shared_file")))
            if (l_records++ < 20)
                FileInfo(std::string(lp_folder->AsView()) + "\\" + std::string(lp_file->GetItem(lp_name)->AsView()), 5000000,
                         AttributeMap("mp3"))
                    .Write(l_small);
        std::vector<double> l_compress;
        for (int l_round = 0; l_round < s_queries; ++l_round)
            l_compress.push_back(PlainCompressSeconds(l_small.GetReadBuffer(), std::size_t(l_small.GetPendingReadLength())));
        Report("plain compress2 level 9 of a 20-record answer (median)", Median(l_compress) * 1e6, "us",
               std::to_string(l_small.GetPendingReadLength()) + " bytes");
    }
    Report("two-word searches answered (<= 200 matches)", static_cast<double>(l_answers), "of",
           std::to_string(l_queries.size()) + " queries");
}

void BM_ShareList(benchmark::State& io_state)
{
    if (!g_walked)
    {
        io_state.SkipWithError("no walked share");
        return;
    }
    Type* lp_fileType = d.GetType("shared_file");
    std::vector<double> l_times;
    MemStream l_message;
    for (auto l_ : io_state)
    {
        // A list is kept until the share changes: an item made and removed is a change, so that
        // each round builds the list afresh.
        io_state.PauseTiming();
        lp_fileType->NewItem()->Remove();
        io_state.ResumeTiming();
        Clock::time_point const l_start = Clock::now();
        l_message = sharedFoldersManager->GetSharedFilesMessage("browsing peer");
        l_times.push_back(Seconds(Clock::now() - l_start));
    }
    Clock::time_point const l_start = Clock::now();
    MemStream const l_again = sharedFoldersManager->GetSharedFilesMessage("browsing peer");
    double const l_cachedSeconds = Seconds(Clock::now() - l_start);

    // A peer's request holds the window only while the body is built: the compression runs on
    // a worker, and the answer comes from a later turn of the event loop.
    lp_fileType->NewItem()->Remove();
    bool l_answered = false;
    Clock::time_point const l_asked = Clock::now();
    sharedFoldersManager->AnswerShareListRequest("browsing peer", [&](MemStream const&) { l_answered = true; });
    double const l_windowBusy = Seconds(Clock::now() - l_asked);
    while (!l_answered)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    Report("share list for a peer: window busy", Ms(l_windowBusy), "ms");
    Report("share list for a peer: answered after", Seconds(Clock::now() - l_asked), "s");

    // The list must hold the whole share.
    std::size_t const l_length = static_cast<std::size_t>(l_message.GetPendingReadLength());
    MemStream l_body;
    g_list.clear();
    std::size_t l_listed = 0;
    if (l_length > 4 && Inflate(l_message.GetReadBuffer() + 4, l_length - 4, l_body, std::uint64_t(1) << 32) == InflateResult::Ok)
    {
        std::size_t const l_inflated = static_cast<std::size_t>(l_body.GetPendingReadLength());
        // The same bytes through zlib alone, in the same run: what the protocol's compression
        // costs whatever builds the body.
        double const l_plain = PlainCompressSeconds(l_body.GetReadBuffer(), l_inflated);
        Report("share list: plain compress2 level 9 of its body", l_plain, "s");
        Report("share list: build / plain compress2", Median(l_times) / l_plain, "x");
        if (ReadFileInfoMap(l_body, g_list, std::uint64_t(1) << 32) == ShareListRead::Ok)
            for (auto const& l_folder : g_list)
                l_listed += l_folder.second.size();
        Report("share list: body before compression", double(l_inflated) / (1 << 20), "MiB");
    }
    if (l_listed != g_files)
    {
        io_state.SkipWithError("the share list does not hold every file");
        return;
    }
    Record("share list: built and compressed (median)", Median(l_times), "s", IsLarge() ? 10 : 1);
    Record("share list: compressed size", double(l_length - 4) / (1 << 20), "MiB", 64);
    Report("share list: answered again, unchanged share", Ms(l_cachedSeconds), "ms");
}

// Every file gets the results the MP3 scanner leaves, through the slot the scanner's signal
// reaches: so the data file holds every file of the share.
void BM_ScanResults(benchmark::State& io_state)
{
    if (!g_walked || g_paths.size() != g_files)
    {
        io_state.SkipWithError("no walked share");
        return;
    }
    static char const* const s_modes[] = {"Stereo", "Joint stereo", "Dual channel", "Mono"};
    static int const s_bitrates[] = {128, 160, 192, 224, 256, 320};
    std::mt19937 l_random(7);
    for (auto l_ : io_state)
        for (std::string const& l_path : g_paths)
        {
            bool const l_vbr = l_random() % 4 == 0;
            int const l_bitrate = l_vbr ? 96 + static_cast<int>(l_random() % 225) : s_bitrates[l_random() % 6];
            std::string const l_absolute = g_root + '/' + l_path;
            sharedFoldersManager->OnMP3Scanned(QString::fromLatin1(l_absolute.data(), qsizetype(l_absolute.size())), 1,
                                               QString::fromLatin1(s_modes[l_random() % 4]),
                                               l_random() % 3 ? 44100 : 48000, l_vbr, l_bitrate);
        }
    std::size_t const l_scanned =
        d.GetType("is_scanned")->GetGlobalNullItem()->ConnectedOfType(d.GetType("shared_file")).size();
    if (l_scanned != g_files)
        io_state.SkipWithError("not every file took its scan results");
}

double FileMiB(std::string const& i_name)
{
    struct stat l_stat = {};
    return ::stat(i_name.c_str(), &l_stat) == 0 ? double(l_stat.st_size) / (1 << 20) : -1;
}

void BM_Save(benchmark::State& io_state)
{
    std::vector<double> l_times;
    for (auto l_ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        if (!dataSaver->Save(&d, g_dataFile.c_str()))
            io_state.SkipWithError("the save failed");
        l_times.push_back(Seconds(Clock::now() - l_start));
    }
    // The bound is for the 100,000-file share; the million-file share is reported.
    if (IsLarge())
        Report("data file, every file scanned: save (median)", Median(l_times), "s");
    else
        Record("data file, every file scanned: save (median)", Median(l_times), "s", 0.5);
    Report("data file size", FileMiB(g_dataFile), "MiB");
}

void BM_Sweep(benchmark::State& io_state)
{
    std::vector<double> l_times;
    int l_removed = 0;
    for (auto l_ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        l_removed += d.RemoveDisconnectedItems();
        l_times.push_back(Seconds(Clock::now() - l_start));
    }
    if (ItemsOf("shared_file") != g_files)
        io_state.SkipWithError("the sweep removed files of the share");
    if (IsLarge())
        Report("sweep with the scanned share loaded (median)", Ms(Median(l_times)), "ms");
    else
        Record("sweep with the scanned share loaded (median)", Ms(Median(l_times)), "ms", 100, true);
    io_state.counters["removed"] = l_removed;
}

void BM_UserShare(benchmark::State& io_state)
{
    if (g_list.empty())
    {
        io_state.SkipWithError("no received list");
        return;
    }
    AttributeTranslationTable l_table;
    for (auto l_ : io_state)
    {
        std::size_t const l_heap = HeapBytes();
        Clock::time_point const l_start = Clock::now();
        sharedFoldersManager->OnUserShare("browsed peer", g_list, l_table);
        Clock::time_point const l_first = Clock::now();
        std::size_t const l_heapAfter = HeapBytes();
        sharedFoldersManager->OnUserShare("browsed peer", g_list, l_table);
        Clock::time_point const l_second = Clock::now();
        if (ItemsOf("user_share_file") != g_files || ItemsOf("user_share") != 1)
        {
            io_state.SkipWithError("the received list did not become one share of every file");
            return;
        }
        Report("received list into items (OnUserShare)", Ms(Seconds(l_first - l_start)), "ms",
               std::to_string(g_files) + " files");
        Report("received list replaced by a second", Ms(Seconds(l_second - l_first)), "ms");
        // Freed pages of the lists built before are taken again, so the heap tells, not the RSS.
        Report("received list: heap growth per file", double(l_heapAfter - l_heap) / double(g_files), "B");
    }
}

// ---- The second phase: the data file loaded at start, then the first rescan

void BM_StartupLoad(benchmark::State& io_state)
{
    for (auto l_ : io_state)
    {
        Clock::time_point const l_start = Clock::now();
        dataSaver->Load(&d, g_dataFile.c_str());
        double const l_load = Seconds(Clock::now() - l_start);
        g_files = ItemsOf("shared_file");
        if (g_files == 0 || ItemsOf("shared_folder") != 1)
        {
            io_state.SkipWithError("the data file held no share");
            return;
        }
        Record("data file, every file scanned: load", l_load, "s", 0.5,
               false, std::to_string(g_files) + " files");
        Rescan const l_rescan = RunRescan(true);
        if (!l_rescan.m_finished || l_rescan.m_added != 0 || l_rescan.m_removed != 0 || ItemsOf("shared_file") != g_files)
        {
            io_state.SkipWithError("the first rescan after the load changed the share");
            return;
        }
        Report("start-up: first rescan (Init)", Ms(l_rescan.m_seconds), "ms");
        Report("start-up: load plus first rescan", l_load + l_rescan.m_seconds, "s");
        Record("start-up rescan: longest event-loop stall", Ms(l_rescan.m_longestStall), "ms", StallTarget(), true);
    }
}

void Register(char const* i_name, void (*ip_function)(benchmark::State&), int i_iterations)
{
    benchmark::RegisterBenchmark(i_name, ip_function)->Iterations(i_iterations)->Unit(benchmark::kMillisecond);
}
} // namespace

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    // --phase=startup loads the data file the first phase saved; the default phase walks.
    bool l_startup = false;
    std::vector<char*> l_arguments;
    for (int l_at = 0; l_at < i_argc; ++l_at)
    {
        if (std::strcmp(i_argv[l_at], "--phase=startup") == 0)
            l_startup = true;
        else if (std::strcmp(i_argv[l_at], "--phase=share") != 0)
            l_arguments.push_back(i_argv[l_at]);
    }
    int l_count = static_cast<int>(l_arguments.size());
    char const* const lp_root = std::getenv("TIDEWICK_SHARE_TREE");
    char const* const lp_dataFile = std::getenv("TIDEWICK_SHARE_DATA");
    if ((!l_startup && !lp_root) || !lp_dataFile)
    {
        std::fprintf(stderr, "Set TIDEWICK_SHARE_TREE to the generated tree and TIDEWICK_SHARE_DATA to a data file "
                             "path (bench/shares/run does both)\n");
        return 2;
    }
    g_root = lp_root ? lp_root : "";
    while (g_root.size() > 1 && g_root.back() == '/')
        g_root.pop_back();
    g_dataFile = lp_dataFile;

    SetUpClient(l_startup);
    if (l_startup)
        Register("Startup/LoadAndFirstRescan", BM_StartupLoad, 1);
    else
    {
        Register("Share/PlainWalk", BM_PlainWalk, 5);
        Register("Share/FirstWalk", BM_FirstWalk, 1);
        Register("Share/Rescan", BM_Rescan, 1);
        Register("Share/Search1000", BM_Search, 1);
        Register("Share/ShareList", BM_ShareList, 3);
        Register("Share/ScanResults", BM_ScanResults, 1);
        Register("Share/Save", BM_Save, 3);
        Register("Share/Sweep", BM_Sweep, 3);
        Register("Share/UserShare", BM_UserShare, 1);
    }
    benchmark::Initialize(&l_count, l_arguments.data());
    if (benchmark::ReportUnrecognizedArguments(l_count, l_arguments.data()))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return PrintSummary() == 0 ? 0 : 1;
}
