#include "peer/DescriptorLimit.h"

#include <sys/resource.h>

#include <algorithm>

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
