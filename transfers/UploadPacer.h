#pragma once

// The measurement an upload is paced by: bytes sent since a reference time, restarted whenever
// the limit changes, so that what went out under the old limit does not count. Times are
// milliseconds on any steady clock the caller keeps.
class UploadPacer
{
public:
    UploadPacer(int i_limit, long long i_nowMs);

    // Before each block, with the limit in force now: the milliseconds to sleep first, 0 or at
    // least 100.
    long long BeforeBlock(int i_limit, long long i_nowMs);
    void Sent(long long i_bytes);
    // The average since the reference time.
    int BytesPerSecond(long long i_nowMs) const;

private:
    int m_limit;
    long long m_referenceMs;
    long long m_count = 0;
};
