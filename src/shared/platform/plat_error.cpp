#include "plat_error.h"

#include "plat_sockerror.h"

#include <cstddef>

namespace {
// The one map of errno values: what each means to the layers above, and the Winsock number
// that the transport's failure texts are written for (0: the errno value is kept as it is).
struct ErrnoRow {
    int errnoValue;
    PlatError code;
    int wsa;
};

constexpr ErrnoRow kErrnoRows[] = {
    {0, PlatError::none, 0},
    {EAGAIN, PlatError::would_block, PLAT_WSAEWOULDBLOCK},
#if EWOULDBLOCK != EAGAIN
    {EWOULDBLOCK, PlatError::would_block, PLAT_WSAEWOULDBLOCK},
#endif
    {EINPROGRESS, PlatError::in_progress, PLAT_WSAEINPROGRESS},
    {EALREADY, PlatError::in_progress, PLAT_WSAEINPROGRESS},
    {EINTR, PlatError::interrupted, PLAT_WSAEINTR},
    {ECONNREFUSED, PlatError::connection_refused, PLAT_WSAECONNREFUSED},
    {ECONNRESET, PlatError::connection_reset, PLAT_WSAECONNRESET},
    // A send to a peer that has reset the connection: Winsock reports WSAECONNRESET there.
    {EPIPE, PlatError::connection_reset, PLAT_WSAECONNRESET},
    {ECONNABORTED, PlatError::connection_reset, PLAT_WSAECONNABORTED},
    {ENOTCONN, PlatError::not_connected, PLAT_WSAENOTCONN},
    {EADDRINUSE, PlatError::address_in_use, PLAT_WSAEADDRINUSE},
    {ETIMEDOUT, PlatError::timed_out, PLAT_WSAETIMEDOUT},
    {EHOSTUNREACH, PlatError::unreachable, PLAT_WSAEHOSTUNREACH},
    {ENETUNREACH, PlatError::unreachable, PLAT_WSAEHOSTUNREACH},
    {EBADF, PlatError::bad_descriptor, PLAT_WSAENOTSOCK},
    {ENOTSOCK, PlatError::bad_descriptor, PLAT_WSAENOTSOCK},
    {ENOMEM, PlatError::no_memory, PLAT_WSAENOBUFS},
    {ENOBUFS, PlatError::no_memory, PLAT_WSAENOBUFS},
    {ENOENT, PlatError::not_found, 0},
    {EMFILE, PlatError::no_descriptors, 0},
    {ENFILE, PlatError::no_descriptors, 0},
    {EACCES, PlatError::other, PLAT_WSAEACCES},
    {EFAULT, PlatError::other, PLAT_WSAEFAULT},
    {EINVAL, PlatError::other, PLAT_WSAEINVAL},
    {EMSGSIZE, PlatError::other, PLAT_WSAEMSGSIZE},
    {EOPNOTSUPP, PlatError::other, PLAT_WSAEOPNOTSUPP},
    {ENETDOWN, PlatError::other, PLAT_WSAENETDOWN},
    {ENETRESET, PlatError::other, PLAT_WSAENETRESET},
    {ESHUTDOWN, PlatError::other, PLAT_WSAESHUTDOWN},
};

const ErrnoRow* rowOf(int errnoValue) {
    for (const ErrnoRow& row : kErrnoRows)
        if (row.errnoValue == errnoValue)
            return &row;
    return nullptr;
}
} // namespace

PlatError plat_map_errno(int errnoValue) {
    const ErrnoRow* row = rowOf(errnoValue);
    return row ? row->code : PlatError::other;
}

PlatError plat_last_error() {
    return plat_map_errno(errno);
}

int plat_wsa_error_of(int errnoValue) {
    const ErrnoRow* row = rowOf(errnoValue);
    return row && row->wsa != 0 ? row->wsa : errnoValue;
}

int plat_last_wsa_error() {
    return plat_wsa_error_of(errno);
}
