#include "ClientConnection.h"

#include "ServerLimits.h"
#include "ServerLog.h"
#include "WireReader.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QtEndian>

namespace
{
// Every connection lives in the main thread.
qint64 g_assemblingBytes = 0;
qint64 g_pendingOutputBytes = 0;
}

ClientConnection::ClientConnection(QTcpSocket* ip_socket, FrameHandler i_handler,
    int i_partialFrameTimeoutMs, QObject* ip_parent)
    : QObject(ip_parent)
    , mp_socket(ip_socket)
    , m_handler(std::move(i_handler))
{
    mp_socket->setParent(this);
    mp_socket->setReadBufferSize(ServerLimits::c_socketReadBuffer);
    connect(mp_socket, &QTcpSocket::readyRead, this, &ClientConnection::OnReadyRead);
    connect(mp_socket, &QTcpSocket::bytesWritten, this, &ClientConnection::OnBytesWritten);
    connect(mp_socket, &QTcpSocket::disconnected, this, &ClientConnection::OnDisconnected);
    connect(mp_socket, &QTcpSocket::errorOccurred, this, &ClientConnection::OnDisconnected);
    m_loginTimer.setSingleShot(true);
    connect(&m_loginTimer, &QTimer::timeout, this, &ClientConnection::OnLoginTimeout);
    m_loginTimer.start(ServerLimits::c_loginTimeoutMs);
    m_partialFrameTimer.setSingleShot(true);
    m_partialFrameTimer.setInterval(i_partialFrameTimeoutMs);
    connect(&m_partialFrameTimer, &QTimer::timeout, this, &ClientConnection::OnPartialFrameTimeout);
}

ClientConnection::~ClientConnection()
{
    ReleaseFrame();
    g_pendingOutputBytes -= m_countedOutput;
}

qint64 ClientConnection::AssemblingBytes()
{
    return g_assemblingBytes;
}

qint64 ClientConnection::PendingOutputBytes()
{
    return g_pendingOutputBytes;
}

void ClientConnection::Send(QByteArray const& i_frame)
{
    if (m_closing)
        return;
    mp_socket->write(i_frame);
    // Qt writes only when the event loop runs again; while one message is served to a crowd,
    // what piles up goes to the kernel now, so only a reader that does not read keeps it here.
    if (mp_socket->bytesToWrite() > ServerLimits::c_flushThreshold)
        mp_socket->flush();
    CountPendingOutput();
    if (m_countedOutput > ServerLimits::c_maxPendingOutput)
        Abort(QStringLiteral("client does not read what it is sent"));
    else if (g_pendingOutputBytes > ServerLimits::c_maxPendingOutputTotal
        && m_countedOutput > ServerLimits::c_pendingOutputUnderPressure)
        Abort(QStringLiteral("client reads too slowly while unsent output of all clients passes %1 bytes")
                .arg(ServerLimits::c_maxPendingOutputTotal));
}

void ClientConnection::CloseAfterWrite()
{
    if (m_closing)
        return;
    m_closing = true;
    mp_socket->disconnectFromHost();
}

void ClientConnection::Abort(QString const& i_reason)
{
    if (m_closing)
        return;
    m_closing = true;
    ServerLog::Write(QStringLiteral("closing connection from %1: %2").arg(PeerText(), i_reason));
    mp_socket->abort();
    CountPendingOutput();
    ReleaseFrame();
    // abort() does not always report the close when the socket was already going down.
    OnDisconnected();
}

QString ClientConnection::PeerText() const
{
    QHostAddress l_address = mp_socket->peerAddress();
    bool l_isIPv4 = false;
    quint32 l_ipv4 = l_address.toIPv4Address(&l_isIPv4);
    return l_isIPv4 ? QHostAddress(l_ipv4).toString() : l_address.toString();
}

quint32 ClientConnection::PeerIPv4() const
{
    return mp_socket->peerAddress().toIPv4Address();
}

void ClientConnection::SetLoggedIn(QByteArray const& i_name, quint64 i_rank)
{
    m_name = i_name;
    m_rank = i_rank;
    m_loginTimer.stop();
}

