#include "plat_pipe.h"

#include "plat_error.h"
#include "plat_time.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <vector>

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

long plat_pipe_peek(int fd) {
    pollfd pfd{fd, POLLIN, 0};
    if (plat_retry_eintr([&] { return poll(&pfd, 1, 0); }) < 0 || (pfd.revents & POLLNVAL))
        return -1;
    int waiting = 0;
    if (ioctl(fd, FIONREAD, &waiting) != 0)
        return -1;
    if (waiting > 0)
        return waiting;
    return (pfd.revents & (POLLHUP | POLLERR)) ? -1 : 0;
}

int plat_wait_readable(const int* fds, int count, int32_t timeoutMs, bool* ready) {
    std::vector<pollfd> polls(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        polls[i] = pollfd{fds[i], POLLIN, 0};
    int32_t start = plat_tick_count();
    int rc;
    for (;;) {
        int32_t left = timeoutMs;
        if (timeoutMs > 0) {
            left = timeoutMs - plat_tick_diff(plat_tick_count(), start);
            if (left < 0)
                left = 0;
        }
        rc = poll(polls.data(), static_cast<nfds_t>(count), left < 0 ? -1 : left);
        if (rc >= 0 || errno != EINTR)
            break;
    }
    for (int i = 0; i < count; ++i)
        ready[i] = rc > 0 && polls[i].revents != 0;
    return rc;
}
