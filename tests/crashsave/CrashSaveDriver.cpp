// Kills the real client with SIGKILL at random moments while it saves a data file that holds a
// share of many files, then reads the file back with the store's own loader: every time it must
// load whole, with every setting and every file in either its previous or its new state.
//
// Before each run some files leave the share's folder and new MP3 files arrive, so the rescan
// at start-up and the scanner change what is saved. A run ends in one of two ways, chosen at
// random: a periodic save (the first or the second of the run) is killed at a random moment
// from the making of its temporary file on, or the client is asked to close at a random moment
// after its load and the save on the way out is killed the same way. The periodic way is only
// taken when the build shortens the save period.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include <QDir>
#include <QTemporaryDir>

#include "GeneratedShare.h"
#include "KilledClient.h"
#include "SaveWatch.h"
#include "store/Log.h"
#include "support/SavedGraph.h"

namespace
{
using Clock = SaveWatch::Clock;
using std::chrono::milliseconds;

// A period above this would make a run wait minutes for a save: only the way out is killed then.
constexpr int s_longestWatchedPeriodMs = 10000;
// A sanitized build loads a large share slowly.
constexpr auto s_startLimit = std::chrono::seconds(120);
constexpr auto s_endLimit = std::chrono::seconds(60);
constexpr auto s_longestCloseDelay = milliseconds(1500);

struct Options
{
    int m_kills = 20;
    int m_files = 100000;
    int m_changes = 20; // files removed and files added before each run
    int m_seconds = 0; // no new run starts after this long; 0: no limit
    unsigned m_seed = std::random_device()();
    std::string m_client = TIDEWICK_CLIENT_BIN;
};

bool ParseOptions(int i_argc, char** i_argv, Options& o_options)
{
    for (int l_arg = 1; l_arg + 1 < i_argc; l_arg += 2)
    {
        std::string const l_name = i_argv[l_arg];
        char const* lp_value = i_argv[l_arg + 1];
        if (l_name == "--kills")
            o_options.m_kills = std::atoi(lp_value);
        else if (l_name == "--files")
            o_options.m_files = std::atoi(lp_value);
        else if (l_name == "--changes")
            o_options.m_changes = std::atoi(lp_value);
        else if (l_name == "--seconds")
            o_options.m_seconds = std::atoi(lp_value);
        else if (l_name == "--seed")
            o_options.m_seed = static_cast<unsigned>(std::strtoul(lp_value, nullptr, 10));
        else if (l_name == "--client")
            o_options.m_client = lp_value;
        else
            return false;
    }
    return i_argc % 2 == 1 && o_options.m_kills > 0 && o_options.m_files >= 100 && o_options.m_changes >= 0;
}

std::string Tail(std::string const& i_file, std::size_t i_lines)
{
    std::ifstream l_stream(i_file);
    std::vector<std::string> l_lines;
    for (std::string l_line; std::getline(l_stream, l_line);)
        l_lines.push_back(l_line);
    std::string l_tail;
    for (std::size_t l_index = l_lines.size() > i_lines ? l_lines.size() - i_lines : 0; l_index < l_lines.size(); ++l_index)
        l_tail += "    | " + l_lines[l_index] + "\n";
    return l_tail;
}

long Ms(Clock::duration i_duration)
{
    return static_cast<long>(std::chrono::duration_cast<milliseconds>(i_duration).count());
}

// What one run did.
struct Run
{
    std::string m_way; // which save was killed
    std::string m_problem; // why the run could not kill a save; empty when it did
    long m_killedAfterMs = -1; // from the making of the temporary file to the kill
    long m_firstSaveMs = -1; // from the start to the first save's temporary file
    bool m_exitedItself = false;
};

class Driver
{
public:
    Driver(Options const& i_options, std::string const& i_work)
        : m_options(i_options), m_random(i_options.m_seed), m_home(i_work + "/home"),
          m_dataFile(m_home + "/.Tidewick"), m_output(i_work + "/client.log"), m_share(m_home + "/share", m_random),
          m_watch(".Tidewick")
    {
    }

    bool Prepare();
    // Runs the client once, kills it, checks the file; false on a failure.
    bool RunOnce(int i_number);
    void Report(int i_runs) const;

private:
    Run KillASave();
    void KillSaveSoon(Run& io_run);
    // What is wrong with the data file as it is now; empty when it loads whole and as it may.
    std::vector<std::string> CheckFile();
    Clock::duration WriteTime() const;

