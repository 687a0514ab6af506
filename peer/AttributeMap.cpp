#include "peer/AttributeMap.h"

#include "stream/InputStream.h"
#include "stream/OutputStream.h"

bool AttributeMap::Read(InputStream& i_stream)
{
    return i_stream.Read(m_format) && i_stream.Read(m_attributes);
}

bool AttributeMap::Write(OutputStream& o_stream) const
{
    if (!o_stream.Write(m_format) || !o_stream.Write(static_cast<std::uint32_t>(m_attributes.size())))
        return false;
    for (auto const& [l_code, l_value] : m_attributes)
        if (!o_stream.Write(l_code) || !o_stream.Write(l_value))
            return false;
    return true;
}
