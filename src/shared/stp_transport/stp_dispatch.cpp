// The message half of STPTransport: building, serials, queuing and sending, waiting for replies,
// the queues and the listener table, stamps, the process-wide counters and canDispatch, and
// channel set-up.
#include "stp_transport.h"

#include "indgen.h"
#include "stp_channel.h"
#include "stp_message.h"
#include "stp_wait.h"
#include "ut_retryhandler.h"

#include <algorithm>

namespace {
int32_t g_messageDepth = 0;
int32_t g_writeBarrier = 0;
int32_t g_strictWaits = 0;

uint16_t originIdOf(uint32_t origin) {
    return static_cast<uint16_t>(origin >> 16);
}
uint16_t originSeqOf(uint32_t origin) {
    return static_cast<uint16_t>(origin & 0xFFFFu);
}

// Raises writeBarrier for as long as it lives.
class WriteBarrierScope {
public:
    WriteBarrierScope() { ++g_writeBarrier; }
    ~WriteBarrierScope() { --g_writeBarrier; }
    WriteBarrierScope(const WriteBarrierScope&) = delete;
    WriteBarrierScope& operator=(const WriteBarrierScope&) = delete;
};
} // namespace

// ---- Process-wide counters

int32_t STPTransport::messageDepth() {
    return g_messageDepth;
}
int32_t STPTransport::writeBarrier() {
    return g_writeBarrier;
}
int32_t STPTransport::strictWaits() {
    return g_strictWaits;
}

void STPTransport::raiseCounter() {
    if (g_messageDepth < 0)
        gen_fatal(1, "negative message depth!");
    ++g_messageDepth;
}

void STPTransport::lowerCounter() {
    if (--g_messageDepth < 0)
        gen_fatal(1, "negative message depth!");
}

void STPTransport::raiseDepth() {
    raiseCounter();
}
void STPTransport::lowerDepth() {
    lowerCounter();
}

MessageDepthGuard::MessageDepthGuard(STPTransport* transport) {
    if (transport == nullptr)
        transport = STPTransport::firstTransport();
    if (transport) {
        transport->raiseDepth();
        raised = true;
    }
}

MessageDepthGuard::~MessageDepthGuard() {
    // The counter is process-wide: lowering it needs no transport, which may be gone by now.
    if (raised)
        STPTransport::lowerCounter();
}

// ---- Stamps

void STPTransport::pushStamp(uint32_t origin, uint32_t depth, uint32_t flags) {
    STPStamp stamp;
    stamp.originId = originIdOf(origin);
    stamp.originSeq = originSeqOf(origin);
    stamp.depth = static_cast<uint16_t>(depth);
    stamp.flags = flags;
    stampStack.push_back(stamp);
}

void STPTransport::popStamp() {
    if (!stampStack.empty())
        stampStack.pop_back();
}

STPStamp STPTransport::currentStamp() const {
    return stampStack.empty() ? baseStamp : stampStack.back();
}

// ---- Building

STPMessage* STPTransport::newMessage(uint32_t localRN, uint32_t remoteRN, int32_t kind, int32_t tag,
                                     uint32_t flags) {
    // A call from the top level starts a tree named after the serial it will most likely get.
    if (stampStack.empty())
        baseStamp.originSeq = static_cast<uint16_t>(lastSerial + 1);
    STPStamp stamp = currentStamp();
    STPMessage* message = new STPMessage;
    message->localRN = localRN;
    message->remoteRN = remoteRN;
    message->kind = kind;
    message->tag = tag;
    message->flags = flags;
    message->origin = uint32_t{stamp.originId} << 16 | stamp.originSeq;
    message->depth = static_cast<uint16_t>(stamp.depth + 1);
    return message;
}

