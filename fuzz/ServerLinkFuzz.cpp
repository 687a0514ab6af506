// Bytes from the central server, as the link reads them while it logs in: the frame reader cuts
// them into frames, and the link takes each as it takes one off its socket, the login response
// included, then the message handler whatever the code.

#include <QBuffer>

#include <cstdint>

#include "FuzzRig.h"
#include "server/ServerFrameReader.h"
#include "server/Server.h"

// The link's own way in for a frame, the state of a link waiting for its login response, and
// its end.
struct ServerLinkAccess
{
    static void StartLogin(Server& io_server) { io_server.m_state = Server::StateConnecting; }
    static void Handle(Server& io_server, int i_code, MemStream& i_message) { io_server.HandleMessage(i_code, i_message); }
    // The connection ends, as when the server closes it: whoever listens hears it.
    static void Drop(Server& io_server)
    {
        if (io_server.m_state != Server::StateDisconnected)
            io_server.OnDisconnected();
    }
};

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    QBuffer l_wire;
    l_wire.setData(InputBytes(ip_data, i_size));
    l_wire.open(QIODevice::ReadOnly);
    ServerFrameReader l_reader;
    Server& l_server = l_rig.GetServer();
    ServerLinkAccess::StartLogin(l_server);
    while (l_reader.ReadFrom(l_wire) == FrameReader::FrameReady)
    {
        MemStream l_message = l_reader.Frame();
        std::uint32_t l_code = 0;
        if (l_message.Read(l_code) && l_code <= std::uint32_t(INT32_MAX))
            ServerLinkAccess::Handle(l_server, static_cast<int>(l_code), l_message);
        l_reader.NextFrame();
    }
    ServerLinkAccess::Drop(l_server);
    return 0;
}
