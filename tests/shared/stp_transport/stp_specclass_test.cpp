// Tests of STPSpecClass: the negotiate packet, the merges of tags and messages, the checks
// before sending, the receiving side of each kind, and the virtual connection.
#include "stp_specclass.h"

#include "indgen.h"
#include "stp_test_ends.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace stptest;

namespace {

// A spec class over hand-written tables, for the packet texts.
class TableSpec : public STPSpecClass {
public:
    TableSpec(const char* role, const STPMessageRow* handled, int32_t handledRows,
              const STPMessageRow* sent, int32_t sentRows, const char* const* tags,
              int32_t tagRows) {
        setProtocol("Test", role, "1", 0);
        setTables(handled, handledRows, sent, sentRows, tags, tagRows);
    }
    uint32_t defaultLocalRN() override { return 2; }
    uint32_t defaultRemoteRN() override { return 1; }
    void virtualConnectionDown() override { ++downCalls; }
    int downCalls = 0;
};

const STPMessageRow kPluginHandled[] = {
    {"", "", -1, 0},
    {"", "", -1, 0},
    {"", "", -1, 0},
    {"", "", -1, 0},
    {"", "", -1, 0},
    {"", "", -1, 0},
    {"PluginId", "plugin_id:%u4% ", 6, 0x2},
};
const STPMessageRow kPluginSent[] = {
    {"Alpha", "", 0, 0x2},
    {"Beta", "", 1, 0x1},
    {"Delta", "", 2, 0x2},
};
const char* const kPluginTags[] = {"count", "data", "middle", "zeta"};

// The header words and body of the first packet in `bytes`.
struct Packet {
    uint32_t words[STP_HEADER_WORDS] = {};
    std::string body;
};

Packet firstPacket(const std::string& bytes) {
    Packet p;
    if (bytes.size() < STP_HEADER_SIZE)
        return p;
    for (int i = 0; i < STP_HEADER_WORDS; ++i)
        p.words[i] = stp_get_u32(bytes.data() + 4 * i);
    size_t size = p.words[STP_WORD_DATA_SIZE];
    if (bytes.size() >= STP_HEADER_SIZE + size)
        p.body = bytes.substr(STP_HEADER_SIZE, size);
    return p;
}

// The text of a body: up to its first NUL, with everything behind it zero.
std::string bodyText(const std::string& body) {
    size_t end = body.find('\0');
    std::string text = body.substr(0, end);
    for (size_t i = end; i < body.size(); ++i)
        EXPECT_EQ(body[i], '\0') << "byte " << i << " behind the text";
    EXPECT_EQ(body.size() % 4, 0u);
    EXPECT_GE(body.size(), stp_padded(static_cast<int64_t>(text.size())) + 4);
    return text;
}

// A negotiate packet from a peer whose own route number is `peerRN` (this end's remote).
RawPacket negotiatePacket(const std::string& text, uint32_t peerRN, uint32_t ownRN) {
    RawPacket p;
    p.localRN = peerRN;
    p.remoteRN = ownRN;
    p.kind = KIND_NEGOTIATE;
    p.tag = 1;
    p.flags = MSG_ONE_WAY;
    p.body = text;
    p.body.append(8 - text.size() % 4, '\0');
    return p;
}

template <typename T> struct Unref {
    T* p;
    ~Unref() { p->unref(); }
};

TEST(STPSpecClassNegotiateTest, PacketTextIsByteForByteThatOfTheExample) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    TableSpec* spec = new TableSpec("plugin", kPluginHandled, 7, kPluginSent, 3, kPluginTags, 2);
    Unref<TableSpec> hold{spec};
    spec->attachTransport(peer.transport.get());
    STPStatus status;
    ASSERT_TRUE(spec->sendNegotiate(true, nullptr, &status)) << status.message;
    Packet p = firstPacket(peer.drain());
    EXPECT_EQ(p.words[STP_WORD_KIND], static_cast<uint32_t>(KIND_NEGOTIATE));
    EXPECT_EQ(p.words[STP_WORD_TAG], 1u);
    EXPECT_EQ(p.words[STP_WORD_FLAGS], MSG_ONE_WAY);
    EXPECT_EQ(p.words[STP_WORD_LOCAL_RN], 2u);
    EXPECT_EQ(p.words[STP_WORD_REMOTE_RN], 1u);
    EXPECT_EQ(bodyText(p.body), "name:plugin vstamp:\"1\" flags:0x0 tags:(0x2 )[ count data  ] "
                                "msgs:(0x1 )[ { id:0x6 name:PluginId flags:0x2  }  ] ");
}

