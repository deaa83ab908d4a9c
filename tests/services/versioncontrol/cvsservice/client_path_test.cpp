// ClientPath: paths of a client resolved against the "cwd" that came with its connection, through
// the global router client of a process connected to a scripted router.
#include "client_path.h"

#include "cvs_versioncontrol_server.h"
#include "fake_router.h"
#include "indgen.h"
#include "servicerouter_proxy.h"
#include "stp_transport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct PathCase {
    const char* label;
    const char* path;
    const char* expected;
};

class ClientPathOfAConnection : public testing::TestWithParam<PathCase> {
public:
    // One connected process for all cases: the router hands the factory a route number and a
    // client with its "cwd" asks for a connection.
    static void SetUpTestSuite() {
        router = new FakeRouter();
        ASSERT_TRUE(router->listen());
        ServiceRouter_Proxy* proxy = ensureServiceRouterProxy();
        std::string port = std::to_string(router->port());
        char w0[] = "cvsservice", w1[] = "-connect_servicerouter";
        char* argv[] = {w0, w1, port.data(), nullptr};
        int argc = 3;
        proxy->parseOptions(&argc, argv);
        ASSERT_TRUE(proxy->connectSocket(nullptr, router->port()));
        ASSERT_TRUE(router->accept(5000));
        router->negotiateLocally();
        ASSERT_TRUE(router->sendNegotiate(true));
        ASSERT_TRUE(router->PluginId(true, 0x40001));
        ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
        STPTransport* proxyTransport = proxy->STPSpecClass::getTransport();

        // Both suites of this file run this; the one factory of the process serves both, as
        // factories live to the end of the process.
        if (!factory)
            factory = new CVS_VersionControl_ServiceFactory();
        size_t before = factory->getServers().size();
        ASSERT_TRUE(proxy->registerService(factory, nullptr));
        uint32_t rn = 0x80;
        ASSERT_TRUE(router->RNBlockReservedEvent(true, RNList{1, &rn}));
        char name[] = "cwd", value[] = "/client/home/work";
        char* pairs[] = {name, value};
        ASSERT_TRUE(router->ConnectionRequestedEvent(true, 21, rn, 0x600, StringList{2, pairs}));
        ASSERT_TRUE(router->pumpUntil([&] { return factory->getServers().size() > before; }, 5000,
                                      {proxyTransport}));
        server = factory->getServers().back();
    }
    static void TearDownTestSuite() {
        destroyGlobalServiceRouterProxy(false);
        router->unref();
        // The factory lives to the end of the process, as in the service.
    }

    static FakeRouter* router;
    static CVS_VersionControl_ServiceFactory* factory;
    static STPSpecClass* server;
};

FakeRouter* ClientPathOfAConnection::router = nullptr;
CVS_VersionControl_ServiceFactory* ClientPathOfAConnection::factory = nullptr;
STPSpecClass* ClientPathOfAConnection::server = nullptr;

TEST_P(ClientPathOfAConnection, ResolvesAgainstTheClientsDirectory) {
    size_t before = router->log.records.size();
    char* path = ClientPath(server, GetParam().path);
    EXPECT_STREQ(path, GetParam().expected);
    gen_free(path);
    // The "cwd" came with the connection: nobody is asked.
    EXPECT_EQ(router->log.records.size(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ClientPathOfAConnection,
    testing::Values(PathCase{"absolute_is_copied", "/etc/file.c", "/etc/file.c"},
                    PathCase{"relative_is_joined", "src/main.c", "/client/home/work/src/main.c"},
                    PathCase{"dot_dot_is_normalised", "../up.c", "/client/home/up.c"},
                    PathCase{"dots_are_removed", "./a/./b", "/client/home/work/a/b"},
                    PathCase{"backslashes_become_slashes", "sub\\f.c", "/client/home/work/sub/f.c"},
                    PathCase{"drive_letter_counts_as_absolute", "c:\\x\\y.c", "c:\\x\\y.c"}),
    [](const testing::TestParamInfo<PathCase>& info) { return std::string(info.param.label); });

TEST_F(ClientPathOfAConnection, AConnectionTheRouterClientDoesNotKnowGetsTheSamePath) {
    char* path = ClientPath(nullptr, "rel/x");
    EXPECT_STREQ(path, "rel/x");
    gen_free(path);
    EXPECT_EQ(ClientPath(server, nullptr), nullptr);
}

TEST(ClientPathWithoutRouterClient, IsAbsentWhileShuttingDown) {
    destroyGlobalServiceRouterProxy(false);
    ASSERT_EQ(getServiceRouterProxy(), nullptr);
    EXPECT_EQ(ClientPath(nullptr, "/abs"), nullptr);
}

} // namespace
