#include "stp_channel.h"

#include "stp_wait.h"

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
    // A handler run by the wait may drop the last other reference on the transport, whose end
    // would take this channel with it: both stay until the result is in.
    STPTransportRef hold(transport);
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
    STPWaitEnd end = stp_wait_until(transport, retry, [&] {
        if (!transport->hasWriteBytes() && isStarted())
            return true;
        if (closeSent || closeSeen) {
            status.set(STP_ERR_CHANNEL_CLOSED,
                       "[startChannel]: channel already closed before start");
            return true;
        }
        return false;
    });
    // A dead transport ends the wait with its own failure.
    if (end == STPWaitEnd::failed)
        status = transport->getStatus();
    else if (end == STPWaitEnd::gaveUp)
        status.set(STP_ERR_TIMEOUT, "[startChannel]: reached timeout while waiting to receive "
                                    "start");
    finish(out);
    return status.ok();
}

bool STPChannel::closeChannel(RetryHandler* retry, STPStatus* out) {
    STPTransportRef hold(transport);
    status.clear();
    if (closeSent) {
        status.set(STP_ERR_USAGE, "[startChannel]: Channel already closed.");
        finish(out);
        return false;
    }
    closeSent = true;
    transport->queueControlPacket(localRN, remoteRN, KIND_CHANNEL, CHANNEL_CLOSE);
    STPWaitEnd end = stp_wait_until(transport, retry, [&] { return !transport->hasWriteBytes(); });
    if (end == STPWaitEnd::failed)
        status = transport->getStatus();
    else if (end == STPWaitEnd::gaveUp)
        status.set(STP_ERR_TIMEOUT,
                   "[closeChannel]: reached timeout while waiting to transmit close");
    finish(out);
    return status.ok();
}
