#pragma once

#include "ClientConnection.h"

#include <QByteArray>
#include <QHash>
#include <QList>

class AccountBook;
class SessionRegistry;

// Private messages: each is kept until its recipient acknowledges it, so that a message to
// someone offline, or one lost with a dropped connection, is delivered at the next login.
class PrivateMessageBox
{
public:
    PrivateMessageBox(SessionRegistry const& i_sessions, AccountBook const& i_accounts);

    void Post(ClientConnection& i_sender, QByteArray const& i_recipient, QByteArray const& i_text);
    void Acknowledge(ClientConnection& i_recipient, quint32 i_id);
    void DeliverPending(ClientConnection& i_recipient);
    qsizetype PendingCount(QByteArray const& i_recipient) const;

private:
    struct Message
    {
        quint32 m_id;
        quint32 m_time;
        QByteArray m_sender;
        QByteArray m_text;
    };
    struct Box
    {
        QList<Message> m_messages;
        qsizetype m_bytes = 0;
    };

    static QByteArray Frame(Message const& i_message, bool i_spontaneous);

    SessionRegistry const& m_sessions;
    AccountBook const& m_accounts;
    quint32 m_nextId = 1;
    qsizetype m_keptBytes = 0;
    QHash<QByteArray, Box> m_pending;
};
