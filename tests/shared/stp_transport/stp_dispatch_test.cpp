// Messages on a transport: the packet image, serials and stamps, sending and waiting, the three
// queues, the listener table, what canDispatch lets through during waits, and channels.
#include "stp_transport.h"

#include "stp_channel.h"
#include "stp_message.h"
#include "stp_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace stptest;

namespace {

// What the message layer above does around a handler: the message's stamp and one more level
// of messageDepth while it runs.
class HandlerScope {
public:
    HandlerScope(STPTransport* t, const STPMessage* m) : transport(t) {
        transport->raiseDepth();
        transport->pushStamp(m->origin, m->depth, m->flags);
    }
    ~HandlerScope() {
        transport->popStamp();
        transport->lowerDepth();
    }

private:
    STPTransport* transport;
};

// A listener that, like the message layer above, declines what canDispatch refuses.
class GatedListener : public RecordingListener {
public:
    explicit GatedListener(STPTransport* t) : transport(t) {}
    bool handle(STPMessage* message) override {
        if (!transport->canDispatch(message)) {
            ++refusals;
            return false;
        }
        return RecordingListener::handle(message);
    }
    STPTransport* transport;
    int refusals = 0;
};

// A retry handler that runs one step of a script per wait, then turns the transports.
class ScriptedRetry : public TurnAllRetryHandler {
public:
    ScriptedRetry(std::vector<STPTransport*> all, std::vector<std::function<void()>> steps)
        : TurnAllRetryHandler(std::move(all)), script(std::move(steps)) {}
    void wait() override {
        if (next < script.size())
            script[next++]();
        TurnAllRetryHandler::wait();
    }
    std::vector<std::function<void()>> script;
    size_t next = 0;
};

std::string bodyText(const STPMessage* m) {
    return std::string(m->data() + m->headerSize, static_cast<size_t>(m->dataSize));
}

std::string wireBytes(STPTransport* t) {
    int32_t *offset, *length, *capacity;
    char** buffer;
    t->getWriteFields(&offset, &length, &capacity, &buffer);
    return std::string(*buffer + *offset, static_cast<size_t>(*length));
}

// A packet as the raw peer sends it to the transport under test (whose numbers are 2 and 1).
RawPacket fromPeer(uint32_t serial, uint32_t origin, uint32_t depth, uint32_t flags,
                   const std::string& body = "body") {
    RawPacket p;
    p.localRN = 1;
    p.remoteRN = 2;
    p.serial = serial;
    p.origin = origin;
    p.depth = depth;
    p.flags = flags;
    p.body = body;
    return p;
}

RawPacket replyFromPeer(uint32_t serial, uint32_t inReplyTo, uint32_t origin, uint32_t depth) {
    RawPacket p = fromPeer(serial, origin, depth, 0);
    p.kind = KIND_REPLY;
    p.tag = -1;
    p.inReplyTo = inReplyTo;
    return p;
}

// ---- Building and queuing
// -------------------------------------------------------------------------

TEST(StpMessageImage, FieldlessBinaryMessageMatchesTheWireLayout) {
    TransportPtr t = makeTransport();
    t->setOriginId(7);
    STPMessage* m = t->newMessage(1, 2, KIND_BINARY, 11, MSG_ONE_WAY);
    EXPECT_EQ(t->enqueueMessage(m), 2u) << "the first packet of a connection has serial 2";
    delete m;
    const unsigned char expected[] = {
        0x2c, 0, 0, 0, // headerSize 44
        0x04, 0, 0, 0, // dataSize 4
        0x01, 0, 0, 0, // localRN
        0x02, 0, 0, 0, // remoteRN
        0x02, 0, 0, 0, // serial
        0x00, 0, 0, 0, // inReplyTo
        0x0f, 0, 0, 0, // kind KIND_BINARY
        0x0b, 0, 0, 0, // tag 11
        0x02, 0, 0, 0, // flags MSG_ONE_WAY
        0x02, 0, 7, 0, // origin: sequence 2, id 7
        0x01, 0, 0, 0, // depth 1
        0x00, 0, 0, 0, // end word
    };
    std::string bytes = wireBytes(t.get());
    ASSERT_EQ(bytes.size(), sizeof expected);
    EXPECT_EQ(std::memcmp(bytes.data(), expected, sizeof expected), 0);
    int32_t kind = 0, tag = 0;
    ASSERT_TRUE(t->getLastMessage(&kind, &tag));
    EXPECT_EQ(kind, KIND_BINARY);
    EXPECT_EQ(tag, 11);
}

TEST(StpMessageImage, AsciiBodyEndsInAZeroWordAndCountsItInDataSize) {
    TransportPtr t = makeTransport();
    STPMessage* m = t->newMessage(1, 2, KIND_ASCII, 3, MSG_WANTS_REPLY | MSG_STRICT_WAIT);
    m->putRaw("QueryUser ");
    m->asciiPutNamedString("request_str", "Proceed?");
    t->enqueueMessage(m);
    delete m;
    std::string bytes = wireBytes(t.get());
    ASSERT_EQ(bytes.size(), 44u + 40u);
    EXPECT_EQ(stp_get_u32(bytes.data() + 4), 40u);
    EXPECT_EQ(bytes.substr(44, 33), "QueryUser request_str:\"Proceed?\" ");
    EXPECT_EQ(bytes.substr(77), std::string(7, '\0'));
}

TEST(StpMessageImage, KindZeroIsRefusedAndNothingIsQueued) {
    TransportPtr t = makeTransport();
    STPMessage* m = t->newMessage(1, 2, 0, 0, 0);
    STPStatus status;
    EXPECT_EQ(t->enqueueMessage(m, &status), 0u);
    delete m;
    EXPECT_EQ(status.code, STP_ERR_USAGE);
    EXPECT_STREQ(status.message, "[enqueueMessage]: invalid message header");
    EXPECT_STREQ(t->getStatus().message, "[enqueueMessage]: invalid message header");
    EXPECT_EQ(t->getWriteLength(), 0);
    EXPECT_FALSE(t->getLastMessage(nullptr, nullptr));
}

TEST(StpSerials, NeverZeroWrappingToOneAndResetByAClose) {
    TransportPtr t = makeTransport();
    t->setLastSerial(0xFFFFFFFEu);
    STPMessage* m = t->newMessage(1, 2, KIND_BINARY, 1, 0);
    EXPECT_EQ(t->enqueueMessage(m), 0xFFFFFFFFu);
    EXPECT_EQ(t->enqueueMessage(m), 1u);
    EXPECT_EQ(t->enqueueMessage(m), 2u);
    delete m;
    t->reset();
    EXPECT_EQ(t->getLastSerial(), 1u);
    EXPECT_EQ(t->getWriteLength(), 0);
}

// ---- Stamps
// ---------------------------------------------------------------------------------------

TEST(StpStamps, NestedRequestKeepsTheOriginOneLevelDeeperAndItsReplyStandsAtItsDepth) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    STPTransport* a = pair.client.get();
    STPTransport* b = pair.server.get();
    a->setOriginId(3);
    b->setOriginId(4);
    std::vector<STPTransport*> both{a, b};
    Seen outer, nested, nestedReply;

