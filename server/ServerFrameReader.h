#pragma once

#include <cstdint>

#include "stream/MemStream.h"

class QIODevice;

// Assembles the frames of the server link, a u32 length and then that many body bytes, from
// whatever pieces the socket delivers. A length above the bound is refused, and the memory for
// a large body is taken as its bytes arrive, so a length field alone never makes it allocate.
class ServerFrameReader
{
public:
    enum Result
    {
        NeedMore,    // everything available was taken; wait for the next readyRead
        FrameReady,  // Frame() holds one whole body, read index 0
        FrameTooLong // the announced length is above s_maxFrameLength; nothing more was read
    };

    static constexpr std::uint32_t s_maxFrameLength = 16 * 1024 * 1024;
    // Bodies up to this size get their whole buffer at once, as most frames are this small.
    static constexpr std::uint32_t s_wholeBufferLength = 64 * 1024;

    Result ReadFrom(QIODevice& io_device);

    MemStream& Frame() { return m_frame; }
    std::uint32_t FrameLength() const { return m_length; }

    // After FrameReady: make room for the next frame; the buffer keeps its capacity.
    void NextFrame();
    // Forgets a partial frame, as when a connection ends in the middle of one.
    void Clear() { NextFrame(); }

private:
    bool m_lengthKnown = false;
    std::uint32_t m_length = 0;
    MemStream m_frame;
};
