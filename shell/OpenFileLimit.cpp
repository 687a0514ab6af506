#include "shell/OpenFileLimit.h"

#include <sys/resource.h>

void RaiseOpenFileLimit()
{
    rlimit l_limit{};
    if (getrlimit(RLIMIT_NOFILE, &l_limit) == 0 && l_limit.rlim_cur < l_limit.rlim_max)
    {
        l_limit.rlim_cur = l_limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &l_limit);
    }
}
