#pragma once

#include <cstdint>

#include "stream/MemStream.h"

class QIODevice;

// Assembles frames, a u32 little-endian length and then that many body bytes, from whatever
// pieces a socket delivers. It never reads past the frame under way: what follows belongs to
// the next frame, or to whoever owns the connection next. A length above the bound is refused,
// and the memory for a large body is taken as its bytes arrive, so a length field alone never
// makes it allocate. Readers may share a budget, which caps the frame buffers of all of them.
class FrameReader
{
public:
    enum Result
    {
        NeedMore,     // everything available was taken; wait for the next readyRead
        FrameReady,   // Frame() holds one whole body, read index 0
        FrameTooLong, // the announced length is above the bound; nothing more was read
        CodeTooLong,  // the length is above the bound of the code the body starts with
        OverBudget    // the body would take the shared budget past its limit
    };

    struct Budget
    {
        std::uint64_t m_limit = 0;
        std::uint64_t m_used = 0;
    };

    // The largest body for a code, the body's first four bytes read as u32 little-endian.
    using CodeBound = std::uint32_t (*)(std::uint32_t i_code);

    // Bodies up to this size get their whole buffer at once, as most frames are this small.
    static constexpr std::uint32_t s_wholeBufferLength = 64 * 1024;

    // i_keptBufferLength: a buffer that grew above it is given back after its frame.
    explicit FrameReader(std::uint32_t i_maxFrameLength, Budget* ip_budget = nullptr,
                         int i_keptBufferLength = 0x7fffffff);
    ~FrameReader();
    FrameReader(FrameReader const&) = delete;
    FrameReader& operator=(FrameReader const&) = delete;

    // Applies from the next length read on.
    void SetMaxFrameLength(std::uint32_t i_maxFrameLength) { m_maxFrameLength = i_maxFrameLength; }
    std::uint32_t MaxFrameLength() const { return m_maxFrameLength; }
    // From the next frame on, a body is held to the bound of its code as well: no more than
    // the code is read before the length is checked against it. Null for no such bound.
    void SetCodeBound(CodeBound i_bound) { m_codeBound = i_bound; }
    // After CodeTooLong: the code and its bound.
    std::uint32_t Code() const { return m_code; }
    std::uint32_t CodeMaxLength() const { return m_codeBound ? m_codeBound(m_code) : m_maxFrameLength; }

    Result ReadFrom(QIODevice& io_device);

    MemStream& Frame() { return m_frame; }
    std::uint32_t FrameLength() const { return m_length; }
    bool LengthKnown() const { return m_lengthKnown; }
    // What this reader's buffer counts against the budget.
    std::uint64_t HeldBytes() const { return m_charged; }

    // After FrameReady: make room for the next frame.
    void NextFrame();
    // Forgets a partial frame, as when a connection ends in the middle of one.
    void Clear() { NextFrame(); }

private:
    bool Grow(int i_capacity);
    void Charge();
    // Whether the body's code is read and its bound checked, or there is none to check.
    bool CodeChecked() const { return !m_codeBound || m_length < 4 || m_frame.GetWriteIndex() >= 4; }

    std::uint32_t m_maxFrameLength;
    Budget* mp_budget;
    int m_keptBufferLength;
    bool m_lengthKnown = false;
    std::uint32_t m_length = 0;
    std::uint64_t m_charged = 0;
    CodeBound m_codeBound = nullptr;
    std::uint32_t m_code = 0;
    MemStream m_frame;
};
