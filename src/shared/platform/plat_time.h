// Millisecond tick counts, wall-clock time and sleeping.
#pragma once

#include <cstdint>

// GetTickCount: milliseconds of a monotonic clock, cut to a signed 32-bit value that wraps
// after about 24.8 days. Compare two ticks only through plat_tick_diff.
int32_t plat_tick_count();

// `later - earlier` as a signed 32-bit difference, correct across the wrap of the counter.
inline int32_t plat_tick_diff(int32_t later, int32_t earlier) {
    return static_cast<int32_t>(static_cast<uint32_t>(later) - static_cast<uint32_t>(earlier));
}

// `tick + ms` with the wrap of the counter (no signed overflow).
inline int32_t plat_tick_add(int32_t tick, int32_t ms) {
    return static_cast<int32_t>(static_cast<uint32_t>(tick) + static_cast<uint32_t>(ms));
}

// Replaces the clock behind plat_tick_count, so that tests can drive waits of minutes without
// sleeping. Null puts the monotonic clock back. Returns the previous source (null = the clock).
using plat_tick_source = int32_t (*)();
plat_tick_source plat_set_tick_source(plat_tick_source source);

// GetSystemTime + SystemTimeToFileTime / 10000: milliseconds since 1 January 1601 UTC, as the
// wall-clock stamps of the logs count them. 0 if the clock cannot be read.
int64_t plat_wall_clock_ms();

// Sleep: waits `ms` milliseconds (0 yields), resuming after signals.
void plat_sleep_ms(int32_t ms);
