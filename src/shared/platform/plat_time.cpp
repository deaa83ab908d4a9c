#include "plat_time.h"

#include <cerrno>
#include <ctime>

namespace {
// The only process-wide state of this unit: the test seam of plat_set_tick_source.
plat_tick_source g_tickSource = nullptr;

// Milliseconds between 1601-01-01 and 1970-01-01.
constexpr int64_t kFileTimeEpochOffsetMs = 11644473600000LL;
} // namespace

int32_t plat_tick_count() {
    if (g_tickSource)
        return g_tickSource();
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms =
        static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<int32_t>(static_cast<uint32_t>(ms));
}

plat_tick_source plat_set_tick_source(plat_tick_source source) {
    plat_tick_source previous = g_tickSource;
    g_tickSource = source;
    return previous;
}

int64_t plat_wall_clock_ms() {
    timespec ts{};
    if (clock_gettime(CLOCK_REALTIME, &ts) != 0)
        return 0;
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000 + kFileTimeEpochOffsetMs;
}

void plat_sleep_ms(int32_t ms) {
    timespec want{ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
    if (ms <= 0)
        want = {0, 0};
    timespec left{};
    while (nanosleep(&want, &left) != 0 && errno == EINTR)
        want = left;
}
