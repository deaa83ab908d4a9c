#include "plat_error.h"

PlatError plat_map_errno(int errnoValue) {
    switch (errnoValue) {
    case 0:
        return PlatError::none;
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
        return PlatError::would_block;
    case EINPROGRESS:
    case EALREADY:
        return PlatError::in_progress;
    case EINTR:
        return PlatError::interrupted;
    case ECONNREFUSED:
        return PlatError::connection_refused;
    case ECONNRESET:
    case EPIPE:
    case ECONNABORTED:
        return PlatError::connection_reset;
    case ENOTCONN:
        return PlatError::not_connected;
    case EADDRINUSE:
        return PlatError::address_in_use;
    case ETIMEDOUT:
        return PlatError::timed_out;
    case EHOSTUNREACH:
    case ENETUNREACH:
        return PlatError::unreachable;
    case EBADF:
    case ENOTSOCK:
        return PlatError::bad_descriptor;
    case ENOMEM:
    case ENOBUFS:
        return PlatError::no_memory;
    case ENOENT:
        return PlatError::not_found;
    case EMFILE:
    case ENFILE:
        return PlatError::no_descriptors;
    default:
        return PlatError::other;
    }
}

PlatError plat_last_error() {
    return plat_map_errno(errno);
}
