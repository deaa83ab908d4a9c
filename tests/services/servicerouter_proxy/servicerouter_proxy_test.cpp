// The router client against a scripted router over a real loopback socket: the opening
// conversation on the wire in its order and fields, the plug-in id, the router's plain messages,
// the end of the connection, and the connect-or-launch tree where it cannot go on.
#include "servicerouter_proxy.h"

#include "child_mode.h"
#include "gen_path.h"
#include "indgen.h"
#include "plat_process.h"
#include "proxy_on_fake_router.h"
#include "scratch_folder.h"
#include "service_factory.h"
#include "stp_transport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

void parseInto(ServiceRouter_Proxy* proxy, Words words) {
    words.insert(words.begin(), "plugin");
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(words.size());
    proxy->parseOptions(&argc, argv.data());
}

class NamedFactory : public ServiceFactory {
public:
    explicit NamedFactory(const char* name) : ServiceFactory(name, -1, false) {}
    STPSpecClass* createService(STPTransport*, uint32_t, uint32_t) override { return nullptr; }
};

class ProxyOverSocket : public testing::Test {
protected:
    void SetUp() override {
        router = new FakeRouter();
        ASSERT_TRUE(router->listen());
        proxy = new ServiceRouter_Proxy();
    }
    void TearDown() override {
        proxy->unref();
        router->unref();
    }

    // Parses the words with "-connect_servicerouter PORT" before them, connects the socket and
    // lets the router accept; the router's tables (and, when given, the plug-in id) are on
    // their way before the proxy starts its conversation, since both ends share this thread.
    void connect(const Words& extra, bool sendPluginId = true) {
        ASSERT_TRUE(connectToFakeRouter(proxy, router, extra,
                                        sendPluginId ? 0x10005 : static_cast<uint32_t>(-1)));
    }
    STPTransport* proxyTransport() { return proxy->STPSpecClass::getTransport(); }
    PumpingRetryHandler* pumping(int32_t timeoutMs = 5000) {
        handler = std::make_unique<PumpingRetryHandler>(
            std::vector<STPTransport*>{router->routerTransport(), proxyTransport()}, timeoutMs);
        return handler.get();
    }

    FakeRouter* router = nullptr;
    ServiceRouter_Proxy* proxy = nullptr;
    std::unique_ptr<PumpingRetryHandler> handler;
};

std::string cwdRecord() {
    return std::string("RECV: SetWorkingDir: working_dir:\"") + gen_getcwd() + "\"";
}

TEST_F(ProxyOverSocket, OpeningWithCookieAndDebugGoesOutInOrderWithItsFields) {
    connect({"-sr_client_start_cookie", "0x21", "-sr_debug", "me", "-sr_debugger", "gdb"});
    ASSERT_TRUE(proxy->initializeRouterConnection(false, nullptr));
    EXPECT_EQ(proxy->getPluginId(), 0x10005u);
    EXPECT_EQ(proxyTransport()->currentStamp().originId, 5);
    ASSERT_TRUE(router->waitForRecords(5));
    EXPECT_EQ(router->log.records,
              (std::vector<std::string>{
                  "RECV: StartPluginEvent: cookie:0x21, success:0x1, error_message:\"\"",
                  cwdRecord(), "RECV: RegisterServiceList: name_list:{count:0x0 data:}",
                  "RECV: PersistentService: persistent:0x0",
                  "RECV: DebugPlugin: plugin_name:\"me\", do_debug:0x1, debugger:\"gdb\", "
                  "debugger_opts:\"\""}));
    EXPECT_TRUE(proxy->isConnected());
}

TEST_F(ProxyOverSocket, LaunchedByTheRouterWithoutCookieSendsNoWorkingDirectory) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(false, nullptr));
    ASSERT_TRUE(router->waitForRecords(2));
    router->pumpUntil([] { return false; }, 100);
    EXPECT_EQ(router->log.records,
              (std::vector<std::string>{"RECV: RegisterServiceList: name_list:{count:0x0 data:}",
                                        "RECV: PersistentService: persistent:0x0"}));
}

