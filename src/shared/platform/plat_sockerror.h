// Winsock error numbers for failed socket calls: WSAGetLastError as the transport's failure
// tables are written, with the Linux errno values mapped onto them (by the one errno map of
// plat_error.cpp).
#pragma once

// The Winsock numbers the transport tells apart.
enum : int {
    PLAT_WSAEINTR = 10004,
    PLAT_WSAEACCES = 10013,
    PLAT_WSAEFAULT = 10014,
    PLAT_WSAEINVAL = 10022,
    PLAT_WSAEWOULDBLOCK = 10035,
    PLAT_WSAEINPROGRESS = 10036,
    PLAT_WSAENOTSOCK = 10038,
    PLAT_WSAEMSGSIZE = 10040,
    PLAT_WSAEOPNOTSUPP = 10045,
    PLAT_WSAEADDRINUSE = 10048,
    PLAT_WSAENETDOWN = 10050,
    PLAT_WSAENETRESET = 10052,
    PLAT_WSAECONNABORTED = 10053,
    PLAT_WSAECONNRESET = 10054,
    PLAT_WSAENOBUFS = 10055,
    PLAT_WSAENOTCONN = 10057,
    PLAT_WSAESHUTDOWN = 10058,
    PLAT_WSAETIMEDOUT = 10060,
    PLAT_WSAECONNREFUSED = 10061,
    PLAT_WSAEHOSTUNREACH = 10065,
    PLAT_WSANOTINITIALISED = 10093,
};

// The Winsock number standing for `errnoValue`; 0 for 0. EPIPE (a send to a peer that has
// reset the connection) counts as WSAECONNRESET, which is what Winsock reports in that case.
// An errno with no Winsock counterpart is returned unchanged (always below 10000).
int plat_wsa_error_of(int errnoValue);

// WSAGetLastError: the Winsock number of the last failed call on this thread.
int plat_last_wsa_error();
