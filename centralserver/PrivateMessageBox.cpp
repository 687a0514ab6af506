#include "PrivateMessageBox.h"

#include "AccountBook.h"
#include "ClientConnection.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "SessionRegistry.h"
#include "WireWriter.h"

#include <QDateTime>

PrivateMessageBox::PrivateMessageBox(SessionRegistry const& i_sessions,
    AccountBook const& i_accounts)
    : m_sessions(i_sessions)
    , m_accounts(i_accounts)
{
}

void PrivateMessageBox::Post(ClientConnection& i_sender, QByteArray const& i_recipient,
    QByteArray const& i_text)
{
    QString l_route = QStringLiteral("%1 -> %2").arg(ServerLog::Printable(i_sender.Name()),
        ServerLog::Printable(i_recipient));
    if (!m_accounts.Exists(i_recipient))
    {
        ServerLog::Write(QStringLiteral("private message dropped %1: no such user").arg(l_route));
        return;
    }
    Box const l_kept = m_pending.value(i_recipient);
    if (l_kept.m_messages.size() >= ServerLimits::c_maxPendingMessagesPerUser
        || l_kept.m_bytes + i_text.size() > ServerLimits::c_maxKeptMessageBytesPerUser
        || m_keptBytes + i_text.size() > ServerLimits::c_maxKeptMessageBytes)
    {
        ServerLog::Write(QStringLiteral("private message dropped %1: too many kept").arg(l_route));
        return;
    }
    Box& l_box = m_pending[i_recipient];
    // Ids wrap after four thousand million messages; zero stays unused.
    quint32 l_id = m_nextId++;
    if (m_nextId == 0)
        m_nextId = 1;
    Message l_message{l_id, static_cast<quint32>(QDateTime::currentSecsSinceEpoch()),
        i_sender.Name(), i_text};
    l_box.m_messages.append(l_message);
    l_box.m_bytes += i_text.size();
    m_keptBytes += i_text.size();
    if (ClientConnection* lp_recipient = m_sessions.Find(i_recipient))
    {
        ServerLog::Write(QStringLiteral("private message %1").arg(l_route));
        lp_recipient->Send(Frame(l_message, true));
    }
    else
    {
        ServerLog::Write(QStringLiteral("private message %1 kept").arg(l_route));
    }
}

void PrivateMessageBox::Acknowledge(ClientConnection& i_recipient, quint32 i_id)
{
    ServerLog::Write(QStringLiteral("private message acknowledged %1 id %2")
                         .arg(ServerLog::Printable(i_recipient.Name())).arg(i_id));
    auto l_box = m_pending.find(i_recipient.Name());
    if (l_box == m_pending.end())
        return;
    Box& l_kept = *l_box;
    l_kept.m_messages.removeIf([this, &l_kept, i_id](Message const& i_message) {
        if (i_message.m_id != i_id)
            return false;
        m_keptBytes -= i_message.m_text.size();
        l_kept.m_bytes -= i_message.m_text.size();
        return true;
    });
    if (l_kept.m_messages.isEmpty())
        m_pending.erase(l_box);
}

void PrivateMessageBox::DeliverPending(ClientConnection& i_recipient)
{
    QList<Message> const l_box = m_pending.value(i_recipient.Name()).m_messages;
    for (Message const& l_message : l_box)
        i_recipient.Send(Frame(l_message, false));
    if (!l_box.isEmpty())
    {
        ServerLog::Write(QStringLiteral("private messages delivered %1 to %2")
                .arg(l_box.size())
                .arg(ServerLog::Printable(i_recipient.Name())));
    }
}

qsizetype PrivateMessageBox::PendingCount(QByteArray const& i_recipient) const
{
    return m_pending.value(i_recipient).m_messages.size();
}

QByteArray PrivateMessageBox::Frame(Message const& i_message, bool i_spontaneous)
{
    return WireWriter(22)
        .U32(i_message.m_id)
        .U32(i_message.m_time)
        .String(i_message.m_sender)
        .String(i_message.m_text)
        .U8(i_spontaneous ? 1 : 0)
        .Frame();
}
