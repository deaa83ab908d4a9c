// An STP listener that answers every request with a reply of the same body: the peer of the
// relay tests and of the transport benchmarks. Header-only; needs only the transport.
#pragma once

#include "stp_message.h"
#include "stp_transport.h"

class StpEchoListener : public ResponseListener {
public:
    explicit StpEchoListener(STPTransport* t) : transport(t) {}
    bool handle(STPMessage* m) override {
        STPMessage* reply = transport->newReply(m->remoteRN, m->localRN, m->serial, 0);
        reply->putRaw(m->data() + m->headerSize, m->dataSize);
        transport->sendWithAttempts(reply, 2);
        delete reply;
        ++echoed;
        return true;
    }
    STPTransport* transport;
    int echoed = 0;
};
