// A real client process, logged in to the real central server, under attack by peers played by
// hand. After each attack the client must still take a new peer and answer it, and the memory it
// reached during the attack must stay within the bound that applies to it.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "CentralServerProcess.h"
#include "ClientChecks.h"
#include "ClientProcess.h"
#include "peer/PeerLimits.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"
#include "support/WaitFor.h"

namespace
{
constexpr qint64 c_mib = 1024; // /proc counts in KiB
// Measured on this build (ASan and UBSan): the client is at about 77 MiB once logged in; the
// attacks on frames, sockets and dial-backs add 0.2 to 7 MiB, the unread requests about 50 MiB
// (mostly their log lines), the bomb under 35 MiB. The margin over each bound covers the 16 MiB
// of freed memory the client's quarantine is limited to below, the sanitizer's shadow of what
// is allocated, and the socket objects and buffers of the connections of an attack.
constexpr qint64 c_margin = 32 * c_mib;
// Each message received logs a line, which the diagnostics page keeps for good: under 1 KiB.
constexpr qint64 c_logLine = 1;

} // namespace

TEST(HostilePeers, BoundsHoldAndTheClientKeepsAnswering)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + QStringLiteral("/accounts"));
    ASSERT_TRUE(l_server.Start());
    // The default quarantine keeps 256 MiB of freed memory resident, which would hide any bound.
    qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":quarantine_size_mb=16");
    ClientProcess l_client;
    quint16 const l_port = FreePort();
    SavedGraph l_seed;
    for (auto [lp_key, l_value] : {std::pair{"username", std::string("target")}, {"password", "target-pw"},
                                   {"use_upnp", "no"}, {"listening_port", std::to_string(l_port)}})
        l_seed.Set("global", lp_key, l_value);
    ASSERT_TRUE(l_seed.Save(l_client.DataFile()));
    ASSERT_TRUE(l_client.Start());
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("login target from 127.0.0.1"), 20000)) << l_server.Log().toStdString();
    ASSERT_TRUE(AnswersAPeer(l_port));

    // Runs one attack from a high-water mark reset to what is resident now.
    auto l_attack = [&](char const* i_name, qint64 i_boundKiB, std::function<void()> const& i_body) {
        ASSERT_TRUE(ResetPeakMemory(l_client.Pid()));
        qint64 const l_before = StatusKiB(l_client.Pid(), "VmRSS");
        i_body();
        ASSERT_TRUE(AnswersAPeer(l_port)) << i_name << l_client.Output().toStdString();
        EXPECT_LT(StatusKiB(l_client.Pid(), "VmHWM") - l_before, i_boundKiB + c_margin) << i_name;
    };
    ScriptedPeer l_attacker;
    auto l_dial = [&](QByteArray const& i_greetAs = {}) {
        std::unique_ptr<PeerLink> lp_link = l_attacker.Dial(l_port);
        EXPECT_TRUE(lp_link);
        if (!lp_link) // a link that never connected keeps the steps below harmless
            return std::make_unique<PeerLink>(new QTcpSocket, false);
        if (!i_greetAs.isEmpty())
            lp_link->SendGreeting(i_greetAs, "P");
        return lp_link;
    };

    // Lengths above the bound of their frame are refused on sight, before any buffer is made.
    l_attack("huge first length", PeerLimits::s_maxFirstFrameLength / 1024, [&] {
        std::unique_ptr<PeerLink> lp_link = l_dial();
        lp_link->SendRaw(QByteArray::fromHex("f0ffffff") + QByteArray(10, 'x'));
        EXPECT_TRUE(lp_link->WaitClosed());
    });
    l_attack("65 MiB frame", 0, [&] {
        std::unique_ptr<PeerLink> lp_link = l_dial("claimer");
        lp_link->SendRaw(Body(65 << 20).Bytes() + Body(4).Bytes() + QByteArray(60000, 'x'));
        EXPECT_TRUE(lp_link->WaitClosed());
    });
    // Sockets that never send a first frame: from the 257th on, each new one closes the oldest.
    l_attack("300 idle connections", 0, [&] {
        std::vector<std::unique_ptr<PeerLink>> l_links;
        for (int l_n = 0; l_n < 300; ++l_n)
            l_links.push_back(l_dial());
        int const l_closed = 300 - static_cast<int>(PeerLimits::s_maxUninitializedSockets);
        EXPECT_TRUE(WaitFor([&] { return !l_links[l_closed - 1]->IsOpen(); }, 10000));
        for (int l_n = 0; l_n < 300; ++l_n)
            EXPECT_EQ(l_links[l_n]->IsOpen(), l_n >= l_closed) << l_n;
    });
    l_attack("random first frames", 40 * PeerLimits::s_maxFirstFrameLength / 1024, [&] {
        std::mt19937 l_random(20240601);
        for (int l_n = 0; l_n < 40; ++l_n)
        {
            QByteArray l_body(static_cast<qsizetype>(l_random() % 64), Qt::Uninitialized);
            for (char& l_byte : l_body)
                l_byte = static_cast<char>(l_random());
            std::unique_ptr<PeerLink> lp_link = l_dial();
            lp_link->SendRaw(PeerLink::Framed(l_body));
            EXPECT_TRUE(lp_link->WaitClosed()) << l_n;
        }
    });
    // One user asks 70 times to be dialled back at a port that never answers: 64 dial-backs
    // stay pending, and the last 6 requests are refused at once through the server.
    BlackHolePort l_hole;
    ScriptedPeer l_dialer;
    l_attack("70 dial-backs", 0, [&] {
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
        EXPECT_EQ(l_server.CountLines(QStringLiteral("cannot connect target -> dialer")), 6);
    });
    // A peer asks for the share list 100,000 times and reads none of the answers: a few MiB of
    // them pile up in the client, which must go on serving others meanwhile. Its unsent bound
    // is far beyond what this traffic can reach in test time.
    std::unique_ptr<PeerLink> lp_sink;
    l_attack("asks and never reads", PeerLimits::s_maxUnsentBytes / 1024 + 100000 * c_logLine, [&] {
        lp_sink = l_dial("sink");
        lp_sink->StopReading();
        lp_sink->SendSplit(Body(4).Frame().repeated(100000), {});
    });
    // 1 GiB of zeros in about 1 MiB, unasked: inflating stops at its bound and the peer goes.
    l_attack("zlib bomb", PeerLimits::s_maxInflatedBytes / 1024, [&] {
        std::unique_ptr<PeerLink> lp_link = l_dial("bomber");
        lp_link->Send(Body(5).Raw(PeerLink::DeflatedZeros(1ull << 30)));
        EXPECT_TRUE(lp_link->WaitClosed(30000));
    });

    ASSERT_TRUE(l_client.Terminate(20000)) << l_client.Output().toStdString();
    EXPECT_EQ(l_client.ExitCode(), 0) << l_client.Output().toStdString();
}
