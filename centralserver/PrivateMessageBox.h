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
    static constexpr qsizetype c_maxPendingPerUser = 1000;
    static constexpr qsizetype c_maxKeptBytes = 64 * 1024 * 1024;
    // All that waits for a user goes out at once when it logs in, and must stay well below
    // what marks a client as one that does not read.
    static constexpr qsizetype c_maxKeptBytesPerUser = ClientConnection::c_maxPendingOutput / 4;

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
