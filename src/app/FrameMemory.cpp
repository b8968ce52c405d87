#include "FrameMemory.h"

#include <cstdlib> // defines __GLIBC__ where it applies

#if defined(__GLIBC__)
#include <malloc.h>
#endif

void keepFrameMemory()
{
#if defined(__GLIBC__)
    // Free memory at the top of a heap goes back to the kernel only beyond this much.
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
#endif
}