TEST(STPSpecClassNegotiateTest, AsciiProtocolSendsAnEmptyTagTable) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    AsciiClient* spec = new AsciiClient;
    Unref<AsciiClient> hold{spec};
    spec->attachTransport(peer.transport.get());
    ASSERT_TRUE(spec->sendNegotiate(true));
    EXPECT_EQ(bodyText(firstPacket(peer.drain()).body),
              "name:client vstamp:\"1\" flags:0x0 tags:(0x0 )[  ] msgs:(0x2 )[ { id:0x0 "
              "name:QueryUser flags:0x1  } { id:0x1 name:Tick flags:0x2  }  ] ");
}

TEST(STPSpecClassNegotiateTest, NonBlockingNegotiateIsOnlyQueued) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    AsciiClient* spec = new AsciiClient;
    Unref<AsciiClient> hold{spec};
    spec->attachTransport(peer.transport.get());
    ASSERT_TRUE(spec->sendNegotiate(false));
    EXPECT_GT(peer.transport->getWriteLength(), 0);
    EXPECT_EQ(peer.drain(50), "");
}

TEST(STPSpecClassNegotiateTest, ReceivedTablesAreMergedByName) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    TableSpec* spec = new TableSpec("plugin", kPluginHandled, 7, kPluginSent, 3, kPluginTags, 4);
    Unref<TableSpec> hold{spec};
    spec->attachTransport(peer.transport.get());
    ASSERT_TRUE(peer.feed(
        negotiatePacket("name:router vstamp:\"7\" flags:0x1 tags:(0x4 )[ alpha count  zeta "
                        "zulu ] msgs:(0x3 )[ { id:0x4 name:Beta flags:0x12 } { id:0x9 "
                        "name:Gamma flags:0x1 } { id:0x3 name:Zeta flags:0x2 } ] ",
                        1, 2)
            .bytes()));
    ASSERT_TRUE(serviceUntil({peer.transport.get()}, [&] { return spec->hasNegotiated(); }));
    EXPECT_STREQ(spec->getPeerName(), "router");
    EXPECT_STREQ(spec->getPeerVstamp(), "7");
    EXPECT_EQ(spec->getPeerFlags(), 1u);
    // Peer indexes: alpha 0, count 1, zeta 2, zulu 3.
    EXPECT_EQ(spec->getTagMap(), (std::vector<int32_t>{1, -1, -1, 2}));
    const std::vector<STPMessageRow>& sent = spec->getSentTable();
    EXPECT_EQ(sent[0].id, -1);
    EXPECT_EQ(sent[1].id, 4);
    EXPECT_EQ(sent[1].flags, 0x12u);
    EXPECT_EQ(sent[2].id, -1);
    ASSERT_EQ(spec->getExtraTable().size(), 2u);
    EXPECT_STREQ(spec->getExtraTable()[0].name, "Gamma");
    EXPECT_EQ(spec->getExtraTable()[0].id, 9);
    EXPECT_EQ(spec->getExtraTable()[0].flags, 0x1u);
    EXPECT_STREQ(spec->getExtraTable()[1].name, "Zeta");
    EXPECT_EQ(spec->findPeerMessage("Zeta"), &spec->getExtraTable()[1]);
    EXPECT_EQ(spec->findPeerMessage("Beta"), &sent[1]);
    EXPECT_EQ(spec->findPeerMessage("Bet"), nullptr);
    // The peer accepts everything (flag bit 0): even a message it did not list may go.
    EXPECT_TRUE(spec->checkSend(false, false));
}

TEST(STPSpecClassNegotiateTest, PacketBeforeAttachWaitsUnclaimedForAwaitTags) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    ASSERT_TRUE(peer.feed(negotiatePacket("name:server vstamp:\"1\" flags:0x0 tags:(0x0 )[  ] "
                                          "msgs:(0x0 )[  ] ",
                                          2, 1)
                              .bytes()));
    ASSERT_TRUE(serviceUntil({peer.transport.get()},
                             [&] { return peer.transport->unclaimedQueueSize() == 1; }));
    AsciiClient* spec = new AsciiClient;
    Unref<AsciiClient> hold{spec};
    spec->attachTransport(peer.transport.get());
    STPStatus status;
    TurnAllRetryHandler deadline({peer.transport.get()});
    EXPECT_TRUE(spec->awaitTags(&deadline, &status)) << status.message;
    EXPECT_EQ(deadline.waits, 0) << "taken from the unclaimed queue at once";
    EXPECT_TRUE(spec->hasNegotiated());
    EXPECT_STREQ(spec->getPeerName(), "server");
    EXPECT_EQ(peer.transport->unclaimedQueueSize(), 0u);
    EXPECT_EQ(spec->getBusyCount(), 0);
}