STPMessage* STPTransport::newReply(uint32_t localRN, uint32_t remoteRN, uint32_t inReplyTo,
                                   uint32_t flags) {
    STPStamp stamp = currentStamp();
    STPMessage* message = new STPMessage;
    message->localRN = localRN;
    message->remoteRN = remoteRN;
    message->inReplyTo = inReplyTo;
    message->kind = KIND_REPLY;
    message->tag = -1;
    message->flags = flags;
    message->origin = uint32_t{stamp.originId} << 16 | stamp.originSeq;
    message->depth = stamp.depth;
    return message;
}

// ---- Sending

uint32_t STPTransport::prepareMessage(STPMessage* message) {
    if (message == nullptr || message->kind == 0) {
        fail(STP_ERR_USAGE, "[enqueueMessage]: invalid message header");
        return 0;
    }
    message->serial = nextSerial();
    message->close();
    lastKind = message->kind;
    lastTag = message->tag;
    lastMessageValid = true;
    return message->serial;
}

uint32_t STPTransport::enqueueMessage(STPMessage* message, STPStatus* out) {
    uint32_t serial = prepareMessage(message);
    if (serial == 0) {
        finish(out);
        return 0;
    }
    queueBytes(message->packetData(), message->packetSize());
    return serial;
}

bool STPTransport::writeMessage(STPMessage* message) {
    const char* data = message->packetData();
    int32_t size = message->packetSize();
    // Bytes already queued go first; the message joins them.
    if (!bound || writeLength > 0) {
        queueBytes(data, size);
        handleWrite();
        return status.ok();
    }
    // The same single send of at most 1 MiB that handleWrite makes, without first copying the
    // packet into the write buffer; only what the socket did not take is queued.
    long sent = sendChunk(data, size);
    if (sent < 0)
        return false;
    if (sent < size)
        queueBytes(data + sent, size - static_cast<int32_t>(sent));
    return true;
}

uint32_t STPTransport::sendMessage(STPMessage* message, RetryHandler* retry, STPStatus* out) {
    status.clear();
    uint32_t serial = prepareMessage(message);
    if (serial == 0) {
        finish(out);
        return 0;
    }
    STPTransportRef hold(this);
    raiseDepth();
    pushStamp(message->origin, message->depth, message->flags);
    if (inProcess) {
        queueBytes(message->packetData(), message->packetSize());
        if (peerNotify)
            peerNotify(peerNotifyArg);
    }
    if (!inProcess || !peerNotify) {
        WriteBarrierScope barrier;
        if (!inProcess)
            writeMessage(message);
        if (!status.ok()) {
            serial = 0;
        } else if (hasWriteBytes()) {
            stp_wait_until(this, retry, [&] { return !hasWriteBytes(); });
            if (hasWriteBytes() && status.ok()) {
                fail(STP_ERR_TIMEOUT,
                     "[sendMessage]: reached timeout while waiting to send message");
                serial = 0;
            }
        }
    }
    if (serial == 0 || (message->flags & MSG_ONE_WAY)) {
        lowerDepth();
        popStamp();
    }
    finish(out);
    return serial;
}

uint32_t STPTransport::sendWithAttempts(STPMessage* message, int attempts, STPStatus* out) {
    status.clear();
    uint32_t serial = prepareMessage(message);
    if (serial == 0) {
        finish(out);
        return 0;
    }
    if (inProcess) {
        queueBytes(message->packetData(), message->packetSize());
        if (peerNotify) {
            STPTransportRef hold(this);
            peerNotify(peerNotifyArg);
        }
    } else if (attempts < 1) {
        queueBytes(message->packetData(), message->packetSize());
    } else {
        WriteBarrierScope barrier;
        writeMessage(message);
        for (int i = 1; i < attempts && status.ok(); ++i) {
            if (!hasWriteBytes())
                break;
            handleWrite();
        }
    }
    finish(out);
    return serial;
}

// ---- Receiving

STPMessage* STPTransport::takeResponse(uint32_t serial) {
    for (auto it = responseQueue.begin(); it != responseQueue.end(); ++it) {
        if ((*it)->inReplyTo == serial) {
            STPMessage* reply = *it;
            responseQueue.erase(it);
            return reply;
        }
    }
    return nullptr;
}

