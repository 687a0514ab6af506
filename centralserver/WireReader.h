#pragma once

#include <QByteArray>
#include <QtGlobal>

// Reads the body of one client frame. The first failed read sets the reader failed, and
// every later read fails too, so a handler may read all fields and check Ok() once.
class WireReader
{
public:
    explicit WireReader(QByteArray const& i_body);

    quint8 U8();
    quint32 U32();
    QByteArray String();

    bool Ok() const { return m_ok; }
    bool AtEnd() const { return m_position >= m_body.size(); }

private:
    bool Take(qsizetype i_count);

    QByteArray m_body;
    qsizetype m_position = 0;
    bool m_ok = true;
};
