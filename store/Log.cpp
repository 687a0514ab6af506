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
    QString const l_indent(3 * qMax(0, i_level - 1), QLatin1Char(' '));
    qInfo().noquote() << i_area + QStringLiteral(": ") + l_indent + i_text;
}
