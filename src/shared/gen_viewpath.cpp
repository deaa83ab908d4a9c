#include "gen_viewpath.h"

#include <cerrno>
#include <cstring>

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

void V_fopen_mode(const char* mode, char* out, size_t size) {
    if (size == 0)
        return;
    size_t n = std::strlen(mode);
    if (n + 1 > size)
        n = size - 1;
    std::memcpy(out, mode, n);
    out[n] = '\0';
    bool writes = std::strpbrk(mode, "wa") != nullptr;
    bool committed = std::strpbrk(mode, "cn") != nullptr;
    if (writes && !committed && n + 2 <= size) {
        out[n] = 'c';
        out[n + 1] = '\0';
    }
}

FILE* V_fopen(const char* path, const char* mode) {
    if (!path || !mode)
        return nullptr;
    char fixed[32];
    V_fopen_mode(mode, fixed, sizeof fixed);
    return std::fopen(path, fixed);
}

FILE* V_freopen(const char* path, const char* mode, FILE* stream) {
    if (!path || !mode)
        return nullptr;
    char fixed[32];
    V_fopen_mode(mode, fixed, sizeof fixed);
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
