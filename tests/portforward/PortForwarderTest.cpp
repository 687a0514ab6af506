// The forwarder's side that needs no gateway: the device choice, the refusal before a gateway
// is known, and the own address. Nothing here sends a packet beyond loopback.
#include <gtest/gtest.h>

#include <QTcpServer>
#include <QTcpSocket>

#include <cstdlib>
#include <cstring>
#include <memory>

#include <miniupnpc/upnpdev.h>

#include "portforward/PortForwarder.h"
#include "portforward/UPnPWorker.h"
#include "store/Log.h"
#include "support/WaitFor.h"

namespace
{
// A device list as discovery hands it over, freed with the library's own call.
class DeviceList
{
public:
    ~DeviceList() { freeUPNPDevlist(mp_first); }
    void Add(char const* i_url, char const* i_type)
    {
        std::size_t const l_url = std::strlen(i_url) + 1, l_type = std::strlen(i_type) + 1;
        auto* lp_device = static_cast<UPNPDev*>(std::calloc(1, sizeof(UPNPDev) + l_url + l_type));
        lp_device->descURL = lp_device->buffer;
        lp_device->st = lp_device->buffer + l_url;
        std::memcpy(lp_device->descURL, i_url, l_url);
        std::memcpy(lp_device->st, i_type, l_type);
        (mp_last ? mp_last->pNext : mp_first) = lp_device;
        mp_last = lp_device;
    }
    UPNPDev* First() const { return mp_first; }

private:
    UPNPDev* mp_first = nullptr;
    UPNPDev* mp_last = nullptr;
};

QStringList Texts(UPnPWorker::Lines const& i_lines)
{
    QStringList l_texts;
    for (auto const& [l_level, l_text] : i_lines)
        l_texts << QStringLiteral("%1|%2").arg(l_level).arg(l_text);
    return l_texts;
}
} // namespace

TEST(PortForwarder, TheFirstGatewayIsChosenElseTheFirstDevice)
{
    DeviceList l_mixed;
    l_mixed.Add("http://10.0.0.5/printer.xml", "urn:schemas-upnp-org:device:Printer:1");
    l_mixed.Add("http://10.0.0.1/igd.xml", "urn:schemas-upnp-org:device:InternetGatewayDevice:1");
    l_mixed.Add("http://10.0.0.2/igd2.xml", "urn:schemas-upnp-org:device:InternetGatewayDevice:2");
    UPnPWorker::Lines l_lines;
    EXPECT_EQ(UPnPWorker::ChooseDevice(l_mixed.First(), l_lines), l_mixed.First()->pNext);
    EXPECT_EQ(Texts(l_lines), (QStringList{QStringLiteral("2|http://10.0.0.5/printer.xml, urn:schemas-upnp-org:device:Printer:1 skipping"),
                                           QStringLiteral("2|http://10.0.0.1/igd.xml, InternetGatewayDevice, found")}));

    DeviceList l_others;
    l_others.Add("http://10.0.0.7/a.xml", "urn:schemas-upnp-org:device:MediaServer:1");
    l_others.Add("http://10.0.0.8/b.xml", "upnp:rootdevice");
    l_lines.clear();
    EXPECT_EQ(UPnPWorker::ChooseDevice(l_others.First(), l_lines), l_others.First());
    EXPECT_EQ(Texts(l_lines), (QStringList{QStringLiteral("2|http://10.0.0.7/a.xml, urn:schemas-upnp-org:device:MediaServer:1 skipping"),
                                           QStringLiteral("2|http://10.0.0.8/b.xml, upnp:rootdevice skipping"),
                                           QStringLiteral("2|Defaulting to first device found, urn:schemas-upnp-org:device:MediaServer:1")}));
}

TEST(PortForwarder, NothingIsMappedOrRemovedBeforeAGatewayIsKnown)
{
    QStringList l_lines;
    SetLogSink([&l_lines](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
               { l_lines << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
    {
        PortForwarder l_forwarder;
        EXPECT_EQ(portForwarder, &l_forwarder);
        l_forwarder.AddPortMapping(nullptr, 2235);
        l_forwarder.RemovePortMapping(2236);
        ASSERT_TRUE(WaitFor([&] { return l_lines.size() == 4; }));
        EXPECT_FALSE(l_forwarder.IsInitialized());
    }
    EXPECT_EQ(portForwarder, nullptr);
    EXPECT_EQ(l_lines, (QStringList{QStringLiteral("Port Forwarding|1|Adding mapping for port 2235"),
                                    QStringLiteral("Port Forwarding|2|UPnP appears to not have been initialized, aborting."),
                                    QStringLiteral("Port Forwarding|1|Removing mapping for port 2236"),
                                    QStringLiteral("Port Forwarding|2|UPnP appears to not have been initialized, aborting.")}));
    SetLogSink(nullptr);
}

TEST(PortForwarder, TheOwnAddressIsTheSocketsIPv4AddressOrNone)
{
    EXPECT_EQ(PortForwarder::OwnAddress(nullptr), QString());
    QTcpSocket l_unconnected;
    EXPECT_EQ(PortForwarder::OwnAddress(&l_unconnected), QString());

    QTcpServer l_server;
    ASSERT_TRUE(l_server.listen(QHostAddress::LocalHost));
    QTcpSocket l_socket;
    l_socket.connectToHost(QHostAddress::LocalHost, l_server.serverPort());
    ASSERT_TRUE(l_socket.waitForConnected(3000));
    EXPECT_EQ(PortForwarder::OwnAddress(&l_socket), QStringLiteral("127.0.0.1"));

    QTcpServer l_server6;
    if (!l_server6.listen(QHostAddress::LocalHostIPv6))
        GTEST_SKIP() << "no IPv6 loopback here";
    QTcpSocket l_socket6;
    l_socket6.connectToHost(QHostAddress::LocalHostIPv6, l_server6.serverPort());
    ASSERT_TRUE(l_socket6.waitForConnected(3000));
    EXPECT_EQ(PortForwarder::OwnAddress(&l_socket6), QString());
}
