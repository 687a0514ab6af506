// The port forwarder against a real UPnP gateway daemon. The test makes two network namespaces
// joined by a veth pair on a private subnet that exists only inside them: the gateway's, where
// the daemon and the central server run, and the client's, which this process enters for the
// in-process server link and its forwarder. What the gateway did is read from its lease file.
#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "portforward/PortForwarder.h"
#include "portforward/UPnPWorker.h"
#include "server/Server.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "support/FreePort.h"
#include "support/WaitFor.h"

namespace
{
int Execute(QString const& i_program, QStringList const& i_arguments)
{
    return QProcess::execute(i_program, i_arguments);
}

QString Find(QString const& i_name)
{
    return QStandardPaths::findExecutable(i_name, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin"),
                                                   QStringLiteral("/bin")});
}

// What the test needs of the machine; empty when all is there.
QString Missing()
{
    QStringList l_missing;
    if (::geteuid() != 0)
        l_missing << QStringLiteral("root");
    for (char const* lp_tool : {"ip", "nft", "miniupnpd"})
        if (Find(QString::fromLatin1(lp_tool)).isEmpty())
            l_missing << QString::fromLatin1(lp_tool);
    return l_missing.join(QStringLiteral(", "));
}

// Enters a namespace for this thread and the threads it starts afterwards, and returns to the
// one it left when it goes.
class NamespaceVisit
{
public:
    explicit NamespaceVisit(QString const& i_name)
        : m_home(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC))
    {
        int const l_target = ::open(("/run/netns/" + i_name.toStdString()).c_str(), O_RDONLY | O_CLOEXEC);
        m_entered = l_target >= 0 && ::setns(l_target, CLONE_NEWNET) == 0;
        if (l_target >= 0)
            ::close(l_target);
    }
    ~NamespaceVisit()
    {
        if (m_entered)
            ::setns(m_home, CLONE_NEWNET);
        ::close(m_home);
    }
    bool Entered() const { return m_entered; }

private:
    int m_home;
    bool m_entered = false;
};

bool g_typesDeclared = false;

void DeclareTypes()
{
    if (std::exchange(g_typesDeclared, true))
        return;
    new DataSaver();
    Type* lp_value = d.NewType("global_value", false, false, true);
    d.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
    Server::CreateData();
}
} // namespace

class GatewayTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QString const l_missing = Missing();
        if (!l_missing.isEmpty())
            GTEST_SKIP() << "the gateway test needs " << l_missing.toStdString();
        ASSERT_TRUE(m_dir.isValid());
        QString const l_id = QString::number(::getpid());
        m_gateway = QStringLiteral("twgw") + l_id;
        m_client = QStringLiteral("twcl") + l_id;
        m_lonely = QStringLiteral("twlo") + l_id;
        m_subnet = QStringLiteral("10.%1.%2").arg(200 + ::getpid() % 50).arg(::getpid() / 50 % 250);
        ASSERT_TRUE(MakeNetwork());
        DeclareTypes();
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { if (i_area == QLatin1String("Port Forwarding")) m_lines << QStringLiteral("%1|%2").arg(i_level).arg(i_text); });
    }
    void TearDown() override
    {
        mp_server.reset();
        mp_visit.reset();
        SetLogSink(nullptr);
        StopDaemon();
        if (m_central.state() != QProcess::NotRunning)
        {
            m_central.terminate();
            m_central.waitForFinished(3000);
        }
        for (QString const& l_name : {m_gateway, m_client, m_lonely})
            if (!l_name.isEmpty())
                Execute(Find(QStringLiteral("ip")), {QStringLiteral("netns"), QStringLiteral("del"), l_name});
        for (auto const& l_entry : d.Types())
            l_entry.second->GetItems().Remove();
    }

    QString Ip(int i_host) const { return m_subnet + QStringLiteral(".%1").arg(i_host); }

    bool IpCommands(QStringList const& i_lines)
    {
        for (QString const& l_line : i_lines)
            if (Execute(Find(QStringLiteral("ip")), l_line.split(QLatin1Char(' '))) != 0)
            {
                ADD_FAILURE() << "ip " << l_line.toStdString();
                return false;
            }
        return true;
    }

    bool MakeNetwork()
    {
        QString const l_veth = QStringLiteral("twv") + QString::number(::getpid());
        QString const l_peer = l_veth + QStringLiteral("p");
        // The SSDP group 239.255.255.250 is reached through the veth on both sides.
        if (!IpCommands({QStringLiteral("netns add %1").arg(m_gateway), QStringLiteral("netns add %1").arg(m_client),
                         QStringLiteral("netns add %1").arg(m_lonely),
                         QStringLiteral("link add %1 netns %2 type veth peer name %3 netns %4").arg(l_veth, m_gateway, l_peer, m_client),
                         QStringLiteral("-n %1 addr add %2/24 dev %3").arg(m_gateway, Ip(1), l_veth),
                         QStringLiteral("-n %1 addr add %2/24 dev %3").arg(m_client, Ip(2), l_peer),
                         QStringLiteral("-n %1 link set %2 up").arg(m_gateway, l_veth),
                         QStringLiteral("-n %1 link set %2 up").arg(m_client, l_peer),
                         QStringLiteral("-n %1 link set lo up").arg(m_gateway), QStringLiteral("-n %1 link set lo up").arg(m_client),
                         QStringLiteral("-n %1 link set lo up").arg(m_lonely),
                         QStringLiteral("-n %1 route add 239.0.0.0/8 dev %2").arg(m_gateway, l_veth),
                         QStringLiteral("-n %1 route add 239.0.0.0/8 dev %2").arg(m_client, l_peer)}))
            return false;
        m_gatewayLink = l_veth;
        return WriteRules() && StartDaemon();
    }

    // The tables and chains the daemon's nftables backend fills; it does not make them itself.
    bool WriteRules()
    {
        QFile l_rules(m_dir.filePath(QStringLiteral("rules.nft")));
        if (!l_rules.open(QIODevice::WriteOnly))
            return false;
        l_rules.write("table inet filter {\n"
                      "  chain forward {\n    type filter hook forward priority 0; policy accept;\n    jump miniupnpd\n  }\n"
                      "  chain miniupnpd {\n  }\n"
                      "  chain prerouting {\n    type nat hook prerouting priority -100; policy accept;\n"
                      "    jump prerouting_miniupnpd\n  }\n"
                      "  chain postrouting {\n    type nat hook postrouting priority 100; policy accept;\n"
                      "    jump postrouting_miniupnpd\n  }\n"
                      "  chain prerouting_miniupnpd {\n  }\n"
                      "  chain postrouting_miniupnpd {\n  }\n"
                      "}\n");
        l_rules.close();
        return Execute(Find(QStringLiteral("ip")), {QStringLiteral("netns"), QStringLiteral("exec"), m_gateway, Find(QStringLiteral("nft")),
                                                 QStringLiteral("-f"), l_rules.fileName()})
            == 0;
    }

    QString LeaseFile() const { return m_dir.filePath(QStringLiteral("leases")); }
    QByteArray Leases() const
    {
        QFile l_file(LeaseFile());
        return l_file.open(QIODevice::ReadOnly) ? l_file.readAll() : QByteArray();
    }
    QByteArray Lease(QString const& i_address) const
    {
        return QStringLiteral("TCP:%1:%2:%1:").arg(m_port).arg(i_address).toUtf8();
    }

    bool StartDaemon()
    {
        QFile l_conf(m_dir.filePath(QStringLiteral("gateway.conf")));
        if (!l_conf.open(QIODevice::WriteOnly))
            return false;
        // The daemon declines to forward behind a reserved or private external address, so the
        // external address is declared as a public one; it exists only in the gateway's
        // namespace and is never reached. Secure mode is off so that a mapping may name another
        // address of the subnet, as a second device's would. NAT-PMP stays off: only UPnP is tried.
        l_conf.write(QStringLiteral("ext_ifname=%1\n"
                                    "ext_ip=11.22.33.44\n"
                                    "listening_ip=%1\n"
                                    "http_port=%2\n"
                                    "enable_upnp=yes\n"
                                    "enable_natpmp=no\n"
                                    "secure_mode=no\n"
                                    "system_uptime=yes\n"
                                    "lease_file=%3\n"
                                    "uuid=3e4c1a52-5f1e-4a1c-9d5b-2b6f0e0b7a11\n"
                                    "allow 1024-65535 %4.0/24 1024-65535\n"
                                    "deny 0-65535 0.0.0.0/0 0-65535\n")
                         .arg(m_gatewayLink)
                         .arg(m_httpPort)
                         .arg(LeaseFile(), m_subnet)
                         .toUtf8());
        l_conf.close();
        m_daemon.setProcessChannelMode(QProcess::MergedChannels);
        m_daemon.start(Find(QStringLiteral("ip")), {QStringLiteral("netns"), QStringLiteral("exec"), m_gateway,
                                                    Find(QStringLiteral("miniupnpd")), QStringLiteral("-d"), QStringLiteral("-f"),
                                                    l_conf.fileName(), QStringLiteral("-P"), m_dir.filePath(QStringLiteral("pid"))});
        m_daemonLog.clear();
        // Each daemon has a pid file of its own: tests of other processes run theirs at the same time.
        return m_daemon.waitForStarted(3000) && WaitFor(
                   [this]
                   {
                       m_daemonLog += m_daemon.readAll();
                       return m_daemonLog.contains("HTTP listening on port");
                   },
                   5000);
    }
    void StopDaemon()
    {
        if (m_daemon.state() == QProcess::NotRunning)
            return;
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(3000))
            m_daemon.kill();
        m_daemon.waitForFinished(1000);
    }

    // The central server in the gateway's namespace, and this process in the client's, where a
    // server link with UPnP on is made.
    void StartCentralAndEnterClient()
    {
        quint16 const l_centralPort = FreePort();
        m_central.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_central.start(Find(QStringLiteral("ip")), {QStringLiteral("netns"), QStringLiteral("exec"), m_gateway,
                                                     QStringLiteral(TIDEWICK_CENTRAL_BIN), QStringLiteral("--listen"), Ip(1),
                                                     QStringLiteral("--port"), QString::number(l_centralPort)});
        ASSERT_TRUE(m_central.waitForStarted(3000));
        mp_visit = std::make_unique<NamespaceVisit>(m_client);
        ASSERT_TRUE(mp_visit->Entered());
        m_port = 40000 + ::getpid() % 20000;
        for (auto const& [lp_key, l_value] : {std::pair{"username", QStringLiteral("gateway-test")},
                                              {"password", QStringLiteral("secret")}, {"use_upnp", QStringLiteral("yes")},
                                              {"listening_port", QString::number(m_port)}})
            SetGlobal(lp_key, Value(l_value.toStdString()));
        mp_server = std::make_unique<Server>();
        mp_server->SetAddress(Ip(1), l_centralPort);
        // The central server may take a moment to listen; the link retries on its own schedule,
        // so the test connects again until it is in.
        ASSERT_TRUE(WaitFor(
            [this]
            {
                if (mp_server->GetState() == Server::StateDisconnected)
                    mp_server->Connect();
                return mp_server->IsConnected();
            },
            15000));
    }
    bool Logged(char const* i_line, int i_timeoutMs = 15000)
    {
        return WaitFor([&] { return m_lines.contains(QString::fromUtf8(i_line)); }, i_timeoutMs);
    }

    QTemporaryDir m_dir;
    QString m_gateway, m_client, m_lonely, m_subnet, m_gatewayLink;
    QProcess m_daemon, m_central;
    QByteArray m_daemonLog;
    std::unique_ptr<NamespaceVisit> mp_visit;
    std::unique_ptr<Server> mp_server;
    int m_port = 0;
    // Kept over a restart of the daemon, so that the description URL found before still holds.
    quint16 const m_httpPort = FreePort();
    QStringList m_lines;
};

