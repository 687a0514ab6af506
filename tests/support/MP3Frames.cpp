#include "support/MP3Frames.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace MP3Frames
{
namespace
{
constexpr int s_layer3Mpeg1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr int s_layer2Mpeg1[15] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
constexpr int s_lowFrequencies[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};

int const* RatesOf(Frame const& i_frame)
{
    if (i_frame.m_version != 1)
        return s_lowFrequencies;
    return i_frame.m_layer == 3 ? s_layer3Mpeg1 : s_layer2Mpeg1;
}

int BitrateIndex(Frame const& i_frame)
{
    if (i_frame.m_bitrateIndex != -1)
        return i_frame.m_bitrateIndex;
    int const* lp_rates = RatesOf(i_frame);
    int const* lp_found = std::find(lp_rates + 1, lp_rates + 15, i_frame.m_bitrate);
    if (lp_found == lp_rates + 15)
        throw std::invalid_argument("no such bit rate for this version and layer");
    return static_cast<int>(lp_found - lp_rates);
}

int SampleRate(Frame const& i_frame)
{
    static constexpr int s_mpeg1[3] = {44100, 48000, 32000};
    int const l_index = i_frame.m_frequency < 3 ? i_frame.m_frequency : 0;
    int const l_divisor = i_frame.m_version == 1 ? 1 : i_frame.m_version == 2 ? 2 : 4;
    return s_mpeg1[l_index] / l_divisor;
}
} // namespace

std::string Header(Frame const& i_frame)
{
    int const l_versionBits = i_frame.m_version == 1 ? 3 : i_frame.m_version == 2 ? 2 : 0;
    int const l_layerBits = 4 - i_frame.m_layer;
    std::string l_header(4, '\0');
    l_header[0] = static_cast<char>(0xFF);
    l_header[1] = static_cast<char>(0xE0 | l_versionBits << 3 | l_layerBits << 1 | (i_frame.m_protectionBit ? 1 : 0));
    l_header[2] = static_cast<char>(BitrateIndex(i_frame) << 4 | (i_frame.m_frequency & 3) << 2);
    l_header[3] = static_cast<char>((i_frame.m_channelMode & 3) << 6);
    return l_header;
}

std::size_t Length(Frame const& i_frame)
{
    int const l_index = BitrateIndex(i_frame);
    int const l_rate = l_index > 0 && l_index < 15 ? RatesOf(i_frame)[l_index] : 128;
    // Layer III outside MPEG-1 holds half the samples per frame.
    int const l_factor = i_frame.m_layer == 3 && i_frame.m_version != 1 ? 72000 : 144000;
    return static_cast<std::size_t>(l_factor) * static_cast<std::size_t>(l_rate) / static_cast<std::size_t>(SampleRate(i_frame));
}

void Append(std::string& io_bytes, Frame const& i_frame, std::mt19937* iop_random)
{
    io_bytes += Header(i_frame);
    std::size_t const l_payload = Length(i_frame) - 4;
    if (!iop_random)
    {
        io_bytes.append(l_payload, '\0');
        return;
    }
    std::generate_n(std::back_inserter(io_bytes), l_payload, [&] { return static_cast<char>((*iop_random)() & 0xFF); });
}

void Append(std::string& io_bytes, Frame const& i_frame, int i_count, std::mt19937* iop_random)
{
    for (int l_frame = 0; l_frame < i_count; ++l_frame)
        Append(io_bytes, i_frame, iop_random);
}

bool Save(std::string const& i_path, std::string const& i_bytes)
{
    std::ofstream l_file(i_path, std::ios::binary | std::ios::trunc);
    l_file.write(i_bytes.data(), static_cast<std::streamsize>(i_bytes.size()));
    return static_cast<bool>(l_file.flush());
}
} // namespace MP3Frames
