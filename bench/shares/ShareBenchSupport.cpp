#include "ShareBenchSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTcpServer>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>

#include "bench/BenchClient.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"

namespace ShareBench
{
namespace
{
std::uint64_t g_logLines = 0;
std::map<std::string, std::uint64_t> g_linesByArea;

struct Figure
{
    std::string m_name;
    double m_value;
    std::string m_unit;
    double m_target;
    bool m_aim;
    std::string m_note;
};

std::vector<Figure>& Figures()
{
    static std::vector<Figure> s_figures;
    return s_figures;
}


std::size_t WalkFolder(std::string const& i_path, std::size_t i_rootLength, std::vector<std::string>* o_paths)
{
    int const l_fd = ::open(i_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (l_fd < 0)
        return 0;
    DIR* lp_dir = ::fdopendir(l_fd);
    if (!lp_dir)
    {
        ::close(l_fd);
        return 0;
    }
    std::size_t l_files = 0;
    std::vector<std::string> l_folders;
    while (dirent const* lp_entry = ::readdir(lp_dir))
    {
        if (lp_entry->d_name[0] == '.')
            continue;
        struct stat l_stat{};
        if (::fstatat(l_fd, lp_entry->d_name, &l_stat, 0) != 0)
            continue;
        if (S_ISREG(l_stat.st_mode))
        {
            ++l_files;
            if (o_paths)
                o_paths->push_back((i_path + '/').append(lp_entry->d_name).substr(i_rootLength));
        }
        else if (S_ISDIR(l_stat.st_mode))
            l_folders.push_back((i_path + '/').append(lp_entry->d_name));
    }
    ::closedir(lp_dir);
    for (std::string const& l_folder : l_folders)
        l_files += WalkFolder(l_folder, i_rootLength, o_paths);
    return l_files;
}
} // namespace

void SetUpClient(bool i_beforeLoad)
{
    SetUpBenchClient(s_clientName);
    SetLogSink(
        [](QString const& i_area, int, QString const&, ItemPtr)
        {
            ++g_logLines;
            ++g_linesByArea[i_area.toStdString()];
        });
    new SharedFoldersManager();
    if (!i_beforeLoad)
        dataSaver->EmitDataLoaded();
}

std::uint64_t LogLines()
{
    return g_logLines;
}

std::uint64_t LogLines(char const* i_area)
{
    auto const l_found = g_linesByArea.find(i_area);
    return l_found == g_linesByArea.end() ? 0 : l_found->second;
}

std::size_t ResidentBytes()
{
    std::ifstream l_statm("/proc/self/statm");
    std::size_t l_pages = 0, l_resident = 0;
    l_statm >> l_pages >> l_resident;
    return l_resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t HeapBytes()
{
    return mallinfo2().uordblks;
}

StallMeter::StallMeter(int i_intervalMs)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(i_intervalMs);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { Tick(); });
}

void StallMeter::Start()
{
    m_longest = 0;
    m_last = Clock::now();
    m_timer.start();
}

double StallMeter::Stop()
{
    Tick();
    m_timer.stop();
    return m_longest;
}

void StallMeter::Tick()
{
    Clock::time_point const l_now = Clock::now();
    m_longest = std::max(m_longest, Seconds(l_now - m_last));
    m_last = l_now;
}

Rescan RunRescan(bool i_init, int i_timeoutMs)
{
    Rescan l_result;
    Clock::time_point l_end;
    QMetaObject::Connection const l_connection =
        QObject::connect(sharedFoldersManager, &SharedFoldersManager::SharedFilesRescanned, sharedFoldersManager,
                         [&](int i_added, int i_removed)
                         {
                             l_end = Clock::now();
                             l_result.m_added = i_added;
                             l_result.m_removed = i_removed;
                             l_result.m_finished = true;
                         });
    StallMeter l_meter;
    QDeadlineTimer const l_deadline(i_timeoutMs);
    l_meter.Start();
    Clock::time_point const l_start = Clock::now();
    if (i_init)
        sharedFoldersManager->Init();
    else
        sharedFoldersManager->RescanShares();
    while (!l_result.m_finished && !l_deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    l_result.m_longestStall = l_meter.Stop();
    QObject::disconnect(l_connection);
    l_result.m_seconds = Seconds(l_end - l_start);
    return l_result;
}

std::size_t PlainWalk(std::string const& i_root, std::vector<std::string>* o_paths)
{
    return WalkFolder(i_root, i_root.size() + 1, o_paths);
}

void Record(std::string i_name, double i_value, std::string i_unit, double i_target, bool i_aim, std::string i_note)
{
    // A benchmark may run more than once; the last run counts.
    Figure l_figure{std::move(i_name), i_value, std::move(i_unit), i_target, i_aim, std::move(i_note)};
    for (Figure& l_known : Figures())
        if (l_known.m_name == l_figure.m_name)
        {
            l_known = std::move(l_figure);
            return;
        }
    Figures().push_back(std::move(l_figure));
}

void Report(std::string i_name, double i_value, std::string i_unit, std::string i_note)
{
    Record(std::move(i_name), i_value, std::move(i_unit), std::numeric_limits<double>::quiet_NaN(), false,
           std::move(i_note));
}

int PrintSummary()
{
    int l_missed = 0;
    std::printf("\n%-56s %12s %12s %-6s %s\n", "figure", "measured", "target", "unit", "result");
    for (Figure const& l_figure : Figures())
    {
        if (std::isnan(l_figure.m_target))
        {
            std::printf("%-56s %12.4g %12s %-6s report %s\n", l_figure.m_name.c_str(), l_figure.m_value, "-",
                        l_figure.m_unit.c_str(), l_figure.m_note.c_str());
            continue;
        }
        // Every target here is a bound from above: at most the target.
        bool const l_met = l_figure.m_value <= l_figure.m_target;
        l_missed += l_met || l_figure.m_aim ? 0 : 1;
        char l_margin[48] = "";
        if (l_figure.m_value > 0)
            std::snprintf(l_margin, sizeof l_margin, " by x%.2f", l_figure.m_target / l_figure.m_value);
        std::printf("%-56s %12.4g %12.4g %-6s %s%s %s\n", l_figure.m_name.c_str(), l_figure.m_value, l_figure.m_target,
                    l_figure.m_unit.c_str(), l_met ? "met" : "MISSED",
                    (std::string(l_margin) + (l_figure.m_aim ? " (aim)" : "")).c_str(), l_figure.m_note.c_str());
    }
    std::fflush(stdout);
    return l_missed;
}
} // namespace ShareBench