    Options m_options;
    std::mt19937 m_random;
    std::string m_home;
    std::string m_dataFile;
    std::string m_output;
    std::string m_listeningPort;
    GeneratedShare m_share;
    SaveWatch m_watch;
    KilledClient m_client;
    std::pair<int, int> m_changes; // of the file read last: files new to it, and files gone
    std::size_t m_filesRead = 0;
    int m_failures = 0;
    int m_inWrite = 0;
    int m_afterWrite = 0;
    int m_exitedItself = 0;
    int m_unkilled = 0;
};

bool Driver::Prepare()
{
    if (!QDir().mkpath(QString::fromStdString(m_home)) || !m_watch.Watch(m_home))
        return false;
    SavedGraph l_seed;
    l_seed.Set("global", "use_upnp", "no");
    l_seed.SetFreeListeningPort();
    m_listeningPort = l_seed.Setting("global", "listening_port").value_or("");
    return m_share.Create(m_options.m_files, l_seed) && l_seed.Save(QString::fromStdString(m_dataFile));
}

Clock::duration Driver::WriteTime() const
{
    std::vector<Clock::duration> l_times = m_watch.WriteTimes();
    if (l_times.empty())
        return milliseconds(100);
    std::nth_element(l_times.begin(), l_times.begin() + l_times.size() / 2, l_times.end());
    return std::clamp<Clock::duration>(l_times[l_times.size() / 2], milliseconds(5), milliseconds(2000));
}

// Kills at a random moment within twice the usual write from the start of the save just seen:
// about half the kills land while the file is written, the rest after it replaced the old one.
void Driver::KillSaveSoon(Run& io_run)
{
    Clock::time_point const l_started = Clock::now();
    auto const l_range = Ms(WriteTime() * 2);
    m_watch.WatchUntil(l_started + milliseconds(std::uniform_int_distribution<long>(0, l_range)(m_random)));
    m_client.Signal(SIGKILL);
    io_run.m_killedAfterMs = Ms(Clock::now() - l_started);
}

Run Driver::KillASave()
{
    Run l_run;
    Clock::time_point const l_start = Clock::now();
    bool const l_periodic = TIDEWICK_SAVE_PERIOD_MS <= s_longestWatchedPeriodMs && std::bernoulli_distribution(0.6)(m_random);
    if (l_periodic)
    {
        int const l_target = std::uniform_int_distribution<int>(1, 2)(m_random);
        if (!m_watch.WaitFor(SaveWatch::Event::WriteStarted, l_start + s_startLimit))
        {
            l_run.m_problem = "no save began within " + std::to_string(s_startLimit.count()) + " s of the start";
            return l_run;
        }
        l_run.m_firstSaveMs = Ms(Clock::now() - l_start);
        // A second save comes only when something saved changed after the first.
        bool const l_second = l_target == 2 && m_watch.WaitFor(SaveWatch::Event::WriteStarted,
                                                               Clock::now() + milliseconds(2 * TIDEWICK_SAVE_PERIOD_MS + 1000));
        if (l_target == 1 || l_second)
        {
            l_run.m_way = l_second ? "periodic save 2" : "periodic save 1";
            KillSaveSoon(l_run);
            return l_run;
        }
    }
    if (m_watch.Count(SaveWatch::Event::LoadEnded) == 0 && !m_watch.WaitFor(SaveWatch::Event::LoadEnded, l_start + s_startLimit))
    {
        l_run.m_problem = "the data file was not read within " + std::to_string(s_startLimit.count()) + " s of the start";
        return l_run;
    }
    m_watch.WatchUntil(Clock::now() + milliseconds(std::uniform_int_distribution<long>(0, Ms(s_longestCloseDelay))(m_random)));
    m_client.Signal(SIGTERM);
    l_run.m_way = "save on closing";
    if (!m_watch.WaitFor(SaveWatch::Event::WriteStarted, Clock::now() + s_endLimit))
    {
        l_run.m_problem = "no save began within " + std::to_string(s_endLimit.count()) + " s of SIGTERM";
        return l_run;
    }
    KillSaveSoon(l_run);
    return l_run;
}

std::vector<std::string> Driver::CheckFile()
{
    // What the loader logs is told only with a failure: a type the client relates that the
    // seed's schema does not is no damage.
    if (!QFile::exists(QString::fromStdString(m_dataFile)))
        return {"the data file is gone"};
    std::vector<std::string> l_log;
    SetLogSink([&](QString const& i_area, int, QString const& i_text, ItemPtr)
               { l_log.push_back("log: " + i_area.toStdString() + ": " + i_text.toStdString()); });
    SavedGraph l_loaded;
    l_loaded.Load(QString::fromStdString(m_dataFile));
    std::vector<std::string> l_problems;
    if (!l_loaded.DamagedCopy().empty())
        l_problems.push_back("the data file is damaged; kept as " + l_loaded.DamagedCopy());
    if (l_loaded.Setting("global", "use_upnp") != "no" || l_loaded.Setting("global", "listening_port") != m_listeningPort)
        l_problems.push_back("the settings are not as seeded");
    std::vector<SavedGraph::ScannedFile> l_files = l_loaded.ScannedFiles();
    std::vector<std::string> const l_fileProblems = m_share.Check(l_files);
    l_problems.insert(l_problems.end(), l_fileProblems.begin(), l_fileProblems.end());
    m_filesRead = l_files.size();
    m_changes = m_share.Accept(std::move(l_files));
    SetLogSink({});
    if (!l_problems.empty())
        l_problems.insert(l_problems.end(), l_log.begin(), l_log.end());
    return l_problems;
}

bool Driver::RunOnce(int i_number)
{
    std::ostringstream l_line;
    l_line << "run " << i_number << "/" << m_options.m_kills << ": ";
    if (!m_share.Change(m_options.m_changes, m_options.m_changes))
    {
        std::printf("%scould not change the shared folder\n", l_line.str().c_str());
        return false;
    }
    m_watch.Reset();
    if (!m_client.Start(m_options.m_client, m_home, m_output))
    {
        std::printf("%scould not start %s\n", l_line.str().c_str(), m_options.m_client.c_str());
        return false;
    }
    Run l_run = KillASave();
    if (!l_run.m_problem.empty())
        m_client.Signal(SIGKILL);
    if (!m_client.Wait(Clock::now() + s_endLimit))
        l_run.m_problem = "the client did not end after SIGKILL";
    m_watch.Drain();
    l_run.m_exitedItself = m_client.EndSignal() != SIGKILL;
    bool const l_inWrite = m_watch.IsWriteOpen();

    Clock::time_point const l_checkStart = Clock::now();
    std::vector<std::string> l_problems = CheckFile();
    long const l_checkMs = Ms(Clock::now() - l_checkStart);
    if (!l_run.m_problem.empty())
        l_problems.insert(l_problems.begin(), l_run.m_problem);
    if (l_run.m_exitedItself && l_run.m_killedAfterMs >= 0 && m_client.ExitStatus() != 0)
        l_problems.push_back("the client ended by itself with status " + std::to_string(m_client.ExitStatus()) +
                             ", signal " + std::to_string(m_client.EndSignal()));

    l_line << l_run.m_way;
    if (l_run.m_killedAfterMs >= 0)
        l_line << ", " << (l_run.m_exitedItself ? "ended by itself before the kill " : "killed ") << l_run.m_killedAfterMs
               << " ms after the write began, " << (l_inWrite ? "during the write" : "after it");
    if (l_run.m_firstSaveMs >= 0)
        l_line << "; first save " << l_run.m_firstSaveMs << " ms from the start";
    l_line << "; the file holds " << m_filesRead << " files, " << m_changes.first << " new, " << m_changes.second
           << " gone";
    if (l_problems.empty())
        l_line << "; the file loads whole (" << l_checkMs << " ms)";
    std::printf("%s\n", l_line.str().c_str());
    for (std::string const& l_problem : l_problems)
        std::printf("  FAILED: %s\n", l_problem.c_str());
    if (!l_problems.empty())
        std::printf("  the client's last output:\n%s", Tail(m_output, 20).c_str());
    std::fflush(stdout);

    m_failures += !l_problems.empty();
    m_inWrite += l_inWrite;
    m_afterWrite += l_run.m_killedAfterMs >= 0 && !l_inWrite && !l_run.m_exitedItself;
    m_exitedItself += l_run.m_exitedItself && l_run.m_killedAfterMs >= 0;
    m_unkilled += l_run.m_killedAfterMs < 0;
    return l_problems.empty();
}

void Driver::Report(int i_runs) const
{
    std::printf("runs: %d, failures: %d; kills during a write: %d, after the write: %d; ended by themselves: %d, "
                "no save reached: %d; median write %ld ms\n",
                i_runs, m_failures, m_inWrite, m_afterWrite, m_exitedItself, m_unkilled, Ms(WriteTime()));
}
} // namespace

