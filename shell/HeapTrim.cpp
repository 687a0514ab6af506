#include "shell/HeapTrim.h"

// A C library header must come before the checks below: only it defines __GLIBC__, and without
// it both calls would vanish without a word.
#if __has_include(<malloc.h>)
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
