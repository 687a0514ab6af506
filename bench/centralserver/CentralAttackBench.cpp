// The central server under load and attack: 1,000 clients log in and enter one room, then each
// attack runs in turn. After each, the server must still run, an honest client must log in,
// enter a room, hear its own line there and receive a private message, none of the 1,000 may
// have been dropped, and the server's resident memory must stay within its bounds. Prints the
// figures; exits 1 when an attack or a bound fails, 2 when the load cannot be set up. Whatever
// happens, this program and the server it starts are gone within 300 s. The memory bounds are
// those of an optimised build: a sanitizer keeps freed memory aside for a while.
#include "bench/BenchDeadline.h"
#include "bench/BenchStats.h"
#include "HonestProbe.h"
#include "HostileCases.h"
#include "LoadCrowd.h"
#include "LoadServer.h"
#include "RunUntil.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

namespace
{
constexpr int c_clients = 1000;
constexpr int c_loginsAtOnce = 32;
constexpr int c_loginPhaseMs = 90 * 1000;
constexpr int c_probeMs = 10 * 1000;
// What the server may hold at once on the attackers' word: all unsent output (256 MiB) and all
// frames under assembly (64 MiB), with room for the sockets and the allocator's slack.
constexpr qint64 c_peakAboveLoadMiB = 448;
// After an attack its memory is given back, but for what the allocator keeps for reuse.
constexpr qint64 c_afterAboveLoadMiB = 128;
constexpr unsigned c_deadlineSeconds = 290;
// The crowd and the most connections of an attack, here and in the server.
constexpr int c_descriptors = 2 * (c_clients + 4200) + 1024;

qint64 MiB(qint64 i_kib)
{
    return i_kib / 1024;
}

struct Checks
{
    LoadServer& m_server;
    LoadCrowd& m_crowd;
    HonestProbe& m_probe;
    qint64 m_loadKiB = 0;
    qint64 m_highestKiB = 0;
    int m_failures = 0;

    // The checks after an attack, while the connections it left stand; i_failure is what the
    // attack itself found wrong. The memory after is taken once they are gone.
    void After(char const* ip_name, QString i_failure, qint64 i_beforeKiB, std::function<void()> const& i_release)
    {
        QString l_probe = m_server.IsRunning() ? m_probe.Check(c_probeMs) : QStringLiteral("server gone");
        qint64 const l_peakKiB = m_server.PeakMemoryKiB();
        m_highestKiB = qMax(m_highestKiB, l_peakKiB);
        i_release();
        RunFor(500);
        if (i_failure.isEmpty() && !l_probe.isEmpty())
            i_failure = QStringLiteral("honest client: ") + l_probe;
        if (i_failure.isEmpty() && !m_crowd.Failure().isEmpty())
            i_failure = m_crowd.Failure();
        qint64 const l_afterKiB = m_server.MemoryKiB();
        if (i_failure.isEmpty() && MiB(l_peakKiB - m_loadKiB) > c_peakAboveLoadMiB)
            i_failure = QStringLiteral("peak memory above its bound");
        if (i_failure.isEmpty() && MiB(l_afterKiB - m_loadKiB) > c_afterAboveLoadMiB)
            i_failure = QStringLiteral("memory after the attack above its bound");
        std::printf("  %s: %s; honest client in %.0f ms; memory before %lld MiB, peak %lld MiB, after %lld MiB\n", ip_name,
            i_failure.isEmpty() ? "ok" : qPrintable(QStringLiteral("FAILED (%1)").arg(i_failure)),
            l_probe.isEmpty() ? m_probe.LastMs() : -1.0, static_cast<long long>(MiB(i_beforeKiB)),
            static_cast<long long>(MiB(l_peakKiB)), static_cast<long long>(MiB(l_afterKiB)));
        std::fflush(stdout);
        m_failures += i_failure.isEmpty() ? 0 : 1;
        m_server.ResetPeakMemory();
    }
};
}

int main(int argc, char** argv)
{
    BenchDeadline::Arm(c_deadlineSeconds, "bench_central_attack: deadline passed, server killed\n");
    QCoreApplication l_app(argc, argv);
    QTemporaryDir l_dir;
    LoadServer l_server(l_dir.filePath(QStringLiteral("central.log")));
    if (!l_server.StartWatched("bench_central_attack", c_descriptors))
        return 2;
    qint64 const l_idleKiB = l_server.MemoryKiB();

    LoadCrowd l_crowd(l_server.Port(), c_clients);
    std::printf("central server under load and attack on 127.0.0.1 port %u; memory at start %lld MiB\n",
        l_server.Port(), static_cast<long long>(MiB(l_idleKiB)));
    if (!l_crowd.LogIn(c_loginsAtOnce, c_loginPhaseMs))
    {
        std::printf("login phase: %d of %d clients in; %s\n", l_crowd.Ready(), c_clients, qPrintable(l_crowd.Failure()));
        return l_server.Finish(2);
    }
    std::vector<double> const l_logins = l_crowd.LoginMs();
    std::printf("login phase: %d clients logged in and entered one room in %.0f ms (%d at once); per client median "
                "%.1f ms, p99 %.1f ms, max %.1f ms\n",
        c_clients, static_cast<double>(l_crowd.LoginNs()) / 1e6, c_loginsAtOnce, BenchStats::Median(l_logins),
        BenchStats::Percentile(l_logins, 0.99), BenchStats::Percentile(l_logins, 1.0));
    RunFor(1000);

    HonestProbe l_probe(l_server.Port(), l_crowd.Client(0), "crowd0");
    Checks l_checks{l_server, l_crowd, l_probe};
    l_checks.m_loadKiB = l_server.MemoryKiB();
    std::printf("memory with %d clients in: %lld MiB; bounds: peak within %lld MiB and after each attack within %lld MiB "
                "of that\n",
        c_clients, static_cast<long long>(MiB(l_checks.m_loadKiB)), static_cast<long long>(c_peakAboveLoadMiB),
        static_cast<long long>(c_afterAboveLoadMiB));
    l_server.ResetPeakMemory();
    l_checks.After("before any attack", {}, l_checks.m_loadKiB, [] {});

    HostileCases l_cases(l_server.Port(), l_server);
    l_cases.StartSlowWriters();
    for (HostileCases::Case const& l_case : l_cases.All())
    {
        std::printf("%s\n", l_case.mp_name);
        qint64 const l_beforeKiB = l_server.MemoryKiB();
        QString const l_failure = l_case.m_run();
        l_checks.After("after", l_failure, l_beforeKiB, [&l_cases] { l_cases.ReleaseHeld(); });
    }
    std::printf("clients sending a byte a second\n");
    qint64 const l_beforeKiB = l_server.MemoryKiB();
    l_checks.After("after", l_cases.CheckSlowWriters(), l_beforeKiB, [] {});

    std::printf("summary: %d clients in %.0f ms; memory with them %lld MiB, highest under attack %lld MiB, at the end "
                "%lld MiB; %d failures\n",
        c_clients, static_cast<double>(l_crowd.LoginNs()) / 1e6, static_cast<long long>(MiB(l_checks.m_loadKiB)),
        static_cast<long long>(MiB(l_checks.m_highestKiB)), static_cast<long long>(MiB(l_server.MemoryKiB())),
        l_checks.m_failures);
    return l_server.Finish(l_checks.m_failures == 0 ? 0 : 1);
}