TEST_F(GatewayTest, TheLoginMapsThePortARestartedGatewayGetsItBackAndShutDownRemovesIt)
{
    StartCentralAndEnterClient();
    ASSERT_TRUE(Logged("2|Port successfully mapped.")) << m_lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(m_lines.contains(QStringLiteral("2|Found own address to be %1").arg(Ip(2))));
    ASSERT_TRUE(WaitFor([this] { return Leases().contains(Lease(Ip(2))); }, 3000)) << Leases().toStdString();
    EXPECT_TRUE(Leases().contains("TidewickQT"));

    StopDaemon();
    QFile::remove(LeaseFile());
    ASSERT_TRUE(StartDaemon());
    m_lines.clear();
    mp_server->RenewPortMapping();
    ASSERT_TRUE(Logged("2|Port successfully mapped.") || Logged("2|Second mapping attempt successful."));
    EXPECT_TRUE(WaitFor([this] { return Leases().contains(Lease(Ip(2))); }, 3000)) << Leases().toStdString();

    mp_server.reset();
    EXPECT_FALSE(Leases().contains(Lease(Ip(2)))) << Leases().toStdString();
    EXPECT_TRUE(m_lines.contains(QStringLiteral("2|Port mapping successfully removed.")));
}

TEST_F(GatewayTest, APortMappedToAnotherAddressIsTakenOverWithOneRetry)
{
    // Another device of the subnet holds the port, mapped through the forwarder's own worker.
    {
        NamespaceVisit l_visit(m_client);
        ASSERT_TRUE(l_visit.Entered());
        m_port = 40000 + ::getpid() % 20000;
        UPnPWorker l_other;
        l_other.DoInit();
        l_other.DoAddPortMapping(Ip(3), m_port);
    }
    ASSERT_TRUE(WaitFor([this] { return Leases().contains(Lease(Ip(3))); }, 3000)) << Leases().toStdString();

    StartCentralAndEnterClient();
    ASSERT_TRUE(Logged("2|Second mapping attempt successful.")) << m_lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(m_lines.contains(QStringLiteral("2|Port already mapped, attempting to remove existing mapping before retrying.")));
    EXPECT_TRUE(WaitFor([this] { return Leases().contains(Lease(Ip(2))) && !Leases().contains(Lease(Ip(3))); }, 3000))
        << Leases().toStdString();
}

