// The inflated bodies of the bulk peer messages, read without the compression in front so that
// every input reaches the records: the first byte picks the body (see PeerBody), the rest is it.

#include <cstdint>

#include "FuzzRig.h"
#include "PeerBody.h"
#include "peer/SearchResultReader.h"
#include "peer/ShareList.h"
#include "peer/SharedFolderInfo.h"
#include "shares/SharedFoldersManager.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    if (i_size == 0)
        return 0;
    FuzzRig l_rig;
    MemStream l_body;
    l_body.WriteBuffer(ip_data + 1, i_size - 1);
    switch (ip_data[0] % PeerBody::s_kinds)
    {
    case PeerBody::ShareList:
    {
        FileInfoMap l_share;
        if (ReadFileInfoMap(l_body, l_share) != ShareListRead::Ok)
            break;
        AttributeTranslationTable l_table;
        if (!ReadTranslationTable(l_body, l_table))
            l_table.clear();
        l_rig.Shares().OnUserShare(FuzzRig::s_peer, l_share, l_table);
        break;
    }
    case PeerBody::FolderContents:
    {
        SharedFolderInfo l_folder;
        l_folder.Read(l_body);
        break;
    }
    case PeerBody::SearchResult:
    {
        SearchResultReader l_reader;
        ItemPtr l_results;
        l_reader.Read(l_body, FuzzRig::s_peer, l_results);
        break;
    }
    }
    return 0;
}