STPMessage* STPTransport::awaitResponse(uint32_t serial, RetryHandler* retry, STPStatus* out) {
    STPTransportRef hold(this);
    status.clear();
    STPMessage* reply = takeResponse(serial);
    if (reply == nullptr) {
        bool strict = (currentStamp().flags & MSG_STRICT_WAIT) != 0;
        if (strict)
            ++g_strictWaits;
        waiters.insert(serial);
        stp_wait_until(this, retry, [&] {
            reply = takeResponse(serial);
            return reply != nullptr || isDisconnected();
        });
        // A reset during the wait has already emptied the waiter set.
        auto it = waiters.find(serial);
        if (it != waiters.end())
            waiters.erase(it);
        if (strict)
            --g_strictWaits;
    }
    if (reply == nullptr && status.ok()) {
        if (isDisconnected())
            fail(STP_ERR_PEER_CLOSED,
                 "[awaitResponse]: connection closed while waiting to receive response");
        else
            fail(STP_ERR_TIMEOUT, "[awaitResponse]: reached timeout while waiting to receive "
                                  "response");
    }
    lowerDepth();
    popStamp();
    finish(out);
    return reply;
}

void STPTransport::addListener(uint32_t localRN, uint32_t remoteRN, ResponseListener* listener,
                               int32_t kind) {
    if (listener == nullptr)
        return;
    listenerTable.emplace(
        ListenerKey{static_cast<int32_t>(localRN), static_cast<int32_t>(remoteRN), kind}, listener);
}

void STPTransport::removeListener(ResponseListener* listener) {
    for (auto it = listenerTable.begin(); it != listenerTable.end();) {
        if (it->second == listener)
            it = listenerTable.erase(it);
        else
            ++it;
    }
}

bool STPTransport::redeliverUnclaimed(uint32_t localRN, uint32_t remoteRN, int32_t kind) {
    for (auto it = unclaimedQueue.begin(); it != unclaimedQueue.end(); ++it) {
        STPMessage* m = *it;
        if (m->localRN == localRN && m->remoteRN == remoteRN && m->kind == kind) {
            unclaimedQueue.erase(it);
            STPTransportRef hold(this);
            dispatchMessage(m);
            return true;
        }
    }
    return false;
}

bool STPTransport::canDispatch(const STPMessage* message) const {
    if (g_writeBarrier > 0)
        return false;
    if (g_messageDepth == 0)
        return true;
    if (message->inReplyTo != 0)
        return true;
    for (const STPMessage* reply : responseQueue)
        if (reply->localRN == message->localRN &&
            (reply->depth & 0xFFFFu) == (message->depth & 0xFFFFu))
            return false;
    if (message->flags & MSG_ALWAYS_DELIVER)
        return true;
    if (!(message->flags & MSG_ORDERED) && g_strictWaits <= 0)
        return true;
    STPStamp stamp = currentStamp();
    return originIdOf(message->origin) == stamp.originId &&
           originSeqOf(message->origin) == stamp.originSeq &&
           (message->depth & 0xFFFFu) > stamp.depth;
}

void STPTransport::appendHeldBack(STPMessage* message) {
    message->heldBack = true;
    message->heldBackWalk = heldBackWalk;
    heldBackQueue.push_back(message);
}

void STPTransport::offerHeldBack() {
    if (heldBackQueue.empty())
        return;
    // Messages filed again while this walk runs (at any depth) carry a walk number at least
    // this one's and wait for the next walk, so a listener that keeps declining cannot spin it.
    uint32_t walk = ++heldBackWalk;
    for (;;) {
        auto it = heldBackQueue.begin();
        while (it != heldBackQueue.end() &&
               (static_cast<int32_t>((*it)->heldBackWalk - walk) >= 0 || !canDispatch(*it)))
            ++it;
        if (it == heldBackQueue.end())
            return;
        STPMessage* message = *it;
        heldBackQueue.erase(it);
        // The dispatch may have changed the queue: the walk starts again from the head.
        dispatchMessage(message);
    }
}

