#include "peer/DescriptorLimit.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <fcntl.h>
#include <unistd.h>

// The spare descriptors are counted up to the number asked, with the process's limit lowered
// to leave only a few; counting takes none of them for good, and the limit can be raised again.
TEST(DescriptorLimit, SpareDescriptorsAreCountedAndGivenBack)
{
    rlimit l_old{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &l_old), 0);
    int const l_probe = ::dup(1);
    ASSERT_GE(l_probe, 0);
    EXPECT_EQ(SpareDescriptors(l_probe, 8), 8);

    // With the limit five past the highest open descriptor, the free ones below it are spare.
    int l_highest = l_probe;
    for (int l_fd = l_probe + 1; l_fd < l_probe + 1024; ++l_fd)
        if (::fcntl(l_fd, F_GETFD) != -1)
            l_highest = l_fd;
    int const l_limit = l_highest + 1 + 5;
    int l_expected = 0;
    for (int l_fd = 0; l_fd < l_limit; ++l_fd)
        l_expected += ::fcntl(l_fd, F_GETFD) == -1 ? 1 : 0;
    rlimit l_tight = l_old;
    l_tight.rlim_cur = static_cast<rlim_t>(l_limit);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &l_tight), 0);
    int const l_free = SpareDescriptors(l_probe, 1000);
    int const l_again = SpareDescriptors(l_probe, 1000);
    EXPECT_EQ(RaiseDescriptorLimit(static_cast<std::uint64_t>(l_limit) + 10), static_cast<std::uint64_t>(l_limit) + 10);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &l_old), 0);
    ::close(l_probe);
    EXPECT_EQ(l_free, l_expected);
    EXPECT_EQ(l_again, l_free);
}
