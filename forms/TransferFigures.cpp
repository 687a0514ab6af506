#include "forms/TransferFigures.h"

#include <algorithm>
#include <climits>

#include "stream/NumberText.h"

namespace TransferFigures
{
double Percent(double i_done, double i_size)
{
    return i_size > 0 ? i_done * 100.0 / i_size : 100.0;
}

long long Shown(__int128 i_bytes)
{
    return static_cast<long long>(std::clamp<__int128>(i_bytes, LLONG_MIN, LLONG_MAX));
}

QString ProgressText(long long i_done, double i_percent)
{
    return QStringLiteral("%1 (%2%)").arg(CommafyNumber(i_done), QString::number(i_percent, 'f', 1));
}

QString KbsText(long long i_bytesPerSecond)
{
    return QString::number(static_cast<double>(i_bytesPerSecond) / 1024.0, 'f', 1);
}

QString EtaText(long long i_bytesLeft, long long i_bytesPerSecond)
{
    long long const l_seconds = i_bytesPerSecond > 0 ? std::max(0LL, i_bytesLeft) / i_bytesPerSecond : 0;
    QString l_text = QStringLiteral("%1s").arg(l_seconds % 60);
    if (l_seconds >= 60)
        l_text.prepend(QStringLiteral("%1m:").arg((l_seconds / 60) % 60));
    if (l_seconds >= 3600)
        l_text.prepend(QStringLiteral("%1h:").arg(l_seconds / 3600));
    // The blanks line the figure up under the header "   ETA".
    return QStringLiteral("   ") + l_text;
}

QColor StatusColor(std::string const& i_status)
{
    if (i_status == "complete")
        return QColor(0, 100, 0);
    if (i_status == "downloading" || i_status == "uploading" || i_status == "connecting")
        return QColor(0, 0, 255);
    if (i_status == "queued")
        return QColor(51, 102, 255);
    if (i_status == "denied" || i_status == "aborted" || i_status == "local error")
        return QColor(255, 10, 71);
    return QColor(Qt::black);
}

bool IsRunningStatus(std::string const& i_status)
{
    return i_status == "downloading" || i_status == "uploading";
}
} // namespace TransferFigures