void STPTransport::dispatchMessage(STPMessage* message) {
    switch (message->kind) {
    case KIND_NOOP:
        delete message;
        return;
    case KIND_SYNC:
        syncReceived.emplace_back(message->localRN, message->remoteRN);
        delete message;
        return;
    case KIND_CHANNEL:
        receiveChannelPacket(message);
        delete message;
        return;
    default:
        break;
    }
    STPTransportRef hold(this);
    bool awaited = message->inReplyTo != 0 && waiters.count(message->inReplyTo) != 0;
    ListenerKey key{static_cast<int32_t>(message->localRN), static_cast<int32_t>(message->remoteRN),
                    message->kind};
    auto range = listenerTable.equal_range(key);
    size_t count = static_cast<size_t>(std::distance(range.first, range.second));
    if (count == 1) {
        if (!range.first->second->handle(message)) {
            appendHeldBack(message);
            return;
        }
    } else if (count > 1) {
        std::vector<ResponseListener*> snapshot;
        snapshot.reserve(count);
        for (auto it = range.first; it != range.second; ++it)
            snapshot.push_back(it->second);
        for (ResponseListener* listener : snapshot) {
            // Listeners may remove themselves or each other during the walk.
            auto now = listenerTable.equal_range(key);
            bool present = false;
            for (auto it = now.first; it != now.second && !present; ++it)
                present = it->second == listener;
            if (present)
                listener->handle(message);
        }
    }
    if (count > 0 && !awaited) {
        delete message;
        return;
    }
    if (message->inReplyTo == 0)
        unclaimedQueue.push_back(message);
    else
        responseQueue.push_back(message);
}

// ---- Channels

STPChannel* STPTransport::findChannel(uint32_t localRN, uint32_t remoteRN) const {
    auto it = channels.find({localRN, remoteRN});
    return it == channels.end() ? nullptr : it->second;
}

void STPTransport::receiveChannelPacket(const STPMessage* message) {
    // The sender's words 3 and 2 are this end's own numbers.
    std::pair<uint32_t, uint32_t> key{message->remoteRN, message->localRN};
    auto it = channels.find(key);
    STPChannel* channel = it == channels.end() ? nullptr : it->second;
    switch (message->tag) {
    case CHANNEL_CREATE:
        if (channel == nullptr) {
            channel = new STPChannel(this, key.first, key.second);
            channels[key] = channel;
        }
        channel->createSeen = true;
        break;
    case CHANNEL_START:
        if (channel)
            channel->startSeen = true;
        break;
    case CHANNEL_CLOSE:
        if (channel)
            channel->closeSeen = true;
        break;
    default:
        break;
    }
}

STPChannel* STPTransport::createChannel(uint32_t localRN, uint32_t remoteRN, RetryHandler* retry,
                                        STPStatus* out) {
    STPTransportRef hold(this);
    status.clear();
    STPChannel* channel = findChannel(localRN, remoteRN);
    if (channel && channel->createSent) {
        fail(STP_ERR_USAGE, "[createChannel]: Tried to create channel that exists");
        finish(out);
        return nullptr;
    }
    if (channel == nullptr) {
        channel = new STPChannel(this, localRN, remoteRN);
        channels[{localRN, remoteRN}] = channel;
    }
    channel->createSent = true;
    queueControlPacket(localRN, remoteRN, KIND_CHANNEL, CHANNEL_CREATE);
    STPWaitEnd end =
        stp_wait_until(this, retry, [&] { return !hasWriteBytes() && channel->createSeen; });
    if (end == STPWaitEnd::gaveUp) {
        fail(STP_ERR_TIMEOUT,
             "[createChannel]: reached timeout while waiting to receive create ack");
        channel->closeSent = true;
        delete channel;
        channel = nullptr;
    }
    // A failed connection leaves no usable channel either.
    if (channel && !status.ok()) {
        channel->closeSent = true;
        delete channel;
        channel = nullptr;
    }
    finish(out);
    return channel;
}
