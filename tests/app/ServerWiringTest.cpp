#include "AppTest.h"
#include "support/LoopbackCentral.h"
#include "support/WaitFor.h"

// In the assembled window, a lost link comes back on the half-minute timer and not before.
TEST(ServerWiring, TheHalfMinuteTimerReconnectsALostLink)
{
    AppEnvironment::Window();
    CloseInformationBoxes(QString());
    LoopbackCentral l_central;
    gp_server->SetAddress(QStringLiteral("127.0.0.1"), l_central.Port());
    for (auto const& [lp_key, lp_value] : {std::pair{"username", "alice"}, {"password", "secret"}, {"use_upnp", "no"}})
        SetGlobal(lp_key, lp_value);
    QSignalSpy l_disconnected(gp_server, &Server::Disconnected);
    gp_server->Connect();
    std::unique_ptr<RawClient> lp_link = l_central.AnswerLogin();
    ASSERT_TRUE(lp_link);
    ASSERT_TRUE(WaitFor([] { return gp_server->IsConnected(); }));

    lp_link->Close();
    ASSERT_TRUE(WaitFor([&] { return l_disconnected.count() == 1; }));
    QTimer* lp_timer = timerManager->HalfMinuteTimer();
    lp_timer->start(); // a full half minute from now, so that it cannot run during the wait
    EXPECT_FALSE(l_central.Accept(300));
    QMetaObject::invokeMethod(lp_timer, "timeout");
    lp_link = l_central.AnswerLogin();
    ASSERT_TRUE(lp_link);
    EXPECT_TRUE(WaitFor([] { return gp_server->IsConnected(); }));
    gp_server->Disconnect();
}
