#pragma once

#include "ClientConnection.h"
#include "support/RawClient.h"

#include <QTcpSocket>

// A client's socket, open without a network: it keeps all that is written to it and sends
// none of it, so that tests can build thousands of sessions cheaply, read what each was
// sent, and see a reader that never reads.
class HeldSocket : public QTcpSocket
{
public:
    HeldSocket() { QIODevice::open(QIODevice::ReadWrite); }
    qint64 bytesToWrite() const override { return m_written.size(); }

    // The bodies written so far with this code, in order.
    QList<QByteArray> Bodies(quint32 i_code) const
    {
        QList<QByteArray> l_bodies;
        for (Fields l_frames(m_written); !l_frames.AtEnd();)
        {
            QByteArray const l_body = l_frames.Str();
            if (l_body.isEmpty())
                break;
            if (Fields(l_body).U32() == i_code)
                l_bodies.append(l_body);
        }
        return l_bodies;
    }

    // A session logged in as i_name with the login sequence i_sequence, owned by ip_parent.
    static ClientConnection* Session(QByteArray const& i_name, quint64 i_sequence, QObject* ip_parent)
    {
        auto* lp_session = new ClientConnection(new HeldSocket, [](ClientConnection&, quint32, WireReader&) { return true; },
            30000, ip_parent);
        lp_session->SetLoggedIn(i_name, i_sequence);
        return lp_session;
    }
    static HeldSocket& Of(ClientConnection& i_session) { return *i_session.findChild<HeldSocket*>(); }

protected:
    qint64 writeData(char const* ip_data, qint64 i_size) override
    {
        m_written.append(ip_data, i_size);
        return i_size;
    }

private:
    QByteArray m_written;
};
