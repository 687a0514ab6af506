// The text of another user's search, parsed and matched against a small fixed share; an answer
// goes out on the searcher's messaging connection.

#include <cstdint>
#include <string>

#include "FuzzRig.h"
#include "shares/SharedFoldersManager.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    l_rig.AcceptMessaging(FuzzRig::s_peer, QByteArray());
    l_rig.Shares().ProcessSearch(FuzzRig::s_peer, 7, std::string(reinterpret_cast<char const*>(ip_data), i_size));
    return 0;
}
