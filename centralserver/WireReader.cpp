#include "WireReader.h"

#include "ServerLimits.h"

#include <QtEndian>

WireReader::WireReader(QByteArray const& i_body)
    : m_body(i_body)
{
}

bool WireReader::Take(qsizetype i_count)
{
    if (!m_ok || m_body.size() - m_position < i_count)
    {
        m_ok = false;
        return false;
    }
    return true;
}

quint8 WireReader::U8()
{
    if (!Take(1))
        return 0;
    return static_cast<quint8>(m_body.at(m_position++));
}

quint32 WireReader::U32()
{
    if (!Take(4))
        return 0;
    quint32 l_value = qFromLittleEndian<quint32>(m_body.constData() + m_position);
    m_position += 4;
    return l_value;
}

QByteArray WireReader::String()
{
    quint32 l_length = U32();
    if (!m_ok || l_length > ServerLimits::c_maxStringLength || !Take(l_length))
    {
        m_ok = false;
        return {};
    }
    QByteArray l_value = m_body.mid(m_position, l_length);
    m_position += l_length;
    return l_value;
}
