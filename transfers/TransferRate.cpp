#include "transfers/TransferRate.h"

#include <limits>

namespace
{
long long constexpr g_longMax = std::numeric_limits<long long>::max();
int constexpr g_intMax = std::numeric_limits<int>::max();

// i_value x 1000 / i_divisor without the product overflowing, for a non-negative i_value and a
// positive i_divisor; the quotient part is split off first.
long long ThousandTimesOver(long long i_value, long long i_divisor)
{
    long long const l_whole = i_value / i_divisor;
    if (l_whole > g_longMax / 1000 - 1)
        return g_longMax;
    return l_whole * 1000 + (i_value % i_divisor) * 1000 / i_divisor;
}
} // namespace

int TransferRate::BytesPerSecond(long long i_count, long long i_elapsedMs)
{
    if (i_elapsedMs <= 0 || i_count <= 0)
        return 0;
    long long const l_speed = ThousandTimesOver(i_count, i_elapsedMs);
    return l_speed > g_intMax ? g_intMax : static_cast<int>(l_speed);
}

long long TransferRate::PacingSleepMs(long long i_elapsedMs, long long i_count, int i_limit)
{
    // The first millisecond is paced too: over loopback a whole socket buffer goes out in it.
    if (i_limit <= 0 || i_elapsedMs < 0)
        return 0;
    long long const l_rate = static_cast<long long>(i_limit) * 1024;
    // A line beyond any count the thread can reach never asks for a sleep.
    if (i_elapsedMs > g_longMax / l_rate)
        return 0;
    long long const l_allowed = i_elapsedMs * l_rate / 1000;
    if (i_count < l_allowed + 1000)
        return 0;
    long long const l_sleep = ThousandTimesOver(i_count - l_allowed, l_rate);
    return l_sleep > 99 ? l_sleep : 0;
}
