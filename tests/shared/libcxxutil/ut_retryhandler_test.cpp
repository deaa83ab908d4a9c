// Retry handlers: how timeouts are read, the clock across the tick wrap, and conditions.
#include "ut_retryhandler.h"

#include "plat_time.h"

#include <gtest/gtest.h>

namespace {

// A clock the test moves by hand.
int32_t g_fakeTick = 0;
int32_t fakeTick() {
    return g_fakeTick;
}

class FakeClock {
public:
    explicit FakeClock(int32_t start) {
        g_fakeTick = start;
        previous = plat_set_tick_source(&fakeTick);
    }
    ~FakeClock() { plat_set_tick_source(previous); }
    void advance(int32_t ms) {
        g_fakeTick = static_cast<int32_t>(static_cast<uint32_t>(g_fakeTick) + ms);
    }

private:
    plat_tick_source previous;
};

class NapHandler : public RetryHandler {
public:
    using RetryHandler::RetryHandler;
    void wait() override {}
};

class FlagCondition : public RetryCondition {
public:
    bool stillValid() override {
        ++asked;
        return valid;
    }
    bool valid = true;
    int asked = 0;
};

TEST(RetryHandlerTimeout, TheArgumentIsReadAsPeriodsOrExactMilliseconds) {
    EXPECT_EQ(NapHandler().getTimeoutMs(), -1);
    EXPECT_EQ(NapHandler(-1).getTimeoutMs(), 15000);
    EXPECT_EQ(NapHandler(1).getTimeoutMs(), 15000);
    EXPECT_EQ(NapHandler(3).getTimeoutMs(), 45000);
    EXPECT_EQ(NapHandler(1000000).getTimeoutMs(), INT32_MAX) << "periods beyond 32 bits are cut";
    EXPECT_EQ(NapHandler(1000500).getTimeoutMs(), 500);
    EXPECT_EQ(NapHandler(0).getTimeoutMs(), -1) << "0 sets no limit";
    EXPECT_EQ(NapHandler(-7).getTimeoutMs(), -1);
}

TEST(RetryHandlerTimeout, LimitCountsFromBeginAcrossTheWrapOfTheTick) {
    FakeClock clock(INT32_MAX - 100); // the counter wraps during the wait
    NapHandler handler(1000500);
    handler.begin();
    clock.advance(499);
    EXPECT_TRUE(handler.canContinue());
    clock.advance(1);
    EXPECT_FALSE(handler.canContinue());
    handler.begin(); // a nested wait restarts the clock
    EXPECT_TRUE(handler.canContinue());
}

TEST(RetryHandlerTimeout, WithoutALimitOnlyConditionsEndTheWait) {
    FakeClock clock(0);
    NapHandler handler;
    handler.begin();
    clock.advance(INT32_MAX);
    EXPECT_TRUE(handler.canContinue());
    FlagCondition first, second;
    handler.addCondition(&first);
    handler.addCondition(&second);
    EXPECT_TRUE(handler.canContinue());
    first.valid = false;
    EXPECT_FALSE(handler.canContinue());
    EXPECT_EQ(second.asked, 1) << "the first false condition ends the questions";
    EXPECT_TRUE(handler.removeCondition(&first));
    EXPECT_FALSE(handler.removeCondition(&first));
    EXPECT_TRUE(handler.canContinue());
}

TEST(RetryHandlerTimeout, AFalseConditionEndsAWaitBeforeItsTime) {
    FakeClock clock(1000);
    NapHandler handler(2);
    FlagCondition condition;
    handler.addCondition(&condition);
    handler.begin();
    EXPECT_TRUE(handler.canContinue());
    condition.valid = false;
    EXPECT_FALSE(handler.canContinue());
}

TEST(RetryHandlerTimeout, TheProcessWideDeadlineTickEndsEveryWait) {
    FakeClock clock(5000);
    NapHandler handler;
    handler.begin();
    RetryHandler::setDeadlineTick(6000);
    EXPECT_TRUE(handler.canContinue());
    clock.advance(1000);
    EXPECT_FALSE(handler.canContinue());
    RetryHandler::setDeadlineTick(-1);
    EXPECT_TRUE(handler.canContinue());
}

} // namespace
