#pragma once

class QTcpSocket;

// Asks an internet gateway to forward the peer listening port to this computer. This build
// has no UPnP support: every call only says so in the log, and peers still reach the client
// through indirect connections.
class PortForwarder
{
public:
    PortForwarder();
    ~PortForwarder();
    PortForwarder(PortForwarder const&) = delete;
    PortForwarder& operator=(PortForwarder const&) = delete;

    void Init();
    // ip_socket is any connected socket of this client; its local address is the one to forward to.
    void AddPortMapping(QTcpSocket* ip_socket, int i_port);
    void RemovePortMapping(int i_port);

private:
    bool m_initialized = false;
};

extern PortForwarder* portForwarder;
