#include "plat_memory.h"

#include <malloc.h>

void plat_keep_large_blocks_in_heap() {
    mallopt(M_MMAP_THRESHOLD, 16 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 8 * 1024 * 1024);
}
