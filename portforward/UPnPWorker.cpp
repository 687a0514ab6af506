#include "portforward/UPnPWorker.h"

#include <QThread>

#include <cstdlib>
#include <cstring>

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/miniwget.h>
#include <miniupnpc/upnpcommands.h>

// The calls below follow this version of the library's interface; another one must not
// compile into something that misbehaves.
static_assert(MINIUPNPC_API_VERSION == 17, "the UPnP calls are written for miniupnpc API version 17");

namespace
{
// What discovery found, kept for the life of the process as the library wants it.
UPNPUrls g_urls;
IGDdatas g_gateway;

constexpr int s_discoveryDelayMs = 2000;
constexpr unsigned char s_multicastTtl = 2;
constexpr int s_conflict = 718;
constexpr char const* s_description = "TidewickQT";
constexpr char const* s_protocol = "TCP";

void ClearRecords()
{
    FreeUPNPUrls(&g_urls);
    std::memset(&g_urls, 0, sizeof g_urls);
    std::memset(&g_gateway, 0, sizeof g_gateway);
}
} // namespace

bool UPnPWorker::HasGateway()
{
    return g_urls.controlURL && g_urls.controlURL[0] != '\0';
}

UPNPDev* UPnPWorker::ChooseDevice(UPNPDev* ip_list, Lines& o_lines)
{
    for (UPNPDev* lp_device = ip_list; lp_device; lp_device = lp_device->pNext)
    {
        QString const l_url = QString::fromUtf8(lp_device->descURL ? lp_device->descURL : "");
        QString const l_type = QString::fromUtf8(lp_device->st ? lp_device->st : "");
        if (l_type.contains(QLatin1String("InternetGatewayDevice")))
        {
            o_lines.emplace_back(2, QStringLiteral("%1, InternetGatewayDevice, found").arg(l_url));
            return lp_device;
        }
        o_lines.emplace_back(2, QStringLiteral("%1, %2 skipping").arg(l_url, l_type));
    }
    if (ip_list)
        o_lines.emplace_back(2, QStringLiteral("Defaulting to first device found, %1").arg(QString::fromUtf8(ip_list->st ? ip_list->st : "")));
    return ip_list;
}

void UPnPWorker::DoInit()
{
    if (m_initialized)
    {
        emit InitFinished(true);
        return;
    }
    Line(1, QStringLiteral("Initializing UPnP"));
    ClearRecords();
    int l_error = 0;
    UPNPDev* lp_list = upnpDiscover(s_discoveryDelayMs, nullptr, nullptr, UPNP_LOCAL_PORT_ANY, 0, s_multicastTtl, &l_error);
    if (!lp_list)
    {
        Line(2, QStringLiteral("No device list found during discovery. miniupnp error code: %1").arg(l_error));
        emit InitFinished(false);
        return;
    }
    Line(2, QStringLiteral("Device list found"));
    Lines l_lines;
    UPNPDev* lp_device = ChooseDevice(lp_list, l_lines);
    for (auto const& [l_level, l_text] : l_lines)
        Line(l_level, l_text);
    int l_size = 0;
    int l_status = 0;
    if (char* lp_xml = static_cast<char*>(miniwget(lp_device->descURL, &l_size, lp_device->scope_id, &l_status)))
    {
        parserootdesc(lp_xml, l_size, &g_gateway);
        std::free(lp_xml);
        GetUPNPUrls(&g_urls, &g_gateway, lp_device->descURL, lp_device->scope_id);
        Line(2, QStringLiteral("Device XML found."));
    }
    else
        Line(2, QStringLiteral("Device XML not found."));
    freeUPNPDevlist(lp_list);
    m_initialized = true;
    emit InitFinished(true);
}

int UPnPWorker::AddMapping(QByteArray const& i_address, int i_port) const
{
    QByteArray const l_port = QByteArray::number(i_port);
    return UPNP_AddPortMapping(g_urls.controlURL, g_gateway.first.servicetype, l_port.constData(), l_port.constData(),
                               i_address.constData(), s_description, s_protocol, nullptr, nullptr);
}

void UPnPWorker::DoAddPortMapping(QString const& i_ownAddress, int i_port)
{
    Line(1, QStringLiteral("Adding mapping for port %1").arg(i_port));
    if (!HasGateway())
    {
        Line(2, QStringLiteral("UPnP appears to not have been initialized, aborting."));
        return;
    }
    if (i_ownAddress.isEmpty())
    {
        Line(2, QStringLiteral("Own address could not be found: the server connection is not over IPv4. No mapping is made."));
        return;
    }
    Line(2, QStringLiteral("Found own address to be %1").arg(i_ownAddress));
    QByteArray const l_address = i_ownAddress.toLatin1();
    int l_result = AddMapping(l_address, i_port);
    if (l_result == 0)
    {
        Line(2, QStringLiteral("Port successfully mapped."));
        m_mappedPort = i_port;
        return;
    }
    if (l_result != s_conflict)
    {
        Line(2, QStringLiteral("Port mapping failure, miniupnp error: %1").arg(l_result));
        return;
    }
    Line(2, QStringLiteral("Port already mapped, attempting to remove existing mapping before retrying."));
    DoRemovePortMapping(i_port);
    l_result = AddMapping(l_address, i_port);
    if (l_result == 0)
    {
        Line(2, QStringLiteral("Second mapping attempt successful."));
        m_mappedPort = i_port;
    }
    else if (l_result != s_conflict)
        Line(2, QStringLiteral("Second mapping attempt failed, miniupnp error: %1").arg(l_result));
}

void UPnPWorker::DoRemovePortMapping(int i_port)
{
    Line(1, QStringLiteral("Removing mapping for port %1").arg(i_port));
    if (!HasGateway())
    {
        Line(2, QStringLiteral("UPnP appears to not have been initialized, aborting."));
        return;
    }
    QByteArray const l_port = QByteArray::number(i_port);
    int const l_result = UPNP_DeletePortMapping(g_urls.controlURL, g_gateway.first.servicetype, l_port.constData(), s_protocol, nullptr);
    if (l_result == 0)
    {
        Line(2, QStringLiteral("Port mapping successfully removed."));
        if (m_mappedPort == i_port)
            m_mappedPort = -1;
    }
    else
        Line(2, QStringLiteral("Port mapping removal failed, miniupnp error: %1").arg(l_result));
}

void UPnPWorker::DoShutdown()
{
    if (m_mappedPort >= 0)
        DoRemovePortMapping(m_mappedPort);
    ClearRecords();
    QThread::currentThread()->quit();
}
