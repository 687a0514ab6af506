#pragma once

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QStringList>
#include <QTcpServer>

#include <memory>
#include <string>

#include "server/Server.h"
#include "store/Data.h"
#include "support/RawClient.h"

// A fresh Server per test and a loopback listener that stands in for the central server, on the
// process's one graph, whose types are declared once; what a test put into the graph is removed
// after it.
class ServerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // The central side of the Server's next connection becomes mp_central.
    bool AcceptClient(int i_timeoutMs = 5000);
    void AnswerLogin(bool i_success = true);
    void LogIn(); // connects and answers the login with success
    bool NothingSent() { return mp_central->Next(200).isEmpty(); }
    // Sends the bytes and a marker message after them, and returns once the marker was handled.
    void SendAndSettle(QByteArray const& i_bytes);
    void SendAndSettle(Body const& i_body) { SendAndSettle(i_body.Frame()); }

    static ItemPtr User(char const* i_name) { return d.GetType("user")->HasItem(i_name); }
    static ItemPtr Room(char const* i_name) { return d.GetType("room")->HasItem(i_name); }
    static bool Has(ItemPtr i_item, char const* i_type) { return i_item && i_item.IsConnected(i_type); }

    static bool DeclareTypes(); // once, before the first Server
    bool const m_typesDeclared = DeclareTypes();
    QTcpServer m_listener;
    std::unique_ptr<RawClient> mp_central;
    std::unique_ptr<Server> mp_server = std::make_unique<Server>();
    QSignalSpy m_connected{mp_server.get(), &Server::Connected};
    QSignalSpy m_disconnected{mp_server.get(), &Server::Disconnected};
    QSignalSpy m_failed{mp_server.get(), &Server::ConnectionFailed};
    QStringList m_log; // "area|level|text"
    quint32 m_markerSent = 1000;
    quint32 m_markerSeen = 0;
};