TEST(STPSpecClassNegotiateTest, AwaitTagsFailures) {
    AsciiClient* spec = new AsciiClient;
    Unref<AsciiClient> hold{spec};
    STPStatus status;
    EXPECT_FALSE(spec->awaitTags(nullptr, &status));
    EXPECT_EQ(status.code, STP_ERR_USAGE);
    EXPECT_STREQ(status.message, "[awaitTags]: cannot receive tags on NULL transport");
    EXPECT_FALSE(spec->sendNegotiate(true, nullptr, &status));
    EXPECT_STREQ(status.message, "[sendNegotiate]: cannot send with NULL transport");

    RawPeer peer;
    ASSERT_TRUE(peer.open());
    spec->attachTransport(peer.transport.get());
    TurnAllRetryHandler shortWait({peer.transport.get()}, 100);
    EXPECT_FALSE(spec->awaitTags(&shortWait, &status));
    EXPECT_EQ(status.code, STP_ERR_TIMEOUT);
    EXPECT_STREQ(status.message, "awaitNegotiate: timed out waiting for reply.");
    EXPECT_GT(shortWait.waits, 0);

    spec->setCanReceive(false);
    EXPECT_FALSE(spec->awaitTags(nullptr, &status));
    EXPECT_EQ(status.code, STP_ERR_NETWORK);
    EXPECT_STREQ(status.message, "[awaitTags]: virtual connection is down");
    spec->setCanSend(false);
    EXPECT_FALSE(spec->sendNegotiate(true, nullptr, &status));
    EXPECT_STREQ(status.message, "[sendNegotiate]: virtual connection is down");
}

TEST(STPSpecClassNegotiateTest, DifferentBuildsAgreeByName) {
    Conversation<TestClient, LeanServer> c;
    ASSERT_TRUE(c.open());
    ASSERT_TRUE(c.negotiate());

    // Every tag maps to the lean end's index of the same name; `flag`, which it lacks, to -1.
    const char* const* leanTags = c.server->getTagTable();
    const char* const* tags = c.client->getTagTable();
    int32_t flagIndex = -1;
    for (int32_t i = 0; i < c.client->getTagCount(); ++i) {
        int32_t expected = -1;
        for (int32_t k = 0; k < c.server->getTagCount(); ++k)
            if (std::strcmp(tags[i], leanTags[k]) == 0)
                expected = k;
        EXPECT_EQ(c.client->getTagMap()[static_cast<size_t>(i)], expected) << tags[i];
        if (std::strcmp(tags[i], "flag") == 0)
            flagIndex = i;
    }
    ASSERT_GE(flagIndex, 0);
    EXPECT_EQ(c.client->getTagMap()[static_cast<size_t>(flagIndex)], -1);
    // ... and a later tag still maps right: `text` is 22 here and 12 there.
    EXPECT_EQ(c.client->getTagMap()[22], 12);

    // Shutdown is known only to the lean end: an extra row; Describe only to the client.
    ASSERT_EQ(c.client->getExtraTable().size(), 1u);
    EXPECT_STREQ(c.client->getExtraTable()[0].name, "Shutdown");
    EXPECT_EQ(c.client->getExtraTable()[0].id, 4);
    EXPECT_EQ(c.client->findPeerMessage("Describe")->id, -1);
    EXPECT_EQ(c.client->findPeerMessage("Notify")->id, 3);

    // A stub of a message the peer lacks sends nothing.
    STPStatus status;
    Inventory items;
    EXPECT_FALSE(c.client->Describe("me", &items, nullptr, &status));
    EXPECT_EQ(status.code, STP_ERR_UNSUPPORTED);
    EXPECT_STREQ(status.message, "[send]: sending a message the other side does not support");
    EXPECT_EQ(c.pair.client->getWriteLength(), 0);

    // Numbers differ, names agree: Notify is 5 here and 3 there.
    ASSERT_TRUE(c.client->Notify(true, "hello", nullptr, &status)) << status.message;
    ASSERT_TRUE(c.settle([&] { return !c.server->notes.empty(); }));
    EXPECT_EQ(c.server->notes, std::vector<std::string>{"hello"});

    // The tag the lean end lacks reads as 0 in its reply.
    char* text = nullptr;
    bool flag = true;
    ASSERT_TRUE(c.client->Echo("ping", true, &text, &flag, nullptr, &status)) << status.message;
    EXPECT_STREQ(text, "ping");
    EXPECT_FALSE(flag);
    gen_free(text);
}

