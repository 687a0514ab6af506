#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpSocket>
#include <QtEndian>

#include <memory>
#include <optional>

// Builds a body by hand, little-endian, without either side's own writer, so that a layout
// error on either side shows up.
class Body
{
public:
    explicit Body(quint32 i_code) { U32(i_code); }
    Body& U8(quint8 i_value) { return Raw(QByteArray(1, static_cast<char>(i_value))); }
    Body& U32(quint32 i_value);
    Body& U64(quint64 i_value) { return U32(static_cast<quint32>(i_value)).U32(static_cast<quint32>(i_value >> 32)); }
    Body& Str(QByteArray const& i_value) { return U32(static_cast<quint32>(i_value.size())).Raw(i_value); }
    Body& Strs(QList<QByteArray> const& i_values);
    // Speed, a 64-bit upload count, files and folders: the zeros show a field read from the
    // wrong place.
    Body& Stats(quint32 i_speed, quint32 i_files = 0) { return U32(i_speed).U32(0).U32(0).U32(i_files).U32(0); }
    Body& Raw(QByteArray const& i_bytes) { m_bytes.append(i_bytes); return *this; }
    QByteArray const& Bytes() const { return m_bytes; }
    QByteArray Frame() const { return Body(static_cast<quint32>(m_bytes.size())).m_bytes + m_bytes; }

private:
    QByteArray m_bytes;
};

// Reads a received body field by field; a read past the end gives zeros and empty strings.
class Fields
{
public:
    explicit Fields(QByteArray const& i_body) : m_body(i_body) {}
    quint8 U8() { return Has(1) ? static_cast<quint8>(m_body[m_at++]) : 0; }
    quint32 U32();
    quint64 U64();
    QByteArray Str();
    bool AtEnd() const { return m_at == m_body.size(); }

private:
    bool Has(qsizetype i_count) const { return m_body.size() - m_at >= i_count; }

    QByteArray m_body;
    qsizetype m_at = 0;
};

// One end of a central-server link that speaks raw frames: a client that connects to the
// loopback, or the server's side of a connection that a listener accepted.
class RawClient
{
public:
    explicit RawClient(quint16 i_port);
    explicit RawClient(QTcpSocket* ip_accepted); // takes ownership

    void Send(Body const& i_body) { SendRaw(i_body.Frame()); }
    // Sends the body and takes the first received body of the same code.
    QByteArray Ask(Body const& i_body) { Send(i_body); return TakeBody(Fields(i_body.Bytes()).U32()); }
    void SendRaw(QByteArray const& i_bytes);
    static Body LoginBody(QByteArray const& i_name, QByteArray const& i_password);
    // Sends the login and waits for the answer; the success byte, or nothing on time-out.
    std::optional<bool> Login(QByteArray const& i_name, QByteArray const& i_password);
    // The first received body, code included, taken out of the queue; empty on time-out.
    QByteArray Next(int i_timeoutMs = 3000) { return TakeBody(s_anyCode, i_timeoutMs); }
    QByteArray TakeBody(quint32 i_code, int i_timeoutMs = 3000);
    // As TakeBody, positioned after the code.
    std::optional<Fields> Take(quint32 i_code, int i_timeoutMs = 3000);
    bool NothingOf(quint32 i_code, int i_waitMs = 300) { return TakeBody(i_code, i_waitMs).isEmpty(); }
    // Waits for the answer to a room list request, so that all sent before is served.
    void Sync() { Send(Body(64)); TakeBody(64); }
    void Close() { mp_socket->disconnectFromHost(); }
    // From now on leaves what arrives unread, so that it fills the buffers of both ends.
    void StopReading() { QObject::disconnect(mp_socket.get(), &QTcpSocket::readyRead, nullptr, nullptr); mp_socket->setReadBufferSize(1); }
    bool WaitClosed(int i_timeoutMs = 3000);
    bool IsOpen() const { return mp_socket->state() == QAbstractSocket::ConnectedState; }

    static constexpr quint32 s_anyCode = 0xffffffff;

private:
    void OnReadyRead();

    std::unique_ptr<QTcpSocket> mp_socket;
    QByteArray m_pending;
    QList<QByteArray> m_bodies;
};
