#include "stp_channel.h"

#include "stp_transport.h"
#include "ut_retryhandler.h"

namespace {
constexpr int32_t kServiceWaitMs = 10000;
}

STPChannel::STPChannel(STPTransport* owner, uint32_t local, uint32_t remote)
    : transport(owner), localRN(local), remoteRN(remote) {}

STPChannel::~STPChannel() {
    if (transport == nullptr)
        return;
    if (!closeSent) {
        closeSent = true;
        transport->queueControlPacket(localRN, remoteRN, KIND_CHANNEL, CHANNEL_CLOSE);
    }
    auto it = transport->channels.find({localRN, remoteRN});
    if (it != transport->channels.end() && it->second == this)
        transport->channels.erase(it);
}

void STPChannel::finish(STPStatus* out) const {
    if (out)
        *out = status;
}

bool STPChannel::startChannel(RetryHandler* retry, STPStatus* out) {
    status.clear();
    if (startSent) {
        status.set(STP_ERR_USAGE, "[startChannel]: Channel start already sent.");
        finish(out);
        return false;
    }
    if (closeSent) {
        status.set(STP_ERR_USAGE, "[startChannel]: Channel close already sent.");
        finish(out);
        return false;
    }
    if (closeSeen) {
        status.set(STP_ERR_CHANNEL_CLOSED, "[startChannel]: Channel has been closed.");
        finish(out);
        return false;
    }
    startSent = true;
    transport->queueControlPacket(localRN, remoteRN, KIND_CHANNEL, CHANNEL_START);
    if (retry)
        retry->begin();
    for (;;) {
        if (!status.ok())
            break;
        if (!transport->hasWriteBytes() && isStarted())
            break;
        if (closeSent || closeSeen) {
            status.set(STP_ERR_CHANNEL_CLOSED,
                       "[startChannel]: channel already closed before start");
            break;
        }
        if (retry) {
            if (!retry->canContinue()) {
                status.set(STP_ERR_TIMEOUT, "[startChannel]: reached timeout while waiting to "
                                            "receive start");
                break;
            }
            retry->wait();
        } else {
            transport->serviceOnce(kServiceWaitMs);
        }
        // A dead transport ends the wait with its own failure.
        if (!transport->getStatus().ok())
            status = transport->getStatus();
    }
    if (retry)
        retry->end();
    finish(out);
    return status.ok();
}

bool STPChannel::closeChannel(RetryHandler* retry, STPStatus* out) {
    status.clear();
    if (closeSent) {
        status.set(STP_ERR_USAGE, "[startChannel]: Channel already closed.");
        finish(out);
        return false;
    }
    closeSent = true;
    transport->queueControlPacket(localRN, remoteRN, KIND_CHANNEL, CHANNEL_CLOSE);
    if (retry)
        retry->begin();
    while (transport->hasWriteBytes()) {
        if (!status.ok())
            break;
        if (retry) {
            if (!retry->canContinue()) {
                status.set(STP_ERR_TIMEOUT,
                           "[closeChannel]: reached timeout while waiting to transmit close");
                break;
            }
            retry->wait();
        } else {
            transport->serviceOnce(kServiceWaitMs);
        }
        if (!transport->getStatus().ok())
            status = transport->getStatus();
    }
    if (retry)
        retry->end();
    finish(out);
    return status.ok();
}