    // b handles the request by calling a back; a answers the callback.
    RecordingListener onB, onA;
    onB.hook = [&](STPMessage* request) {
        outer = seenOf(request);
        HandlerScope scope(b, request);
        STPMessage* call = b->newMessage(2, 1, KIND_BINARY, 8, MSG_WANTS_REPLY);
        uint32_t serial = b->sendMessage(call);
        delete call;
        TurnAllRetryHandler retry(both);
        STPMessage* reply = b->awaitResponse(serial, &retry);
        EXPECT_NE(reply, nullptr);
        if (reply)
            nestedReply = seenOf(reply);
        delete reply;
        STPMessage* answer = b->newReply(2, 1, request->serial, 0);
        b->sendWithAttempts(answer, 2);
        delete answer;
        return true;
    };
    onA.hook = [&](STPMessage* call) {
        nested = seenOf(call);
        HandlerScope scope(a, call);
        STPMessage* answer = a->newReply(1, 2, call->serial, 0);
        a->sendWithAttempts(answer, 2);
        delete answer;
        return true;
    };
    b->addListener(1, 2, &onB, KIND_BINARY);
    a->addListener(2, 1, &onA, KIND_BINARY);

    STPMessage* request = a->newMessage(1, 2, KIND_BINARY, 5, MSG_WANTS_REPLY);
    uint32_t serial = a->sendMessage(request);
    delete request;
    ASSERT_NE(serial, 0u);
    EXPECT_EQ(STPTransport::messageDepth(), 1) << "a request leaves its depth raised";
    EXPECT_EQ(a->stampDepth(), 1u);
    TurnAllRetryHandler retry(both);
    STPMessage* reply = a->awaitResponse(serial, &retry);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->inReplyTo, serial);
    delete reply;

    EXPECT_EQ(outer.depth, 1u);
    EXPECT_EQ(outer.origin, (3u << 16) | (serial & 0xFFFF)) << "originSeq is the serial";
    EXPECT_EQ(nested.origin, outer.origin);
    EXPECT_EQ(nested.depth, 2u);
    EXPECT_EQ(nestedReply.depth, 2u);
    EXPECT_EQ(nestedReply.origin, outer.origin);
    EXPECT_EQ(STPTransport::messageDepth(), 0);
    EXPECT_EQ(a->stampDepth(), 0u);
    EXPECT_EQ(b->stampDepth(), 0u);
}