TEST_F(ProxyOverSocket, PersistentFlagSendsNothingAndPendingServicesGoInOneList) {
    NamedFactory a("A.one"), b("B.two");
    // Not set up yet: registrations wait for the connection.
    EXPECT_TRUE(proxy->registerService(&a, nullptr));
    EXPECT_TRUE(proxy->registerService(&b, nullptr));
    EXPECT_EQ(proxy->getPendingFactories().size(), 2u);
    connect({"-sr_client_start_cookie", "7"});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    ASSERT_TRUE(router->waitForRecords(3));
    router->pumpUntil([] { return false; }, 100);
    EXPECT_EQ(
        router->log.records,
        (std::vector<std::string>{
            "RECV: StartPluginEvent: cookie:0x7, success:0x1, error_message:\"\"", cwdRecord(),
            "RECV: RegisterServiceList: name_list:{count:0x2 data:\"A.one\", \"B.two\", }"}));
    EXPECT_TRUE(proxy->getPendingFactories().empty());
    EXPECT_EQ(proxy->getRegisteredFactories().size(), 2u);
}

TEST_F(ProxyOverSocket, APluginIdIsTakenAsItComesAlsoASecondTime) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(false, nullptr));
    ASSERT_TRUE(router->PluginId(true, 0xFFFF0003));
    ASSERT_TRUE(router->pumpUntil([&] { return proxy->getPluginId() == 0xFFFF0003; }, 5000,
                                  {proxyTransport()}));
    EXPECT_EQ(proxyTransport()->currentStamp().originId, 3);
}

TEST_F(ProxyOverSocket, ARouterThatClosesBeforeThePluginIdEndsTheWaitWithFalse) {
    connect({}, false);
    router->routerTransport()->closeConnection();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(proxy->initializeRouterConnection(false, pumping()));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(proxy->getPluginId(), static_cast<uint32_t>(-1));
    EXPECT_FALSE(proxy->isConnected());
}

TEST_F(ProxyOverSocket, ARouterThatNeverNegotiatesFailsTheOpeningWithItsText) {
    parseInto(proxy, {"-connect_servicerouter", std::to_string(router->port())});
    ASSERT_TRUE(proxy->connectSocket(nullptr, router->port()));
    ASSERT_TRUE(router->accept(5000));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(proxy->initializeRouterConnection(false, pumping(300)));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("warning: Negotiation with ServiceRouter failed during initialization: "
                       "awaitNegotiate: timed out waiting for reply..\n"),
              std::string::npos)
        << err;
    EXPECT_FALSE(proxy->hasConnected());
    EXPECT_TRUE(proxy->isConnected()); // not connected yet counts as "still setting up"
}

TEST_F(ProxyOverSocket, IsConnectedUntilTheRouterGoesAndThereIsNoWayBack) {
    EXPECT_TRUE(proxy->isConnected());
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(false, nullptr));
    EXPECT_TRUE(proxy->isConnected());
    router->routerTransport()->closeConnection();
    ASSERT_TRUE(router->pumpUntil([&] { return !proxy->isConnected(); }, 5000, {proxyTransport()}));
    EXPECT_TRUE(proxy->hasConnected());
}

TEST_F(ProxyOverSocket, RequestDisconnectAndPersistenceReachTheRouter) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    EXPECT_TRUE(proxy->requestDisconnect(nullptr));
    EXPECT_TRUE(proxy->setPersistent(true, nullptr, nullptr));
    ASSERT_TRUE(router->waitForRecords(3));
    EXPECT_EQ(router->log.records[1], "RECV: RequestServiceRouterDisconnect: ");
    EXPECT_EQ(router->log.records[2], "RECV: PersistentService: persistent:0x1");
    EXPECT_TRUE(proxy->getOptions().persistent);
}

TEST_F(ProxyOverSocket, NumPersistentServicesWaitsForTheRoutersReply) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    uint32_t persistentCount = 0, total = 0;
    STPStatus status;
    EXPECT_TRUE(proxy->NumPersistentServices(&persistentCount, &total, pumping(), &status));
    EXPECT_TRUE(status.ok()) << status.message;
    EXPECT_EQ(persistentCount, 1u);
    EXPECT_EQ(total, 2u);
}

TEST_F(ProxyOverSocket, RouterLocationIsAskedForOnceAndAnEarlierHostStays) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    router->onMessage = [&](const std::string& name) {
        if (name == "RequestLocation")
            router->LocationEvent(false, "routerhost", 77);
    };
    const char* host = nullptr;
    uint32_t port = 0;
    ASSERT_TRUE(proxy->getRouterLocation(&host, &port, pumping()));
    EXPECT_STREQ(host, "routerhost");
    EXPECT_EQ(port, 77u);
    // A later LocationEvent changes nothing, not even the port.
    proxy->LocationEvent("other", 99);
    ASSERT_TRUE(proxy->getRouterLocation(&host, &port, pumping()));
    EXPECT_STREQ(host, "routerhost");
    EXPECT_EQ(port, 77u);
    EXPECT_EQ(router->recordsOf("RequestLocation").size(), 1u);
}

