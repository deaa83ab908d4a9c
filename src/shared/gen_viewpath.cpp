#include "gen_viewpath.h"

#include <cerrno>
#include <cstring>

namespace {
// The mode V_fopen passes on: `mode`, then `c` for a writing mode without `c` or `n`, then `e`
// unless it is there. False when that does not fit in `size` bytes.
bool fopenMode(const char* mode, char* out, size_t size) {
    size_t n = std::strlen(mode);
    if (n + 3 > size)
        return false;
    std::memcpy(out, mode, n);
    bool writes = std::strpbrk(mode, "wa") != nullptr;
    bool committed = std::strpbrk(mode, "cn") != nullptr;
    if (writes && !committed)
        out[n++] = 'c';
    if (!std::strchr(mode, 'e'))
        out[n++] = 'e';
    out[n] = '\0';
    return true;
}
} // namespace

int V_access(const char* path, int mode) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return plat_access(path, mode);
}

int V_stat(const char* path, PlatFileStatus* buffer) {
    if (!path || !buffer) {
        errno = EINVAL;
        return -1;
    }
    return plat_stat(path, buffer);
}

int V_open(const char* path, int flags, int mode) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return plat_open(path, flags, mode);
}

FILE* V_fopen(const char* path, const char* mode) {
    if (!path || !mode)
        return nullptr;
    char fixed[32];
    if (!fopenMode(mode, fixed, sizeof fixed)) {
        errno = EINVAL;
        return nullptr;
    }
    return std::fopen(path, fixed);
}

FILE* V_freopen(const char* path, const char* mode, FILE* stream) {
    if (!path || !mode)
        return nullptr;
    char fixed[32];
    if (!fopenMode(mode, fixed, sizeof fixed)) {
        errno = EINVAL;
        return nullptr;
    }
    return std::freopen(path, fixed, stream);
}

int V_chdir(const char* path) {
    if (!path || !*path)
        return -1;
    return plat_chdir(path);
}

int V_mkdir(const char* path, int mode) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return plat_mkdir(path, mode);
}

int V_unlink(const char* path) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return plat_unlink(path);
}
