#include "LoadClient.h"

#include "WireReader.h"
#include "WireWriter.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QtEndian>

LoadClient::LoadClient(int i_index, FrameHandler i_onFrame, FailureHandler i_onFailure, QObject* ip_parent)
    : QObject(ip_parent)
    , m_index(i_index)
    , mp_socket(new QTcpSocket(this))
    , m_onFrame(std::move(i_onFrame))
    , m_onFailure(std::move(i_onFailure))
{
    connect(mp_socket, &QTcpSocket::connected, this, &LoadClient::OnConnected);
    connect(mp_socket, &QTcpSocket::readyRead, this, &LoadClient::OnReadyRead);
    connect(mp_socket, &QTcpSocket::disconnected, this, &LoadClient::OnGone);
    connect(mp_socket, &QTcpSocket::errorOccurred, this, &LoadClient::OnGone);
}

QByteArray LoadClient::LoginFrame(QByteArray const& i_name, QByteArray const& i_password)
{
    return WireWriter(1).String(i_name).String(i_password).U32(157).String(QByteArray(32, '0')).U32(100).Frame();
}

void LoadClient::Start(quint16 i_port, QByteArray i_frames)
{
    m_firstFrames = std::move(i_frames);
    mp_socket->connectToHost(QHostAddress(QHostAddress::LocalHost), i_port);
}

void LoadClient::Send(QByteArray const& i_frame)
{
    mp_socket->write(i_frame);
    // Written now, not when the event loop next turns, so that a timing starts at the write.
    mp_socket->flush();
}

void LoadClient::StopReading()
{
    disconnect(mp_socket, &QTcpSocket::readyRead, this, &LoadClient::OnReadyRead);
    mp_socket->setReadBufferSize(1);
}

bool LoadClient::IsConnected() const
{
    return mp_socket->state() == QAbstractSocket::ConnectedState;
}

void LoadClient::OnConnected()
{
    Send(m_firstFrames);
    m_firstFrames.clear();
}

void LoadClient::OnReadyRead()
{
    m_pending.append(mp_socket->readAll());
    qsizetype l_at = 0;
    while (m_failure.isEmpty() && m_pending.size() - l_at >= 4)
    {
        quint32 const l_length = qFromLittleEndian<quint32>(m_pending.constData() + l_at);
        if (l_length < 4 || l_length > c_maxFrameLength)
        {
            Fail(QStringLiteral("frame length %1").arg(l_length));
            return;
        }
        if (m_pending.size() - l_at - 4 < l_length)
            break;
        WireReader l_reader(m_pending.mid(l_at + 4, l_length));
        l_at += 4 + l_length;
        quint32 const l_code = l_reader.U32();
        m_onFrame(*this, l_code, l_reader);
    }
    m_pending.remove(0, l_at);
}

void LoadClient::OnGone()
{
    Fail(mp_socket->errorString());
}

void LoadClient::Fail(QString const& i_reason)
{
    if (!m_failure.isEmpty())
        return;
    m_failure = i_reason.isEmpty() ? QStringLiteral("closed") : i_reason;
    m_onFailure(*this);
}
