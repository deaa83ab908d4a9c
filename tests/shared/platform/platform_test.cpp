// The platform layer: ticks and their wrap, select over real sockets, connects, child processes.
#include "plat_pipe.h"
#include "plat_process.h"
#include "plat_socket.h"
#include "plat_time.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

TEST(Ticks, DifferenceAndAdditionSurviveTheWrap) {
    EXPECT_EQ(plat_tick_diff(INT_MIN + 5, INT_MAX - 4), 10);
    EXPECT_EQ(plat_tick_diff(INT_MAX - 4, INT_MIN + 5), -10);
    EXPECT_EQ(plat_tick_add(INT_MAX, 1), INT_MIN);
    EXPECT_EQ(plat_tick_add(-1, 30000), 29999);
}

int32_t fixedClock() {
    return 1234;
}

TEST(Ticks, ClockMovesForwardAndCanBeReplacedForTests) {
    int32_t a = plat_tick_count();
    plat_sleep_ms(20);
    int32_t b = plat_tick_count();
    EXPECT_GE(plat_tick_diff(b, a), 15);
    EXPECT_EQ(plat_set_tick_source(fixedClock), nullptr);
    EXPECT_EQ(plat_tick_count(), 1234);
    EXPECT_EQ(plat_set_tick_source(nullptr), fixedClock);
    EXPECT_NE(plat_tick_count(), 1234);
}

TEST(Ticks, WallClockCountsMillisecondsSince1601) {
    // 2020-01-01 and 2100-01-01 as milliseconds since 1601-01-01.
    int64_t ms = plat_wall_clock_ms();
    EXPECT_GT(ms, 13222569600000LL);
    EXPECT_LT(ms, 15745363200000LL);
}

TEST(Select, ReportsOnlyReadySocketsAndHonoursTheSetLimit) {
    plat_socket a[2], b[2];
    ASSERT_TRUE(plat_socket_pair(a));
    ASSERT_TRUE(plat_socket_pair(b));
    plat_fd_set readSet, writeSet;
    plat_fd_zero(&readSet);
    plat_fd_add(&readSet, a[0]);
    plat_fd_add(&readSet, b[0]);
    EXPECT_EQ(plat_select(0, &readSet, nullptr, nullptr, 0), 0);
    EXPECT_EQ(readSet.count, 0);

    ASSERT_EQ(plat_send(b[1], "z", 1), 1);
    plat_fd_zero(&readSet);
    plat_fd_add(&readSet, a[0]);
    plat_fd_add(&readSet, b[0]);
    plat_fd_zero(&writeSet);
    plat_fd_add(&writeSet, a[0]);
    EXPECT_EQ(plat_select(0, &readSet, &writeSet, nullptr, 1000), 2);
    EXPECT_FALSE(plat_fd_isset(&readSet, a[0]));
    EXPECT_TRUE(plat_fd_isset(&readSet, b[0]));
    EXPECT_TRUE(plat_fd_isset(&writeSet, a[0]));

    // A peer that closes makes the socket readable; recv then says 0.
    plat_close_socket(a[1]);
    plat_fd_zero(&readSet);
    plat_fd_add(&readSet, a[0]);
    EXPECT_EQ(plat_select(0, &readSet, nullptr, nullptr, 1000), 1);
    char c;
    EXPECT_EQ(plat_recv(a[0], &c, 1), 0);

    plat_fd_set full;
    plat_fd_zero(&full);
    for (int i = 0; i < PLAT_FD_SETSIZE; ++i)
        ASSERT_TRUE(plat_fd_add(&full, 1000 + i));
    EXPECT_FALSE(plat_fd_add(&full, 5000));
    EXPECT_TRUE(plat_fd_add(&full, 1000)); // already in
    for (plat_socket s : {a[0], b[0], b[1]})
        plat_close_socket(s);
}

