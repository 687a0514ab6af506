#include "peer/SharedFolderInfo.h"

#include "stream/InputStream.h"
#include "stream/OutputStream.h"

#include <cstdint>

bool SharedFolderInfo::Read(InputStream& i_stream)
{
    std::uint32_t l_further = 0;
    return i_stream.Read(m_files) && i_stream.Read(l_further);
}

bool SharedFolderInfo::Write(OutputStream& o_stream) const
{
    if (!o_stream.Write(static_cast<std::uint32_t>(m_files.size())))
        return false;
    for (FileInfo const& l_file : m_files)
        if (!l_file.Write(o_stream))
            return false;
    return o_stream.Write(std::uint32_t{0});
}
