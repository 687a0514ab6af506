#pragma once

// What the share benchmarks share: the client's graph with its shared folders manager, the event
// loop driven by hand with a meter of its longest stall, the process's memory, a plain walk of
// the tree as the baseline, and the table of figures printed at the end.

#include <QObject>
#include <QTimer>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/BenchStats.h"

namespace ShareBench
{
using BenchStats::Clock;
using BenchStats::Median;
using BenchStats::Percentile;
using BenchStats::Seconds;

inline constexpr char const* s_clientName = "benchclient";

// A DataSaver, the settings and server types, a Server that never connects, a PeerMessenger and
// the SharedFoldersManager, as the program builds them, in that order. Unless i_beforeLoad, the
// data is then declared loaded; otherwise the caller loads a file, which declares it.
void SetUpClient(bool i_beforeLoad);
// Log lines seen, in all and in one area.
std::uint64_t LogLines();
std::uint64_t LogLines(char const* i_area);

// The resident set and the heap in use, in bytes.
std::size_t ResidentBytes();
std::size_t HeapBytes();

// The longest time the event loop went without running a timer of the interval (1 ms unless
// given), from Start to Stop.
class StallMeter
{
public:
    explicit StallMeter(int i_intervalMs = 1);
    void Start();
    // The longest stall, in seconds.
    double Stop();

private:
    void Tick();
    QTimer m_timer;
    Clock::time_point m_last;
    double m_longest = 0;
};

// The result of one rescan of the share, driven through the event loop.
struct Rescan
{
    double m_seconds = 0;
    double m_longestStall = 0;
    int m_added = 0;
    int m_removed = 0;
    bool m_finished = false;
};
// RescanShares, or Init when i_init, up to SharedFilesRescanned.
Rescan RunRescan(bool i_init = false, int i_timeoutMs = 600000);

// A plain depth-first readdir-and-stat walk, as the share's own walk lists folders: hidden
// entries skipped, links followed. Counts the regular files; collects their paths below i_root
// when o_paths is given.
std::size_t PlainWalk(std::string const& i_root, std::vector<std::string>* o_paths = nullptr);

// One figure against its bound from above, printed in the summary. A missed aim is shown but
// does not fail the run; a missed target does.
void Record(std::string i_name, double i_value, std::string i_unit, double i_target, bool i_aim = false,
            std::string i_note = std::string());
// A figure with no target.
void Report(std::string i_name, double i_value, std::string i_unit, std::string i_note = std::string());
// Prints the table; returns the number of figures that missed their targets.
int PrintSummary();
} // namespace ShareBench
