#include "shares/MP3Tally.h"

#include <cstring>

#include "stream/NumberText.h"

namespace
{
// Layer III bit rates in kbit per second by index 1-14: MPEG-1, and MPEG-2 at its low
// sampling frequencies.
constexpr int s_mpeg1Rates[14] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr int s_mpeg2Rates[14] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr int s_maxRate = 320;

// Two bits of a byte as a number, the first the high one; bits count from 1 at the low end.
int TwoBits(unsigned char i_byte, int i_high, int i_low)
{
    return (GetBit(i_byte, i_high) ? 2 : 0) + (GetBit(i_byte, i_low) ? 1 : 0);
}

// The index with the highest count; of equal counts the higher index.
template <std::size_t Size>
int Winner(std::array<std::uint64_t, Size> const& i_counts)
{
    int l_best = 0;
    for (int l_index = 1; l_index < static_cast<int>(Size); ++l_index)
        if (i_counts[l_index] >= i_counts[l_best])
            l_best = l_index;
    return l_best;
}
} // namespace

void MP3Tally::Clear()
{
    m_versions.fill(0);
    m_protections.fill(0);
    m_frequencies.fill(0);
    m_channelModes.fill(0);
    m_records.fill(0);
}

void MP3Tally::AddChunk(unsigned char const* ip_bytes, std::size_t i_length)
{
    if (i_length < 2)
        return;
    // A candidate's first byte is 0xFF and its second is in the chunk.
    unsigned char const* const lp_last = ip_bytes + i_length - 1;
    for (unsigned char const* lp_at = ip_bytes; lp_at < lp_last; ++lp_at)
    {
        lp_at = static_cast<unsigned char const*>(std::memchr(lp_at, 0xFF, static_cast<std::size_t>(lp_last - lp_at)));
        if (!lp_at)
            return;
        if ((lp_at[1] & 0xE0) != 0xE0)
            continue;
        if (static_cast<std::size_t>(lp_at - ip_bytes) + 4 >= i_length)
            return;
        AddCandidate(lp_at);
    }
}

void MP3Tally::AddCandidate(unsigned char const* ip_header)
{
    unsigned char const l_second = ip_header[1], l_third = ip_header[2], l_fourth = ip_header[3];
    int l_version;
    switch (TwoBits(l_second, 5, 4))
    {
    case 3: l_version = Version1; break;
    case 2: l_version = Version2; break;
    case 0: l_version = Version25; break;
    default: return;
    }
    ++m_versions[l_version];
    if (GetBit(l_second, 3) || !GetBit(l_second, 2))
        return; // not Layer III
    int const l_protection = GetBit(l_second, 1) ? 1 : 0;
    ++m_protections[l_protection];
    int const l_frequency = TwoBits(l_third, 4, 3);
    if (l_frequency == 3)
        return;
    ++m_frequencies[l_frequency];
    int const l_channelMode = TwoBits(l_fourth, 8, 7);
    ++m_channelModes[l_channelMode];
    int const l_bitrateIndex = l_third >> 4;
    if (l_bitrateIndex == 0 || l_bitrateIndex == 15)
        return;
    ++m_records[RecordIndex(l_version, l_protection, l_frequency, l_channelMode, l_bitrateIndex)];
}

std::size_t MP3Tally::RecordIndex(int i_version, int i_protection, int i_frequency, int i_channelMode, int i_bitrateIndex)
{
    return (((static_cast<std::size_t>(i_version) * s_protections + i_protection) * s_frequencies + i_frequency) *
                s_channelModes + i_channelMode) * s_bitrateIndexes + (i_bitrateIndex - 1);
}

bool MP3Tally::Decide(Result& o_result) const
{
    // Version 2.5 never wins: a file that is mostly 2.5 gives no result.
    int l_version;
    if (m_versions[Version1] > m_versions[Version2])
    {
        if (m_versions[Version1] <= m_versions[Version25])
            return false;
        l_version = Version1;
    }
    else
    {
        if (m_versions[Version2] <= m_versions[Version25])
            return false;
        l_version = Version2;
    }
    int const l_protection = m_protections[1] > m_protections[0] ? 1 : 0;
    int const l_frequency = Winner(m_frequencies);
    int const l_channelMode = Winner(m_channelModes);

    int const* lp_rates = l_version == Version1 ? s_mpeg1Rates : s_mpeg2Rates;
    std::array<std::uint64_t, s_maxRate + 1> l_histogram{};
    std::uint64_t l_count = 0, l_sum = 0;
    for (int l_index = 1; l_index <= s_bitrateIndexes; ++l_index)
    {
        std::uint64_t const l_records = m_records[RecordIndex(l_version, l_protection, l_frequency, l_channelMode, l_index)];
        int const l_rate = lp_rates[l_index - 1];
        l_count += l_records;
        l_sum += l_records * static_cast<std::uint64_t>(l_rate);
        l_histogram[l_rate] += l_records;
    }
    if (l_count == 0)
        return false;

    o_result.m_mpegVersion = l_version == Version1 ? 1 : 2;
    o_result.m_channelMode = l_channelMode;
    o_result.m_frequency = l_frequency;
    o_result.m_bitrate = static_cast<int>(l_sum / l_count);
    o_result.m_isVBR = true;
    // Constant when one rate holds at least 99 percent of the matching candidates.
    for (int l_rate = 1; l_rate <= s_maxRate; ++l_rate)
        if (l_histogram[l_rate] * 100 / l_count > 98)
        {
            o_result.m_isVBR = false;
            o_result.m_bitrate = l_rate;
        }
    return true;
}

char const* MP3Tally::ChannelModeText(int i_index)
{
    static char const* const s_texts[] = {"stereo", "joint stereo", "dual mono", "mono"};
    return i_index >= 0 && i_index < 4 ? s_texts[i_index] : "";
}