TEST(Connect, NonBlockingConnectToLoopbackAndToAClosedPort) {
    plat_socket server = plat_tcp_socket();
    ASSERT_NE(server, PLAT_INVALID_SOCKET);
    ASSERT_TRUE(plat_bind(server, plat_loopback_address(), 0));
    ASSERT_TRUE(plat_listen(server, 4));
    uint16_t port = 0;
    ASSERT_TRUE(plat_local_address(server, nullptr, &port));
    ASSERT_NE(port, 0);

    plat_socket client = plat_tcp_socket();
    ASSERT_TRUE(plat_set_nonblocking(client, true));
    ASSERT_TRUE(plat_set_nodelay(client, true));
    if (!plat_connect(client, plat_loopback_address(), port)) {
        PlatError e = plat_last_error();
        ASSERT_TRUE(e == PlatError::in_progress || e == PlatError::would_block);
        plat_fd_set w;
        plat_fd_zero(&w);
        plat_fd_add(&w, client);
        ASSERT_EQ(plat_select(0, nullptr, &w, nullptr, 5000), 1);
    }
    EXPECT_EQ(plat_connect_result(client), PlatError::none);
    plat_socket accepted = plat_accept(server);
    ASSERT_NE(accepted, PLAT_INVALID_SOCKET);
    uint32_t peer = 0;
    ASSERT_TRUE(plat_peer_address(accepted, &peer, nullptr));
    char dotted[16];
    EXPECT_STREQ(plat_inet_ntoa(peer, dotted), "127.0.0.1");
    EXPECT_EQ(plat_inet_addr("127.0.0.1"), plat_loopback_address());
    EXPECT_EQ(plat_inet_addr("not.an.address"), PLAT_INADDR_NONE);

    // Nothing pending on a non-blocking listener: would_block, not a hang.
    ASSERT_TRUE(plat_set_nonblocking(server, true));
    EXPECT_EQ(plat_accept(server), PLAT_INVALID_SOCKET);
    EXPECT_EQ(plat_last_error(), PlatError::would_block);

    // The port is free once the listener is gone: a connect there is refused.
    plat_close_socket(server);
    plat_socket refused = plat_tcp_socket();
    EXPECT_FALSE(plat_connect(refused, plat_loopback_address(), port));
    EXPECT_EQ(plat_last_error(), PlatError::connection_refused);
    for (plat_socket s : {client, accepted, refused})
        plat_close_socket(s);
}

TEST(Connect, SendToAClosedPeerIsAnErrorNotASignal) {
    plat_socket p[2];
    ASSERT_TRUE(plat_socket_pair(p));
    plat_close_socket(p[1]);
    char buf[256] = {};
    long rc = plat_send(p[0], buf, sizeof buf);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(plat_last_error(), PlatError::connection_reset);
    plat_close_socket(p[0]);
}

TEST(Processes, ExitCodesWaitsWithTimeOutAndTerminate) {
    const char* ok[] = {"true", nullptr};
    PlatProcess* p = plat_spawn(ok, nullptr, nullptr);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(plat_wait_process(p, 10000), PlatWait::exited);
    int code = -1;
    EXPECT_TRUE(plat_process_exit_code(p, &code));
    EXPECT_EQ(code, 0);
    plat_close_process(p);

    const char* sleeper[] = {"sleep", "30", nullptr};
    p = plat_spawn(sleeper, nullptr, nullptr);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(plat_wait_process(p, 0), PlatWait::timed_out);
    EXPECT_EQ(plat_wait_process(p, 50), PlatWait::timed_out);
    EXPECT_FALSE(plat_process_exit_code(p, &code));
    EXPECT_TRUE(plat_terminate_process(p, 0));
    EXPECT_EQ(plat_wait_process(p, 0), PlatWait::exited);
    EXPECT_TRUE(plat_process_exit_code(p, &code));
    EXPECT_EQ(code, 0);
    plat_close_process(p);
}

TEST(Processes, ExeSuffixIsDroppedWhenOnlyThePlainProgramExistsAndMissingProgramsSaySo) {
    const char* withSuffix[] = {"false.exe", nullptr};
    PlatError error = PlatError::other;
    PlatProcess* p = plat_spawn(withSuffix, nullptr, &error);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(error, PlatError::none);
    EXPECT_EQ(plat_wait_process(p, 10000), PlatWait::exited);
    int code = -1;
    EXPECT_TRUE(plat_process_exit_code(p, &code));
    EXPECT_EQ(code, 1);
    plat_close_process(p);

    const char* missing[] = {"no-such-program-here.exe", nullptr};
    EXPECT_EQ(plat_spawn(missing, nullptr, &error), nullptr);
    EXPECT_EQ(error, PlatError::not_found);
}

TEST(Processes, OutputGoesWhereTheOptionsSayAndFileNamesStayArguments) {
    int fds[2];
    ASSERT_TRUE(plat_pipe(fds));
    // A name full of shell syntax is one argument, never a command.
    const char* argv[] = {"echo", "a; rm -rf / $(x) `y`", nullptr};
    PlatSpawnOptions options;
    options.stdoutFd = fds[1];
    PlatProcess* p = plat_spawn(argv, &options, nullptr);
    plat_close_fd(fds[1]);
    ASSERT_NE(p, nullptr);
    std::string out;
    char buf[256];
    long n;
    while ((n = plat_read_fd(fds[0], buf, sizeof buf)) > 0)
        out.append(buf, n);
    plat_close_fd(fds[0]);
    EXPECT_EQ(plat_wait_process(p, 10000), PlatWait::exited);
    plat_close_process(p);
    EXPECT_EQ(out, "a; rm -rf / $(x) `y`\n");
}

TEST(Processes, OwnPathAndId) {
    char path[4096];
    ASSERT_TRUE(plat_self_path(path, sizeof path));
    std::string self(path);
    EXPECT_EQ(self.substr(self.rfind('/') + 1), "platform_test");
    char tiny[4];
    EXPECT_FALSE(plat_self_path(tiny, sizeof tiny));
    EXPECT_GT(plat_current_process_id(), 1);
}

} // namespace
