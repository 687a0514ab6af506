// Connections by the thousand: left idle, closed at once, opened past the client's own limit of
// descriptors, asking for dial-backs that never answer, asking for lists and never reading.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QThread>

#include <sys/resource.h>

#include <vector>

#include "HostileClient.h"
#include "peer/PeerLimits.h"
#include "support/TestPorts.h"
#include "support/WaitFor.h"

namespace
{
std::vector<std::unique_ptr<PeerLink>> DialMany(HostileClient& io_client, int i_count)
{
    std::vector<std::unique_ptr<PeerLink>> l_links;
    for (int l_n = 0; l_n < i_count; ++l_n)
        l_links.push_back(io_client.Dial());
    return l_links;
}

qint64 OpenDescriptors(qint64 i_pid)
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(i_pid)).entryList(QDir::NoDotAndDotDot | QDir::System).size();
}

// User and system time of a process, in ticks of 10 ms.
qint64 CpuTicks(qint64 i_pid)
{
    QFile l_stat(QStringLiteral("/proc/%1/stat").arg(i_pid));
    if (!l_stat.open(QIODevice::ReadOnly))
        return -1;
    // The fields after the name in parentheses, which may itself hold spaces.
    QList<QByteArray> const l_fields = l_stat.readAll().split(')').last().trimmed().split(' ');
    return l_fields.value(11).toLongLong() + l_fields.value(12).toLongLong();
}

// Lowers the soft limit of open files of another process; its limits before go to o_old.
bool LimitDescriptors(qint64 i_pid, rlim_t i_soft, rlimit& o_old)
{
    if (prlimit(static_cast<pid_t>(i_pid), RLIMIT_NOFILE, nullptr, &o_old) != 0)
        return false;
    rlimit const l_new{i_soft, o_old.rlim_max};
    return prlimit(static_cast<pid_t>(i_pid), RLIMIT_NOFILE, &l_new, nullptr) == 0;
}
} // namespace

