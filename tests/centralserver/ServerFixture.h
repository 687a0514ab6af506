#pragma once

#include "CentralServer.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "support/RawClient.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <memory>

// Collects the server's log lines instead of printing them, for as long as it lives.
class CapturedLog
{
public:
    CapturedLog() { ServerLog::SetSink([this](QString const& i_line) { m_lines.append(i_line); }); }
    ~CapturedLog() { ServerLog::SetSink({}); }
    CapturedLog(CapturedLog const&) = delete;
    CapturedLog& operator=(CapturedLog const&) = delete;

    QStringList m_lines;
};

// An in-process server on a free port of the loopback interface, with two privileged users,
// parent rules and a wish-list period other than the defaults, and a room with staff. Its log
// lines are collected instead of printed.
class ServerFixture : public ::testing::Test
{
protected:
    static constexpr quint32 c_localhost = 0x7f000001;

    void SetUp() override
    {
        m_options.m_listenAddress = QHostAddress(QHostAddress::LocalHost);
        m_options.m_port = 0;
        m_options.m_privileged = {"vip", "boss"};
        m_options.m_wishListPeriod = 900;
        m_options.m_parentMinSpeed = 3;
        m_options.m_parentSpeedRatio = 40;
        m_options.m_roomOwners.insert("club", "alice");
        m_options.m_roomOperators["club"] = {"dora", "bob", "eve", "al", "carl", "fay"};
        Restart();
    }
    void TearDown() override
    {
        mp_server.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void Restart()
    {
        mp_server.reset();
        mp_server = std::make_unique<CentralServer>(m_options);
        QString l_error;
        ASSERT_TRUE(mp_server->Start(l_error)) << l_error.toStdString();
    }
    std::unique_ptr<RawClient> LoggedIn(QByteArray const& i_name, QByteArray const& i_password = "pw")
    {
        auto lp_client = std::make_unique<RawClient>(mp_server->Port());
        EXPECT_EQ(lp_client->Login(i_name, i_password), std::optional<bool>(true)) << i_name.data();
        // The room list that comes with the login, so that later ones answer what was asked.
        EXPECT_FALSE(lp_client->TakeBody(64).isEmpty()) << i_name.data();
        return lp_client;
    }

    // The first log line that contains i_text, waiting for it; empty on time-out.
    QString LogLine(QString const& i_text, int i_timeoutMs = 3000)
    {
        QString l_found;
        WaitFor([&] { return !(l_found = m_log.m_lines.filter(i_text).value(0)).isEmpty(); }, i_timeoutMs);
        return l_found;
    }

    ServerOptions m_options;
    std::unique_ptr<CentralServer> mp_server;
    CapturedLog m_log;
};
