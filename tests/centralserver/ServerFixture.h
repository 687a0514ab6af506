#pragma once

#include "CentralServer.h"
#include "support/RawClient.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <memory>

// An in-process server on a free port of the loopback interface.
class ServerFixture : public ::testing::Test
{
protected:
    static constexpr quint32 c_localhost = 0x7f000001;

    void SetUp() override
    {
        m_options.m_listenAddress = QHostAddress(QHostAddress::LocalHost);
        m_options.m_port = 0;
        Configure(m_options);
        mp_server = std::make_unique<CentralServer>(m_options);
        QString l_error;
        ASSERT_TRUE(mp_server->Start(l_error)) << l_error.toStdString();
    }

    void TearDown() override
    {
        mp_server.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    virtual void Configure(ServerOptions&) {}

    std::unique_ptr<RawClient> LoggedIn(QByteArray const& i_name, QByteArray const& i_password = "pw")
    {
        auto lp_client = std::make_unique<RawClient>(mp_server->Port());
        EXPECT_EQ(lp_client->Login(i_name, i_password), std::optional<bool>(true)) << i_name.data();
        return lp_client;
    }

    ServerOptions m_options;
    std::unique_ptr<CentralServer> mp_server;
};
