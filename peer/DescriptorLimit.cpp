#include "peer/DescriptorLimit.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

std::uint64_t RaiseDescriptorLimit(std::uint64_t i_wanted)
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) != 0)
        return 0;
    rlim_t const l_target = std::min<rlim_t>(l_limit.rlim_max, static_cast<rlim_t>(i_wanted));
    if (l_limit.rlim_cur < l_target)
    {
        l_limit.rlim_cur = l_target;
        setrlimit(RLIMIT_NOFILE, &l_limit);
        getrlimit(RLIMIT_NOFILE, &l_limit);
    }
    return static_cast<std::uint64_t>(l_limit.rlim_cur);
}

int SpareDescriptors(int i_descriptor, int i_wanted)
{
    std::vector<int> l_copies;
    l_copies.reserve(static_cast<std::size_t>(i_wanted));
    while (static_cast<int>(l_copies.size()) < i_wanted)
    {
        int const l_copy = ::dup(i_descriptor);
        if (l_copy < 0)
            break;
        l_copies.push_back(l_copy);
    }
    for (int l_copy : l_copies)
        ::close(l_copy);
    return static_cast<int>(l_copies.size());
}
