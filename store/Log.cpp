#include "store/Log.h"

#include <QDebug>

namespace
{
LogSink& Sink()
{
    static LogSink s_sink;
    return s_sink;
}
} // namespace

void SetLogSink(LogSink i_sink)
{
    Sink() = std::move(i_sink);
}

void Log(QString const& i_area, int i_level, QString const& i_text, ItemPtr i_item)
{
    if (Sink())
    {
        Sink()(i_area, i_level, i_text, i_item);
        return;
    }
    qInfo().noquote() << PlainLogLine(i_area, i_level, i_text);
}

QString PlainLogLine(QString const& i_area, int i_level, QString const& i_text)
{
    return i_area + QStringLiteral(": ") + QString(3 * qBound(0, i_level - 1, 16), QLatin1Char(' ')) + i_text;
}
