#include "ServerLog.h"

#include <cstdio>

namespace
{
ServerLog::Sink g_sink;
}

void ServerLog::Write(QString const& i_line)
{
    if (g_sink)
    {
        g_sink(i_line);
        return;
    }
    QByteArray l_bytes = i_line.toUtf8();
    l_bytes.append('\n');
    std::fwrite(l_bytes.constData(), 1, static_cast<size_t>(l_bytes.size()), stdout);
    std::fflush(stdout);
}

void ServerLog::SetSink(Sink i_sink)
{
    g_sink = std::move(i_sink);
}

QString ServerLog::Printable(QByteArray const& i_bytes)
{
    QByteArrayView l_bytes(i_bytes);
    bool const l_cut = l_bytes.size() > c_maxTextBytes;
    if (l_cut)
    {
        qsizetype l_end = c_maxTextBytes;
        // Back to the start of a UTF-8 sequence, at most three bytes, so that no character
        // is split.
        while (l_end > c_maxTextBytes - 3 && (static_cast<quint8>(l_bytes[l_end]) & 0xc0) == 0x80)
            --l_end;
        l_bytes = l_bytes.first(l_end);
    }
    QString l_text = QString::fromUtf8(l_bytes);
    for (QChar& l_char : l_text)
    {
        if (l_char.category() == QChar::Other_Control || l_char == QChar::LineSeparator
            || l_char == QChar::ParagraphSeparator)
            l_char = QLatin1Char('?');
    }
    if (l_cut)
        l_text += QStringLiteral("...");
    return l_text;
}