TEST(StpStamps, OneWayAndFailedSendsLeaveDepthAndStampsAlone) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    STPMessage* m = pair.client->newMessage(1, 2, KIND_BINARY, 1, MSG_ONE_WAY);
    EXPECT_NE(pair.client->sendMessage(m), 0u);
    delete m;
    EXPECT_EQ(STPTransport::messageDepth(), 0);
    EXPECT_EQ(pair.client->stampDepth(), 0u);

    pair.server->closeConnection();
    // Requests fail once the closed peer has answered with a reset. One that still goes out is
    // balanced by a wait that does not read, so that the reset stays for the next send.
    int32_t start = plat_tick_count();
    uint32_t serial = 1;
    while (serial != 0) {
        ASSERT_FALSE(pastDeadline(start));
        m = pair.client->newMessage(1, 2, KIND_BINARY, 1, MSG_WANTS_REPLY);
        serial = pair.client->sendMessage(m);
        delete m;
        if (serial != 0) {
            TurnAllRetryHandler noReading({}, 1);
            EXPECT_EQ(pair.client->awaitResponse(serial, &noReading), nullptr);
            plat_sleep_ms(1);
        }
        EXPECT_EQ(STPTransport::messageDepth(), 0);
        EXPECT_EQ(pair.client->stampDepth(), 0u);
    }
    EXPECT_STREQ(pair.client->getStatus().message, "[handleWrite]: Virtual circuit reset");
    EXPECT_EQ(pair.client->getStatus().code, STP_ERR_NETWORK);
}

TEST(StpStamps, NegativeMessageDepthIsFatal) {
    TransportPtr t = makeTransport();
    EXPECT_EXIT(t->lowerDepth(), ::testing::ExitedWithCode(1), "negative message depth!");
}

// ---- Waiting for replies
// ----------------------------------------------------------------------------

