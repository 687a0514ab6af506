#pragma once

#include <QTcpServer>
#include <memory>

#include "support/RawClient.h"

// A loopback listener that stands in for the central server: it takes the client's link and
// answers its login by hand.
class LoopbackCentral
{
public:
    LoopbackCentral() { m_listener.listen(QHostAddress::LocalHost, 0); }

    quint16 Port() const { return m_listener.serverPort(); }
    void Close() { m_listener.close(); }
    // The central side of the next connection; null on time-out.
    std::unique_ptr<RawClient> Accept(int i_timeoutMs = 5000);
    // Takes the next connection, checks that its first message is a login and answers it; null
    // only when no connection came.
    std::unique_ptr<RawClient> AnswerLogin(bool i_success = true);

private:
    QTcpServer m_listener;
};
