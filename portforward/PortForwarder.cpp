#include "portforward/PortForwarder.h"

#include <QString>

#include "store/Log.h"

PortForwarder* portForwarder = nullptr;

namespace
{
QString const s_area = QStringLiteral("Port Forwarding");
QString const s_unavailable = QStringLiteral("UPnP port mapping is not available in this build.");
} // namespace

PortForwarder::PortForwarder()
{
    portForwarder = this;
}

PortForwarder::~PortForwarder()
{
    if (portForwarder == this)
        portForwarder = nullptr;
}

void PortForwarder::Init()
{
    if (m_initialized)
        return;
    Log(s_area, 1, QStringLiteral("Initializing UPnP"));
    Log(s_area, 2, s_unavailable);
    // There is nothing to discover in this build, so later calls need not say it again.
    m_initialized = true;
}

void PortForwarder::AddPortMapping(QTcpSocket*, int i_port)
{
    Log(s_area, 1, QStringLiteral("Adding mapping for port %1").arg(i_port));
    Log(s_area, 2, s_unavailable);
}

void PortForwarder::RemovePortMapping(int i_port)
{
    Log(s_area, 1, QStringLiteral("Removing mapping for port %1").arg(i_port));
    Log(s_area, 2, s_unavailable);
}