TEST_F(ProxyOverSocket, StartPluginRefusesShortCommandsAndReportsFailedLaunches) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    size_t before = router->log.records.size();

    char w[][16] = {"true", "a", "b", "c", "d", "e", "f"};
    char* words[] = {w[0], w[1], w[2], w[3], w[4], w[5], w[6]};
    StringList six{6, words};
    proxy->StartPlugin(six, 3, nullptr);
    char missing[] = "no-such-program-xyz";
    char* badWords[] = {missing, w[1], w[2], w[3], w[4], w[5], w[6]};
    StringList bad{7, badWords};
    proxy->StartPlugin(bad, 4, nullptr);
    // A working directory that cannot be entered is reported, not passed over.
    StringList seven{7, words};
    proxy->StartPlugin(seven, 6, "/no-such-folder-xyz");
    // A plug-in starts in its working directory, and this process's own stays as it is.
    ScratchFolder folder;
    std::string cwdFile = folder.at("cwd.txt");
    std::vector<std::string> child =
        childCommand("StartPluginChild.DISABLED_WriteCwd", {"--cwd-file=" + cwdFile});
    while (child.size() < 7)
        child.push_back("--pad");
    std::vector<char*> childWords;
    for (std::string& word : child)
        childWords.push_back(word.data());
    std::string here = gen_getcwd();
    proxy->StartPlugin(StringList{static_cast<int32_t>(childWords.size()), childWords.data()}, 5,
                       folder.root().c_str());
    EXPECT_EQ(gen_getcwd(), here);

    ASSERT_TRUE(router->waitForRecords(before + 3, 5000, {proxyTransport()}));
    router->pumpUntil([] { return false; }, 100, {proxyTransport()});
    std::vector<std::string> events = router->recordsOf("StartPluginEvent");
    EXPECT_EQ(events,
              (std::vector<std::string>{
                  "RECV: StartPluginEvent: cookie:0x3, success:0x0, error_message:\"Invalid "
                  "arguments specified when attempting to launch plugin.\"",
                  "RECV: StartPluginEvent: cookie:0x4, success:0x0, error_message:\"Unable to "
                  "launch plugin.\"",
                  "RECV: StartPluginEvent: cookie:0x6, success:0x0, error_message:\"Unable to "
                  "launch plugin: cannot enter the working directory \"/no-such-folder-xyz\".\""}));
    // The accepted launch sends nothing: the new plug-in reports itself.
    ASSERT_EQ(proxy->getLaunchedPlugins().size(), 1u);
    PlatProcess* launched = proxy->getLaunchedPlugins()[0];
    EXPECT_EQ(proxy->getLaunchedPluginNames().at(launched), gen_basename(child[0].c_str()));
    EXPECT_TRUE(waitForChildExit(launched, "plugin", true, 5000));
    plat_close_process(launched); // the proxy keeps the handle for shut-down, never reached here
    EXPECT_EQ(readFile(cwdFile), folder.root());
}

TEST(StartPluginChild, DISABLED_WriteCwd) {
    writeFile(childArgument("cwd-file"), std::filesystem::current_path().string());
}

TEST_F(ProxyOverSocket, StartLoggingSendsRecordsToTheRouter) {
    connect({});
    ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
    proxy->StartLogging();
    ASSERT_NE(proxy->getLog(), nullptr);
    ASSERT_TRUE(router->pumpUntil([&] { return !router->recordsOf("LogMessageEvent").empty(); },
                                  5000, {proxyTransport()}));
    // The proxy's own messages are not logged through the router, or each would beget another.
    size_t count = router->recordsOf("LogMessageEvent").size();
    EXPECT_TRUE(proxy->requestDisconnect(nullptr));
    router->pumpUntil([] { return false; }, 100, {proxyTransport()});
    EXPECT_EQ(router->recordsOf("LogMessageEvent").size(), count);
}

// ---- The connect-or-launch tree where it stops -------------------------------------------------

struct TreeCase {
    const char* label;
    Words words;
    bool mayLaunch;
    std::string err; // without the program-name prefix
};

class ConnectTree : public testing::TestWithParam<TreeCase> {};