TEST(StpAwait, TimeoutLeavesTheLateReplyInTheResponseQueue) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    STPMessage* m = t->newMessage(2, 1, KIND_BINARY, 1, MSG_WANTS_REPLY);
    uint32_t serial = t->sendMessage(m);
    delete m;
    TurnAllRetryHandler retry({t}, 30);
    STPStatus status;
    EXPECT_EQ(t->awaitResponse(serial, &retry, &status), nullptr);
    EXPECT_EQ(status.code, STP_ERR_TIMEOUT);
    EXPECT_STREQ(status.message,
                 "[awaitResponse]: reached timeout while waiting to receive response");
    EXPECT_EQ(STPTransport::messageDepth(), 0);

    ASSERT_TRUE(peer.feed(replyFromPeer(2, serial, 0, 1).bytes()));
    ASSERT_TRUE(serviceUntil({t}, [&] { return t->responseQueueSize() == 1; }));
    // A later wait for the same serial (not done in practice) would pick it up at once.
    t->raiseDepth();
    t->pushStamp(0, 1, 0);
    STPMessage* reply = t->awaitResponse(serial, nullptr);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->inReplyTo, serial);
    delete reply;
    EXPECT_EQ(t->responseQueueSize(), 0u);
}

TEST(StpAwait, ConnectionEndingDuringTheWait) {
    // The peer closes: the read that notices it sets its own text first.
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    STPMessage* m = t->newMessage(2, 1, KIND_BINARY, 1, MSG_WANTS_REPLY);
    uint32_t serial = t->sendMessage(m);
    delete m;
    // The peer reads what it was sent first, so that its close is an orderly one.
    ScriptedRetry retry({t}, {[&] {
                            peer.drain();
                            peer.closeRaw();
                        }});
    STPStatus status;
    EXPECT_EQ(t->awaitResponse(serial, &retry, &status), nullptr);
    EXPECT_EQ(status.code, STP_ERR_PEER_CLOSED);
    EXPECT_STREQ(status.message, "[handleRead]: peer has closed connection");

    // Closed by this side from inside the wait: the wait's own text.
    RawPeer other;
    ASSERT_TRUE(other.open());
    t = other.transport.get();
    m = t->newMessage(2, 1, KIND_BINARY, 1, MSG_WANTS_REPLY);
    serial = t->sendMessage(m);
    delete m;
    ScriptedRetry closing({}, {[&] { t->closeConnection(); }});
    EXPECT_EQ(t->awaitResponse(serial, &closing, &status), nullptr);
    EXPECT_EQ(status.code, STP_ERR_PEER_CLOSED);
    EXPECT_STREQ(status.message,
                 "[awaitResponse]: connection closed while waiting to receive response");
    EXPECT_EQ(STPTransport::messageDepth(), 0);
}

// ---- Listener table and queues
// ----------------------------------------------------------------------

TEST(StpListeners, UnclaimedMessagesWaitForRedelivery) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    ASSERT_TRUE(peer.feed(fromPeer(2, 0, 1, 0, "early").bytes()));
    ASSERT_TRUE(serviceUntil({t}, [&] { return t->unclaimedQueueSize() == 1; }));
    RecordingListener listener;
    t->addListener(1, 2, &listener, KIND_BINARY);
    t->addListener(1, 2, nullptr, KIND_BINARY); // ignored
    EXPECT_FALSE(t->redeliverUnclaimed(1, 2, KIND_ASCII));
    EXPECT_TRUE(t->redeliverUnclaimed(1, 2, KIND_BINARY));
    ASSERT_EQ(listener.seen.size(), 1u);
    EXPECT_EQ(listener.seen[0].body.substr(0, 5), "early");
    EXPECT_FALSE(t->redeliverUnclaimed(1, 2, KIND_BINARY));
    EXPECT_EQ(t->unclaimedQueueSize(), 0u);
}