TEST(STPSpecClassNegotiateTest, RequestFormatsFillsSentAndExtraRows) {
    Conversation<TestClient, LeanServer> c;
    ASSERT_TRUE(c.open());
    ASSERT_TRUE(c.negotiate());
    EXPECT_STREQ(c.client->findPeerMessage("Add")->fmt, "");
    STPStatus status;
    TurnAllRetryHandler both(c.transports());
    ASSERT_TRUE(c.client->requestFormats(&both, &status)) << status.message;
    EXPECT_TRUE(c.client->hasFormats());
    EXPECT_STREQ(c.client->findPeerMessage("Add")->fmt, "a:%u4% b:%u4% | sum:%u4% ");
    EXPECT_STREQ(c.client->findPeerMessage("Echo")->fmt, "text:%str% | text:%str% ");
    EXPECT_STREQ(c.client->findPeerMessage("Shutdown")->fmt, "");
    EXPECT_STREQ(c.client->findPeerMessage("Describe")->fmt, "");
}

TEST(STPSpecClassNegotiateTest, LocalNegotiationMapsEverythingToItself) {
    TestClient* spec = new TestClient;
    Unref<TestClient> hold{spec};
    spec->negotiateLocally();
    EXPECT_TRUE(spec->hasNegotiated());
    for (size_t i = 0; i < spec->getTagMap().size(); ++i)
        EXPECT_EQ(spec->getTagMap()[i], static_cast<int32_t>(i));
    EXPECT_EQ(spec->findPeerMessage("Nest")->id, 4);
}

TEST(STPSpecClassSendTest, RefusedBeforeNegotiationAndWhenDown) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    TestClient* spec = new TestClient;
    Unref<TestClient> hold{spec};
    STPStatus status;
    uint32_t sum = 7;
    EXPECT_FALSE(spec->Add(1, 2, &sum, nullptr, &status));
    EXPECT_EQ(status.code, STP_ERR_USAGE);
    EXPECT_STREQ(status.message, "Attempted send before negotiation is complete.");
    EXPECT_EQ(sum, 0u) << "out-parameters are cleared first";

    spec->attachTransport(peer.transport.get());
    status.clear();
    EXPECT_FALSE(spec->Notify(false, "x", nullptr, &status));
    EXPECT_STREQ(status.message, "Attempted send before negotiation is complete.");

    spec->negotiateLocally();
    spec->setCanReceive(false);
    // A one-way message needs only the sending direction; a request needs both.
    EXPECT_TRUE(spec->Notify(false, "x", nullptr, &status));
    EXPECT_FALSE(spec->Add(1, 2, &sum, nullptr, &status));
    EXPECT_EQ(status.code, STP_ERR_NETWORK);
    EXPECT_STREQ(status.message, "[send]: virtual connection is down");
    spec->setCanReceive(true);
    spec->setCanSend(false);
    status.clear();
    EXPECT_FALSE(spec->Notify(false, "x", nullptr, &status));
    EXPECT_STREQ(status.message, "[send]: virtual connection is down");
    EXPECT_FALSE(spec->checkSend(false, true)) << "a null status is allowed";
}

TEST(STPSpecClassSendTest, DroppingTheVirtualConnectionCallsTheHookOnce) {
    TableSpec* spec = new TableSpec("plugin", kPluginHandled, 7, kPluginSent, 3, kPluginTags, 4);
    Unref<TableSpec> hold{spec};
    EXPECT_FALSE(spec->isVirtualConnectionDown());
    spec->setCanSend(false);
    EXPECT_TRUE(spec->isSendDown());
    EXPECT_FALSE(spec->isVirtualConnectionDown());
    spec->dropVirtualConnection();
    spec->dropVirtualConnection();
    EXPECT_EQ(spec->downCalls, 1);
    EXPECT_TRUE(spec->isVirtualConnectionDown());
    EXPECT_TRUE(spec->isReceiveDown());
}

