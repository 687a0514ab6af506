#include "ClientChecks.h"

#include <QFile>
#include <QRegularExpression>
#include <QString>

#include <algorithm>
#include <memory>

#include "support/ScriptedPeer.h"

qint64 StatusKiB(qint64 i_pid, QByteArray const& i_field)
{
    QFile l_status(QStringLiteral("/proc/%1/status").arg(i_pid));
    if (!l_status.open(QIODevice::ReadOnly))
        return -1;
    for (QByteArray const& l_line : l_status.readAll().split('\n'))
        if (l_line.startsWith(i_field + ':'))
            return l_line.mid(i_field.size() + 1).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

bool ResetPeakMemory(qint64 i_pid)
{
    QFile l_clear(QStringLiteral("/proc/%1/clear_refs").arg(i_pid));
    return l_clear.open(QIODevice::WriteOnly) && l_clear.write("5") == 1;
}

bool AnswersAPeer(quint16 i_port)
{
    ScriptedPeer l_peer;
    std::unique_ptr<PeerLink> lp_link = l_peer.Dial(i_port);
    if (!lp_link)
        return false;
    lp_link->SendGreeting("prober", "P");
    lp_link->Send(Body(4));
    return !lp_link->TakeFrame(5, 5000).isEmpty();
}

qint64 LongestBusyStallMs(QByteArray const& i_log)
{
    static QRegularExpression const s_stall(QStringLiteral("Main Thread: +Event loop stalled for \\d+ ms, (\\d+) ms of it busy"));
    qint64 l_longest = 0;
    for (QRegularExpressionMatchIterator l_found = s_stall.globalMatch(QString::fromUtf8(i_log)); l_found.hasNext();)
        l_longest = std::max(l_longest, l_found.next().captured(1).toLongLong());
    return l_longest;
}
