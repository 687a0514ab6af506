#include "FuzzSocket.h"

#include <algorithm>
#include <cstring>

FuzzSocket::FuzzSocket(QByteArray i_incoming) : m_incoming(std::move(i_incoming))
{
    setSocketState(QAbstractSocket::ConnectedState);
    setOpenMode(QIODevice::ReadWrite);
}

qint64 FuzzSocket::bytesAvailable() const
{
    // What Qt has buffered already, plus what the "wire" still holds.
    return QIODevice::bytesAvailable() + Unread();
}

qint64 FuzzSocket::readData(char* o_data, qint64 i_maxSize)
{
    qint64 const l_count = std::min(i_maxSize, Unread());
    if (l_count > 0)
        std::memcpy(o_data, m_incoming.constData() + m_readAt, static_cast<std::size_t>(l_count));
    m_readAt += l_count;
    return l_count;
}

qint64 FuzzSocket::writeData(char const*, qint64 i_size)
{
    return i_size;
}
