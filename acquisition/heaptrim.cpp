#include "heaptrim.h"

#include <cstdlib>  // defines __GLIBC__ with the GNU C library

#if defined(__GLIBC__)
#include <malloc.h>
#endif

bool releaseFreeHeap() {
#if defined(__GLIBC__)
    return malloc_trim(0) == 1;
#else
    return false;  // other C libraries return freed memory by their own rules
#endif
}

void keepLargeBlocksMapped() {
#if defined(__GLIBC__)
    mallopt(M_MMAP_THRESHOLD, int(kMappedBlockBytes));
#endif
}
