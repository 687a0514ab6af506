#pragma once

#include <QObject>
#include <QString>

class QTcpSocket;
class QThread;
class UPnPWorker;

// Asks an internet gateway, by UPnP, to forward the peer listening port to this computer. The
// calls return at once: a worker thread does them in the order they were made, and their log
// lines come back here. At shut-down the mapping this run made is removed, waiting for the
// gateway a bounded time.
class PortForwarder : public QObject
{
    Q_OBJECT
public:
    static constexpr int s_shutdownBoundMs = 3000;

    PortForwarder();
    ~PortForwarder() override;

    // Discovers a gateway; nothing more once discovery succeeded or while it runs.
    void Init();
    // ip_socket is any connected socket of this client; its local address is the one to forward to.
    void AddPortMapping(QTcpSocket* ip_socket, int i_port);
    void RemovePortMapping(int i_port);

    // Discovery ended with a device list; as last heard from the worker.
    bool IsInitialized() const { return m_initialized; }
    // The socket's own IPv4 address in dotted form; empty when it has none.
    static QString OwnAddress(QTcpSocket* ip_socket);

private slots:
    void OnLogLine(int i_level, QString const& i_text);
    void OnInitFinished(bool i_initialized);

private:
    QThread* mp_thread;
    UPnPWorker* mp_worker;
    bool m_initialized = false;
    bool m_initPending = false;
};

extern PortForwarder* portForwarder;
