#include "portforward/PortForwarder.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <QThread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "portforward/UPnPWorker.h"
#include "store/Log.h"

PortForwarder* portForwarder = nullptr;

namespace
{
QString const s_area = QStringLiteral("Port Forwarding");

// A worker still waiting for a gateway when the bound ran out; kept so that it stays reachable
// until the process ends, which ends it.
struct Abandoned
{
    QThread* mp_thread = nullptr;
    UPnPWorker* mp_worker = nullptr;
};
Abandoned g_abandoned;
} // namespace

PortForwarder::PortForwarder() : mp_thread(new QThread()), mp_worker(new UPnPWorker())
{
    portForwarder = this;
    mp_worker->moveToThread(mp_thread);
    connect(mp_worker, &UPnPWorker::LogLine, this, &PortForwarder::OnLogLine, Qt::QueuedConnection);
    connect(mp_worker, &UPnPWorker::InitFinished, this, &PortForwarder::OnInitFinished, Qt::QueuedConnection);
    mp_thread->start();
}

PortForwarder::~PortForwarder()
{
    QMetaObject::invokeMethod(mp_worker, &UPnPWorker::DoShutdown, Qt::QueuedConnection);
    if (mp_thread->wait(s_shutdownBoundMs))
    {
        // The removal's lines are still on their way; they belong in the log.
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
        delete mp_worker;
        delete mp_thread;
    }
    else
    {
        Log(s_area, 1, QStringLiteral("The gateway did not answer in time; the port mapping may stay in place."));
        QObject::disconnect(mp_worker, nullptr, this, nullptr);
        g_abandoned = Abandoned{mp_thread, mp_worker};
    }
    if (portForwarder == this)
        portForwarder = nullptr;
}

void PortForwarder::Init()
{
    if (m_initialized || m_initPending)
        return;
    m_initPending = true;
    QMetaObject::invokeMethod(mp_worker, &UPnPWorker::DoInit, Qt::QueuedConnection);
}

void PortForwarder::AddPortMapping(QTcpSocket* ip_socket, int i_port)
{
    UPnPWorker* const lp_worker = mp_worker;
    QMetaObject::invokeMethod(
        mp_worker, [lp_worker, l_address = OwnAddress(ip_socket), i_port] { lp_worker->DoAddPortMapping(l_address, i_port); },
        Qt::QueuedConnection);
}

void PortForwarder::RemovePortMapping(int i_port)
{
    UPnPWorker* const lp_worker = mp_worker;
    QMetaObject::invokeMethod(mp_worker, [lp_worker, i_port] { lp_worker->DoRemovePortMapping(i_port); }, Qt::QueuedConnection);
}

QString PortForwarder::OwnAddress(QTcpSocket* ip_socket)
{
    if (!ip_socket || ip_socket->socketDescriptor() < 0)
        return QString();
    sockaddr_storage l_address{};
    socklen_t l_length = sizeof l_address;
    if (::getsockname(static_cast<int>(ip_socket->socketDescriptor()), reinterpret_cast<sockaddr*>(&l_address), &l_length) != 0
        || l_address.ss_family != AF_INET)
        return QString();
    return QString::fromLatin1(::inet_ntoa(reinterpret_cast<sockaddr_in const*>(&l_address)->sin_addr));
}

void PortForwarder::OnLogLine(int i_level, QString const& i_text)
{
    Log(s_area, i_level, i_text);
}

void PortForwarder::OnInitFinished(bool i_initialized)
{
    m_initPending = false;
    m_initialized = i_initialized;
}
