#include <gtest/gtest.h>

#include <limits>

#include "transfers/TransferRate.h"
#include "transfers/UploadPacer.h"

namespace
{
long long constexpr g_gib = 1LL << 30;
int constexpr g_intMax = std::numeric_limits<int>::max();

TEST(TransferRateTest, SpeedIsTheAverageClampedToInt)
{
    EXPECT_EQ(TransferRate::BytesPerSecond(8192, 0), 0);
    EXPECT_EQ(TransferRate::BytesPerSecond(8192, 1000), 8192);
    EXPECT_EQ(TransferRate::BytesPerSecond(3, 2), 1500);
    EXPECT_EQ(TransferRate::BytesPerSecond(6 * g_gib, 3000), g_intMax);
    EXPECT_EQ(TransferRate::BytesPerSecond(6 * g_gib, 4000), 1610612736);
    EXPECT_EQ(TransferRate::BytesPerSecond(std::numeric_limits<long long>::max(), 1), g_intMax);
}

TEST(TransferRateTest, PacingSleepsOnlyPastTheLine)
{
    struct Case
    {
        long long m_elapsed;
        long long m_count;
        int m_limit;
        long long m_sleep;
    };
    // At 1 KiB/s after one second the line is 1024 bytes; at 100 KiB/s, 102400.
    for (Case const l_case : {
             Case{1000, 1'000'000, 0, 0},         // no limit
             Case{0, 999, 1, 0},                  // less than 1000 bytes ahead
             Case{0, 8192, 1, 8000},              // the first millisecond is paced too
             Case{1000, 2023, 1, 0},              // below allowed + 1000
             Case{1000, 2024, 1, 976},            // the whole excess at once
             Case{1000, 102400 + 10239, 100, 0},  // 99.99 ms ahead: no sleep
             Case{1000, 102400 + 10240, 100, 100},
             Case{1, 5121, 1, 5000},
             // 4 GiB allowed after 1024 s at 4 MiB/s, 5 GiB sent.
             Case{1'024'000, 5 * g_gib, 4096, 256'000},
             // A line past any count: no overflow, no sleep.
             Case{10'000'000'000LL, 5 * g_gib, g_intMax, 0},
         })
        EXPECT_EQ(TransferRate::PacingSleepMs(l_case.m_elapsed, l_case.m_count, l_case.m_limit), l_case.m_sleep)
            << l_case.m_elapsed << " ms, " << l_case.m_count << " bytes, " << l_case.m_limit << " KiB/s";
}

TEST(UploadPacerTest, AChangedLimitRestartsTheMeasurement)
{
    UploadPacer l_pacer(1, 0);
    EXPECT_EQ(l_pacer.BeforeBlock(1, 0), 0);
    l_pacer.Sent(8192);
    EXPECT_EQ(l_pacer.BeforeBlock(1, 1), 7999);
    // The 8 KiB sent under the old limit do not count under the new one.
    EXPECT_EQ(l_pacer.BeforeBlock(2, 5000), 0);
    EXPECT_EQ(l_pacer.BytesPerSecond(6000), 0);
    l_pacer.Sent(4096);
    EXPECT_EQ(l_pacer.BeforeBlock(2, 5001), 1999);
    EXPECT_EQ(l_pacer.BytesPerSecond(6000), 4096);
}

TEST(UploadPacerTest, AStallIsMadeUpAtFullSpeed)
{
    UploadPacer l_pacer(1, 0);
    l_pacer.Sent(1024);
    // Ten seconds of stall allow 10 KiB: nine blocks of 1 KiB go out with no sleep.
    for (int l_block = 0; l_block < 9; ++l_block)
    {
        EXPECT_EQ(l_pacer.BeforeBlock(1, 10'000), 0) << l_block;
        l_pacer.Sent(1024);
    }
    l_pacer.Sent(1024);
    EXPECT_EQ(l_pacer.BeforeBlock(1, 10'000), 1000);
}
} // namespace
