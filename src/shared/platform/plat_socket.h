// TCP sockets over IPv4 and select-style waiting: the Linux meaning of the Winsock calls the
// transport and the notifier use. Addresses are IPv4 in network byte order; ports in host order.
#pragma once

#include "plat_error.h"

#include <cstddef>
#include <cstdint>

using plat_socket = int;
inline constexpr plat_socket PLAT_INVALID_SOCKET = -1;
inline constexpr uint32_t PLAT_INADDR_NONE = 0xffffffffu;
inline constexpr uint32_t PLAT_INADDR_ANY = 0;

// WSAStartup: nothing to start on Linux; returns 0 (success) like the Windows call. The version
// asked for is accepted as it is.
int plat_sockets_startup(int versionMajor, int versionMinor);
// WSACleanup: nothing to undo.
void plat_sockets_cleanup();

// socket(AF_INET, SOCK_STREAM): a TCP socket, close-on-exec so children never inherit it.
plat_socket plat_tcp_socket();
// A connected pair of stream sockets (AF_UNIX), close-on-exec; for in-process peers and tests.
bool plat_socket_pair(plat_socket fds[2]);
// closesocket.
bool plat_close_socket(plat_socket fd);
// ioctlsocket(FIONBIO).
bool plat_set_nonblocking(plat_socket fd, bool on);
// setsockopt TCP_NODELAY / SO_REUSEADDR.
bool plat_set_nodelay(plat_socket fd, bool on);
bool plat_set_reuseaddr(plat_socket fd, bool on);

bool plat_bind(plat_socket fd, uint32_t address, uint16_t port);
bool plat_listen(plat_socket fd, int backlog);
// SOMAXCONN of Winsock: a backlog that asks for the largest the system allows. Linux caps any
// larger backlog at its limit (net.core.somaxconn), which is what this value asks for.
inline constexpr int PLAT_SOMAXCONN = 0x7fffffff;
// accept, retrying EINTR; the new socket is close-on-exec. PLAT_INVALID_SOCKET on failure
// (plat_last_error says would_block when nothing is pending on a non-blocking socket).
plat_socket plat_accept(plat_socket listenFd);
// connect, retrying EINTR. On a non-blocking socket a false result with plat_last_error()
// in_progress or would_block means "under way": wait for writability, then plat_connect_result.
bool plat_connect(plat_socket fd, uint32_t address, uint16_t port);
// The outcome of a non-blocking connect (getsockopt SO_ERROR), as a platform code.
PlatError plat_connect_result(plat_socket fd);

// send with MSG_NOSIGNAL (a closed peer is an error, never a signal), retrying EINTR.
// Returns the bytes taken or -1.
long plat_send(plat_socket fd, const void* data, size_t length);
// recv, retrying EINTR. Returns the bytes read, 0 at the peer's orderly close, or -1.
long plat_recv(plat_socket fd, void* data, size_t length);
// send and recv on a non-blocking socket, whatever the socket's own mode: they never wait
// (MSG_DONTWAIT), and a call that would have to reports would_block.
long plat_send_nowait(plat_socket fd, const void* data, size_t length);
long plat_recv_nowait(plat_socket fd, void* data, size_t length);
// setsockopt SO_RCVTIMEO: a plain recv on a blocking socket waits at most `timeoutMs` (above
// 0) for data, then fails with would_block. One recv then does what a select for reading and a
// recv do together, with one call into the system instead of two.
bool plat_set_receive_timeout(plat_socket fd, int32_t timeoutMs);
enum class PlatShutdown { receive, send, both };
bool plat_shutdown(plat_socket fd, PlatShutdown how);

// getsockname / getpeername. Either out-pointer may be null.
bool plat_local_address(plat_socket fd, uint32_t* address, uint16_t* port);
bool plat_peer_address(plat_socket fd, uint32_t* address, uint16_t* port);

// gethostname into `out` (NUL-terminated, cut to `size`).
bool plat_gethostname(char* out, size_t size);
// gethostbyname for IPv4: the first address of `name`, or false.
bool plat_resolve_host(const char* name, uint32_t* address);
// inet_addr: dotted quad to address, PLAT_INADDR_NONE when it is not one.
uint32_t plat_inet_addr(const char* dotted);
// inet_ntoa into a buffer of at least 16 bytes; returns `out`.
char* plat_inet_ntoa(uint32_t address, char* out);
// The loopback address 127.0.0.1 in network order.
uint32_t plat_loopback_address();

// The socket set of select. A Winsock fd_set holds at most 64 sockets; adding more fails and
// the socket is not watched.
inline constexpr int PLAT_FD_SETSIZE = 64;
struct plat_fd_set {
    int count = 0;
    plat_socket fds[PLAT_FD_SETSIZE];
};
void plat_fd_zero(plat_fd_set* set);
bool plat_fd_add(plat_fd_set* set, plat_socket fd);
bool plat_fd_isset(const plat_fd_set* set, plat_socket fd);

// One socket of plat_poll: what to wait for, and on return what happened.
struct PlatPollEntry {
    plat_socket fd = PLAT_INVALID_SOCKET;
    bool wantRead = false, wantWrite = false, wantExcept = false;
    bool readable = false, writable = false, excepted = false; // set by plat_poll
};
// WSAPoll: waits up to `timeoutMs` (0 = just look) until one of `count` sockets is ready, with
// no limit on how many; a hang-up or error counts as readable and writable, as with select.
// Returns how many entries have something set, 0 on time-out or when a signal interrupted the
// wait, -1 on error. Allocates only for more than 64 entries.
int plat_poll(PlatPollEntry* entries, size_t count, int32_t timeoutMs);

// select: waits up to `timeoutMs` (0 = just look) until a socket of the sets is ready, then
// leaves in each set only its ready sockets. `width` is accepted for the Winsock signature and
// not needed. Returns the number of ready sockets, 0 on time-out, -1 on error. Built on poll,
// so descriptors above FD_SETSIZE work; an interrupted wait counts as nothing ready.
int plat_select(int width, plat_fd_set* readSet, plat_fd_set* writeSet, plat_fd_set* exceptSet,
                int32_t timeoutMs);
