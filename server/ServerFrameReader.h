#pragma once

#include <cstdint>

#include "stream/FrameReader.h"

// The frames of the server link. The link carries small messages; even a login that replays
// thousands of tracked users stays far below the bound.
class ServerFrameReader : public FrameReader
{
public:
    static constexpr std::uint32_t s_maxFrameLength = 16 * 1024 * 1024;

    ServerFrameReader() : FrameReader(s_maxFrameLength) {}
};
