#include "peer/Compression.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>

namespace
{
constexpr std::size_t g_maxInputStep = 1 << 30;
constexpr uInt g_scratchLength = 64 * 1024;

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

// Runs the stream through inflate, producing at most one byte past i_maxOutput, which tells a
// stream that ends at the bound from one that goes on. With op_target the output goes there,
// which must have room for i_maxOutput + 1 bytes; without, it goes to a scratch buffer and is
// only counted. o_size is the number of bytes produced.
InflateResult Run(char const* ip_data, std::size_t i_length, char* op_target, std::uint64_t i_maxOutput,
                  std::uint64_t& o_size)
{
    InflateStream l_inflater;
    z_stream& l_zlib = l_inflater.m_stream;
    if (int const l_init = l_inflater.Init(); l_init != Z_OK)
        return l_init == Z_MEM_ERROR ? InflateResult::OutOfMemory : InflateResult::BadData;

    auto l_scratch = op_target ? nullptr : std::make_unique_for_overwrite<Bytef[]>(g_scratchLength);
    auto const* lp_next = reinterpret_cast<Bytef const*>(ip_data);
    std::size_t l_unfed = i_length;
    o_size = 0;
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
        std::uint64_t const l_room = i_maxOutput + 1 - o_size;
        l_zlib.next_out = op_target ? reinterpret_cast<Bytef*>(op_target + o_size) : l_scratch.get();
        l_zlib.avail_out = static_cast<uInt>(std::min<std::uint64_t>(l_room, op_target ? UINT_MAX : g_scratchLength));
        uInt const l_offered = l_zlib.avail_out;

        int const l_result = inflate(&l_zlib, Z_NO_FLUSH);
        o_size += l_offered - l_zlib.avail_out;
        if (o_size > i_maxOutput)
            return InflateResult::TooLarge;

        switch (l_result)
        {
        case Z_STREAM_END:
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

// The stream is inflated twice: once only to count, then into a buffer of exactly that size.
// So memory follows the bytes a message really holds, and a bomb is refused before anything
// is allocated for it; inflating is fast next to everything else done with such a message.
InflateResult InflateInto(char const* ip_data, std::size_t i_length, MemStream& o_body, std::uint64_t i_maxOutput)
{
    // A stream's indices are ints: more than that is too large whatever the caller allows.
    std::uint64_t const l_maxOutput = std::min<std::uint64_t>(i_maxOutput, INT_MAX - 2);
    std::uint64_t l_size = 0;
    if (InflateResult const l_measured = Run(ip_data, i_length, nullptr, l_maxOutput, l_size);
        l_measured != InflateResult::Ok)
        return l_measured;

    // Room for the probe byte past the end, and the free byte MemStream keeps after its data.
    MemStream l_body;
    l_body.EnsureBufferCapacity(static_cast<int>(l_size + 2));
    std::uint64_t l_filled = 0;
    if (InflateResult const l_result = Run(ip_data, i_length, l_body.GetWriteBuffer(), l_size, l_filled);
        l_result != InflateResult::Ok)
        return l_result;
    l_body.AdvanceWriteIndex(static_cast<int>(l_filled));
    o_body = l_body;
    return InflateResult::Ok;
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
