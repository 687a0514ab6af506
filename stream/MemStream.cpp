#include "stream/MemStream.h"

#include <QtGlobal>

#include <climits>
#include <cstring>

MemStream::MemStream() : mp_buffer(new Buffer)
{
    mp_buffer->mp_bytes = std::make_unique_for_overwrite<char[]>(mp_buffer->m_bufferSize);
}

bool MemStream::ReadBuffer(void* o_target, unsigned long i_length)
{
    Buffer& l_buffer = *mp_buffer;
    if (i_length > static_cast<unsigned long>(l_buffer.m_writeIndex - l_buffer.m_readIndex))
        return false;
    if (i_length > 0)
        std::memcpy(o_target, l_buffer.mp_bytes.get() + l_buffer.m_readIndex, i_length);
    l_buffer.m_readIndex += static_cast<int>(i_length);
    return true;
}

bool MemStream::WriteBuffer(void const* ip_source, unsigned long i_length)
{
    Buffer& l_buffer = *mp_buffer;
    // Indices are ints; a stream that large is refused rather than overflowed.
    if (i_length > static_cast<unsigned long>(INT_MAX))
        return false;
    // The capacity stays strictly above the data, so there is always a free byte after it.
    unsigned long long const l_needed = static_cast<unsigned long long>(l_buffer.m_writeIndex) + i_length;
    if (l_needed >= static_cast<unsigned long long>(l_buffer.m_bufferSize))
    {
        unsigned long long l_size = static_cast<unsigned long long>(l_buffer.m_bufferSize);
        while (l_size <= l_needed)
            l_size *= 2;
        if (l_size > INT_MAX)
            return false;
        auto lp_bytes = std::make_unique_for_overwrite<char[]>(l_size);
        if (l_buffer.m_writeIndex > 0)
            std::memcpy(lp_bytes.get(), l_buffer.mp_bytes.get(), l_buffer.m_writeIndex);
        l_buffer.mp_bytes = std::move(lp_bytes);
        l_buffer.m_bufferSize = static_cast<int>(l_size);
    }
    if (i_length > 0)
        std::memcpy(l_buffer.mp_bytes.get() + l_buffer.m_writeIndex, ip_source, i_length);
    l_buffer.m_writeIndex += static_cast<int>(i_length);
    return true;
}

int MemStream::GetPendingReadLength() const
{
    return mp_buffer->m_writeIndex - mp_buffer->m_readIndex;
}

char const* MemStream::GetReadBuffer() const
{
    return mp_buffer->mp_bytes.get() + mp_buffer->m_readIndex;
}

void MemStream::EnsureBufferCapacity(int i_size)
{
    Buffer& l_buffer = *mp_buffer;
    if (l_buffer.m_writeIndex != 0) [[unlikely]]
        qFatal("Tidewick: programming error: EnsureBufferCapacity on a stream that holds %d bytes",
               l_buffer.m_writeIndex);
    if (i_size <= l_buffer.m_bufferSize)
        return;
    // Nothing to keep, so the old storage goes before the new one comes.
    l_buffer.mp_bytes.reset();
    l_buffer.mp_bytes = std::make_unique_for_overwrite<char[]>(i_size);
    l_buffer.m_bufferSize = i_size;
}

void MemStream::GrowBuffer(int i_size)
{
    Buffer& l_buffer = *mp_buffer;
    if (i_size <= l_buffer.m_bufferSize)
        return;
    auto lp_bytes = std::make_unique_for_overwrite<char[]>(i_size);
    if (l_buffer.m_writeIndex > 0)
        std::memcpy(lp_bytes.get(), l_buffer.mp_bytes.get(), l_buffer.m_writeIndex);
    l_buffer.mp_bytes = std::move(lp_bytes);
    l_buffer.m_bufferSize = i_size;
}

char* MemStream::GetWriteBuffer()
{
    return mp_buffer->mp_bytes.get() + mp_buffer->m_writeIndex;
}

void MemStream::AdvanceWriteIndex(int i_count)
{
    Buffer& l_buffer = *mp_buffer;
    if (i_count < 0 || i_count > l_buffer.m_bufferSize - l_buffer.m_writeIndex) [[unlikely]]
        qFatal("Tidewick: programming error: AdvanceWriteIndex by %d with %d of %d bytes used", i_count,
               l_buffer.m_writeIndex, l_buffer.m_bufferSize);
    l_buffer.m_writeIndex += i_count;
}

void MemStream::Reset()
{
    mp_buffer->m_readIndex = 0;
    mp_buffer->m_writeIndex = 0;
}
