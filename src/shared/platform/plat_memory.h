// Tuning of the C library's allocator for programs that build and drop large buffers.
#pragma once

// The Linux allocator maps every block above 128 KiB fresh from the kernel and unmaps it when it
// is freed, so a transport that builds, sends and drops megabyte messages pays a page fault per
// 4 KiB on each of them, which halves its throughput. This keeps blocks below 16 MiB in the heap,
// where freed ones are reused, and gives heap memory back to the system once more than 8 MiB at
// its top are free. The Windows heap needs no such setting. Idempotent; safe to call at any time.
void plat_keep_large_blocks_in_heap();
