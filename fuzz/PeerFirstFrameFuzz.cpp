// Bytes on a connection the listener accepted: the first frame says who calls and what for
// (a greeting or the answer to a dial-back), and whatever follows is read as that connection's.

#include <cstdint>

#include "FuzzRig.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    l_rig.Accept(InputBytes(ip_data, i_size));
    return 0;
}
