#pragma once

#include <cstddef>
#include <random>
#include <string>

// Builds MPEG audio files frame by frame, byte by byte, for the tests and benchmarks of the
// MP3 scanner: no sample file comes from elsewhere.
namespace MP3Frames
{
struct Frame
{
    int m_version = 1; // 1, 2 or 25
    int m_layer = 3; // 2 or 3
    int m_bitrate = 128; // kbit per second, from the table of the version and layer
    int m_bitrateIndex = -1; // when not -1, written as it is instead of m_bitrate's index
    int m_frequency = 0; // sampling frequency index 0-3
    int m_channelMode = 1; // 0 stereo, 1 joint stereo, 2 dual mono, 3 mono
    bool m_protectionBit = true;
};

// The frame's four header bytes.
std::string Header(Frame const& i_frame);
// Header and payload together, in bytes.
std::size_t Length(Frame const& i_frame);
// Appends the frame: its header, then a payload of zeros or, with a generator, of
// pseudo-random bytes.
void Append(std::string& io_bytes, Frame const& i_frame, std::mt19937* iop_random = nullptr);
// Appends i_count frames alike.
void Append(std::string& io_bytes, Frame const& i_frame, int i_count, std::mt19937* iop_random = nullptr);
bool Save(std::string const& i_path, std::string const& i_bytes);
} // namespace MP3Frames
