#include "peer/Compression.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>

namespace
{
// The first output buffer: a share list inflates to a few times its compressed size, and the
// guess is capped so that it alone never costs much.
constexpr std::uint64_t g_minFirstGuess = 64 * 1024;
constexpr std::uint64_t g_maxFirstGuess = 16 * 1024 * 1024;
constexpr std::size_t g_maxInputStep = 1 << 30;

class InflateStream
{
public:
    InflateStream() = default;
    InflateStream(InflateStream const&) = delete;
    InflateStream& operator=(InflateStream const&) = delete;
    ~InflateStream()
    {
        if (m_initialised)
            inflateEnd(&m_stream);
    }

    int Init()
    {
        int const l_result = inflateInit(&m_stream);
        m_initialised = l_result == Z_OK;
        return l_result;
    }

    z_stream m_stream{};

private:
    bool m_initialised = false;
};

// A stream with room for i_capacity bytes holding a copy of i_from's bytes.
MemStream Grown(MemStream const& i_from, int i_capacity)
{
    MemStream l_grown;
    l_grown.EnsureBufferCapacity(i_capacity);
    l_grown.WriteBuffer(i_from.GetReadBuffer(), static_cast<unsigned long>(i_from.GetWriteIndex()));
    return l_grown;
}

InflateResult InflateInto(char const* ip_data, std::size_t i_length, MemStream& o_body, std::uint64_t i_maxOutput)
{
    // A stream's indices are ints: more than that is too large whatever the caller allows.
    std::uint64_t const l_maxOutput = std::min<std::uint64_t>(i_maxOutput, INT_MAX - 2);
    // One byte past the bound must fit to tell a stream that ends at the bound from one that
    // goes on; MemStream keeps one more byte free after its data.
    std::uint64_t const l_capacityLimit = l_maxOutput + 2;

    InflateStream l_inflater;
    z_stream& l_zlib = l_inflater.m_stream;
    if (int const l_init = l_inflater.Init(); l_init != Z_OK)
        return l_init == Z_MEM_ERROR ? InflateResult::OutOfMemory : InflateResult::BadData;

    MemStream l_body;
    l_body.EnsureBufferCapacity(static_cast<int>(
        std::min(std::clamp<std::uint64_t>(std::uint64_t{i_length} * 4, g_minFirstGuess, g_maxFirstGuess), l_capacityLimit)));

    auto const* lp_next = reinterpret_cast<Bytef const*>(ip_data);
    std::size_t l_unfed = i_length;
    while (true)
    {
        if (l_zlib.avail_in == 0 && l_unfed > 0)
        {
            std::size_t const l_step = std::min(l_unfed, g_maxInputStep);
            l_zlib.next_in = const_cast<Bytef*>(lp_next);
            l_zlib.avail_in = static_cast<uInt>(l_step);
            lp_next += l_step;
            l_unfed -= l_step;
        }

        std::uint64_t const l_held = static_cast<std::uint64_t>(l_body.GetWriteIndex());
        int l_free = l_body.GetBufferSize() - l_body.GetWriteIndex() - 1;
        if (l_free <= 0)
        {
            std::uint64_t const l_size = static_cast<std::uint64_t>(l_body.GetBufferSize());
            std::uint64_t const l_grownSize = std::min(l_size * 2, l_capacityLimit);
            if (l_grownSize <= l_size)
                return InflateResult::TooLarge;
            l_body = Grown(l_body, static_cast<int>(l_grownSize));
            l_free = l_body.GetBufferSize() - l_body.GetWriteIndex() - 1;
        }
        // Never more than one byte past the bound.
        uInt const l_room = static_cast<uInt>(std::min<std::uint64_t>(l_free, l_maxOutput + 1 - l_held));
        l_zlib.next_out = reinterpret_cast<Bytef*>(l_body.GetWriteBuffer());
        l_zlib.avail_out = l_room;

        int const l_result = inflate(&l_zlib, Z_NO_FLUSH);
        l_body.AdvanceWriteIndex(static_cast<int>(l_room - l_zlib.avail_out));
        if (static_cast<std::uint64_t>(l_body.GetWriteIndex()) > l_maxOutput)
            return InflateResult::TooLarge;

        switch (l_result)
        {
        case Z_STREAM_END:
            o_body = l_body;
            return InflateResult::Ok;
        case Z_MEM_ERROR:
            return InflateResult::OutOfMemory;
        case Z_OK:
        case Z_BUF_ERROR:
            // Output space used up: go round for more. Input used up with room left and
            // nothing more to feed: the stream was cut.
            if (l_zlib.avail_out > 0 && l_zlib.avail_in == 0 && l_unfed == 0)
                return InflateResult::BadData;
            break;
        default:
            return InflateResult::BadData;
        }
    }
}
} // namespace

void AppendCompressed(MemStream& io_message, char const* ip_body, std::size_t i_length)
{
    uLongf l_compressedLength = compressBound(static_cast<uLong>(i_length));
    auto lp_compressed = std::make_unique_for_overwrite<Bytef[]>(l_compressedLength);
    // With a buffer of the bound's size only memory can fail.
    if (compress2(lp_compressed.get(), &l_compressedLength, reinterpret_cast<Bytef const*>(ip_body),
                  static_cast<uLong>(i_length), Z_BEST_COMPRESSION) != Z_OK)
        throw std::bad_alloc();
    io_message.WriteBuffer(lp_compressed.get(), l_compressedLength);
}

InflateResult Inflate(char const* ip_data, std::size_t i_length, MemStream& o_body, std::uint64_t i_maxOutput)
{
    o_body = MemStream();
    try
    {
        return InflateInto(ip_data, i_length, o_body, i_maxOutput);
    }
    catch (std::bad_alloc const&)
    {
        o_body = MemStream();
        return InflateResult::OutOfMemory;
    }
}
