#pragma once

#include <sys/resource.h>

// A descriptor per client here and another in the server, which inherits the limit.
inline bool RaiseDescriptorLimit(rlim_t i_needed)
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) != 0)
        return false;
    if (l_limit.rlim_cur >= i_needed)
        return true;
    if (l_limit.rlim_max < i_needed)
        return false;
    l_limit.rlim_cur = i_needed;
    return setrlimit(RLIMIT_NOFILE, &l_limit) == 0;
}
