#include "HonestProbe.h"

#include "LoadClient.h"
#include "RunUntil.h"
#include "WireReader.h"
#include "WireWriter.h"

#include <QElapsedTimer>

namespace
{
QByteArray const c_name = "honest";
QByteArray const c_room = "probe";
}

QString HonestProbe::Check(int i_timeoutMs)
{
    ++m_round;
    QByteArray const l_line = "line " + QByteArray::number(m_round);
    QByteArray const l_private = "private " + QByteArray::number(m_round);
    bool l_loggedIn = false;
    bool l_entered = false;
    bool l_heard = false;
    quint32 l_privateId = 0;
    QString l_refused;
    LoadClient l_client(-1,
        [&](LoadClient&, quint32 i_code, WireReader& i_reader) {
            if (i_code == 1)
            {
                l_loggedIn = i_reader.U8() == 1;
                if (!l_loggedIn)
                    l_refused = QString::fromUtf8(i_reader.String());
            }
            else if (i_code == 14)
                l_entered = l_entered || i_reader.String() == c_room;
            else if (i_code == 13)
                l_heard = l_heard || (i_reader.String() == c_room && i_reader.String() == c_name && i_reader.String() == l_line);
            else if (i_code == 22)
            {
                quint32 const l_id = i_reader.U32();
                i_reader.U32();
                if (i_reader.String() == m_senderName && i_reader.String() == l_private)
                    l_privateId = l_id;
            }
        },
        [](LoadClient&) {}, nullptr);

    QElapsedTimer l_clock;
    l_clock.start();
    auto const l_remaining = [&] { return qMax<int>(1, i_timeoutMs - static_cast<int>(l_clock.elapsed())); };
    l_client.Start(m_port, LoadClient::LoginFrame(c_name) + WireWriter(14).String(c_room).Frame());
    if (!RunUntil([&] { return l_entered || !l_refused.isEmpty() || l_client.IsGone(); }, l_remaining()))
        return l_client.IsGone() ? QStringLiteral("closed before entering a room: %1").arg(l_client.Failure())
                                 : QStringLiteral("no login and room within %1 ms").arg(i_timeoutMs);
    if (!l_loggedIn)
        return QStringLiteral("login refused: %1").arg(l_refused);
    l_client.Send(WireWriter(13).String(c_room).String(l_line).Frame());
    m_sender.Send(WireWriter(22).String(c_name).String(l_private).Frame());
    if (!RunUntil([&] { return (l_heard && l_privateId != 0) || l_client.IsGone(); }, l_remaining()))
        return QStringLiteral("room line %1, private message %2")
            .arg(QLatin1String(l_heard ? "heard" : "missing"), QLatin1String(l_privateId ? "received" : "missing"));
    if (l_client.IsGone())
        return QStringLiteral("closed: %1").arg(l_client.Failure());
    l_client.Send(WireWriter(23).U32(l_privateId).Frame());
    m_lastMs = static_cast<double>(l_clock.nsecsElapsed()) / 1e6;
    return {};
}
