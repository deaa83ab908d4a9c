#include "plat_files.h"

#include "plat_error.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace {
int systemFlags(int flags) {
    int result = O_CLOEXEC;
    if (flags & PLAT_O_RDWR)
        result |= O_RDWR;
    else if (flags & PLAT_O_WRONLY)
        result |= O_WRONLY;
    else
        result |= O_RDONLY;
    if (flags & PLAT_O_APPEND)
        result |= O_APPEND;
    if (flags & PLAT_O_CREAT)
        result |= O_CREAT;
    if (flags & PLAT_O_TRUNC)
        result |= O_TRUNC;
    if (flags & PLAT_O_EXCL)
        result |= O_EXCL;
    return result;
}

void fillStatus(const struct stat& st, PlatFileStatus* out) {
    out->isDirectory = S_ISDIR(st.st_mode);
    out->isRegular = S_ISREG(st.st_mode);
    out->mode = (st.st_mode & 07777) | (out->isDirectory ? PLAT_MODE_DIRECTORY : 0) |
                (out->isRegular ? 0x8000u : 0);
    out->size = static_cast<int64_t>(st.st_size);
    out->modifiedSec = static_cast<int64_t>(st.st_mtime);
}
} // namespace

int plat_access(const char* path, int mode) {
    int how = F_OK;
    if (mode & 2)
        how |= W_OK;
    if (mode & 4)
        how |= R_OK;
    if (mode & 1)
        how |= X_OK;
    return access(path, how) == 0 ? 0 : -1;
}

int plat_stat(const char* path, PlatFileStatus* out) {
    struct stat st;
    if (stat(path, &st) != 0)
        return -1;
    fillStatus(st, out);
    return 0;
}

int plat_open(const char* path, int flags, int mode) {
    return plat_retry_eintr([&] { return open(path, systemFlags(flags), mode); });
}

int plat_close(int fd) {
    return close(fd) == 0 || errno == EINTR ? 0 : -1;
}

int64_t plat_read(int fd, void* buffer, size_t size) {
    return plat_retry_eintr([&] { return static_cast<int64_t>(read(fd, buffer, size)); });
}

int64_t plat_write(int fd, const void* buffer, size_t size) {
    return plat_retry_eintr([&] { return static_cast<int64_t>(write(fd, buffer, size)); });
}

int64_t plat_seek(int fd, int64_t offset) {
    return static_cast<int64_t>(lseek(fd, static_cast<off_t>(offset), SEEK_SET));
}

int plat_truncate(int fd, int64_t size) {
    return plat_retry_eintr([&] { return ftruncate(fd, static_cast<off_t>(size)); });
}

int plat_chdir(const char* path) {
    return chdir(path) == 0 ? 0 : -1;
}

bool plat_getcwd(char* out, size_t size) {
    return getcwd(out, size) != nullptr;
}

int plat_mkdir(const char* path, int mode) {
    return mkdir(path, static_cast<mode_t>(mode)) == 0 ? 0 : -1;
}

int plat_unlink(const char* path) {
    return unlink(path) == 0 ? 0 : -1;
}

int plat_rmdir(const char* path) {
    return rmdir(path) == 0 ? 0 : -1;
}

int plat_chmod(const char* path, uint32_t bits) {
    return chmod(path, static_cast<mode_t>(bits & 07777)) == 0 ? 0 : -1;
}

bool plat_full_path(const char* path, char* out, size_t size) {
    if (!path || size == 0) {
        errno = EINVAL;
        return false;
    }
    size_t pathLength = std::strlen(path);
    if (path[0] == '/') {
        if (pathLength + 1 > size) {
            errno = ERANGE;
            return false;
        }
        std::memcpy(out, path, pathLength + 1);
        return true;
    }
    if (!getcwd(out, size))
        return false;
    size_t cwdLength = std::strlen(out);
    bool needSlash = cwdLength == 0 || out[cwdLength - 1] != '/';
    if (cwdLength + (needSlash ? 1 : 0) + pathLength + 1 > size) {
        errno = ERANGE;
        return false;
    }
    if (needSlash)
        out[cwdLength++] = '/';
    std::memcpy(out + cwdLength, path, pathLength + 1);
    return true;
}

struct PlatFind {
    DIR* dir;
    int dirFd;
};

PlatFind* plat_find_open(const char* dir) {
    DIR* handle = opendir(dir);
    if (!handle)
        return nullptr;
    PlatFind* find = new (std::nothrow) PlatFind{handle, dirfd(handle)};
    if (!find) {
        closedir(handle);
        errno = ENOMEM;
    }
    return find;
}

bool plat_find_next(PlatFind* find, PlatFindEntry* entry) {
    if (!find)
        return false;
    errno = 0;
    struct dirent* d = readdir(find->dir);
    if (!d)
        return false;
    std::strncpy(entry->name, d->d_name, sizeof entry->name - 1);
    entry->name[sizeof entry->name - 1] = '\0';
    if (d->d_type == DT_DIR) {
        entry->isDirectory = true;
    } else if (d->d_type == DT_UNKNOWN || d->d_type == DT_LNK) {
        struct stat st;
        entry->isDirectory = fstatat(find->dirFd, d->d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
    } else {
        entry->isDirectory = false;
    }
    return true;
}

void plat_find_close(PlatFind* find) {
    if (!find)
        return;
    closedir(find->dir);
    delete find;
}
