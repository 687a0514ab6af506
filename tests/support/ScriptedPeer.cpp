#include "support/ScriptedPeer.h"

#include <QtEndian>

#include <algorithm>
#include <utility>
#include <zlib.h>

#include "support/WaitFor.h"

namespace
{
QByteArray LittleU32(quint32 i_value)
{
    quint32 const l_value = qToLittleEndian(i_value);
    return QByteArray(reinterpret_cast<char const*>(&l_value), 4);
}

void Pause(int i_ms)
{
    WaitFor([] { return false; }, i_ms);
}
}

PeerLink::PeerLink(QTcpSocket* ip_socket, bool i_accepted) : mp_socket(ip_socket), m_expectFirst(i_accepted)
{
    mp_socket->setParent(nullptr);
    // Small writes, split sends above all, must leave at once and not wait for an acknowledgement.
    mp_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

QByteArray PeerLink::Framed(QByteArray const& i_body)
{
    return LittleU32(static_cast<quint32>(i_body.size())) + i_body;
}

QByteArray PeerLink::GreetingFrame(QByteArray const& i_name, QByteArray const& i_type, quint8 i_first, bool i_withZero)
{
    QByteArray l_body(1, static_cast<char>(i_first));
    l_body += LittleU32(static_cast<quint32>(i_name.size())) + i_name;
    l_body += LittleU32(static_cast<quint32>(i_type.size())) + i_type;
    if (i_withZero)
        l_body += LittleU32(0);
    return Framed(l_body);
}

QByteArray PeerLink::IndirectAnswerFrame(quint32 i_token)
{
    return Framed(QByteArray(1, '\0') + LittleU32(i_token));
}

QByteArray PeerLink::Compressed(QByteArray const& i_plain, int i_level)
{
    uLongf l_size = compressBound(static_cast<uLong>(i_plain.size()));
    QByteArray l_out(static_cast<qsizetype>(l_size), Qt::Uninitialized);
    if (compress2(reinterpret_cast<Bytef*>(l_out.data()), &l_size, reinterpret_cast<Bytef const*>(i_plain.constData()),
            static_cast<uLong>(i_plain.size()), i_level)
        != Z_OK)
        return {};
    l_out.truncate(static_cast<qsizetype>(l_size));
    return l_out;
}

QByteArray PeerLink::DeflatedZeros(quint64 i_size)
{
    static Bytef const s_zeros[1 << 16] = {};
    z_stream l_stream{};
    if (deflateInit(&l_stream, Z_BEST_COMPRESSION) != Z_OK)
        return {};
    QByteArray l_out;
    Bytef l_chunk[1 << 14];
    quint64 l_left = i_size;
    int l_result = Z_OK;
    do
    {
        uInt const l_take = static_cast<uInt>(std::min<quint64>(l_left, sizeof(s_zeros)));
        l_left -= l_take;
        l_stream.next_in = const_cast<Bytef*>(s_zeros);
        l_stream.avail_in = l_take;
        int const l_flush = l_left == 0 ? Z_FINISH : Z_NO_FLUSH;
        do
        {
            l_stream.next_out = l_chunk;
            l_stream.avail_out = sizeof(l_chunk);
            l_result = deflate(&l_stream, l_flush);
            l_out.append(reinterpret_cast<char const*>(l_chunk), static_cast<qsizetype>(sizeof(l_chunk) - l_stream.avail_out));
        } while (l_stream.avail_out == 0);
    } while (l_left > 0);
    deflateEnd(&l_stream);
    return l_result == Z_STREAM_END ? l_out : QByteArray();
}

void PeerLink::SendBareU32(quint32 i_value)
{
    SendRaw(LittleU32(i_value));
}

void PeerLink::SendRaw(QByteArray const& i_bytes)
{
    mp_socket->write(i_bytes);
    mp_socket->flush();
}

void PeerLink::SendSplit(QByteArray const& i_bytes, QList<qsizetype> const& i_cuts, int i_pauseMs)
{
    qsizetype l_from = 0;
    QList<qsizetype> l_ends = i_cuts;
    l_ends.append(i_bytes.size());
    for (qsizetype const l_end : l_ends)
    {
        if (l_end <= l_from || l_end > i_bytes.size())
            continue;
        SendRaw(i_bytes.mid(l_from, l_end - l_from));
        l_from = l_end;
        WaitFor([this] { return mp_socket->bytesToWrite() == 0; }, 3000);
        if (l_from < i_bytes.size())
            Pause(i_pauseMs);
    }
}

// Moves one whole frame out of the socket: to the first frame while that is expected, else to
// the queue. False while no whole frame is there.
bool PeerLink::ReadFrame()
{
    quint32 l_length = 0;
    if (!m_reading || mp_socket->peek(reinterpret_cast<char*>(&l_length), 4) != 4)
        return false;
    l_length = qFromLittleEndian(l_length);
    if (static_cast<quint64>(mp_socket->bytesAvailable()) < 4ull + l_length)
        return false;
    mp_socket->skip(4);
    QByteArray l_body = mp_socket->read(l_length);
    if (m_expectFirst)
    {
        m_expectFirst = false;
        m_first = l_body;
    }
    else
        m_frames.append(l_body);
    return true;
}

bool PeerLink::FirstFrameRead()
{
    return !m_expectFirst || ReadFrame();
}

bool PeerLink::Find(quint32 i_code, QByteArray& o_body)
{
    qsizetype l_index = 0;
    do
    {
        for (; l_index < m_frames.size(); ++l_index)
            if (i_code == s_anyCode || Fields(m_frames[l_index]).U32() == i_code)
            {
                o_body = m_frames.takeAt(l_index);
                return true;
            }
    } while (ReadFrame());
    return false;
}

QByteArray PeerLink::TakeFirstFrame(int i_timeoutMs)
{
    if (m_expectFirst)
        WaitFor([this] { return ReadFrame(); }, i_timeoutMs);
    return std::exchange(m_first, std::nullopt).value_or(QByteArray());
}

QByteArray PeerLink::TakeFrame(quint32 i_code, int i_timeoutMs)
{
    QByteArray l_found;
    WaitFor([&] { return Find(i_code, l_found); }, i_timeoutMs);
    return l_found;
}

std::optional<Fields> PeerLink::Take(quint32 i_code, int i_timeoutMs)
{
    QByteArray const l_body = TakeFrame(i_code, i_timeoutMs);
    return l_body.isEmpty() ? std::nullopt : std::optional<Fields>(Fields(l_body.mid(4)));
}

std::optional<quint32> PeerLink::TakeBareU32(int i_timeoutMs)
{
    QByteArray const l_bytes = TakeRaw(4, i_timeoutMs);
    return l_bytes.size() == 4 ? std::optional<quint32>(qFromLittleEndian<quint32>(l_bytes.constData())) : std::nullopt;
}

QByteArray PeerLink::TakeRaw(qsizetype i_count, int i_timeoutMs)
{
    auto const l_whole = [&] { return m_reading && FirstFrameRead() && mp_socket->bytesAvailable() >= i_count; };
    // A link the other end has closed brings no more bytes: no need to wait for them.
    WaitFor([&] { return l_whole() || mp_socket->state() == QAbstractSocket::UnconnectedState; }, i_timeoutMs);
    return l_whole() ? mp_socket->read(i_count) : QByteArray();
}

void PeerLink::StopReading()
{
    m_reading = false;
    mp_socket->setReadBufferSize(1);
}

bool PeerLink::WaitClosed(int i_timeoutMs)
{
    return WaitFor([this] { return mp_socket->state() == QAbstractSocket::UnconnectedState; }, i_timeoutMs);
}

ScriptedPeer::ScriptedPeer(quint16 i_listenPort)
{
    m_listener.listen(QHostAddress::LocalHost, i_listenPort);
}

bool ScriptedPeer::LogIn(quint16 i_centralPort, QByteArray const& i_name, QByteArray const& i_password, quint16 i_reportedPort)
{
    mp_central = std::make_unique<RawClient>(i_centralPort);
    if (!mp_central->Login(i_name, i_password).value_or(false))
        return false;
    mp_central->Send(Body(2).U32(i_reportedPort));
    return true;
}

std::optional<ScriptedPeer::ConnectRequest> ScriptedPeer::TakeConnectRequest(int i_timeoutMs)
{
    std::optional<Fields> l_fields = Central().Take(18, i_timeoutMs);
    if (!l_fields)
        return std::nullopt;
    ConnectRequest l_request;
    l_request.m_user = l_fields->Str();
    l_request.m_type = l_fields->Str();
    l_request.m_ip = l_fields->U32();
    l_request.m_port = l_fields->U32();
    l_request.m_token = l_fields->U32();
    l_request.m_privileged = l_fields->U8();
    return l_request;
}

std::unique_ptr<PeerLink> ScriptedPeer::Accept(int i_timeoutMs)
{
    if (!WaitFor([this] { return m_listener.hasPendingConnections(); }, i_timeoutMs))
        return nullptr;
    return std::make_unique<PeerLink>(m_listener.nextPendingConnection(), true);
}

std::unique_ptr<PeerLink> ScriptedPeer::Dial(quint16 i_port, int i_timeoutMs)
{
    auto lp_socket = std::make_unique<QTcpSocket>();
    lp_socket->connectToHost(QHostAddress::LocalHost, i_port);
    WaitFor([&] { return lp_socket->state() == QAbstractSocket::ConnectedState
                      || lp_socket->state() == QAbstractSocket::UnconnectedState; },
        i_timeoutMs);
    if (lp_socket->state() != QAbstractSocket::ConnectedState)
        return nullptr;
    return std::make_unique<PeerLink>(lp_socket.release(), false);
}

std::unique_ptr<PeerLink> ScriptedPeer::DialBack(ConnectRequest const& i_request, int i_timeoutMs)
{
    std::unique_ptr<PeerLink> lp_link = Dial(static_cast<quint16>(i_request.m_port), i_timeoutMs);
    if (lp_link)
        lp_link->SendIndirectAnswer(i_request.m_token);
    return lp_link;
}
