#include "server/UserStats.h"

#include "stream/InputStream.h"
#include "stream/OutputStream.h"

bool UserStats::Read(InputStream& i_stream)
{
    return i_stream.Read(m_averageSpeed) && i_stream.Read(m_count) && i_stream.Read(m_sharedFiles) &&
           i_stream.Read(m_furtherCount);
}

bool UserStats::Write(OutputStream& o_stream) const
{
    return o_stream.Write(m_averageSpeed) && o_stream.Write(m_count) && o_stream.Write(m_sharedFiles) &&
           o_stream.Write(m_furtherCount);
}
