#pragma once

#include <QByteArray>
#include <QString>

class LoadClient;

// An honest client of the network, new for every check: it logs in, enters a room, hears its
// own line in that room and receives a private message from a client already in.
class HonestProbe
{
public:
    // io_sender is logged in as i_senderName.
    HonestProbe(quint16 i_port, LoadClient& io_sender, QByteArray i_senderName)
        : m_port(i_port)
        , m_sender(io_sender)
        , m_senderName(std::move(i_senderName))
    {
    }

    // Empty when every step succeeded within i_timeoutMs in all.
    QString Check(int i_timeoutMs);
    double LastMs() const { return m_lastMs; }

private:
    quint16 m_port;
    LoadClient& m_sender;
    QByteArray m_senderName;
    int m_round = 0;
    double m_lastMs = 0;
};
