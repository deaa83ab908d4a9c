// The router's listening socket.
#include "listen_socket.h"

#include "router.h"
#include "stp_transport.h"

ListenSocket::~ListenSocket() {
    if (registered && IdleNotifier::get())
        IdleNotifier::get()->removeListener(this);
    if (fd != PLAT_INVALID_SOCKET)
        plat_close_socket(fd);
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
    } else if (!plat_listen(fd, 5)) {
        *error = "could not listen on the socket";
    } else if (!plat_local_address(fd, nullptr, &port)) {
        *error = "could not learn the port";
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

void ListenSocket::onRead() {
    for (;;) {
        plat_socket client = STPTransport::acceptClient(fd, false);
        if (client == PLAT_INVALID_SOCKET)
            return; // nobody else is waiting (or the call failed; the next one may not)
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
