#pragma once

#include "stream/InputStream.h"
#include "stream/OutputStream.h"
#include "stream/rcptr.h"

#include <memory>

// A growable in-memory byte stream: messages are assembled in it for sending and parsed from
// it on receipt. Copies share the buffer and both of its indices.
class MemStream : public virtual InputStream, public virtual OutputStream
{
public:
    MemStream();

    bool ReadBuffer(void* o_target, unsigned long i_length) override;
    bool WriteBuffer(void const* ip_source, unsigned long i_length) override;

    int GetPendingReadLength() const;
    char const* GetReadBuffer() const;

    // Receiving straight into storage: prepare the buffer for one frame, let the socket write
    // at GetWriteBuffer(), at most GetBufferSize() - GetWriteIndex() bytes, then advance.
    void EnsureBufferCapacity(int i_size);
    // Makes the capacity exactly i_size, keeping what was written; a larger capacity stays.
    void GrowBuffer(int i_size);
    char* GetWriteBuffer();
    void AdvanceWriteIndex(int i_count);

    // Both indices back to 0; the storage is kept for the next message.
    void Reset();

    int GetReadIndex() const { return mp_buffer->m_readIndex; }
    int GetWriteIndex() const { return mp_buffer->m_writeIndex; }
    int GetBufferSize() const { return mp_buffer->m_bufferSize; }

private:
    // 0 <= m_readIndex <= m_writeIndex <= m_bufferSize. Consumed bytes stay until Reset.
    struct Buffer
    {
        int m_readIndex = 0;
        int m_writeIndex = 0;
        int m_bufferSize = 256;
        std::unique_ptr<char[]> mp_bytes;
    };

    rcptr<Buffer> mp_buffer;
};
