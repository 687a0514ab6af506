#include "server/TCPAddress.h"

#include "stream/InputStream.h"
#include "stream/OutputStream.h"

bool TCPAddress::Read(InputStream& i_stream)
{
    return i_stream.Read(m_ip) && i_stream.Read(m_port);
}

bool TCPAddress::Write(OutputStream& o_stream) const
{
    return o_stream.Write(m_ip) && o_stream.Write(m_port);
}