// ---- Receiving ----------------------------------------------------------------------------

struct AsciiPeer {
    RawPeer peer;
    AsciiClient* spec = nullptr;
    bool open() {
        if (!peer.open())
            return false;
        spec = new AsciiClient;
        spec->attachTransport(peer.transport.get());
        return true;
    }
    ~AsciiPeer() {
        if (spec)
            spec->unref();
    }
    // A message from the server end (RNs 2 -> 1) with `text` as body.
    bool send(int32_t kind, int32_t tag, uint32_t flags, const std::string& text, uint32_t serial) {
        RawPacket p;
        p.localRN = 2;
        p.remoteRN = 1;
        p.kind = kind;
        p.tag = tag;
        p.flags = flags;
        p.serial = serial;
        p.body = text;
        p.body.append(8 - text.size() % 4, '\0');
        return peer.feed(p.bytes());
    }
    // Services until `n` replies came back; returns their bodies' texts.
    std::vector<std::string> replies(size_t n) {
        std::vector<std::string> out;
        std::string bytes;
        int32_t start = plat_tick_count();
        while (out.size() < n && !pastDeadline(start)) {
            peer.transport->serviceOnce(5);
            bytes += peer.drain(5);
            while (bytes.size() >= STP_HEADER_SIZE) {
                Packet p = firstPacket(bytes);
                size_t size = STP_HEADER_SIZE + p.words[STP_WORD_DATA_SIZE];
                if (bytes.size() < size)
                    break;
                EXPECT_EQ(p.words[STP_WORD_KIND], static_cast<uint32_t>(KIND_REPLY));
                out.push_back(std::to_string(p.words[STP_WORD_IN_REPLY_TO]) + " " +
                              bodyText(p.body));
                bytes.erase(0, size);
            }
        }
        return out;
    }
};

TEST(STPSpecClassReceiveTest, AsciiMessageFoundByNameWhenItsNumberIsUnknown) {
    AsciiPeer a;
    ASSERT_TRUE(a.open());
    ASSERT_TRUE(a.send(KIND_ASCII, -1, 0x41, "QueryUser request_str:\"by name\" ", 11));
    ASSERT_TRUE(a.send(KIND_ASCII, 0, 0x41, "QueryUser request_str:\"by number\" ", 12));
    // A prefix of a name is not the name: nothing runs, the reply goes out empty.
    ASSERT_TRUE(a.send(KIND_ASCII, -1, 0x41, "Query request_str:\"prefix\" ", 13));
    std::vector<std::string> replies = a.replies(3);
    EXPECT_EQ(a.spec->queries, (std::vector<std::string>{"by name", "by number"}));
    EXPECT_EQ(replies, (std::vector<std::string>{"11 response_str:\"yes\" ",
                                                 "12 response_str:\"yes\" ", "13 "}));
    EXPECT_EQ(a.spec->findMessageIdN("QueryUser", 9), 0);
    EXPECT_EQ(a.spec->findMessageIdN("QueryUser request_str", 5), -1);
    EXPECT_EQ(a.spec->findMessageIdN("QueryUserX", 10), -1);
    EXPECT_EQ(a.spec->findMessageId("Tick"), 1);
    EXPECT_EQ(a.spec->findMessageId(""), -1);
}

TEST(STPSpecClassReceiveTest, NoReplyWhileSendingIsDownButTheHandlerRuns) {
    AsciiPeer a;
    ASSERT_TRUE(a.open());
    a.spec->setCanSend(false);
    ASSERT_TRUE(a.send(KIND_ASCII, 0, 0x41, "QueryUser request_str:\"quiet\" ", 5));
    ASSERT_TRUE(serviceUntil({a.peer.transport.get()}, [&] { return !a.spec->queries.empty(); }));
    EXPECT_EQ(a.spec->queries, std::vector<std::string>{"quiet"});
    EXPECT_EQ(a.peer.drain(50), "");
    EXPECT_EQ(a.peer.transport->getWriteLength(), 0);
}

