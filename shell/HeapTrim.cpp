#include "shell/HeapTrim.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

void ReturnFreeHeapToSystem()
{
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}
