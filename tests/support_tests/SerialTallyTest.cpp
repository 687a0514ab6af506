#include <gtest/gtest.h>

#include "SerialTally.h"

// The soak passes on this judgement alone: a tally that missed a lost or doubled line would let a
// faulty client pass.
TEST(SerialTally, EveryLineOnceIsNoFaultAndEachKindOfFaultIsCounted)
{
    SerialTally l_tally;
    for (std::uint32_t l_serial : {3u, 1u, 2u})
        l_tally.Arrived(l_serial);
    EXPECT_EQ(l_tally.Faults(3), "");
    EXPECT_EQ(l_tally.Distinct(), 3u);

    // The sender sent more than arrived; one line came twice; one was never sent.
    l_tally.Arrived(2);
    l_tally.Arrived(9);
    EXPECT_EQ(l_tally.Faults(5), "2 missing, 1 more than once, 1 never sent");
    EXPECT_EQ(l_tally.Distinct(), 4u);
}

TEST(SerialTally, ANumberNoLineHasIsNeverSentAndAHugeOneTakesBoundedMemory)
{
    SerialTally l_tally;
    l_tally.Arrived(0);
    EXPECT_EQ(l_tally.Faults(0), "0 missing, 0 more than once, 1 never sent");
    // A number past any run's lines is kept as one stray, however large.
    l_tally.Arrived(4'000'000'000u);
    l_tally.Arrived(3'000'000'000u);
    EXPECT_EQ(l_tally.Faults(0), "0 missing, 0 more than once, 2 never sent");
    // Many arrivals of one line still count as more than once, not as once again.
    SerialTally l_repeated;
    for (int l_time = 0; l_time < 300; ++l_time)
        l_repeated.Arrived(1);
    EXPECT_EQ(l_repeated.Faults(1), "0 missing, 1 more than once, 0 never sent");
}
