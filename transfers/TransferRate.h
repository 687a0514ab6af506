#pragma once

// The arithmetic of transfer speeds and of upload pacing, in 64-bit integers throughout: files
// and counts pass 4 GiB.
namespace TransferRate
{
// The average speed of i_count bytes moved in i_elapsedMs: 0 when no time has passed, at most
// the largest int (loopback passes 2 GiB/s).
int BytesPerSecond(long long i_count, long long i_elapsedMs);

// How long to sleep before the next block, when i_count bytes went out in the i_elapsedMs since
// the reference time under a limit of i_limit KiB/s. The thread may run up to 1000 bytes and
// 99 ms ahead of the allowed line; beyond that it sleeps off the whole excess at once. Returns
// 0 (go on) or at least 100.
long long PacingSleepMs(long long i_elapsedMs, long long i_count, int i_limit);
} // namespace TransferRate
