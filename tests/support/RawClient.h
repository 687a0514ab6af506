#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpSocket>

#include <optional>

// Builds a body by hand, little-endian, without the server's own writer, so that a layout
// error on either side shows up.
class Body
{
public:
    explicit Body(quint32 i_code) { U32(i_code); }
    Body& U8(quint8 i_value);
    Body& U32(quint32 i_value);
    Body& Str(QByteArray const& i_value);
    QByteArray const& Bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

// Reads a received body field by field; a read past the end sets Failed().
class Fields
{
public:
    explicit Fields(QByteArray const& i_body) : m_body(i_body) {}
    quint8 U8();
    quint32 U32();
    quint64 U64();
    QByteArray Str();
    QList<QByteArray> StrList();
    bool AtEnd() const { return m_at == m_body.size(); }
    bool Failed() const { return m_failed; }

private:
    bool Has(qsizetype i_count);

    QByteArray m_body;
    qsizetype m_at = 0;
    bool m_failed = false;
};

// A client of the central server that speaks raw frames.
class RawClient
{
public:
    explicit RawClient(quint16 i_port);

    void Send(Body const& i_body);
    void SendRaw(QByteArray const& i_bytes);
    // Sends the login and waits for the answer; the success byte, or nothing on time-out.
    std::optional<bool> Login(QByteArray const& i_name, QByteArray const& i_password);
    // The first received body (after its code) with this code, taken out of the queue.
    std::optional<Fields> Take(quint32 i_code, int i_timeoutMs = 3000);
    // True when nothing with this code arrives within the time.
    bool NothingOf(quint32 i_code, int i_waitMs = 300);
    // Waits for the answer to a room list request, so that all sent before is served.
    void Sync();
    bool WaitClosed(int i_timeoutMs = 3000);
    bool IsOpen() const { return m_socket.state() == QAbstractSocket::ConnectedState; }

private:
    void OnReadyRead();

    QTcpSocket m_socket;
    QByteArray m_pending;
    QList<QByteArray> m_bodies;
};
