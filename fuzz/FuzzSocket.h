#pragma once

#include <QByteArray>
#include <QTcpSocket>

// A connected peer socket whose incoming bytes are the fuzz input and whose outgoing bytes go
// nowhere: the real readers take it for a socket that a stranger writes to. It is connected and
// open from the start, so closing it is heard as the end of a connection.
class FuzzSocket : public QTcpSocket
{
public:
    explicit FuzzSocket(QByteArray i_incoming);

    // The input not yet read by anyone.
    qint64 Unread() const { return m_incoming.size() - m_readAt; }

    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char* o_data, qint64 i_maxSize) override;
    qint64 writeData(char const* ip_data, qint64 i_size) override;

private:
    QByteArray m_incoming;
    qint64 m_readAt = 0;
};