TEST_P(ConnectTree, ReportsAsTheTreeSaysAndFails) {
    ServiceRouter_Proxy* proxy = new ServiceRouter_Proxy();
    Words words = GetParam().words;
    words.insert(words.begin(), "plugin");
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(words.size());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(proxy->setup(false, &argc, argv.data(), nullptr, false, nullptr, true,
                              GetParam().mayLaunch));
    std::string err = testing::internal::GetCapturedStderr();
    std::string prefix = gen_program_name() ? std::string(gen_program_name()) + ": " : "";
    std::string expected;
    size_t start = 0;
    const std::string& lines = GetParam().err;
    while (start < lines.size()) {
        size_t end = lines.find('\n', start);
        expected += prefix + lines.substr(start, end + 1 - start);
        start = end + 1;
    }
    EXPECT_EQ(err, expected);
    EXPECT_TRUE(proxy->isInitialized());
    proxy->unref();
}

INSTANTIATE_TEST_SUITE_P(
    Branches, ConnectTree,
    testing::Values(
        TreeCase{"host_without_port",
                 {"-sr_connect_servicerouter_host", "h"},
                 true,
                 "error: Unable to connect to ServiceRouter who launched us.\n"},
        TreeCase{"launched_and_private",
                 {"-connect_servicerouter", "1", "-sr_private"},
                 true,
                 "warning: Incompatible options specified, defaulting to connecting to launching "
                 "ServiceRouter.\nerror: Unable to connect to ServiceRouter who launched us.\n"},
        TreeCase{"private_without_launching", {"-sr_private"}, false, ""},
        TreeCase{"private_launch_not_built",
                 {"-sr_private"},
                 true,
                 "warning: Unable to launch private service router.\n"},
        TreeCase{"given_port_nobody_there",
                 {"-sr_connect_servicerouter_port", "1"},
                 true,
                 "error: Unable to connect to ServiceRouter who launched us.\n"},
        TreeCase{"shared_router_discovery_not_built",
                 {},
                 true,
                 "error: Unable to lock service router file.\n"}),
    [](const testing::TestParamInfo<TreeCase>& info) { return std::string(info.param.label); });

TEST(ProxySetup, RunsOnceAndWithoutAConnectOptionDoesNotConnect) {
    ServiceRouter_Proxy* proxy = new ServiceRouter_Proxy();
    char w0[] = "plugin", w1[] = "-sr_zone", w2[] = "z", w3[] = "rest";
    char* argv[] = {w0, w1, w2, w3, nullptr};
    int argc = 4;
    EXPECT_TRUE(proxy->setup(true, &argc, argv, "tag", false, nullptr, false, true));
    EXPECT_EQ(argc, 2);
    EXPECT_STREQ(argv[1], "rest");
    EXPECT_TRUE(proxy->isInitialized());
    EXPECT_FALSE(proxy->getOptions().connect_now);
    EXPECT_STREQ(proxy->getOptions().program_tag, "tag");
    EXPECT_TRUE(proxy->getOptions().persistent);
    // A second set-up does nothing.
    char* again[] = {w0, w1, w2, nullptr};
    int againCount = 3;
    EXPECT_TRUE(proxy->setup(false, &againCount, again, nullptr, true, nullptr, true, false));
    EXPECT_EQ(againCount, 3);
    EXPECT_TRUE(proxy->getOptions().may_launch);
    proxy->unref();
}

TEST(GlobalProxy, IsMadeOnceAndReleasedByDestroy) {
    destroyGlobalServiceRouterProxy(false); // factories of earlier tests may have made one
    ASSERT_EQ(getServiceRouterProxy(), nullptr);
    ServiceRouter_Proxy* made = ensureServiceRouterProxy();
    EXPECT_EQ(ensureServiceRouterProxy(), made);
    EXPECT_EQ(globalServiceRouterLink(), static_cast<Svc_RouterLink*>(made));
    char w0[] = "plugin";
    char* argv[] = {w0, nullptr};
    int argc = 1;
    EXPECT_TRUE(
        createGlobalServiceRouterProxy(false, &argc, argv, nullptr, false, nullptr, false, true));
    EXPECT_EQ(getServiceRouterProxy(), made);
    destroyGlobalServiceRouterProxy(false);
    EXPECT_EQ(getServiceRouterProxy(), nullptr);
    EXPECT_EQ(globalServiceRouterLink(), nullptr);
    destroyGlobalServiceRouterProxy(false); // nothing left: nothing happens
}

} // namespace
