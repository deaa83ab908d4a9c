// Spawns that children of the service need (checked steps, /dev/null input, a session and a
// process group of their own) and the pipe calls that drain them. Group kills that reach
// grandchildren are tested with the time limit of gen_process.
#include "plat_pipe.h"
#include "plat_process.h"
#include "plat_time.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

namespace {

// Fields 5 (process group) and 6 (session) of /proc/PID/stat.
bool groupAndSession(int pid, long* group, long* session) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    size_t close = stat.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream rest(stat.substr(close + 2));
    char state;
    long parent;
    return static_cast<bool>(rest >> state >> parent >> *group >> *session);
}

TEST(Spawn, ADetachedChildHasItsOwnSessionAndGroupAndReadsFromDevNull) {
    const char* argv[] = {"sleep", "30", nullptr};
    PlatSpawnOptions options;
    options.stdinFd = PLAT_SPAWN_NULL_DEVICE;
    options.newSession = true;
    PlatProcess* child = plat_spawn(argv, &options, nullptr);
    ASSERT_NE(child, nullptr);
    int pid = plat_process_id(child);
    long group = 0, session = 0;
    ASSERT_TRUE(groupAndSession(pid, &group, &session));
    EXPECT_EQ(group, pid);
    EXPECT_EQ(session, pid);
    std::string input = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/0");
    EXPECT_EQ(input, "/dev/null");
    EXPECT_TRUE(plat_terminate_process_group(child, 7));
    int code = 0;
    EXPECT_TRUE(plat_process_exit_code(child, &code));
    EXPECT_EQ(code, 7);
    plat_close_process(child);

    // Without the option the child stays in this process's session.
    const char* quick[] = {"sleep", "30", nullptr};
    child = plat_spawn(quick, nullptr, nullptr);
    ASSERT_NE(child, nullptr);
    ASSERT_TRUE(groupAndSession(plat_process_id(child), &group, &session));
    long ownGroup = 0, ownSession = 0;
    ASSERT_TRUE(groupAndSession(plat_current_process_id(), &ownGroup, &ownSession));
    EXPECT_EQ(session, ownSession);
    // A group kill of a child without a group of its own kills only the child (killing the
    // group would end this test's process).
    EXPECT_TRUE(plat_terminate_process_group(child, 0));
    plat_close_process(child);
}

// Whether any process is in the process group `group`.
bool groupHasMembers(long group) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        long pid = std::atol(entry.path().filename().c_str());
        long memberGroup = 0, session = 0;
        if (pid > 0 && groupAndSession(static_cast<int>(pid), &memberGroup, &session) &&
            memberGroup == group)
            return true;
    }
    return false;
}

TEST(Spawn, AKillWithoutWaitReachesTheWholeGroupAndLeavesTheReapToTheCaller) {
    const char* argv[] = {"sh", "-c", "sleep 30 & sleep 30", nullptr};
    PlatSpawnOptions options;
    options.stdinFd = PLAT_SPAWN_NULL_DEVICE;
    options.newSession = true;
    PlatProcess* child = plat_spawn(argv, &options, nullptr);
    ASSERT_NE(child, nullptr);
    int pid = plat_process_id(child);
    int32_t start = plat_tick_count();
    while (!groupHasMembers(pid) && plat_tick_diff(plat_tick_count(), start) < 5000)
        plat_sleep_ms(5);
    ASSERT_TRUE(plat_kill_process_group(child));
    int code = 0;
    EXPECT_FALSE(plat_process_exit_code(child, &code)) << "the kill must not reap";
    ASSERT_EQ(plat_wait_process(child, 10000), PlatWait::exited);
    ASSERT_TRUE(plat_process_exit_code(child, &code));
    EXPECT_EQ(code, 128 + 9);
    // The background sleep was in the group too.
    start = plat_tick_count();
    while (groupHasMembers(pid) && plat_tick_diff(plat_tick_count(), start) < 5000)
        plat_sleep_ms(5);
    EXPECT_FALSE(groupHasMembers(pid));
    // Once reaped, the number may be reused: nothing is signalled again.
    EXPECT_TRUE(plat_kill_process_group(child));
    plat_close_process(child);
}

TEST(Spawn, EveryStepIsCheckedAndAFailedOneStartsNothing) {
    const char* argv[] = {"true", nullptr};
    PlatError error = PlatError::none;
    PlatSpawnOptions missingDir;
    missingDir.workingDir = "/no/such/directory/here";
    EXPECT_EQ(plat_spawn(argv, &missingDir, &error), nullptr);
    EXPECT_EQ(error, PlatError::not_found);

    // A descriptor that is not open cannot be handed over: one beyond the table is refused
    // when the spawn is prepared, one inside it when the child takes it.
    for (int fd : {1 << 30, 987}) {
        PlatSpawnOptions badFd;
        badFd.stdoutFd = fd;
        error = PlatError::none;
        EXPECT_EQ(plat_spawn(argv, &badFd, &error), nullptr) << fd;
        EXPECT_NE(error, PlatError::none) << fd;
    }
}

TEST(Pipes, PeekCountsWaitingBytesAndTellsTheEndFromSilence) {
    int fds[2];
    ASSERT_TRUE(plat_pipe(fds));
    bool ready[1] = {true};
    EXPECT_EQ(plat_pipe_peek(fds[0]), 0);
    EXPECT_EQ(plat_wait_readable(fds, 1, 0, ready), 0);
    EXPECT_FALSE(ready[0]);

    ASSERT_EQ(plat_write_fd(fds[1], "hello", 5), 5);
    EXPECT_EQ(plat_pipe_peek(fds[0]), 5);
    EXPECT_EQ(plat_wait_readable(fds, 1, 1000, ready), 1);
    EXPECT_TRUE(ready[0]);

    // Bytes written before the writer went are still counted; the end shows once they are read.
    plat_close_fd(fds[1]);
    EXPECT_EQ(plat_pipe_peek(fds[0]), 5);
    char buffer[8];
    EXPECT_EQ(plat_read_fd(fds[0], buffer, sizeof buffer), 5);
    EXPECT_EQ(plat_pipe_peek(fds[0]), -1);
    EXPECT_EQ(plat_wait_readable(fds, 1, 1000, ready), 1);
    EXPECT_TRUE(ready[0]);
    plat_close_fd(fds[0]);
}

TEST(Pipes, AWaitOnSeveralEndsReportsOnlyTheReadyOneAndTimesOut) {
    int a[2], b[2];
    ASSERT_TRUE(plat_pipe(a));
    ASSERT_TRUE(plat_pipe(b));
    int ends[2] = {a[0], b[0]};
    bool ready[2] = {true, true};
    int32_t start = plat_tick_count();
    EXPECT_EQ(plat_wait_readable(ends, 2, 50, ready), 0);
    EXPECT_GE(plat_tick_diff(plat_tick_count(), start), 40);
    ASSERT_EQ(plat_write_fd(b[1], "x", 1), 1);
    EXPECT_EQ(plat_wait_readable(ends, 2, 1000, ready), 1);
    EXPECT_FALSE(ready[0]);
    EXPECT_TRUE(ready[1]);
    for (int fd : {a[0], a[1], b[0], b[1]})
        plat_close_fd(fd);
}

} // namespace
