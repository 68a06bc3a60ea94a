#include "kaHeap.h"

#include <malloc.h>

bool kaHeap::keepFreedMemoryForReuse() {
    const bool mapped = mallopt(M_MMAP_THRESHOLD, int(kMappedFrom)) == 1;
    const bool kept = mallopt(M_TRIM_THRESHOLD, int(kKeptAtTop)) == 1;
    return mapped && kept;
}
