#include "ServerLog.h"

#include <cstdio>

void ServerLog::Write(QString const& i_line)
{
    QByteArray l_bytes = i_line.toUtf8();
    l_bytes.append('\n');
    std::fwrite(l_bytes.constData(), 1, static_cast<size_t>(l_bytes.size()), stdout);
    std::fflush(stdout);
}

QString ServerLog::Printable(QByteArray const& i_bytes)
{
    QString l_text = QString::fromUtf8(i_bytes);
    for (QChar& l_char : l_text)
    {
        if (l_char.category() == QChar::Other_Control || l_char == QChar::LineSeparator
            || l_char == QChar::ParagraphSeparator)
            l_char = QLatin1Char('?');
    }
    return l_text;
}
