#include "stream/OutputStream.h"

#include <cstdint>
#include <limits>

bool OutputStream::Write(std::string const& i_text)
{
    if (i_text.size() > std::numeric_limits<std::uint32_t>::max())
        return false;
    return Write(static_cast<std::uint32_t>(i_text.size())) && WriteBuffer(i_text.data(), i_text.size());
}
