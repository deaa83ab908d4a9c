// Tests of the STP retry handlers and the per-call retry condition: limits, what ends a wait,
// and the whole-process waits that keep idle jobs, timers and other sockets going.
#include "stp_retryhandler.h"

#include "stp_socketlistener.h"
#include "stp_test_ends.h"
#include "ut_idle.h"

#include <gtest/gtest.h>

#include <string>

using namespace stptest;

namespace {

TEST(STPRetryHandlerTest, NeedsAGoodTransport) {
    STPRetryHandler none;
    none.begin();
    EXPECT_FALSE(none.canContinue()) << "without a transport even with no limit";

    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    STPRetryHandler handler(pair.client.get());
    handler.begin();
    EXPECT_TRUE(handler.canContinue());

    // A transport that still waits for its client counts as connected.
    TransportPtr listening = makeTransport();
    uint16_t port = 0;
    ASSERT_TRUE(listening->startListenOnFD(STPTransport::getEphemeralListenSocket(&port)));
    STPRetryHandler forClient(listening.get());
    EXPECT_TRUE(forClient.canContinue());

    pair.server->closeConnection();
    ASSERT_TRUE(serviceUntil({pair.client.get()}, [&] { return !handler.canContinue(); }));
    EXPECT_TRUE(pair.client->isDisconnected() || !pair.client->getStatus().ok());
}

// A wait that drops the virtual connection of `spec` on its third turn.
class DroppingRetryHandler : public TurnAllRetryHandler {
public:
    DroppingRetryHandler(std::vector<STPTransport*> all, STPSpecClass* spec)
        : TurnAllRetryHandler(std::move(all)), spec(spec) {}
    void wait() override {
        TurnAllRetryHandler::wait();
        if (waits == 3)
            spec->dropVirtualConnection();
    }
    STPSpecClass* spec;
};

TEST(STPRetryConditionTest, DroppedVirtualConnectionEndsTheWaitEarly) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    TestClient* spec = new TestClient;
    spec->attachTransport(pair.client.get());
    {
        STP_RetryCondition condition(spec);
        EXPECT_EQ(spec->getRefCount(), 2) << "the condition holds a reference";
        EXPECT_TRUE(condition.stillValid());
        DroppingRetryHandler retry({pair.client.get(), pair.server.get()}, spec);
        retry.addCondition(&condition);
        STPStatus status;
        // A request nobody listens for: only the condition can end this wait before its limit.
        STPMessage* request = pair.client->newMessage(1, 2, KIND_BINARY, 99, MSG_WANTS_REPLY);
        uint32_t serial = pair.client->sendMessage(request, &retry, &status);
        delete request;
        ASSERT_NE(serial, 0u) << status.message;
        EXPECT_EQ(pair.client->awaitResponse(serial, &retry, &status), nullptr);
        EXPECT_EQ(status.code, STP_ERR_TIMEOUT);
        EXPECT_EQ(retry.waits, 3);
        EXPECT_FALSE(condition.stillValid());
        EXPECT_TRUE(retry.removeCondition(&condition));
    }
    EXPECT_EQ(spec->getRefCount(), 1);
    spec->unref();
}

TEST(STPRetryConditionTest, ServiceHandlersGiveUpWhenTheConnectionIsDown) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    TestClient* spec = new TestClient;
    spec->attachTransport(pair.client.get());
    ServiceConnRetryHandler service(spec, 10000);
    IdleConnRetryHandler idle(spec, 10000, 20);
    VCRetryHandler vc(spec, nullptr, 10000);
    for (RetryHandler* h :
         {static_cast<RetryHandler*>(&service), (RetryHandler*)&idle, (RetryHandler*)&vc}) {
        h->begin();
        EXPECT_TRUE(h->canContinue());
    }
    spec->dropVirtualConnection();
    for (RetryHandler* h :
         {static_cast<RetryHandler*>(&service), (RetryHandler*)&idle, (RetryHandler*)&vc})
        EXPECT_FALSE(h->canContinue());
    spec->unref();
}

TEST(VCRetryHandlerTest, GivesUpWithItsMessageOncePerExpiry) {
    VCRetryHandler expired(nullptr, nullptr, 0);
    expired.begin();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(expired.canContinue());
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Version control operation timed out while waiting for a response from "
                   "client. Aborting.\n");
    // An outer wait that shares the handler with the one that expired ends without a second
    // message; the next begin starts a new period, which reports its own expiry.
    testing::internal::CaptureStderr();
    EXPECT_FALSE(expired.canContinue());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    expired.begin();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(expired.canContinue());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), err);

    expired.setAbortMessage(nullptr);
    expired.begin();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(expired.canContinue());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    VCRetryHandler running(nullptr, nullptr, 60000, "custom\n");
    running.begin();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(running.canContinue());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // The transport given, or that of the watched object, must not be disconnected.
    TransportPtr idle = makeTransport();
    VCRetryHandler onIdle(nullptr, idle.get(), 60000, nullptr);
    onIdle.begin();
    EXPECT_FALSE(onIdle.canContinue());
}

// Counts the timer's firings.
class CountingTimer : public TimerListener {
public:
    void timerFired(int32_t) override { ++fired; }
    int fired = 0;
};

// The server end of the test answers only through this idle job, and only once the timer has
// fired: a call can end only if both run while its caller waits.
class ServingIdler : public Idler {
public:
    ServingIdler(STPTransport* server, const CountingTimer* timer) : server(server), timer(timer) {}
    void idle(IdleNotifier*) override {
        ++slices;
        if (timer->fired > 0)
            server->serviceOnce(0);
    }
    bool hasUrgentWork() override { return false; }
    STPTransport* server;
    const CountingTimer* timer;
    int slices = 0;
};

class WholeProcessWaitTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pair.open());
        client = new TestClient;
        server = new TestServer;
        client->attachTransport(pair.client.get());
        server->attachTransport(pair.server.get());
        client->negotiateLocally();
        server->negotiateLocally();
        listener = new STPSocketListener(pair.client.get());
        IdleNotifier::get()->addTimer(&timer, 10);
        IdleNotifier::get()->addIdler(&idler);
    }
    void TearDown() override {
        IdleNotifier::get()->removeIdler(&idler);
        IdleNotifier::get()->removeTimer(&timer);
        delete listener;
        client->unref();
        server->unref();
    }

    LoopbackPair pair;
    TestClient* client = nullptr;
    TestServer* server = nullptr;
    STPSocketListener* listener = nullptr;
    CountingTimer timer;
    ServingIdler idler{pair.server.get(), &timer};
};

TEST_F(WholeProcessWaitTest, VCRetryHandlerKeepsTimersAndIdlersRunning) {
    VCRetryHandler retry(client, nullptr, kDeadlineMs);
    uint32_t sum = 0;
    STPStatus status;
    ASSERT_TRUE(client->Add(20, 22, &sum, &retry, &status)) << status.message;
    EXPECT_EQ(sum, 42u);
    EXPECT_GT(timer.fired, 0);
    EXPECT_GT(idler.slices, 0);
    EXPECT_EQ(server->adds, 1);
}

TEST_F(WholeProcessWaitTest, IdleConnRetryHandlerKeepsTimersAndIdlersRunning) {
    IdleConnRetryHandler retry(client, kDeadlineMs, 20);
    uint32_t sum = 0;
    STPStatus status;
    ASSERT_TRUE(client->Add(1, 2, &sum, &retry, &status)) << status.message;
    EXPECT_EQ(sum, 3u);
    EXPECT_GT(timer.fired, 0);
    EXPECT_GT(idler.slices, 0);
}

} // namespace
