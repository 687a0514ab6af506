#include "peer/FileInfo.h"

#include "stream/InputStream.h"
#include "stream/OutputStream.h"

#include <cstdint>

bool FileInfo::Read(InputStream& i_stream)
{
    *this = FileInfo();
    std::uint8_t l_marker = 0;
    if (!i_stream.Read(l_marker))
        return false;
    if (l_marker == 0)
        return true;
    return i_stream.Read(m_name) && i_stream.Read(m_size) && m_attributes.Read(i_stream);
}

bool FileInfo::Write(OutputStream& o_stream) const
{
    return o_stream.Write(std::uint8_t{1}) && o_stream.Write(m_name) && o_stream.Write(m_size) &&
           m_attributes.Write(o_stream);
}
