// The cvsservice process against a scripted router over a loopback socket: its opening
// conversation and registrations on the wire, a client connection to "VersionControl.CVS"
// negotiated with its server object, the way out once the last object is gone, a router that
// dies, and a router that sends garbage.
#include "fake_router.h"
#include "plat_files.h"
#include "plat_process.h"
#include "plat_socket.h"
#include "scratch_folder.h"
#include "stp_retryhandler.h"
#include "stp_transport.h"
#include "versioncontrol_client_impl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class TestClient : public VersionControl_client_Impl {
public:
    void QueryUser(const char*, char**) override {}

protected:
    ~TestClient() override = default;
};

// One cvsservice child connected to a FakeRouter, its standard error in a file.
class ServiceProcess : public testing::Test {
protected:
    void SetUp() override {
        router = new FakeRouter();
        ASSERT_TRUE(router->listen());
        // This router offers no WhiteBoard: the configuration's request is told "not found".
        router->onMessage = [this](const std::string& name) {
            if (name == "RequestServiceConnection")
                router->ConnectionReplyEvent(false, router->lastServiceName.c_str(), 0, false,
                                             false, false, 0, 0xffffffffu, nullptr,
                                             router->lastClientCookie);
        };
        errPath = folder.at("cvsservice.err");
        int errFd = plat_open(errPath.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_TRUNC, 0644);
        ASSERT_GE(errFd, 0);
        std::string port = std::to_string(router->port());
        const char* argv[] = {CVSSERVICE_PATH, "-connect_servicerouter", port.c_str(), nullptr};
        PlatSpawnOptions options;
        options.stderrFd = errFd;
        child = plat_spawn(argv, &options, nullptr);
        plat_close(errFd);
        ASSERT_NE(child, nullptr);
        ASSERT_TRUE(router->accept(10000));
    }
    void TearDown() override {
        if (child) {
            if (plat_wait_process(child, 0) == PlatWait::timed_out)
                plat_terminate_process(child, 9);
            plat_close_process(child);
        }
        router->unref();
    }

    // The router's half of the opening: tables both ways, then the plug-in id once the empty
    // service list and the persistence flag have come; then the request for the WhiteBoard and
    // the two registrations.
    void open() {
        ASSERT_TRUE(router->sendNegotiate(true));
        TimeoutSTPRetryHandler wait(10000, router->routerTransport());
        STPStatus status;
        ASSERT_TRUE(router->awaitTags(&wait, &status)) << status.message;
        ASSERT_TRUE(router->waitForRecords(2, 10000));
        ASSERT_TRUE(router->PluginId(true, 0x20001));
        ASSERT_TRUE(router->waitForRecords(5, 10000));
    }
    // Waits for the child's end; its exit code, or -1 when it did not end in time.
    int exitCode(int timeoutMs = 15000) {
        if (plat_wait_process(child, timeoutMs) != PlatWait::exited)
            return -1;
        int code = -1;
        plat_process_exit_code(child, &code);
        return code;
    }
    std::string errText() { return readFile(errPath); }

    ScratchFolder folder;
    FakeRouter* router = nullptr;
    PlatProcess* child = nullptr;
    std::string errPath;
};