TEST(HostilePeers, ConnectionsByTheThousand)
{
    HostileClient l_client;
    ASSERT_TRUE(l_client.Start()) << l_client.Client().Output().toStdString();
    // This process holds both ends' worth of sockets of its own side.
    ASSERT_GE(RaiseDescriptorLimit(), 2100);

    // A thousand sockets are all accepted before the oldest go, each with its graph items, its
    // buffers and its log lines: under 16 KiB each in a plain build (scripts/peer-memory), about
    // twice that under the sanitizer, whose figure varies with how many the client takes in a turn.
    constexpr qint64 c_thousandSocketsKiB = 1000 * 32;
    // Sockets that never send a first frame: from the 257th on, each new one closes the oldest.
    l_client.Attack("1,000 idle connections", c_thousandSocketsKiB, "256 sockets wait for their first frame; closing the oldest", [&] {
        std::vector<std::unique_ptr<PeerLink>> l_links = DialMany(l_client, 1000);
        int const l_closed = 1000 - static_cast<int>(PeerLimits::s_maxUninitializedSockets);
        EXPECT_TRUE(WaitFor([&] { return !l_links[l_closed - 1]->IsOpen(); }, 20000));
        int l_open = 0;
        for (std::unique_ptr<PeerLink> const& lp_link : l_links)
            l_open += lp_link->IsOpen() ? 1 : 0;
        EXPECT_EQ(l_open, static_cast<int>(PeerLimits::s_maxUninitializedSockets));
        EXPECT_TRUE(l_links.back()->IsOpen());
    });
    l_client.Attack("1,000 opened and closed at once", c_thousandSocketsKiB, "Identified as uninitialized socket", [&] {
        std::vector<std::unique_ptr<PeerLink>> l_links = DialMany(l_client, 1000);
        for (std::size_t l_n = 0; l_n < l_links.size(); ++l_n)
            l_n % 2 == 0 ? l_links[l_n]->Abort() : l_links[l_n]->Close();
        qint64 const l_pid = l_client.Client().Pid();
        EXPECT_TRUE(WaitFor([&] { return OpenDescriptors(l_pid) < 200; }, 20000)) << OpenDescriptors(l_pid);
    });
    // Out of descriptors, the client refuses what it cannot take, says so, and takes
    // connections again once it has descriptors to spare.
    l_client.Attack("past the client's own limit", 0, "Fewer than 32 descriptors are left; not accepting peer connections for 1000 ms", [&] {
        qint64 const l_pid = l_client.Client().Pid();
        rlimit l_old{};
        // Forty are taken; the rest wait in the listener's backlog, which holds fifty.
        ASSERT_TRUE(LimitDescriptors(l_pid, static_cast<rlim_t>(OpenDescriptors(l_pid) + 64), l_old));
        std::vector<std::unique_ptr<PeerLink>> l_links = DialMany(l_client, 70);
        // At its limit the client waits; it does not try again and again at once.
        qint64 const l_cpuBefore = CpuTicks(l_pid);
        QThread::msleep(1500);
        EXPECT_LT(CpuTicks(l_pid) - l_cpuBefore, 50);
        ASSERT_EQ(prlimit(static_cast<pid_t>(l_pid), RLIMIT_NOFILE, &l_old, nullptr), 0);
        l_links.clear();
        EXPECT_TRUE(l_client.WaitForLog(0, "Accepting peer connections again"));
    });
    // One user asks 70 times to be dialled back at a port that never answers: 64 dial-backs
    // stay pending, and the last 6 requests are refused at once through the server.
    BlackHolePort l_hole;
    ScriptedPeer l_dialer;
    l_client.Attack("70 dial-backs", 0, "64 dial-backs under way; refusing the one asked by user dialer", [&] {
        ASSERT_NE(l_hole.Port(), 0);
        ASSERT_TRUE(l_dialer.LogIn(2242, "dialer", "dialer-pw", l_hole.Port()));
        l_dialer.Central().Sync();
        for (quint32 l_token = 1; l_token <= 70; ++l_token)
            l_dialer.AskDialBack(l_token, "target", "P");
        for (quint32 l_token = PeerLimits::s_maxDialBackSockets + 1; l_token <= 70; ++l_token)
        {
            std::optional<Fields> l_refusal = l_dialer.Central().Take(1001, 10000);
            ASSERT_TRUE(l_refusal) << l_token;
            EXPECT_EQ(l_refusal->U32(), l_token);
        }
        EXPECT_EQ(l_client.Server().CountLines(QStringLiteral("cannot connect target -> dialer")), 6);
    });
    // Ten connections under one name: the user keeps four.
    l_client.Attack("ten connections of one user", 0, "User hog holds 4 messaging connections; closing the one idle longest", [&] {
        std::vector<std::unique_ptr<PeerLink>> l_links;
        for (int l_n = 0; l_n < 10; ++l_n)
            l_links.push_back(l_client.Dial("hog"));
        EXPECT_TRUE(WaitFor([&] {
            int l_open = 0;
            for (std::unique_ptr<PeerLink> const& lp_link : l_links)
                l_open += lp_link->IsOpen() ? 1 : 0;
            return l_open == static_cast<int>(PeerLimits::s_maxConnectionsPerUser);
        }));
    });
    // A peer asks for the share list 100,000 times and reads none of the answers: only one copy
    // waits for it, and the client serves others meanwhile.
    std::unique_ptr<PeerLink> lp_sink;
    l_client.Attack("asks and never reads", 0, "Received PM_GET_SHARED_FILE_LIST message from user sink", [&] {
        lp_sink = l_client.Dial("sink");
        lp_sink->StopReading();
        lp_sink->SendSplit(Body(4).Frame().repeated(100000), {});
    });

    EXPECT_TRUE(l_client.Stop()) << l_client.Client().Output().right(4000).toStdString();
}
