#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The votes of every place in one file that could be an MPEG audio frame header, and the
// majority reading they give. Each candidate that passes all checks is counted by its
// (version, protection, frequency, channel mode, bit-rate index): a fixed table, so memory
// stays the same whatever a file holds, even one that repeats a header every four bytes.
class MP3Tally
{
public:
    struct Result
    {
        int m_mpegVersion = 0; // 1 or 2
        int m_channelMode = 0; // index 0-3
        int m_frequency = 0; // sampling frequency index 0-2, not hertz
        bool m_isVBR = true;
        int m_bitrate = -1; // kbit per second
    };

    void Clear();
    // Votes with every candidate of one chunk. A candidate too near the chunk's end for its
    // four bytes ends the chunk: no byte past i_length is read, and a header across the border
    // between two chunks is never seen.
    void AddChunk(unsigned char const* ip_bytes, std::size_t i_length);
    // The majority's version, protection, frequency and channel mode, then the bit rates of
    // the candidates that match all four. False when there is no such candidate.
    bool Decide(Result& o_result) const;

    static char const* ChannelModeText(int i_index);

private:
    // Each check may already have raised a count when a later one rejects the candidate.
    void AddCandidate(unsigned char const* ip_header);

    enum Version { Version1, Version2, Version25, VersionCount };
    static constexpr int s_protections = 2, s_frequencies = 3, s_channelModes = 4, s_bitrateIndexes = 14;
    static std::size_t RecordIndex(int i_version, int i_protection, int i_frequency, int i_channelMode, int i_bitrateIndex);

    std::array<std::uint64_t, VersionCount> m_versions{};
    std::array<std::uint64_t, s_protections> m_protections{};
    std::array<std::uint64_t, s_frequencies> m_frequencies{};
    std::array<std::uint64_t, s_channelModes> m_channelModes{};
    std::array<std::uint64_t, VersionCount * s_protections * s_frequencies * s_channelModes * s_bitrateIndexes> m_records{};
};
