#include "support/RawClient.h"

#include "support/WaitFor.h"


Body& Body::U8(quint8 i_value)
{
    m_bytes.append(static_cast<char>(i_value));
    return *this;
}

Body& Body::U32(quint32 i_value)
{
    for (int l_shift = 0; l_shift < 32; l_shift += 8)
        m_bytes.append(static_cast<char>((i_value >> l_shift) & 0xff));
    return *this;
}

Body& Body::Str(QByteArray const& i_value)
{
    U32(static_cast<quint32>(i_value.size()));
    m_bytes.append(i_value);
    return *this;
}

bool Fields::Has(qsizetype i_count)
{
    if (m_failed || m_body.size() - m_at < i_count)
        m_failed = true;
    return !m_failed;
}

quint8 Fields::U8()
{
    return Has(1) ? static_cast<quint8>(m_body[m_at++]) : 0;
}

quint32 Fields::U32()
{
    quint32 l_value = 0;
    if (!Has(4))
        return 0;
    for (int l_index = 0; l_index < 4; ++l_index)
        l_value |= static_cast<quint32>(static_cast<quint8>(m_body[m_at++])) << (8 * l_index);
    return l_value;
}

quint64 Fields::U64()
{
    quint64 l_low = U32();
    return l_low | (static_cast<quint64>(U32()) << 32);
}

QByteArray Fields::Str()
{
    quint32 l_length = U32();
    if (!Has(l_length))
        return {};
    QByteArray l_value = m_body.mid(m_at, l_length);
    m_at += l_length;
    return l_value;
}

QList<QByteArray> Fields::StrList()
{
    QList<QByteArray> l_values;
    quint32 l_count = U32();
    for (quint32 l_index = 0; l_index < l_count && !m_failed; ++l_index)
        l_values.append(Str());
    return l_values;
}

RawClient::RawClient(quint16 i_port)
{
    QObject::connect(&m_socket, &QTcpSocket::readyRead, &m_socket, [this] { OnReadyRead(); });
    m_socket.connectToHost(QHostAddress::LocalHost, i_port);
    m_socket.waitForConnected(3000);
}

void RawClient::Send(Body const& i_body)
{
    QByteArray l_frame = Body(static_cast<quint32>(i_body.Bytes().size())).Bytes() + i_body.Bytes();
    SendRaw(l_frame);
}

void RawClient::SendRaw(QByteArray const& i_bytes)
{
    m_socket.write(i_bytes);
    m_socket.flush();
}

std::optional<bool> RawClient::Login(QByteArray const& i_name, QByteArray const& i_password)
{
    Send(Body(1).Str(i_name).Str(i_password).U32(157).Str(QByteArray(32, 'f')).U32(100));
    std::optional<Fields> l_answer = Take(1);
    if (!l_answer)
        return std::nullopt;
    return l_answer->U8() != 0;
}

std::optional<Fields> RawClient::Take(quint32 i_code, int i_timeoutMs)
{
    std::optional<Fields> l_found;
    WaitFor(
        [&] {
            for (qsizetype l_index = 0; l_index < m_bodies.size(); ++l_index)
            {
                Fields l_fields(m_bodies[l_index]);
                if (l_fields.U32() == i_code)
                {
                    m_bodies.removeAt(l_index);
                    l_found = l_fields;
                    return true;
                }
            }
            return false;
        },
        i_timeoutMs);
    return l_found;
}

bool RawClient::NothingOf(quint32 i_code, int i_waitMs)
{
    return !Take(i_code, i_waitMs).has_value();
}

void RawClient::Sync()
{
    Send(Body(64));
    Take(64);
}

bool RawClient::WaitClosed(int i_timeoutMs)
{
    return WaitFor([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; },
        i_timeoutMs);
}

void RawClient::OnReadyRead()
{
    m_pending.append(m_socket.readAll());
    while (m_pending.size() >= 4)
    {
        quint32 l_length = Fields(m_pending.left(4)).U32();
        if (m_pending.size() < 4 + static_cast<qsizetype>(l_length))
            return;
        m_bodies.append(m_pending.mid(4, l_length));
        m_pending.remove(0, 4 + l_length);
    }
}
