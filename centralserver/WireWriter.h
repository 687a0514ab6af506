#pragma once

#include <QByteArray>
#include <QList>
#include <QtGlobal>

// Builds one server frame: the u32 length, then the body starting with the u32 code.
// All integers go out little-endian.
class WireWriter
{
public:
    explicit WireWriter(quint32 i_code);

    WireWriter& U8(quint8 i_value);
    WireWriter& U32(quint32 i_value);
    WireWriter& U64(quint64 i_value);
    WireWriter& String(QByteArray const& i_value);
    WireWriter& StringList(QList<QByteArray> const& i_values);
    WireWriter& U32List(QList<quint32> const& i_values);
    // Average speed, a count, shared files, shared folders: 20 bytes.
    WireWriter& UserStats(quint32 i_speed, quint32 i_files);
    WireWriter& Address(quint32 i_ip, quint32 i_port);
    // Appends bytes that are already in wire form.
    WireWriter& Raw(QByteArray const& i_bytes);

    // The complete frame with its length prefix.
    QByteArray Frame() const;

private:
    QByteArray m_body;
};
