#include "WireWriter.h"

#include <QtEndian>

WireWriter::WireWriter(quint32 i_code)
{
    m_body.reserve(64);
    U32(i_code);
}

WireWriter& WireWriter::U8(quint8 i_value)
{
    m_body.append(static_cast<char>(i_value));
    return *this;
}

WireWriter& WireWriter::U32(quint32 i_value)
{
    char l_bytes[4];
    qToLittleEndian(i_value, l_bytes);
    m_body.append(l_bytes, 4);
    return *this;
}

WireWriter& WireWriter::U64(quint64 i_value)
{
    char l_bytes[8];
    qToLittleEndian(i_value, l_bytes);
    m_body.append(l_bytes, 8);
    return *this;
}

WireWriter& WireWriter::String(QByteArray const& i_value)
{
    U32(static_cast<quint32>(i_value.size()));
    m_body.append(i_value);
    return *this;
}

WireWriter& WireWriter::StringList(QList<QByteArray> const& i_values)
{
    U32(static_cast<quint32>(i_values.size()));
    for (QByteArray const& l_value : i_values)
        String(l_value);
    return *this;
}

WireWriter& WireWriter::U32List(QList<quint32> const& i_values)
{
    U32(static_cast<quint32>(i_values.size()));
    for (quint32 l_value : i_values)
        U32(l_value);
    return *this;
}

WireWriter& WireWriter::UserStats(quint32 i_speed, quint32 i_files)
{
    return U32(i_speed).U64(0).U32(i_files).U32(0);
}

WireWriter& WireWriter::Address(quint32 i_ip, quint32 i_port)
{
    return U32(i_ip).U32(i_port);
}

WireWriter& WireWriter::Raw(QByteArray const& i_bytes)
{
    m_body.append(i_bytes);
    return *this;
}

QByteArray WireWriter::Frame() const
{
    QByteArray l_frame;
    l_frame.reserve(4 + m_body.size());
    char l_length[4];
    qToLittleEndian(static_cast<quint32>(m_body.size()), l_length);
    l_frame.append(l_length, 4);
    l_frame.append(m_body);
    return l_frame;
}