TEST(StpListeners, AListenerRemovedDuringADeliveryToSeveralIsNotCalled) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    RecordingListener first, second, third;
    first.hook = [&](STPMessage*) {
        t->removeListener(&second);
        return true;
    };
    t->addListener(1, 2, &first, KIND_BINARY);
    t->addListener(1, 2, &second, KIND_BINARY);
    t->addListener(1, 2, &third, KIND_BINARY);
    t->addListener(1, 3, &second, KIND_BINARY); // another key: untouched by the delivery
    ASSERT_TRUE(peer.feed(fromPeer(2, 0, 1, 0).bytes()));
    ASSERT_TRUE(serviceUntil({t}, [&] { return third.calls == 1; }));
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(t->unclaimedQueueSize(), 0u) << "a message with listeners is freed";
}

// ---- canDispatch during waits
// -------------------------------------------------------------------------

TEST(StpDispatchRules, StrictWaitLetsOnlyItsOwnTreeAndAlwaysDeliverThrough) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    t->setOriginId(5);
    GatedListener listener(t);
    t->addListener(1, 2, &listener, KIND_BINARY);

    STPMessage* m = t->newMessage(2, 1, KIND_BINARY, 7, MSG_WANTS_REPLY | MSG_STRICT_WAIT);
    uint32_t serial = t->sendMessage(m);
    uint32_t origin = m->origin;
    delete m;
    ASSERT_EQ(origin, (5u << 16) | serial);

    int strictInside = -1;
    uint32_t nestedDepth = 0;
    // The callback of the tree being waited on waits itself, for a request of its own.
    listener.hook = [&](STPMessage* message) {
        if (bodyText(message).rfind("callback", 0) != 0)
            return true;
        HandlerScope scope(t, message);
        strictInside = STPTransport::strictWaits();
        STPMessage* call = t->newMessage(2, 1, KIND_BINARY, 9, MSG_WANTS_REPLY);
        uint32_t s = t->sendMessage(call);
        nestedDepth = call->depth;
        delete call;
        EXPECT_TRUE(peer.feed(replyFromPeer(20, s, origin, 3).bytes()));
        TurnAllRetryHandler retry({t});
        STPMessage* reply = t->awaitResponse(s, &retry);
        EXPECT_NE(reply, nullptr);
        delete reply;
        return true;
    };
    ScriptedRetry retry(
        {t}, {[&] {
                  std::string burst =
                      fromPeer(10, 0x00090001, 1, 0, "other tree A").bytes() +
                      fromPeer(11, 0x00090001, 1, MSG_ALWAYS_DELIVER, "always").bytes() +
                      fromPeer(12, 0x00090002, 1, 0, "other tree B").bytes();
                  EXPECT_TRUE(peer.feed(burst));
              },
              [] {}, [] {},
              [&] { EXPECT_TRUE(peer.feed(fromPeer(13, origin, 2, 0, "callback").bytes())); },
              [] {}, [] {}, [] {},
              [&] { EXPECT_TRUE(peer.feed(replyFromPeer(14, serial, origin, 1).bytes())); }});
    STPMessage* reply = t->awaitResponse(serial, &retry);
    ASSERT_NE(reply, nullptr);
    delete reply;

    // Inside the wait: the always-deliver message and the callback, nothing else.
    ASSERT_EQ(listener.seen.size(), 2u);
    EXPECT_EQ(listener.seen[0].body.substr(0, 6), "always");
    EXPECT_EQ(listener.seen[1].body.substr(0, 8), "callback");
    EXPECT_EQ(strictInside, 1);
    EXPECT_EQ(nestedDepth, 3u);
    EXPECT_EQ(t->heldBackQueueSize(), 2u);
    EXPECT_EQ(STPTransport::strictWaits(), 0);
    EXPECT_EQ(STPTransport::messageDepth(), 0);

    // The first turn after the wait hands them over in their order of arrival.
    t->serviceOnce(0);
    ASSERT_EQ(listener.seen.size(), 4u);
    EXPECT_EQ(listener.seen[2].body.substr(0, 12), "other tree A");
    EXPECT_EQ(listener.seen[3].body.substr(0, 12), "other tree B");
    EXPECT_EQ(t->heldBackQueueSize(), 0u);
}

