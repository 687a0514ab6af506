#include "SerialTally.h"

#include <algorithm>

namespace
{
// A serial far beyond any run's lines is counted as made up rather than stored.
constexpr std::uint32_t c_maxSerial = 1'000'000;
}

void SerialTally::Arrived(std::uint32_t i_serial)
{
    std::uint32_t const l_index = std::min(i_serial, c_maxSerial);
    if (l_index >= m_counts.size())
        m_counts.resize(l_index + 1, 0);
    if (m_counts[l_index] == 0)
        ++m_distinct;
    if (m_counts[l_index] < 255)
        ++m_counts[l_index];
}

std::string SerialTally::Faults(std::uint32_t i_sent) const
{
    std::uint32_t l_missing = 0, l_doubled = 0, l_unsent = 0;
    for (std::uint32_t l_serial = 0; l_serial < std::max<std::size_t>(m_counts.size(), i_sent + 1); ++l_serial)
    {
        std::uint8_t const l_count = l_serial < m_counts.size() ? m_counts[l_serial] : 0;
        bool const l_sent = l_serial >= 1 && l_serial <= i_sent;
        if (l_sent && l_count == 0)
            ++l_missing;
        else if (l_sent && l_count > 1)
            ++l_doubled;
        else if (!l_sent && l_count > 0)
            ++l_unsent;
    }
    if (l_missing + l_doubled + l_unsent == 0)
        return {};
    return std::to_string(l_missing) + " missing, " + std::to_string(l_doubled) + " more than once, " +
           std::to_string(l_unsent) + " never sent";
}
