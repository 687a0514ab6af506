#pragma once

#include <cstdint>
#include <string>
#include <vector>

// How often each numbered line of one sender arrived, to prove that every line sent arrived
// exactly once: none lost, none doubled, none made up.
class SerialTally
{
public:
    void Arrived(std::uint32_t i_serial);
    // Counts what arrived against the lines 1 to i_sent; empty when each arrived exactly once.
    std::string Faults(std::uint32_t i_sent) const;
    std::uint32_t Distinct() const { return m_distinct; }

private:
    std::vector<std::uint8_t> m_counts; // by serial; saturates, one more than once is enough
    std::uint32_t m_distinct = 0;
};
