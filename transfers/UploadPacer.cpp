#include "transfers/UploadPacer.h"

#include "transfers/TransferRate.h"

UploadPacer::UploadPacer(int i_limit, long long i_nowMs)
    : m_limit(i_limit)
    , m_referenceMs(i_nowMs)
{
}

long long UploadPacer::BeforeBlock(int i_limit, long long i_nowMs)
{
    if (i_limit != m_limit)
    {
        m_limit = i_limit;
        m_referenceMs = i_nowMs;
        m_count = 0;
    }
    return TransferRate::PacingSleepMs(i_nowMs - m_referenceMs, m_count, m_limit);
}

void UploadPacer::Sent(long long i_bytes)
{
    m_count += i_bytes;
}

int UploadPacer::BytesPerSecond(long long i_nowMs) const
{
    return TransferRate::BytesPerSecond(m_count, i_nowMs - m_referenceMs);
}
