// The one wait loop of the blocking operations: the order of its steps, and what ends it.
#include "stp_wait.h"

#include "stp_test_support.h"

#include <gtest/gtest.h>

#include <string>

using namespace stptest;

namespace {

// Records the calls a wait makes on it, in order; says canContinue false after `turns` waits.
class RecordingRetry : public RetryHandler {
public:
    explicit RecordingRetry(int turns, std::function<void()> onWait = {})
        : turnsLeft(turns), onWait(std::move(onWait)) {}
    void begin() override { calls += "begin "; }
    bool canContinue() override {
        calls += "can ";
        return turnsLeft > 0;
    }
    void end() override { calls += "end"; }
    void wait() override {
        calls += "wait ";
        --turnsLeft;
        if (onWait)
            onWait();
    }
    int turnsLeft;
    std::function<void()> onWait;
    std::string calls;
};

TEST(StpWait, StepsComeInTheirOrderAndEachEndIsToldApart) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    STPTransport* t = pair.client.get();

    // Nothing to wait for: the handler is not touched.
    RecordingRetry idle(5);
    EXPECT_EQ(stp_wait_until(t, &idle, [] { return true; }), STPWaitEnd::done);
    EXPECT_EQ(idle.calls, "");

    // A handler that will not go on still gets one turn first.
    RecordingRetry none(0);
    EXPECT_EQ(stp_wait_until(t, &none, [] { return false; }), STPWaitEnd::gaveUp);
    EXPECT_EQ(none.calls, "begin wait can end");

    int checks = 0;
    RecordingRetry two(5);
    EXPECT_EQ(stp_wait_until(t, &two, [&] { return ++checks == 3; }), STPWaitEnd::done);
    EXPECT_EQ(two.calls, "begin wait can wait end");

    // A failure seen in a turn ends the wait before `done` is asked again.
    RecordingRetry failing(5, [&] {
        pair.server->closeConnection();
        serviceUntil({t}, [&] { return !t->getStatus().ok(); });
    });
    checks = 0;
    EXPECT_EQ(stp_wait_until(t, &failing, [&] { return ++checks > 10; }), STPWaitEnd::failed);
    EXPECT_EQ(t->getStatus().code, STP_ERR_PEER_CLOSED);
    EXPECT_EQ(checks, 1);
    EXPECT_EQ(failing.calls, "begin wait end");

    // Without a handler the transport itself is served until `done` holds.
    LoopbackPair other;
    ASSERT_TRUE(other.open());
    STPMessage* m = other.server->newMessage(1, 2, KIND_BINARY, 1, MSG_ONE_WAY);
    other.server->sendMessage(m);
    delete m;
    EXPECT_EQ(stp_wait_until(other.client.get(), nullptr,
                             [&] { return other.client->unclaimedQueueSize() == 1; }),
              STPWaitEnd::done);
}

} // namespace