TEST(StpDispatchRules, NothingRunsWhileASendIsBeingPushedOut) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    GatedListener listener(t);
    t->addListener(1, 2, &listener, KIND_BINARY);
    STPMessage* m = t->newMessage(2, 1, KIND_BINARY, 7, MSG_ONE_WAY);
    std::string big(8 * 1048576, 'z');
    m->putRaw(big.data(), static_cast<int32_t>(big.size()));
    // The raw peer reads nothing at first, so the send has to wait; its first wait brings an
    // always-deliver message, and later waits drain the socket.
    struct DrainingRetry : TurnAllRetryHandler {
        using TurnAllRetryHandler::TurnAllRetryHandler;
        RawPeer* peer = nullptr;
        int barrierSeen = -1;
        void wait() override {
            if (barrierSeen < 0) {
                barrierSeen = STPTransport::writeBarrier();
                EXPECT_TRUE(
                    peer->feed(fromPeer(2, 0x00090001, 1, MSG_ALWAYS_DELIVER, "always").bytes()));
            } else {
                peer->drain(1);
            }
            TurnAllRetryHandler::wait();
        }
    } retry({t});
    retry.peer = &peer;
    EXPECT_NE(t->sendMessage(m, &retry), 0u);
    delete m;
    EXPECT_EQ(retry.barrierSeen, 1);
    EXPECT_TRUE(listener.seen.empty()) << "always-deliver waits for the barrier to drop";
    EXPECT_EQ(STPTransport::writeBarrier(), 0);
    ASSERT_TRUE(serviceUntil({t}, [&] { return listener.seen.size() == 1; }));
    EXPECT_EQ(listener.seen[0].body.substr(0, 6), "always");
}

TEST(StpDispatchRules, AReplyInHandHoldsBackASiblingAtItsDepth) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    STPTransport* t = peer.transport.get();
    GatedListener listener(t);
    t->addListener(1, 2, &listener, KIND_BINARY);
    STPMessage* m = t->newMessage(2, 1, KIND_BINARY, 7, MSG_WANTS_REPLY);
    uint32_t serial = t->sendMessage(m);
    delete m;
    // The reply and a sibling at its depth from the same route number arrive together, while
    // the request's depth is up.
    ASSERT_TRUE(peer.feed(replyFromPeer(3, serial, 0, 1).bytes() +
                          fromPeer(4, 0x00090001, 1, 0, "sibling").bytes()));
    ASSERT_TRUE(serviceUntil(
        {t}, [&] { return t->responseQueueSize() == 1 && t->heldBackQueueSize() == 1; }));
    for (int i = 0; i < 3; ++i)
        t->serviceOnce(1);
    EXPECT_TRUE(listener.seen.empty());
    EXPECT_EQ(listener.refusals, 1) << "not offered again while nothing changed";

    STPMessage* reply = t->awaitResponse(serial, nullptr);
    ASSERT_NE(reply, nullptr);
    delete reply;
    t->serviceOnce(0);
    ASSERT_EQ(listener.seen.size(), 1u);
    EXPECT_EQ(listener.seen[0].body.substr(0, 7), "sibling");
}

TEST(StpDispatchRules, WithNoWaitEverythingRunsAtOnce) {
    TransportPtr t = makeTransport();
    STPMessage ordered(RawPacket{}.bytes().data(), STP_HEADER_SIZE, 0);
    ordered.flags = MSG_ORDERED;
    ordered.origin = 0x12345678;
    EXPECT_TRUE(t->canDispatch(&ordered));
    t->raiseDepth();
    EXPECT_FALSE(t->canDispatch(&ordered)) << "another tree's ordered message waits";
    ordered.inReplyTo = 5;
    EXPECT_TRUE(t->canDispatch(&ordered)) << "replies always pass";
    t->lowerDepth();
}

// ---- Channels
// -----------------------------------------------------------------------------------------

