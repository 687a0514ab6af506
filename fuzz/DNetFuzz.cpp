// The messages of the search tree: the first byte picks where they come from (see DNetSource),
// the rest is what arrives. From the server it is one body; from a parent candidate or a child
// it is the bytes on its connection, cut into frames by the tree's own reader.

#include <cstdint>

#include "DNetSource.h"
#include "FuzzRig.h"
#include "dnet/DNetManager.h"
#include "stream/MemStream.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    if (i_size == 0)
        return 0;
    FuzzRig l_rig;
    QByteArray const l_rest = InputBytes(ip_data + 1, i_size - 1);
    switch (ip_data[0] % DNetSource::s_kinds)
    {
    case DNetSource::Server:
    {
        MemStream l_message;
        l_message.WriteBuffer(l_rest.constData(), static_cast<unsigned long>(l_rest.size()));
        l_rig.DNet().OnDNetMessage(l_message);
        break;
    }
    case DNetSource::Candidate:
        l_rig.DNet().OnDNetConnectionAccepted(FuzzRig::s_peer, l_rig.Socket(l_rest));
        break;
    case DNetSource::Child:
    {
        FuzzSocket* lp_socket = l_rig.Socket(l_rest);
        l_rig.DNet().OnDNetConnectionRequested(FuzzRig::s_peer, lp_socket);
        FuzzRig::Deliver(lp_socket);
        break;
    }
    }
    return 0;
}
