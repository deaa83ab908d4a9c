// Waiting for children at shut-down: the time-out, its message and the termination.
#include "servicerouter_proxy.h"

#include "plat_process.h"

#include <gtest/gtest.h>

#include <string>

namespace {

PlatProcess* startSleeper() {
    const char* argv[] = {"sleep", "30", nullptr};
    return plat_spawn(argv, nullptr, nullptr);
}

TEST(WaitForChildExit, TerminatesAChildThatOutlivesTheTimeoutAndSaysSo) {
    PlatProcess* child = startSleeper();
    ASSERT_NE(child, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(waitForChildExit(child, "plugin Demo", true, 1500));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "trellis: plugin Demo (handle=" + std::to_string(plat_process_id(child)) +
                       ") took more than 1 seconds (1500 msecs) to shut down, terminating "
                       "process.\n");
    int code = -1;
    EXPECT_TRUE(plat_process_exit_code(child, &code));
    EXPECT_EQ(code, 0);
    plat_close_process(child);
}

TEST(WaitForChildExit, WithoutTerminateTheWaitReturnsAndTheChildLives) {
    PlatProcess* child = startSleeper();
    ASSERT_NE(child, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(waitForChildExit(child, "svc_router", false, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(plat_wait_process(child, 0), PlatWait::timed_out);
    plat_terminate_process(child, 0);
    plat_close_process(child);
}

TEST(WaitForChildExit, AChildThatEndsInTimeIsNotReported) {
    const char* argv[] = {"true", nullptr};
    PlatProcess* child = plat_spawn(argv, nullptr, nullptr);
    ASSERT_NE(child, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(waitForChildExit(child, "plugin", true, 4000));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    plat_close_process(child);
}

} // namespace
