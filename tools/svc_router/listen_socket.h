// The router's listening socket on 127.0.0.1: every client that calls becomes a plug-in.
#pragma once

#include "plat_socket.h"
#include "stp_status.h"
#include "ut_idle.h"

#include <cstdint>

class Router;

// A socket listener of the event loop that accepts, whenever the socket turns readable, every
// pending call and hands each to the router as a new transport. Accepting never waits.
//
// When the process runs out of descriptors, a pending call cannot be accepted and would keep
// the socket readable, so that the loop would spin. The listener keeps one spare descriptor
// for that case: it gives the spare up, accepts the call, closes it at once (the caller sees
// its connection closed) and takes the spare back. The log tells when that begins and ends.
class ListenSocket : public SocketListener {
public:
    explicit ListenSocket(Router* router) : router(router) {}
    // Closes the socket and the spare and leaves the event loop.
    ~ListenSocket() override;
    ListenSocket(const ListenSocket&) = delete;
    ListenSocket& operator=(const ListenSocket&) = delete;

    // Listens on 127.0.0.1 `port` (0: the system picks) with the largest backlog the system
    // allows, takes its spare descriptor and joins the event loop. False with *error set to
    // what failed.
    bool open(uint16_t port, const char** error);
    // The port listened on, 0 before open.
    uint16_t getPort() const { return port; }

    bool isActive() override { return fd != PLAT_INVALID_SOCKET; }
    int getFD() override { return fd; }
    // False for a while after calls could be neither accepted nor turned away.
    bool wantsRead() override;
    bool wantsWrite() override { return false; }
    bool hasBufferedWork() override { return false; }
    bool needsCall() override { return false; }
    void onRead() override;
    void onWrite() override {}
    void onBufferedWork() override {}
    void onCall() override {}

private:
    // Accepts one pending call with the spare descriptor and closes it. False if there was
    // nothing to accept it with.
    bool turnAway();

    Router* router;
    plat_socket fd = PLAT_INVALID_SOCKET;
    int spare = -1;
    uint16_t port = 0;
    bool registered = false;
    // Calls turned away since descriptors ran out; 0 while they have not.
    uint32_t turnedAway = 0;
    bool exhausted = false;
    // While set, the socket is not watched until this tick.
    bool paused = false;
    int32_t pausedUntil = 0;
};