int main(int i_argc, char** i_argv)
{
    Options l_options;
    if (!ParseOptions(i_argc, i_argv, l_options))
    {
        std::fprintf(stderr,
                     "usage: %s [--kills N] [--files N] [--changes N] [--seconds N] [--seed N] [--client PATH]\n",
                     i_argv[0]);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QTemporaryDir l_work;
    if (!l_work.isValid())
        return 2;
    std::printf("seed %u; %d files; save period %d ms; work folder %s\n", l_options.m_seed, l_options.m_files,
                TIDEWICK_SAVE_PERIOD_MS, l_work.path().toStdString().c_str());
    Driver l_driver(l_options, l_work.path().toStdString());
    if (!l_driver.Prepare())
    {
        std::fprintf(stderr, "could not write the share and the seeded data file\n");
        return 2;
    }
    Clock::time_point const l_begin = Clock::now();
    int l_runs = 0;
    bool l_ok = true;
    while (l_runs < l_options.m_kills)
    {
        // A slow machine ends the run early rather than failing it; the count says so.
        if (l_options.m_seconds > 0 && Clock::now() - l_begin > std::chrono::seconds(l_options.m_seconds))
        {
            std::printf("stopped at the time limit of %d s after %d of %d kills\n", l_options.m_seconds, l_runs,
                        l_options.m_kills);
            break;
        }
        l_ok = l_driver.RunOnce(++l_runs) && l_ok;
    }
    l_driver.Report(l_runs);
    // A failed run's files are kept for a look.
    l_work.setAutoRemove(l_ok);
    return l_ok ? 0 : 1;
}
