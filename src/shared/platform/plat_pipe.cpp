#include "plat_pipe.h"

#include "plat_error.h"

#include <fcntl.h>
#include <unistd.h>

bool plat_pipe(int fds[2]) {
    return pipe2(fds, O_CLOEXEC) == 0;
}

long plat_read_fd(int fd, void* data, size_t length) {
    return plat_retry_eintr([&] { return static_cast<long>(read(fd, data, length)); });
}

long plat_write_fd(int fd, const void* data, size_t length) {
    return plat_retry_eintr([&] { return static_cast<long>(write(fd, data, length)); });
}

bool plat_close_fd(int fd) {
    return fd >= 0 && close(fd) == 0;
}
