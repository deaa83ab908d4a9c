// STPChannel: a three-step handshake (create, start, close) on a pair of route numbers. Each
// end's own create and start packets are the acknowledgement of the other's.
#pragma once

#include "stp_status.h"

#include <cstdint>

class RetryHandler;
class STPTransport;

// Lives in its transport's channel table under (localRN, remoteRN). Made by
// STPTransport::createChannel (then the caller's to delete, before the transport goes) or by a
// create packet from the peer (then deleted with the transport unless claimed by createChannel).
class STPChannel {
public:
    STPChannel(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);
    // Sends the close if it has not gone out, and leaves the table.
    ~STPChannel();
    STPChannel(const STPChannel&) = delete;
    STPChannel& operator=(const STPChannel&) = delete;

    // Sends the start and waits for the peer's (re-enters). Reports in the channel's status.
    // Holds a reference on the transport until it returns: if a handler in the wait dropped
    // the last other one, the transport, and this channel with it, end as the call returns.
    bool startChannel(RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // Sends the close and waits until it is written (re-enters); the same reference rule.
    bool closeChannel(RetryHandler* retry = nullptr, STPStatus* status = nullptr);

    bool isCreated() const { return createSent && createSeen; }
    bool isStarted() const { return startSent && startSeen; }
    bool isClosed() const { return closeSent || closeSeen; }
    const STPStatus& getStatus() const { return status; }
    uint32_t getLocalRN() const { return localRN; }
    uint32_t getRemoteRN() const { return remoteRN; }

private:
    friend class STPTransport;
    void finish(STPStatus* out) const;

    STPTransport* transport;
    uint32_t localRN;
    uint32_t remoteRN;
    bool createSent = false;
    bool createSeen = false;
    bool startSent = false;
    bool startSeen = false;
    bool closeSent = false;
    bool closeSeen = false;
    STPStatus status;
};
