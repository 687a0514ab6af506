#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <memory>
#include <optional>

#include "support/RawClient.h"

// One peer connection driven by hand from a test. Everything it sends is built byte by byte, so
// that it checks the client's peer side without sharing any of its code. Received bytes stay in
// the socket until a Take call asks for them, and are then kept only as whole frames: so a test
// can take a first frame, then four bare bytes, then frames, in whatever way they arrived.
class PeerLink
{
public:
    // Takes ownership. An accepted link receives a first frame without code before anything else;
    // a dialled one does not.
    PeerLink(QTcpSocket* ip_socket, bool i_accepted);

    // u32 length, then the body.
    static QByteArray Framed(QByteArray const& i_body);
    // The first frame of a dialler: i_first 1 makes it a direct greeting (any non-zero byte
    // counts as one); without i_withZero the trailing u32 0 is left out.
    static QByteArray GreetingFrame(QByteArray const& i_name, QByteArray const& i_type, quint8 i_first = 1,
        bool i_withZero = true);
    // The first frame of a peer dialling back: u8 0, then the token.
    static QByteArray IndirectAnswerFrame(quint32 i_token);
    // One zlib stream of the bytes, as compress2 makes it.
    static QByteArray Compressed(QByteArray const& i_plain, int i_level = 9);
    // One zlib stream of i_size zero bytes, made in small chunks so that the inflated size is
    // never held; a few kilobytes per megabyte. Sent behind code 5 or 9 it is a bomb.
    static QByteArray DeflatedZeros(quint64 i_size);

    void SendGreeting(QByteArray const& i_name, QByteArray const& i_type, quint8 i_first = 1, bool i_withZero = true)
    {
        SendRaw(GreetingFrame(i_name, i_type, i_first, i_withZero));
    }
    void SendIndirectAnswer(quint32 i_token) { SendRaw(IndirectAnswerFrame(i_token)); }
    // Four bytes without a frame: the request number that opens a file connection.
    void SendBareU32(quint32 i_value);
    void Send(Body const& i_body) { SendRaw(i_body.Frame()); }
    // The code, then the bytes compressed.
    void SendCompressed(quint32 i_code, QByteArray const& i_plain) { Send(Body(i_code).Raw(Compressed(i_plain))); }
    void SendRaw(QByteArray const& i_bytes);
    // Sends the bytes in pieces cut at the given ascending offsets, letting the event loop run
    // for i_pauseMs after each piece has left, so that the other end reads them one by one.
    void SendSplit(QByteArray const& i_bytes, QList<qsizetype> const& i_cuts, int i_pauseMs = 100);

    // The body of the first frame of an accepted link; empty on time-out or once taken.
    QByteArray TakeFirstFrame(int i_timeoutMs = 3000);
    // The first received frame with this code, code included, out of the queue; empty on time-out.
    QByteArray TakeFrame(quint32 i_code, int i_timeoutMs = 3000);
    // As TakeFrame, positioned after the code.
    std::optional<Fields> Take(quint32 i_code, int i_timeoutMs = 3000);
    QByteArray Next(int i_timeoutMs = 3000) { return TakeFrame(s_anyCode, i_timeoutMs); }
    bool NothingOf(quint32 i_code, int i_waitMs = 300) { return TakeFrame(i_code, i_waitMs).isEmpty(); }
    // Four bare bytes as u32, read after the first frame of an accepted link, or at the start
    // of a dialled one.
    std::optional<quint32> TakeBareU32(int i_timeoutMs = 3000);
    // Exactly i_count bytes without framing, read as TakeBareU32; empty on time-out, or once the
    // link has closed short of them.
    QByteArray TakeRaw(qsizetype i_count, int i_timeoutMs = 3000);
    // Calls i_arrived whenever bytes arrive, for as long as i_context lives: for a driver that
    // waits in the event loop and takes frames as they come instead of polling for them.
    void WhenReadable(QObject* ip_context, std::function<void()> i_arrived)
    {
        QObject::connect(mp_socket.get(), &QTcpSocket::readyRead, ip_context, std::move(i_arrived));
    }

