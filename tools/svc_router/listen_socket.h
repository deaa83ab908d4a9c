// The router's listening socket on 127.0.0.1: every client that calls becomes a plug-in.
#pragma once

#include "plat_socket.h"
#include "stp_status.h"
#include "ut_idle.h"

#include <cstdint>

class Router;

// A socket listener of the event loop that accepts, whenever the socket turns readable, every
// pending call and hands each to the router as a new transport. Accepting never waits.
class ListenSocket : public SocketListener {
public:
    explicit ListenSocket(Router* router) : router(router) {}
    // Closes the socket and leaves the event loop.
    ~ListenSocket() override;
    ListenSocket(const ListenSocket&) = delete;
    ListenSocket& operator=(const ListenSocket&) = delete;

    // Listens on 127.0.0.1 `port` (0: the system picks) and joins the event loop. False with
    // *error set to what failed.
    bool open(uint16_t port, const char** error);
    // The port listened on, 0 before open.
    uint16_t getPort() const { return port; }

    bool isActive() override { return fd != PLAT_INVALID_SOCKET; }
    int getFD() override { return fd; }
    bool wantsRead() override { return true; }
    bool wantsWrite() override { return false; }
    bool hasBufferedWork() override { return false; }
    bool needsCall() override { return false; }
    void onRead() override;
    void onWrite() override {}
    void onBufferedWork() override {}
    void onCall() override {}

private:
    Router* router;
    plat_socket fd = PLAT_INVALID_SOCKET;
    uint16_t port = 0;
    bool registered = false;
};
