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

void KeepLargeBlocksOutOfHeap()
{
#if defined(__GLIBC__)
    // The library's own starting figure, now fixed; setting it also fixes the trim threshold.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
#endif
}