TEST(StpChannels, HandshakeFinishesOnBothEndsWhicheverCreateComesFirst) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    STPTransport* a = pair.client.get();
    STPTransport* b = pair.server.get();
    TurnAllRetryHandler retry({a, b});
    // a's create reaches b before b creates its end: b finds the channel already there.
    STPChannel* ca = nullptr;
    STPChannel* cb = nullptr;
    ScriptedRetry withPeer(
        {a, b}, {[&] {
            EXPECT_TRUE(serviceUntil({a, b}, [&] { return b->findChannel(20, 10) != nullptr; }));
            cb = b->createChannel(20, 10, &retry);
        }});
    ca = a->createChannel(10, 20, &withPeer);
    ASSERT_NE(ca, nullptr);
    ASSERT_NE(cb, nullptr);
    EXPECT_TRUE(ca->isCreated());
    EXPECT_TRUE(cb->isCreated());

    STPStatus status;
    EXPECT_EQ(a->createChannel(10, 20, &retry, &status), nullptr);
    EXPECT_EQ(status.code, STP_ERR_USAGE);
    EXPECT_STREQ(status.message, "[createChannel]: Tried to create channel that exists");
    EXPECT_EQ(a->findChannel(10, 20), ca) << "the first channel is untouched";

    ScriptedRetry startPeer({a, b}, {[&] { cb->startChannel(&retry); }});
    EXPECT_TRUE(ca->startChannel(&startPeer));
    EXPECT_TRUE(ca->isStarted());
    EXPECT_TRUE(cb->isStarted());
    EXPECT_FALSE(ca->startChannel(&retry, &status));
    EXPECT_STREQ(status.message, "[startChannel]: Channel start already sent.");

    EXPECT_TRUE(ca->closeChannel(&retry));
    EXPECT_FALSE(ca->closeChannel(&retry, &status));
    EXPECT_EQ(status.code, STP_ERR_USAGE);
    EXPECT_STREQ(status.message, "[startChannel]: Channel already closed.");
    ASSERT_TRUE(serviceUntil({b}, [&] { return cb->isClosed(); }));
    delete ca;
    delete cb;
    EXPECT_EQ(a->findChannel(10, 20), nullptr);
    EXPECT_EQ(b->findChannel(20, 10), nullptr);
}

// Under the sanitizers, a wait that let its transport go would be a use after free.
TEST(StpChannels, AWaitKeepsItsTransportWhileAHandlerDropsTheLastReference) {
    STPTransport* a = nullptr;
    STPTransport* b = nullptr;
    ASSERT_TRUE(STPTransport::createPair(&a, &b));
    TransportPtr holdB(b);
    TurnAllRetryHandler retry({a, b});
    STPChannel* cb = nullptr;
    ScriptedRetry withPeer({a, b}, {[&] { cb = b->createChannel(20, 10, &retry); }});
    STPChannel* ca = a->createChannel(10, 20, &withPeer);
    ASSERT_NE(ca, nullptr);
    ASSERT_NE(cb, nullptr);
    size_t before = STPTransport::transportCount();
    ScriptedRetry dropping({a, b}, {[&] {
                               cb->startChannel(&retry);
                               a->unref(); // the test's reference, the last but the wait's
                           }});
    EXPECT_TRUE(ca->startChannel(&dropping));
    // a (and ca with it) ended as the call returned, not inside it.
    EXPECT_EQ(STPTransport::transportCount(), before - 1);
    delete cb;
}

TEST(StpChannels, CreateWithoutAPeerTimesOutAndLeavesNoChannel) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    TurnAllRetryHandler retry({pair.client.get()}, 30);
    STPStatus status;
    EXPECT_EQ(pair.client->createChannel(1, 2, &retry, &status), nullptr);
    EXPECT_EQ(status.code, STP_ERR_TIMEOUT);
    EXPECT_STREQ(status.message,
                 "[createChannel]: reached timeout while waiting to receive create ack");
    EXPECT_EQ(pair.client->findChannel(1, 2), nullptr);
}

} // namespace
