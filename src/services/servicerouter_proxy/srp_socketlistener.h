// SRP_SocketListener: gives the router transport its turn in the event loop.
#pragma once

#include "stp_socketlistener.h"

// A socket listener on the router transport: registered with the IdleNotifier while it lives,
// holding a reference on the transport. Its operations forward to the transport (reads, writes
// and pumps re-enter through the message handlers); the socket takes part in the select while
// the transport is neither disconnected nor an in-process link. The proxy makes one per
// connection attempt and owns it.
class SRP_SocketListener : public STPSocketListener {
public:
    explicit SRP_SocketListener(STPTransport* transport) : STPSocketListener(transport) {}
};
