#include "plat_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace {
sockaddr_in makeAddress(uint32_t address, uint16_t port) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = address;
    sa.sin_port = htons(port);
    return sa;
}

bool setIntOption(plat_socket fd, int level, int name, bool on) {
    int value = on ? 1 : 0;
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

bool readAddress(const sockaddr_in& sa, socklen_t len, uint32_t* address, uint16_t* port) {
    if (len < sizeof sa || sa.sin_family != AF_INET)
        return false;
    if (address)
        *address = sa.sin_addr.s_addr;
    if (port)
        *port = ntohs(sa.sin_port);
    return true;
}
} // namespace

int plat_sockets_startup(int, int) {
    return 0;
}
void plat_sockets_cleanup() {}

plat_socket plat_tcp_socket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool plat_socket_pair(plat_socket fds[2]) {
    return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0;
}

bool plat_close_socket(plat_socket fd) {
    // close is not retried on EINTR: on Linux the descriptor is gone either way.
    return fd >= 0 && close(fd) == 0;
}

bool plat_set_nonblocking(plat_socket fd, bool on) {
    int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0)
        return false;
    flags = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return fcntl(fd, F_SETFL, flags) == 0;
}

bool plat_set_nodelay(plat_socket fd, bool on) {
    return setIntOption(fd, IPPROTO_TCP, TCP_NODELAY, on);
}
bool plat_set_reuseaddr(plat_socket fd, bool on) {
    return setIntOption(fd, SOL_SOCKET, SO_REUSEADDR, on);
}

bool plat_bind(plat_socket fd, uint32_t address, uint16_t port) {
    sockaddr_in sa = makeAddress(address, port);
    return bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
}

bool plat_listen(plat_socket fd, int backlog) {
    return listen(fd, backlog) == 0;
}

plat_socket plat_accept(plat_socket listenFd) {
    return plat_retry_eintr([&] { return accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC); });
}

bool plat_connect(plat_socket fd, uint32_t address, uint16_t port) {
    sockaddr_in sa = makeAddress(address, port);
    if (connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0)
        return true;
    // An interrupted connect goes on in the background, like a non-blocking one.
    if (errno == EINTR)
        errno = EINPROGRESS;
    return false;
}

PlatError plat_connect_result(plat_socket fd) {
    int error = 0;
    socklen_t len = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0)
        return plat_last_error();
    return plat_map_errno(error);
}

long plat_send(plat_socket fd, const void* data, size_t length) {
    return plat_retry_eintr(
        [&] { return static_cast<long>(send(fd, data, length, MSG_NOSIGNAL)); });
}

long plat_recv(plat_socket fd, void* data, size_t length) {
    return plat_retry_eintr([&] { return static_cast<long>(recv(fd, data, length, 0)); });
}

long plat_send_nowait(plat_socket fd, const void* data, size_t length) {
    return plat_retry_eintr(
        [&] { return static_cast<long>(send(fd, data, length, MSG_NOSIGNAL | MSG_DONTWAIT)); });
}

long plat_recv_nowait(plat_socket fd, void* data, size_t length) {
    return plat_retry_eintr(
        [&] { return static_cast<long>(recv(fd, data, length, MSG_DONTWAIT)); });
}

bool plat_set_receive_timeout(plat_socket fd, int32_t timeoutMs) {
    timeval tv{timeoutMs / 1000, static_cast<suseconds_t>(timeoutMs % 1000) * 1000};
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) == 0;
}

bool plat_shutdown(plat_socket fd, PlatShutdown how) {
    int h = how == PlatShutdown::receive ? SHUT_RD
            : how == PlatShutdown::send  ? SHUT_WR
                                         : SHUT_RDWR;
    return shutdown(fd, h) == 0;
}

bool plat_local_address(plat_socket fd, uint32_t* address, uint16_t* port) {
    sockaddr_in sa{};
    socklen_t len = sizeof sa;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len) != 0)
        return false;
    return readAddress(sa, len, address, port);
}

bool plat_peer_address(plat_socket fd, uint32_t* address, uint16_t* port) {
    sockaddr_in sa{};
    socklen_t len = sizeof sa;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&sa), &len) != 0)
        return false;
    return readAddress(sa, len, address, port);
}

bool plat_gethostname(char* out, size_t size) {
    if (size == 0 || gethostname(out, size) != 0)
        return false;
    out[size - 1] = '\0';
    return true;
}

bool plat_resolve_host(const char* name, uint32_t* address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (name == nullptr || getaddrinfo(name, nullptr, &hints, &list) != 0 || list == nullptr)
        return false;
    *address = reinterpret_cast<sockaddr_in*>(list->ai_addr)->sin_addr.s_addr;
    freeaddrinfo(list);
    return true;
}

