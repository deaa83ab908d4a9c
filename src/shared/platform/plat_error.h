// Error codes of the platform layer and the one helper that retries interrupted system calls.
#pragma once

#include <cerrno>

// What a failed socket or process call meant, in the words the layers above test for.
// Stands for the Winsock error codes returned by WSAGetLastError.
enum class PlatError {
    none,
    would_block,        // WSAEWOULDBLOCK: try again later
    in_progress,        // WSAEINPROGRESS: a non-blocking connect is under way
    interrupted,        // WSAEINTR
    connection_refused, // WSAECONNREFUSED
    connection_reset,   // WSAECONNRESET, also a broken pipe
    not_connected,      // WSAENOTCONN
    address_in_use,     // WSAEADDRINUSE
    timed_out,          // WSAETIMEDOUT
    unreachable,        // WSAEHOSTUNREACH, WSAENETUNREACH
    bad_descriptor,     // WSAENOTSOCK, WSAEBADF
    no_memory,          // WSAENOBUFS
    no_descriptors,     // WSAEMFILE: the process (or the system) has no descriptor left
    not_found,          // a file or program that does not exist
    other,
};

// Maps an errno value to the layer's code.
PlatError plat_map_errno(int errnoValue);

// The code of the last failed call on this thread (errno mapped).
PlatError plat_last_error();

// Runs `call` again while it fails with EINTR; returns its last result.
template <typename Call> auto plat_retry_eintr(Call call) -> decltype(call()) {
    for (;;) {
        auto result = call();
        if (result != -1 || errno != EINTR)
            return result;
    }
}
