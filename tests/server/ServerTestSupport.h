#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QSignalSpy>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>
#include <string>

#include "server/Server.h"
#include "store/Data.h"

// A body built by hand, little-endian, without the client's stream writer, so that a layout
// error in either shows up.
class Body
{
public:
    explicit Body(quint32 i_code) { U32(i_code); }
    Body& U8(quint8 i_value) { return Raw(QByteArray(1, static_cast<char>(i_value))); }
    Body& U32(quint32 i_value);
    Body& Str(QByteArray const& i_text) { return U32(static_cast<quint32>(i_text.size())).Raw(i_text); }
    Body& Stats(quint32 i_speed, quint32 i_files) { return U32(i_speed).U32(7).U32(0).U32(i_files).U32(3); }
    Body& Raw(QByteArray const& i_bytes);
    QByteArray const& Bytes() const { return m_bytes; }
    QByteArray Frame() const { return Body(static_cast<quint32>(m_bytes.size())).m_bytes + m_bytes; }

private:
    QByteArray m_bytes;
};

// Stands in for the central server: a port on the loopback and one client at a time.
class FakeCentral
{
public:
    FakeCentral() { m_server.listen(QHostAddress::LocalHost, 0); }
    quint16 Port() const { return m_server.serverPort(); }
    bool WaitForClient(int i_timeoutMs = 5000);
    QByteArray NextBody(int i_timeoutMs = 5000); // empty on time-out
    bool NothingSent() { return NextBody(200).isEmpty(); }
    void Send(QByteArray const& i_bytes);
    void Close() { mp_client->disconnectFromHost(); }
    bool WaitForClose();

private:
    QTcpServer m_server;
    QTcpSocket* mp_client = nullptr;
    QByteArray m_received;
};

// A fresh Server and fake central server per test, on the process's one graph, whose types
// are declared once; what a test put into the graph is removed after it.
class ServerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    void AnswerLogin(bool i_success = true);
    void LogIn(); // connects and answers the login with success
    // Sends the bytes and a marker message after them, and returns once the marker was handled.
    void SendAndSettle(QByteArray const& i_bytes);
    void SendAndSettle(Body const& i_body) { SendAndSettle(i_body.Frame()); }

    static ItemPtr User(char const* i_name) { return d.GetType("user")->HasItem(i_name); }
    static ItemPtr Room(char const* i_name) { return d.GetType("room")->HasItem(i_name); }
    static bool Has(ItemPtr i_item, char const* i_type) { return i_item && i_item.IsConnected(i_type); }
    static std::string Attribute(char const* i_user, char const* i_type) { return User(i_user)[i_type].AsString(); }

    FakeCentral m_central;
    std::unique_ptr<Server> mp_server;
    std::unique_ptr<QSignalSpy> mp_connected, mp_disconnected, mp_failed;
    QStringList m_log; // "area|level|text"
    quint32 m_markerSent = 1000;
    quint32 m_markerSeen = 0;
};
