// Desktop notifications of a real client process, on a session bus of the test's own whose
// notification service is a stand-in that records every call. The messages come from this
// process's window, typed into its chat as a user types them.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

#include "CentralServerProcess.h"
#include "SeededClient.h"
#include "forms/ChatForm.h"
#include "shell/MainWindow.h"
#include "support/AppEnvironment.h"
#include "support/NotificationStandIn.h"
#include "support/WaitFor.h"

using namespace Qt::StringLiterals;

namespace
{
constexpr int c_wait = 20000;

// Types a line into the window's chat with i_user and sends it with Return.
void SendPrivateMessage(std::string const& i_user, QString const& i_text)
{
    mainWindow->OpenChatForm(i_user);
    auto* lp_edit = mainWindow->GetChatForm(i_user)->findChild<QLineEdit*>(u"chatEdit"_s);
    ASSERT_NE(lp_edit, nullptr);
    lp_edit->setText(i_text);
    QTest::keyClick(lp_edit, Qt::Key_Return);
}

// A client that logs its decision on each private message; waits for the i_count-th line that
// says what became of one from "tim".
bool WaitForDecision(SeededClient& io_client, char const* i_outcome, int i_count = 1)
{
    QByteArray const l_line = QByteArray("Notifications: Private message from tim: ") + i_outcome;
    return WaitFor([&] { return io_client.Output().count(l_line) >= i_count; }, c_wait);
}
} // namespace

TEST(NotificationEndToEnd, APrivateMessageIsToldOnceUnlessItsChatIsInViewOrTheUserSwitchedItOff)
{
    NotificationStandIn l_desktop;
    ASSERT_TRUE(l_desktop.Start());
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s);
    ASSERT_TRUE(l_server.Start());

    SeededClient l_carol("carol");
    l_carol.Process().SetEnvironment(u"DBUS_SESSION_BUS_ADDRESS"_s, l_desktop.Address());
    SeededClient l_dave("dave");
    l_dave.Seed().Set("global", "notify_private_messages", "no");
    l_dave.Process().SetEnvironment(u"DBUS_SESSION_BUS_ADDRESS"_s, l_desktop.Address());
    ASSERT_TRUE(l_carol.Start(l_server)) << l_carol.Output().toStdString();
    ASSERT_TRUE(l_dave.Start(l_server)) << l_dave.Output().toStdString();
    {
        SavedGraph l_seed;
        l_seed.SetIdentity("tim", (AppEnvironment::PrepareHome() + u"/dl"_s).toStdString());
        ASSERT_TRUE(l_seed.Save(AppEnvironment::PrepareHome() + u"/.Tidewick"_s));
    }
    AppEnvironment::Window();
    ASSERT_TRUE(l_server.WaitForLine(u"login tim from"_s, c_wait));

    // Carol's window shows its Rooms page: the message is told, with the sender and the text,
    // the text's markup made harmless.
    SendPrivateMessage("carol", u"the <b>tide</b> turns at six"_s);
    ASSERT_TRUE(WaitFor([&] { return !l_desktop.Calls().empty(); }, c_wait)) << l_carol.Output().toStdString();
    ASSERT_TRUE(WaitForDecision(l_carol, "shown"));
    QTest::qWait(300);
    ASSERT_EQ(l_desktop.Calls().size(), 1u);
    NotificationStandIn::Call const& l_call = l_desktop.Calls()[0];
    EXPECT_EQ(l_call.m_app, u"Tidewick"_s);
    EXPECT_EQ(l_call.m_summary, u"Private message from tim"_s);
    EXPECT_EQ(l_call.m_body, u"the &lt;b&gt;tide&lt;/b&gt; turns at six"_s);
    EXPECT_EQ(l_call.m_actions, (QStringList{u"default"_s, u"Show"_s}));

    // A click brings carol's window up on the chat with tim: the next message is in view.
    l_desktop.Click(1);
    ASSERT_TRUE(WaitFor([&] { return l_carol.Output().contains("Notifications: Clicked: showing chat:tim"); }, c_wait));
    SendPrivateMessage("carol", u"are you there?"_s);
    ASSERT_TRUE(WaitForDecision(l_carol, "not shown, its chat is in view")) << l_carol.Output().toStdString();

    // Dave switched private message notifications off.
    SendPrivateMessage("dave", u"hello dave"_s);
    ASSERT_TRUE(WaitForDecision(l_dave, "not shown, switched off")) << l_dave.Output().toStdString();
    QTest::qWait(300);
    EXPECT_EQ(l_desktop.Calls().size(), 1u);

    l_carol.Stop();
    l_dave.Stop();
}
