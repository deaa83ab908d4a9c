#include "plat_sockerror.h"

#include <cerrno>

int plat_wsa_error_of(int errnoValue) {
    switch (errnoValue) {
    case 0:
        return 0;
    case EINTR:
        return PLAT_WSAEINTR;
    case EACCES:
        return PLAT_WSAEACCES;
    case EFAULT:
        return PLAT_WSAEFAULT;
    case EINVAL:
        return PLAT_WSAEINVAL;
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
        return PLAT_WSAEWOULDBLOCK;
    case EINPROGRESS:
    case EALREADY:
        return PLAT_WSAEINPROGRESS;
    case EBADF:
    case ENOTSOCK:
        return PLAT_WSAENOTSOCK;
    case EMSGSIZE:
        return PLAT_WSAEMSGSIZE;
    case EOPNOTSUPP:
        return PLAT_WSAEOPNOTSUPP;
    case EADDRINUSE:
        return PLAT_WSAEADDRINUSE;
    case ENETDOWN:
        return PLAT_WSAENETDOWN;
    case ENETRESET:
        return PLAT_WSAENETRESET;
    case ECONNABORTED:
        return PLAT_WSAECONNABORTED;
    case ECONNRESET:
    case EPIPE:
        return PLAT_WSAECONNRESET;
    case ENOBUFS:
    case ENOMEM:
        return PLAT_WSAENOBUFS;
    case ENOTCONN:
        return PLAT_WSAENOTCONN;
    case ESHUTDOWN:
        return PLAT_WSAESHUTDOWN;
    case ETIMEDOUT:
        return PLAT_WSAETIMEDOUT;
    case ECONNREFUSED:
        return PLAT_WSAECONNREFUSED;
    case EHOSTUNREACH:
    case ENETUNREACH:
        return PLAT_WSAEHOSTUNREACH;
    default:
        return errnoValue;
    }
}

int plat_last_wsa_error() {
    return plat_wsa_error_of(errno);
}