void ClientConnection::OnReadyRead()
{
    if (!ReadFrames() && !m_closing)
        Abort(QStringLiteral("malformed frame"));
    if (m_closing)
        return;
    // Bytes of a length prefix still in the socket are a frame begun as well.
    if (!m_lengthKnown && mp_socket->bytesAvailable() == 0)
        m_partialFrameTimer.stop();
    else if (!m_partialFrameTimer.isActive())
        m_partialFrameTimer.start();
}

// Takes memory as the bytes come, never on the word of a length field.
bool ClientConnection::ReadFrames()
{
    while (!m_closing)
    {
        if (!m_lengthKnown)
        {
            if (mp_socket->bytesAvailable() < 4)
                return true;
            char l_length[4];
            if (mp_socket->read(l_length, 4) != 4)
                return false;
            m_frameLength = qFromLittleEndian<quint32>(l_length);
            quint32 const l_maxLength =
                IsLoggedIn() ? ServerLimits::c_maxFrameLength : ServerLimits::c_maxLoginFrameLength;
            if (m_frameLength < 4 || m_frameLength > l_maxLength)
            {
                Abort(QStringLiteral("frame length %1 out of bounds").arg(m_frameLength));
                return true;
            }
            m_lengthKnown = true;
        }
        if (m_frame.isEmpty())
        {
            // The code says how long the frame may be; no byte of the body is taken before it.
            char l_code[4];
            if (mp_socket->bytesAvailable() < 4)
                return true;
            if (mp_socket->peek(l_code, 4) != 4)
                return false;
            quint32 const l_codeValue = qFromLittleEndian<quint32>(l_code);
            if (m_frameLength > ServerLimits::MaxFrameLength(l_codeValue))
            {
                Abort(QStringLiteral("frame length %1 out of bounds for message %2").arg(m_frameLength).arg(l_codeValue));
                return true;
            }
        }
        qint64 l_wanted = qMin<qint64>(m_frameLength - m_frame.size(), mp_socket->bytesAvailable());
        if (l_wanted <= 0)
            return true;
        QByteArray l_part = mp_socket->read(l_wanted);
        if (l_part.isEmpty())
            return true;
        if (!Assemble(l_part))
            return true;
        if (m_frame.size() < static_cast<qsizetype>(m_frameLength))
            continue;

        m_lengthKnown = false;
        // The next frame, if one begins, has its own time.
        m_partialFrameTimer.stop();
        // The reader shares the bytes; clearing now lets them go with it, so that an idle
        // connection keeps nothing of its last frame.
        WireReader l_reader(m_frame);
        ReleaseFrame();
        quint32 l_code = l_reader.U32();
        if (!m_handler(*this, l_code, l_reader))
        {
            if (!m_closing)
                Abort(QStringLiteral("malformed message %1").arg(l_code));
            return true;
        }
    }
    return true;
}

bool ClientConnection::Assemble(QByteArray const& i_part)
{
    if (g_assemblingBytes + i_part.size() > ServerLimits::c_maxAssemblingBytes)
    {
        Abort(QStringLiteral("frames under assembly of all clients would pass %1 bytes")
                .arg(ServerLimits::c_maxAssemblingBytes));
        return false;
    }
    m_frame.append(i_part);
    g_assemblingBytes += i_part.size();
    return true;
}

void ClientConnection::ReleaseFrame()
{
    g_assemblingBytes -= m_frame.size();
    m_frame.clear();
}

void ClientConnection::CountPendingOutput()
{
    qint64 const l_pending = mp_socket->bytesToWrite();
    g_pendingOutputBytes += l_pending - m_countedOutput;
    m_countedOutput = l_pending;
}

void ClientConnection::OnBytesWritten()
{
    CountPendingOutput();
}

void ClientConnection::OnDisconnected()
{
    m_closing = true;
    CountPendingOutput();
    ReleaseFrame();
    if (m_closedSignalled)
        return;
    m_closedSignalled = true;
    m_loginTimer.stop();
    m_partialFrameTimer.stop();
    emit Closed(this);
}

void ClientConnection::OnLoginTimeout()
{
    if (!IsLoggedIn())
        Abort(QStringLiteral("no login"));
}

void ClientConnection::OnPartialFrameTimeout()
{
    Abort(QStringLiteral("frame not completed within %1 ms").arg(m_partialFrameTimer.interval()));
}
