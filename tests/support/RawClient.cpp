#include "support/RawClient.h"

#include "support/WaitFor.h"

Body& Body::U32(quint32 i_value)
{
    quint32 const l_value = qToLittleEndian(i_value);
    return Raw(QByteArray(reinterpret_cast<char const*>(&l_value), 4));
}

Body& Body::Strs(QList<QByteArray> const& i_values)
{
    U32(static_cast<quint32>(i_values.size()));
    for (QByteArray const& l_value : i_values)
        Str(l_value);
    return *this;
}

quint32 Fields::U32()
{
    if (!Has(4))
        return 0;
    m_at += 4;
    return qFromLittleEndian<quint32>(m_body.constData() + m_at - 4);
}

quint64 Fields::U64()
{
    if (!Has(8))
        return 0;
    m_at += 8;
    return qFromLittleEndian<quint64>(m_body.constData() + m_at - 8);
}

QByteArray Fields::Str()
{
    quint32 const l_length = U32();
    if (!Has(l_length))
        return {};
    m_at += l_length;
    return m_body.mid(m_at - l_length, l_length);
}

RawClient::RawClient(quint16 i_port) : RawClient(new QTcpSocket)
{
    mp_socket->connectToHost(QHostAddress::LocalHost, i_port);
    mp_socket->waitForConnected(3000);
}

RawClient::RawClient(QTcpSocket* ip_accepted) : mp_socket(ip_accepted)
{
    mp_socket->setParent(nullptr);
    QObject::connect(mp_socket.get(), &QTcpSocket::readyRead, mp_socket.get(), [this] { OnReadyRead(); });
    // An accepted socket may have taken in bytes before anyone listened to it.
    if (mp_socket->isOpen())
        OnReadyRead();
}

void RawClient::SendRaw(QByteArray const& i_bytes)
{
    mp_socket->write(i_bytes);
    mp_socket->flush();
}

Body RawClient::LoginBody(QByteArray const& i_name, QByteArray const& i_password)
{
    return Body(1).Str(i_name).Str(i_password).U32(157).Str(QByteArray(32, 'f')).U32(100);
}

std::optional<bool> RawClient::Login(QByteArray const& i_name, QByteArray const& i_password)
{
    Send(LoginBody(i_name, i_password));
    std::optional<Fields> l_answer = Take(1);
    return l_answer ? std::optional<bool>(l_answer->U8() != 0) : std::nullopt;
}

QByteArray RawClient::TakeBody(quint32 i_code, int i_timeoutMs)
{
    QByteArray l_found;
    auto const l_find = [&]
    {
        for (qsizetype l_index = 0; l_index < m_bodies.size(); ++l_index)
            if (i_code == s_anyCode || Fields(m_bodies[l_index]).U32() == i_code)
            {
                l_found = m_bodies.takeAt(l_index);
                return true;
            }
        return false;
    };
    WaitFor(l_find, i_timeoutMs);
    return l_found;
}

std::optional<Fields> RawClient::Take(quint32 i_code, int i_timeoutMs)
{
    QByteArray const l_body = TakeBody(i_code, i_timeoutMs);
    return l_body.isEmpty() ? std::nullopt : std::optional<Fields>(Fields(l_body.mid(4)));
}

bool RawClient::WaitClosed(int i_timeoutMs)
{
    return WaitFor([this] { return mp_socket->state() == QAbstractSocket::UnconnectedState; }, i_timeoutMs);
}

void RawClient::OnReadyRead()
{
    m_pending.append(mp_socket->readAll());
    while (m_pending.size() >= 4)
    {
        quint32 const l_length = qFromLittleEndian<quint32>(m_pending.constData());
        if (m_pending.size() - 4 < static_cast<qsizetype>(l_length))
            return;
        m_bodies.append(m_pending.mid(4, l_length));
        m_pending.remove(0, 4 + l_length);
    }
}
