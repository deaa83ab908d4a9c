// The router's listening socket.
#include "listen_socket.h"

#include "indgen.h"
#include "plat_files.h"
#include "plat_time.h"
#include "router.h"
#include "stp_transport.h"

namespace {
// What stands in for a descriptor that the process may need: a file that is always there.
constexpr const char* kSparePath = "/dev/null";
// How long the socket rests when even the spare is gone (a rare case: another part of the
// process took the slot), so that the loop does not spin on a call it cannot take.
constexpr int32_t kPauseMs = 1000;

int openSpare() {
    return plat_open(kSparePath, PLAT_O_RDONLY, 0);
}
} // namespace

ListenSocket::~ListenSocket() {
    if (registered && IdleNotifier::get())
        IdleNotifier::get()->removeListener(this);
    if (fd != PLAT_INVALID_SOCKET)
        plat_close_socket(fd);
    if (spare >= 0)
        plat_close(spare);
}

bool ListenSocket::open(uint16_t wanted, const char** error) {
    fd = plat_tcp_socket();
    if (fd == PLAT_INVALID_SOCKET) {
        *error = "could not create a socket";
        return false;
    }
    plat_set_reuseaddr(fd, true);
    if (!plat_bind(fd, plat_loopback_address(), wanted)) {
        *error = "could not bind to the port";
    } else if (!plat_listen(fd, PLAT_SOMAXCONN)) {
        *error = "could not listen on the socket";
    } else if (!plat_local_address(fd, nullptr, &port)) {
        *error = "could not learn the port";
    } else if ((spare = openSpare()) < 0) {
        *error = "could not open a spare descriptor";
    } else {
        // Accepting in onRead must never wait for a caller that has given up meanwhile.
        plat_set_nonblocking(fd, true);
        IdleNotifier::get()->addListener(this);
        registered = true;
        return true;
    }
    plat_close_socket(fd);
    fd = PLAT_INVALID_SOCKET;
    return false;
}

bool ListenSocket::wantsRead() {
    if (paused && plat_tick_diff(plat_tick_count(), pausedUntil) >= 0)
        paused = false;
    return !paused;
}

bool ListenSocket::turnAway() {
    if (spare >= 0) {
        plat_close(spare);
        spare = -1;
    }
    plat_socket caller = plat_accept(fd);
    bool accepted = caller != PLAT_INVALID_SOCKET;
    if (accepted)
        plat_close_socket(caller);
    spare = openSpare();
    return accepted;
}

void ListenSocket::onRead() {
    for (;;) {
        plat_socket client = plat_accept(fd);
        if (client == PLAT_INVALID_SOCKET) {
            if (plat_last_error() != PlatError::no_descriptors)
                return; // nobody else is waiting (or the call failed; the next one may not)
            if (!exhausted) {
                exhausted = true;
                gen_error("out of file descriptors: new connections are closed at once");
                router->logEvent("out of file descriptors (too many open files): new "
                                 "connections are closed at once");
            }
            if (!turnAway()) {
                paused = true;
                pausedUntil = plat_tick_add(plat_tick_count(), kPauseMs);
                return;
            }
            ++turnedAway;
            continue;
        }
        if (exhausted) {
            exhausted = false;
            router->logEvent("descriptors available again after %u connections were closed at "
                             "once",
                             turnedAway);
            turnedAway = 0;
        }
        plat_set_nodelay(client, true);
        STPTransport* transport = new STPTransport;
        if (!transport->bindFD(client)) {
            STPTransport::closeSocket(client);
            transport->unref();
            continue;
        }
        const char* peer = transport->getPeerAddress();
        router->adopt(transport, peer ? peer : "unknown address");
    }
}
