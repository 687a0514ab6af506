// Bytes on a messaging connection that greeted properly: frames of every code, compressed share
// lists and search results included, go through the frame reader to the message handler and on
// to the managers that act on them.

#include <cstdint>

#include "FuzzRig.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    l_rig.AcceptMessaging(FuzzRig::s_peer, InputBytes(ip_data, i_size));
    return 0;
}