uint32_t plat_inet_addr(const char* dotted) {
    in_addr a{};
    if (dotted == nullptr || inet_pton(AF_INET, dotted, &a) != 1)
        return PLAT_INADDR_NONE;
    return a.s_addr;
}

char* plat_inet_ntoa(uint32_t address, char* out) {
    in_addr a{};
    a.s_addr = address;
    if (inet_ntop(AF_INET, &a, out, 16) == nullptr)
        out[0] = '\0';
    return out;
}

uint32_t plat_loopback_address() {
    return htonl(INADDR_LOOPBACK);
}

void plat_fd_zero(plat_fd_set* set) {
    set->count = 0;
}

bool plat_fd_add(plat_fd_set* set, plat_socket fd) {
    if (plat_fd_isset(set, fd))
        return true;
    if (set->count >= PLAT_FD_SETSIZE)
        return false;
    set->fds[set->count++] = fd;
    return true;
}

bool plat_fd_isset(const plat_fd_set* set, plat_socket fd) {
    for (int i = 0; i < set->count; ++i)
        if (set->fds[i] == fd)
            return true;
    return false;
}

int plat_select(int, plat_fd_set* readSet, plat_fd_set* writeSet, plat_fd_set* exceptSet,
                int32_t timeoutMs) {
    // One pollfd per distinct socket, with the events of every set it is in.
    constexpr int kMax = 3 * PLAT_FD_SETSIZE;
    pollfd fds[kMax];
    int n = 0;
    auto add = [&](plat_fd_set* set, short events) {
        if (!set)
            return;
        for (int i = 0; i < set->count; ++i) {
            int j = 0;
            while (j < n && fds[j].fd != set->fds[i])
                ++j;
            if (j == n)
                fds[n++] = pollfd{set->fds[i], 0, 0};
            fds[j].events |= events;
        }
    };
    add(readSet, POLLIN);
    add(writeSet, POLLOUT);
    add(exceptSet, POLLPRI);
    int rc = poll(fds, static_cast<nfds_t>(n), timeoutMs < 0 ? 0 : timeoutMs);
    if (rc < 0) {
        if (errno == EINTR)
            rc = 0;
        else
            return -1;
    }
    // A hang-up or error makes a socket readable and writable, as select reports it: the next
    // recv or send then sees the failure.
    int ready = 0;
    auto keep = [&](plat_fd_set* set, short mask) {
        if (!set)
            return;
        int kept = 0;
        for (int i = 0; i < set->count; ++i) {
            for (int j = 0; j < n; ++j) {
                if (fds[j].fd == set->fds[i] && (fds[j].revents & mask)) {
                    set->fds[kept++] = set->fds[i];
                    ++ready;
                    break;
                }
            }
        }
        set->count = kept;
    };
    keep(readSet, POLLIN | POLLHUP | POLLERR | POLLNVAL);
    keep(writeSet, POLLOUT | POLLHUP | POLLERR | POLLNVAL);
    keep(exceptSet, POLLPRI);
    return ready;
}

int plat_poll(PlatPollEntry* entries, size_t count, int32_t timeoutMs) {
    constexpr size_t kLocal = 64;
    pollfd local[kLocal];
    std::unique_ptr<pollfd[]> heap;
    pollfd* fds = local;
    if (count > kLocal) {
        heap.reset(new pollfd[count]);
        fds = heap.get();
    }
    for (size_t i = 0; i < count; ++i) {
        PlatPollEntry& e = entries[i];
        short events = static_cast<short>((e.wantRead ? POLLIN : 0) | (e.wantWrite ? POLLOUT : 0) |
                                          (e.wantExcept ? POLLPRI : 0));
        fds[i] = pollfd{e.fd, events, 0};
        e.readable = e.writable = e.excepted = false;
    }
    int rc = poll(fds, static_cast<nfds_t>(count), timeoutMs < 0 ? 0 : timeoutMs);
    if (rc < 0)
        return errno == EINTR ? 0 : -1;
    int ready = 0;
    for (size_t i = 0; i < count; ++i) {
        PlatPollEntry& e = entries[i];
        short got = fds[i].revents;
        short broken = POLLHUP | POLLERR | POLLNVAL;
        e.readable = e.wantRead && (got & (POLLIN | broken));
        e.writable = e.wantWrite && (got & (POLLOUT | broken));
        e.excepted = e.wantExcept && (got & POLLPRI);
        if (e.readable || e.writable || e.excepted)
            ++ready;
    }
    return ready;
}