TEST(STPSpecClassReceiveTest, CommandMessagesAreReportedAndAnsweredWithTheResult) {
    AsciiPeer a;
    ASSERT_TRUE(a.open());
    int errors = gen_report_count(GEN_ERROR);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(a.send(KIND_COMMAND, -1, MSG_WANTS_REPLY, "Stop __action:0x5 ", 21));
    std::vector<std::string> replies = a.replies(1);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(replies, std::vector<std::string>{"21 __ret:0x0 "});
    EXPECT_EQ(gen_report_count(GEN_ERROR), errors + 1);
    EXPECT_NE(err.find("unexpected stp command message"), std::string::npos);
}

TEST(STPSpecClassReceiveTest, OneWayMessagesWantNoReply) {
    AsciiPeer a;
    ASSERT_TRUE(a.open());
    ASSERT_TRUE(a.send(KIND_ASCII, 1, MSG_ONE_WAY, "Tick n:0x2a ", 3));
    ASSERT_TRUE(a.send(KIND_ASCII, -1, MSG_ONE_WAY, "Tick n:-3 ", 4));
    ASSERT_TRUE(serviceUntil({a.peer.transport.get()}, [&] { return a.spec->ticks.size() == 2; }));
    EXPECT_EQ(a.spec->ticks, (std::vector<int32_t>{42, -3}));
    EXPECT_EQ(a.peer.drain(50), "");
    EXPECT_EQ(a.spec->getRefCount(), 1);
    EXPECT_EQ(a.spec->getBusyCount(), 0);
}

// Notes its own destruction.
class MortalClient : public AsciiClient {
public:
    MortalClient(bool* gone, int* ticks) : gone(gone), ticksSeen(ticks) {}
    ~MortalClient() override { *gone = true; }
    void Tick(int32_t) override { ++*ticksSeen; }
    bool* gone;
    int* ticksSeen;
};

// Feeds an ordered Tick from another call tree while a wait is in progress (the caller holds a
// MessageDepthGuard), and serves until the transport has held it back.
bool holdBackATick(RawPeer* peer) {
    RawPacket p;
    p.localRN = 2;
    p.remoteRN = 1;
    p.kind = KIND_ASCII;
    p.tag = 1;
    p.flags = MSG_ONE_WAY | MSG_ORDERED;
    p.origin = 0x00070009u;
    p.body = std::string("Tick n:0x1 ") + std::string(5, '\0');
    return peer->feed(p.bytes()) && serviceUntil({peer->transport.get()}, [&] {
               return peer->transport->heldBackQueueSize() == 1;
           });
}

TEST(STPSpecClassReceiveTest, HeldBackMessageKeepsItsObjectAlive) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    bool gone = false;
    int ticks = 0;
    MortalClient* spec = new MortalClient(&gone, &ticks);
    spec->attachTransport(peer.transport.get());
    {
        // A wait of another call tree is in progress: an ordered message must wait for it.
        MessageDepthGuard waiting(peer.transport.get());
        ASSERT_TRUE(holdBackATick(&peer));
        EXPECT_EQ(spec->getHeldCount(), 1);
        EXPECT_EQ(spec->getRefCount(), 2);
        // Offered again while the wait lasts: still held, not counted twice.
        peer.transport->pumpMessages();
        EXPECT_EQ(spec->getHeldCount(), 1);
        spec->unref();
        EXPECT_FALSE(gone) << "the held-back message keeps the object";
        EXPECT_EQ(ticks, 0);
    }
    peer.transport->pumpMessages();
    EXPECT_EQ(ticks, 1);
    EXPECT_TRUE(gone) << "handled at last, and the last reference went with it";
    EXPECT_EQ(peer.transport->heldBackQueueSize(), 0u);
}

TEST(STPSpecClassReceiveTest, DetachingLetsGoOfTheReferenceOfItsHeldBackMessages) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    bool gone = false;
    int ticks = 0;
    MortalClient* spec = new MortalClient(&gone, &ticks);
    spec->attachTransport(peer.transport.get());
    {
        MessageDepthGuard waiting(peer.transport.get());
        ASSERT_TRUE(holdBackATick(&peer));
        ASSERT_EQ(spec->getHeldCount(), 1);
        // The owner lets go while the message waits: the message no longer reaches the object,
        // so it must not keep it either.
        spec->attachTransport(nullptr);
        EXPECT_EQ(spec->getHeldCount(), 0);
        spec->unref();
        EXPECT_TRUE(gone) << "the detached object stayed alive for a message it can't receive";
    }
    peer.transport->pumpMessages();
    EXPECT_EQ(ticks, 0);
}

} // namespace
