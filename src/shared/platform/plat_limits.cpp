#include "plat_limits.h"

#include <sys/resource.h>

bool plat_descriptor_limit(uint64_t* soft, uint64_t* hard) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    if (soft)
        *soft = limit.rlim_cur;
    if (hard)
        *hard = limit.rlim_max;
    return true;
}

bool plat_set_descriptor_limit(uint64_t soft) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = soft < limit.rlim_max ? static_cast<rlim_t>(soft) : limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}