    // From now on takes nothing in and leaves the socket a one-byte buffer, so that what the
    // other end sends piles up in its own buffers.
    void StopReading();
    // Goes on reading, but through a buffer of the size: what the other end sends beyond it
    // waits in the buffers of both ends until it is taken, so that reading slowly slows it.
    void NarrowReadBuffer(qint64 i_bytes) { mp_socket->setReadBufferSize(i_bytes); }
    // The system's handle of the connection, for a test that looks below the socket.
    qintptr Descriptor() const { return mp_socket->socketDescriptor(); }
    bool WaitClosed(int i_timeoutMs = 3000);
    bool IsOpen() const { return mp_socket->state() == QAbstractSocket::ConnectedState; }
    void Close() { mp_socket->disconnectFromHost(); }
    // Closes with a reset instead of an orderly end.
    void Abort() { mp_socket->abort(); }

    static constexpr quint32 s_anyCode = RawClient::s_anyCode;

private:
    bool ReadFrame();
    bool FirstFrameRead();
    bool Find(quint32 i_code, QByteArray& o_body);

    std::unique_ptr<QTcpSocket> mp_socket;
    bool m_expectFirst;
    bool m_reading = true;
    std::optional<QByteArray> m_first;
    QList<QByteArray> m_frames;
};

// A peer on the network as a test plays it: a user logged in to a central server, a listener
// on 127.0.0.1, and the connections it accepts or dials, each a PeerLink.
class ScriptedPeer
{
public:
    // Server message 18 as relayed to the user that is asked to dial back.
    struct ConnectRequest
    {
        QByteArray m_user;
        QByteArray m_type;
        quint32 m_ip = 0;
        quint32 m_port = 0;
        quint32 m_token = 0;
        quint8 m_privileged = 0;
    };

    // Listens on 127.0.0.1 at the port, 0 for one the system picks.
    explicit ScriptedPeer(quint16 i_listenPort = 0);

    bool IsListening() const { return m_listener.isListening(); }
    quint16 ListenPort() const { return m_listener.serverPort(); }
    void StopListening() { m_listener.close(); }

    // Logs in and then reports the port with message 2; true when the login was accepted. The
    // port message is not waited for: a test that depends on the server having it calls
    // Central().Sync() next.
    bool LogIn(quint16 i_centralPort, QByteArray const& i_name, QByteArray const& i_password, quint16 i_reportedPort);
    // The link to the central server; only after LogIn.
    RawClient& Central() { return *mp_central; }
    // Message 18: asks the server to have i_user dial this peer back.
    void AskDialBack(quint32 i_token, QByteArray const& i_user, QByteArray const& i_type)
    {
        Central().Send(Body(18).U32(i_token).Str(i_user).Str(i_type));
    }
    // Message 1001: tells the server that the dial-back to i_user failed.
    void ReportCannotConnect(quint32 i_token, QByteArray const& i_user) { Central().Send(Body(1001).U32(i_token).Str(i_user)); }
    // The next relayed message 18 from the server.
    std::optional<ConnectRequest> TakeConnectRequest(int i_timeoutMs = 3000);

    // The next accepted connection; null on time-out.
    std::unique_ptr<PeerLink> Accept(int i_timeoutMs = 3000);
    // Dials 127.0.0.1; null unless connected within the time.
    std::unique_ptr<PeerLink> Dial(quint16 i_port, int i_timeoutMs = 3000);
    // Dials 127.0.0.1 at the port of the request and sends the indirect answer with its token.
    std::unique_ptr<PeerLink> DialBack(ConnectRequest const& i_request, int i_timeoutMs = 3000);

private:
    QTcpServer m_listener;
    std::unique_ptr<RawClient> mp_central;
};
