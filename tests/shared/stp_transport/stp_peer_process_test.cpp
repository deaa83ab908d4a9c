// A second process as the peer: nested calls several levels deep on one thread per process,
// with strict waits and a message from another call tree held back; and a peer that sends
// 100 MB, as one packet or as garbage, which closes only its own connection.
//
// The child is this test program again, running StpPeerChild.DISABLED_Run with the mode and
// the port given as extra arguments.
#include "stp_transport.h"

#include "child_mode.h"
#include "plat_process.h"
#include "stp_message.h"
#include "stp_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace stptest;

namespace {

constexpr int32_t kChildDeadlineMs = 60000;
constexpr int32_t kBigBody = 100 * 1000 * 1000;
constexpr int32_t kTagCall = 1;
constexpr int32_t kTagNoise = 2;
constexpr int32_t kFieldValue = 1;
constexpr int32_t kFieldDepth = 2;

// The byte at `offset` of the big body.
unsigned char patternByte(size_t offset) {
    return static_cast<unsigned char>(static_cast<uint32_t>(offset) * 31u + 7u);
}

// Starts the child in `mode` against `port` and returns its handle.
PlatProcess* startChild(const std::string& mode, uint16_t port) {
    return startProgram(
        childCommand("StpPeerChild.DISABLED_Run",
                     {"--stp-child=" + mode, "--stp-port=" + std::to_string(port)}));
}

int finishChild(PlatProcess* child) {
    int code = -1;
    if (plat_wait_process(child, kChildDeadlineMs) != PlatWait::exited)
        plat_terminate_process(child, 99);
    plat_process_exit_code(child, &code);
    plat_close_process(child);
    return code;
}

// Accepts the child's connection on a transport.
bool acceptChild(STPTransport* t, plat_socket listenFd) {
    return t->startListenOnFD(listenFd) &&
           serviceUntil(
               {t}, [&] { return t->tryAccept(true); }, kChildDeadlineMs);
}

// Both processes' handler of a call with value n: n = 0 answers 0; otherwise it calls the
// other side with n - 1 under a strict wait, and answers what came back plus one. It declines
// what canDispatch refuses, as the message layer above does.
class NestingListener : public ResponseListener {
public:
    NestingListener(STPTransport* t, uint32_t local, uint32_t remote)
        : transport(t), localRN(local), remoteRN(remote) {}

    bool handle(STPMessage* m) override {
        if (!transport->canDispatch(m))
            return false;
        if (m->tag == kTagNoise) {
            ++noise;
            return true;
        }
        transport->raiseDepth();
        transport->pushStamp(m->origin, m->depth, m->flags);
        depths.push_back(m->depth);
        origins.push_back(m->origin);
        if (onCall)
            onCall(m);
        int32_t n = m->getInt32(kFieldValue);
        int32_t result = 0;
        if (n > 0) {
            STPMessage* call = transport->newMessage(localRN, remoteRN, KIND_BINARY, kTagCall,
                                                     MSG_WANTS_REPLY | MSG_STRICT_WAIT);
            call->putInt32(kFieldValue, n - 1);
            TurnAllRetryHandler retry({transport}, kChildDeadlineMs);
            uint32_t serial = transport->sendMessage(call, &retry);
            delete call;
            STPMessage* reply = serial ? transport->awaitResponse(serial, &retry) : nullptr;
            result = reply ? reply->getInt32(kFieldValue) + 1 : -1000;
            if (reply)
                replyDepths.push_back(static_cast<uint32_t>(reply->getInt32(kFieldDepth)));
            delete reply;
        }
        STPMessage* answer = transport->newReply(localRN, remoteRN, m->serial, 0);
        answer->putInt32(kFieldValue, result);
        answer->putInt32(kFieldDepth, static_cast<int32_t>(answer->depth));
        transport->sendWithAttempts(answer, 2);
        delete answer;
        transport->popStamp();
        transport->lowerDepth();
        return true;
    }

