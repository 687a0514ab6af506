#include "HostileClient.h"


#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <utility>

#include "ClientChecks.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/WaitFor.h"

HostileClient::HostileClient()
{
    // The default quarantine keeps 256 MiB of freed memory resident, which would hide any bound.
    qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":quarantine_size_mb=16");
}

HostileClient::~HostileClient()
{
    qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS").replace(":quarantine_size_mb=16", ""));
}

bool HostileClient::Start(std::function<void()> const& i_beforeLogin)
{
    mp_server = std::make_unique<CentralServerProcess>(m_dir.path() + QStringLiteral("/accounts"));
    if (!mp_server->Start())
        return false;
    if (i_beforeLogin)
        i_beforeLogin();
    m_port = FreePort();
    SavedGraph l_seed;
    for (auto [lp_key, l_value] : {std::pair{"username", std::string("target")}, {"password", "target-pw"},
                                   {"use_upnp", "no"}, {"listening_port", std::to_string(m_port)}})
        l_seed.Set("global", lp_key, l_value);
    return l_seed.Save(m_client.DataFile()) && m_client.Start() &&
           mp_server->WaitForLine(QStringLiteral("login target from 127.0.0.1"), 20000) && AnswersAPeer();
}

bool HostileClient::AnswersAPeer()
{
    return ::AnswersAPeer(m_port);
}

std::unique_ptr<PeerLink> HostileClient::Dial(QByteArray const& i_greetAs, QByteArray const& i_type)
{
    std::unique_ptr<PeerLink> lp_link = m_attacker.Dial(m_port);
    EXPECT_TRUE(lp_link);
    if (!lp_link) // a link that never connected keeps the steps of an attack harmless
        return std::make_unique<PeerLink>(new QTcpSocket, false);
    if (!i_greetAs.isEmpty())
        lp_link->SendGreeting(i_greetAs, i_type);
    return lp_link;
}

void HostileClient::Attack(char const* i_name, qint64 i_boundKiB, QByteArray const& i_logged,
                           std::function<void()> const& i_body)
{
    SCOPED_TRACE(i_name);
    ASSERT_TRUE(ResetPeakMemory(m_client.Pid()));
    qint64 const l_before = StatusKiB(m_client.Pid(), "VmRSS");
    qsizetype const l_offset = m_client.Output().size();
    i_body();
    ASSERT_TRUE(m_client.IsRunning()) << m_client.Output().toStdString();
    EXPECT_TRUE(WaitForLog(l_offset, i_logged)) << LogSince(l_offset).right(4000).toStdString();
    ASSERT_TRUE(AnswersAPeer()) << LogSince(l_offset).right(4000).toStdString();
    qint64 const l_busy = LongestBusyStall(l_offset);
    EXPECT_LE(l_busy, 100);
    qint64 const l_rise = StatusKiB(m_client.Pid(), "VmHWM") - l_before;
    EXPECT_LT(l_rise, std::min(i_boundKiB + s_marginKiB, s_maxRiseKiB));
    std::cout << "[ FIGURES  ] " << i_name << ": resident rise " << l_rise / 1024 << " MiB, longest busy stall " << l_busy
              << " ms" << std::endl;
}

bool HostileClient::WaitForLog(qsizetype i_offset, QByteArray const& i_text, int i_timeoutMs)
{
    return WaitFor([&] { return LogSince(i_offset).contains(i_text); }, i_timeoutMs);
}

qint64 HostileClient::LongestBusyStall(qsizetype i_offset)
{
    return LongestBusyStallMs(LogSince(i_offset));
}

bool HostileClient::Stop()
{
    return m_client.Terminate(20000) && m_client.ExitCode() == 0;
}

qint64 RaiseDescriptorLimit()
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) != 0)
        return -1;
    l_limit.rlim_cur = l_limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &l_limit);
    getrlimit(RLIMIT_NOFILE, &l_limit);
    return static_cast<qint64>(l_limit.rlim_cur);
}