TEST_F(ServiceProcess, OpensRegistersServesAClientAndLeavesWhenTheRouterLetsItGo) {
    open();
    ASSERT_EQ(router->log.records.size(), 5u);
    EXPECT_EQ(router->log.records[2].rfind(
                  "RECV: RequestServiceConnection: serviceName:\"WhiteBoard\", ", 0),
              0u)
        << router->log.records[2];
    router->log.records.erase(router->log.records.begin() + 2);
    EXPECT_EQ(router->log.records,
              (std::vector<std::string>{
                  "RECV: RegisterServiceList: name_list:{count:0x0 data:}",
                  "RECV: PersistentService: persistent:0x0",
                  "RECV: RegisterServiceList: name_list:{count:0x1 data:\"VersionControl.CVS\", }",
                  "RECV: RegisterServiceList: name_list:{count:0x1 data:\"VC_CheckoutInfo.CVS\", "
                  "}"}));

    uint32_t rns[] = {0x100, 0x101};
    ASSERT_TRUE(router->RNBlockReservedEvent(true, RNList{2, rns}));
    char cwdName[] = "cwd", cwdValue[] = "/client/home";
    char* pairs[] = {cwdName, cwdValue};
    ASSERT_TRUE(router->ConnectionRequestedEvent(true, 7, 0x999, 0x501, StringList{0, nullptr}));
    ASSERT_TRUE(router->ConnectionRequestedEvent(true, 7, 0x100, 0x500, StringList{2, pairs}));
    ASSERT_TRUE(router->waitForRecords(6, 10000));
    EXPECT_EQ(router->log.records[4],
              "RECV: ConnectionAcceptedEvent: serviceRN:0x999, remoteRN:0x501, accept:0x0");
    EXPECT_EQ(router->log.records[5],
              "RECV: ConnectionAcceptedEvent: serviceRN:0x100, remoteRN:0x500, accept:0x1");

    // The client's end of the virtual connection, relayed on the same socket.
    TestClient* client = new TestClient();
    client->attachTransport(router->routerTransport(), 0x500, 0x100);
    TimeoutSTPRetryHandler wait(10000, router->routerTransport());
    STPStatus status;
    ASSERT_TRUE(client->negotiate(&wait, &status)) << status.message;
    EXPECT_STREQ(client->getPeerName(), "server");
    char* user = nullptr;
    char* error = nullptr;
    ASSERT_TRUE(client->GetVCUsername(&user, &error, &wait, &status)) << status.message;
    EXPECT_EQ(user, nullptr);
    EXPECT_STREQ(error, "GetVCUsername is not implemented.\n");
    gen_free(user);
    gen_free(error);

    // The client goes: the last server object with it, and the process asks to be let go.
    ASSERT_TRUE(router->ConnectionDroppedEvent(true, 0x100, 0x500));
    ASSERT_TRUE(router->pumpUntil(
        [&] { return !router->recordsOf("RequestServiceRouterDisconnect").empty(); }, 10000));
    EXPECT_EQ(exitCode(200), -1); // still there until the router closes
    router->routerTransport()->closeConnection();
    EXPECT_EQ(exitCode(), 0);
    client->unref();
    EXPECT_NE(errText().find("warning: Unable to get connection to WhiteBoard.\n"),
              std::string::npos)
        << errText();
}

TEST_F(ServiceProcess, WithNoClientYetItStaysAndARouterThatDiesEndsItWithZero) {
    open();
    // Nothing was ever served: no reason to ask for the end.
    router->pumpUntil([] { return false; }, 1500);
    EXPECT_TRUE(router->recordsOf("RequestServiceRouterDisconnect").empty());
    router->routerTransport()->closeConnection();
    EXPECT_EQ(exitCode(), 0);
}

TEST_F(ServiceProcess, ARouterThatGoesDuringTheOpeningEndsItWithOne) {
    router->routerTransport()->closeConnection();
    EXPECT_EQ(exitCode(), 1);
}

// Bytes that are not STP, before or after the opening.
struct GarbageCase {
    const char* label;
    bool afterOpening;
    std::vector<unsigned char> bytes;
};

class GarbageFromTheRouter : public ServiceProcess,
                             public testing::WithParamInterface<GarbageCase> {};

TEST_P(GarbageFromTheRouter, EndsTheProcessWithoutACrash) {
    if (GetParam().afterOpening)
        open();
    const std::vector<unsigned char>& bytes = GetParam().bytes;
    plat_send(router->routerTransport()->getFD(), bytes.data(), bytes.size());
    // A peer that stops making sense is closed; whichever end notices first.
    router->pumpUntil([] { return false; }, 500);
    router->routerTransport()->closeConnection();
    int code = exitCode();
    EXPECT_TRUE(code == 0 || code == 1) << "exit code " << code << "\n" << errText();
    EXPECT_EQ(errText().find("Assertion"), std::string::npos) << errText();
}

std::vector<unsigned char> repeated(unsigned char byte, size_t n) {
    return std::vector<unsigned char>(n, byte);
}

// A header whose length word claims far more than will ever come.
std::vector<unsigned char> hugeLength() {
    std::vector<unsigned char> bytes(44, 0);
    bytes[0] = 0xF0;
    bytes[1] = 0xFF;
    bytes[2] = 0xFF;
    bytes[3] = 0x7F;
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, GarbageFromTheRouter,
    testing::Values(GarbageCase{"ones_before_opening", false, repeated(0xFF, 200)},
                    GarbageCase{"text_before_opening", false,
                                std::vector<unsigned char>{'h', 'e', 'l', 'l', 'o', '\n'}},
                    GarbageCase{"huge_length_before_opening", false, hugeLength()},
                    GarbageCase{"ones_after_opening", true, repeated(0xFF, 4096)},
                    GarbageCase{"huge_length_after_opening", true, hugeLength()}),
    [](const testing::TestParamInfo<GarbageCase>& info) { return std::string(info.param.label); });

} // namespace