    STPTransport* transport;
    uint32_t localRN, remoteRN;
    std::vector<uint32_t> depths, origins, replyDepths;
    int noise = 0;
    std::function<void(STPMessage*)> onCall;
};

// ---- The child
// -----------------------------------------------------------------------------------

void runNestingChild(uint16_t port) {
    TransportPtr t = makeTransport();
    t->setOriginId(0x42);
    ASSERT_TRUE(t->connect("127.0.0.1", port));
    NestingListener listener(t.get(), 2, 1);
    // The first call also brings a one-way message from a call tree of the child's own; the
    // parent, in its strict wait, must keep it until that wait is over.
    listener.onCall = [&](STPMessage* m) {
        if (m->depth != 1)
            return;
        STPMessage* noise = t->newMessage(2, 1, KIND_BINARY, kTagNoise, MSG_ONE_WAY);
        noise->origin = 0x00420001;
        noise->depth = 1;
        EXPECT_NE(t->sendMessage(noise), 0u);
        delete noise;
    };
    t->addListener(1, 2, &listener, KIND_BINARY);
    int32_t start = plat_tick_count();
    while (t->isBound() && !pastDeadline(start, kChildDeadlineMs))
        t->serviceOnce(100);
    EXPECT_FALSE(t->isBound()) << "the parent ends the conversation";
    EXPECT_EQ(listener.depths, (std::vector<uint32_t>{1, 3, 5, 7}));
    EXPECT_EQ(STPTransport::messageDepth(), 0);
}

void runBigChild(uint16_t port, bool garbage) {
    plat_socket s = plat_tcp_socket();
    ASSERT_TRUE(plat_connect(s, plat_loopback_address(), port));
    std::string chunk(1 << 20, '\0');
    size_t total = static_cast<size_t>(kBigBody);
    if (!garbage) {
        RawPacket header;
        header.dataSize = kBigBody;
        std::string head = header.bytes();
        ASSERT_EQ(plat_send(s, head.data(), head.size()), static_cast<long>(head.size()));
    }
    for (size_t sent = 0; sent < total;) {
        size_t n = std::min(chunk.size(), total - sent);
        for (size_t i = 0; i < n; ++i)
            chunk[i] = garbage ? '\xff' : static_cast<char>(patternByte(sent + i));
        for (size_t off = 0; off < n;) {
            long done = plat_send(s, chunk.data() + off, n - off);
            if (done <= 0) {
                // Only garbage may be refused: the parent closes on its first eight bytes.
                EXPECT_TRUE(garbage) << "send failed after " << sent + off << " bytes";
                plat_close_socket(s);
                return;
            }
            off += static_cast<size_t>(done);
        }
        sent += n;
    }
    plat_close_socket(s);
}

TEST(StpPeerChild, DISABLED_Run) {
    std::string mode = childArgument("stp-child");
    uint16_t port = static_cast<uint16_t>(std::stoi(childArgument("stp-port")));
    if (mode == "nesting")
        runNestingChild(port);
    else if (mode == "big")
        runBigChild(port, false);
    else if (mode == "garbage")
        runBigChild(port, true);
    else
        FAIL() << "unknown child mode " << mode;
}

// ---- The parent
// -----------------------------------------------------------------------------------

TEST(StpPeerProcess, NestedStrictCallsSeveralLevelsDeepWithAnotherTreeHeldBack) {
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    ASSERT_NE(listenFd, PLAT_INVALID_SOCKET);
    PlatProcess* child = startChild("nesting", port);
    ASSERT_NE(child, nullptr);
    TransportPtr t = makeTransport();
    t->setOriginId(0x17);
    ASSERT_TRUE(acceptChild(t.get(), listenFd));
    NestingListener listener(t.get(), 1, 2);
    int noiseDuringWait = -1;
    listener.onCall = [&](STPMessage*) { noiseDuringWait = listener.noise; };
    t->addListener(2, 1, &listener, KIND_BINARY);

    STPMessage* call =
        t->newMessage(1, 2, KIND_BINARY, kTagCall, MSG_WANTS_REPLY | MSG_STRICT_WAIT);
    call->putInt32(kFieldValue, 6);
    TurnAllRetryHandler retry({t.get()}, kChildDeadlineMs);
    uint32_t serial = t->sendMessage(call, &retry);
    uint32_t origin = call->origin;
    delete call;
    ASSERT_NE(serial, 0u);
    STPMessage* reply = t->awaitResponse(serial, &retry);
    ASSERT_NE(reply, nullptr) << t->getStatus().message;
    EXPECT_EQ(reply->getInt32(kFieldValue), 6) << "every level answered";
    EXPECT_EQ(reply->getInt32(kFieldDepth), 1);
    delete reply;

    EXPECT_EQ(listener.depths, (std::vector<uint32_t>{2, 4, 6}));
    EXPECT_EQ(listener.origins, (std::vector<uint32_t>(3, origin)))
        << "the whole tree carries the origin of the first call";
    EXPECT_EQ(listener.replyDepths, (std::vector<uint32_t>{7, 5, 3})) << "innermost first";
    EXPECT_EQ(noiseDuringWait, 0);
    EXPECT_EQ(STPTransport::strictWaits(), 0);
    EXPECT_EQ(STPTransport::messageDepth(), 0);

    // The other tree's message runs once the wait is over.
    ASSERT_TRUE(serviceUntil({t.get()}, [&] { return listener.noise == 1; }));
    t->closeConnection();
    EXPECT_EQ(finishChild(child), 0);
}

// What the parent keeps of a 100 MB message: its size and a checksum, not a copy.
class BigListener : public ResponseListener {
public:
    bool handle(STPMessage* m) override {
        ++count;
        size = m->dataSize;
        const unsigned char* body =
            reinterpret_cast<const unsigned char*>(m->data()) + m->headerSize;
        patternOk = true;
        for (int32_t i = 0; i < m->dataSize && patternOk; i += 4099)
            patternOk = body[i] == patternByte(static_cast<size_t>(i));
        return true;
    }
    int count = 0;
    int32_t size = 0;
    bool patternOk = false;
};

class StpBigPeer : public ::testing::TestWithParam<bool> {};

TEST_P(StpBigPeer, HundredMegabytesCloseOnlyThatConnection) {
    bool garbage = GetParam();
    LoopbackPair bystanders;
    ASSERT_TRUE(bystanders.open());
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    PlatProcess* child = startChild(garbage ? "garbage" : "big", port);
    ASSERT_NE(child, nullptr);
    TransportPtr t = makeTransport();
    ASSERT_TRUE(acceptChild(t.get(), listenFd));
    BigListener listener;
    t->addListener(1, 2, &listener, KIND_BINARY);
    int32_t start = plat_tick_count();
    int32_t maxCapacity = 0;
    while (t->isBound() && !pastDeadline(start, kChildDeadlineMs)) {
        t->serviceOnce(100);
        maxCapacity = std::max(maxCapacity, t->getReadCapacity());
    }
    ASSERT_FALSE(t->isBound());
    if (garbage) {
        EXPECT_EQ(listener.count, 0);
        EXPECT_EQ(t->getStatus().code, STP_ERR_NETWORK);
        EXPECT_STREQ(t->getStatus().message, "[handleRead]: remote host sent invalid packet");
        EXPECT_EQ(maxCapacity, STP_DEFAULT_BUFFER_SIZE) << "nothing was buffered for garbage";
    } else {
        EXPECT_EQ(listener.count, 1);
        EXPECT_EQ(listener.size, kBigBody);
        EXPECT_TRUE(listener.patternOk);
        EXPECT_GT(maxCapacity, kBigBody);
        EXPECT_EQ(t->getStatus().code, STP_ERR_PEER_CLOSED);
        EXPECT_STREQ(t->getStatus().message, "[handleRead]: peer has closed connection");
    }
    EXPECT_EQ(t->getReadCapacity(), STP_DEFAULT_BUFFER_SIZE);
    EXPECT_EQ(finishChild(child), 0);

    // The rest of the process is untouched.
    RecordingListener other;
    bystanders.server->addListener(1, 2, &other, KIND_BINARY);
    STPMessage* m = bystanders.client->newMessage(1, 2, KIND_BINARY, 1, MSG_ONE_WAY);
    EXPECT_NE(bystanders.client->sendMessage(m), 0u);
    delete m;
    ASSERT_TRUE(serviceUntil({bystanders.server.get()}, [&] { return !other.seen.empty(); }));
}

INSTANTIATE_TEST_SUITE_P(Kinds, StpBigPeer, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "Garbage" : "OnePacket");
                         });

} // namespace