TEST_F(GatewayTest, WithoutAGatewayInitReturnsAtOnceTheWindowKeepsTickingAndTheNextConnectTriesAgain)
{
    NamespaceVisit l_visit(m_lonely);
    ASSERT_TRUE(l_visit.Entered());
    PortForwarder l_forwarder;
    QElapsedTimer l_clock;
    qint64 l_longestGap = 0, l_last = 0;
    QTimer l_tick;
    l_tick.setInterval(5);
    QObject::connect(&l_tick, &QTimer::timeout, &l_tick,
                     [&]
                     {
                         l_longestGap = std::max(l_longestGap, l_clock.elapsed() - l_last);
                         l_last = l_clock.elapsed();
                     });
    l_clock.start();
    l_tick.start();
    l_forwarder.Init();
    qint64 const l_returned = l_clock.elapsed();
    l_forwarder.Init();
    ASSERT_TRUE(WaitFor([this] { return !m_lines.filter(QStringLiteral("No device list found during discovery")).isEmpty(); }, 10000))
        << m_lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_LT(l_returned, 100);
    EXPECT_LT(l_longestGap, 100);
    EXPECT_FALSE(l_forwarder.IsInitialized());
    // A second call while discovery ran added nothing; one after it failed tries again.
    EXPECT_EQ(m_lines.count(QStringLiteral("1|Initializing UPnP")), 1);
    l_forwarder.Init();
    EXPECT_TRUE(WaitFor([this] { return m_lines.count(QStringLiteral("1|Initializing UPnP")) == 2; }));
}
