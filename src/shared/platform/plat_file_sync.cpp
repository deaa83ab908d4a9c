#include "plat_file_sync.h"

#include "plat_error.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

int plat_fsync(int fd) {
    return plat_retry_eintr([&] { return fsync(fd); }) == 0 ? 0 : -1;
}

int plat_rename_replace(const char* from, const char* to) {
    if (std::rename(from, to) != 0)
        return -1;
    const char* slash = std::strrchr(to, '/');
    std::string dir = slash == nullptr ? "." : slash == to ? "/" : std::string(to, slash);
    int fd =
        plat_retry_eintr([&] { return open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (fd < 0)
        return -1;
    int result = plat_fsync(fd);
    int saved = errno;
    close(fd);
    errno = saved;
    return result;
}
