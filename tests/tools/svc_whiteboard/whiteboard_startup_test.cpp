// svc_router launching svc_whiteboard and cvsservice together: cvsservice finds the WhiteBoard
// every time, in either order of launch, because the router holds a request for a name that a
// plug-in it launched may still offer; and a hold ends after its bound.
#include "router_process.h"
#include "test_plugin.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#ifndef SVC_WHITEBOARD_PATH
#error "SVC_WHITEBOARD_PATH must name the svc_whiteboard program"
#endif
#ifndef CVSSERVICE_PATH
#error "CVSSERVICE_PATH must name the cvsservice program"
#endif

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// svc_router with its port file and log in `dir`; the port, or 0 when it did not start.
uint16_t startRouter(ChildProcess* router, const std::string& dir,
                     const std::vector<std::string>& extra) {
    std::vector<std::string> words{
        SVC_ROUTER_PATH,    "-port", "0", "-port_file", dir + "/router.port", "-log",
        dir + "/router.log"};
    words.insert(words.end(), extra.begin(), extra.end());
    if (!router->start(words, dir + "/router.out", dir + "/router.err"))
        return 0;
    int32_t begin = plat_tick_count();
    while (plat_tick_diff(plat_tick_count(), begin) < 10000 && router->running()) {
        std::string text = readFile(dir + "/router.port");
        if (!text.empty() && text.back() == '\n')
            return static_cast<uint16_t>(std::stoi(text));
        plat_sleep_ms(5);
    }
    return 0;
}

TEST(WhiteBoardStartUp, CvsserviceFindsTheWhiteBoardEveryTimeInEitherOrder) {
    ScratchFolder folder;
    setenv("XDG_CONFIG_HOME", folder.at("xdg").c_str(), 1);
    for (int run = 0; run < 50; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        std::string dir = folder.at("run" + std::to_string(run));
        std::filesystem::create_directories(dir);
        std::vector<std::string> plugins =
            run % 2 ? std::vector<std::string>{"-plugin", SVC_WHITEBOARD_PATH, "-plugin",
                                               CVSSERVICE_PATH}
                    : std::vector<std::string>{"-plugin", CVSSERVICE_PATH, "-plugin",
                                               SVC_WHITEBOARD_PATH};
        ChildProcess router;
        ASSERT_NE(startRouter(&router, dir, plugins), 0) << router.errors();
        std::string log;
        int32_t begin = plat_tick_count();
        while (!contains(log, "offers \"VC_CheckoutInfo.CVS\"")) {
            ASSERT_LT(plat_tick_diff(plat_tick_count(), begin), 20000) << log;
            plat_sleep_ms(5);
            log = readFile(dir + "/router.log");
        }
        EXPECT_TRUE(contains(log, "of \"WhiteBoard\" accepted")) << log;
        EXPECT_FALSE(contains(log, "no service \"WhiteBoard\"")) << log;
        EXPECT_FALSE(contains(router.errors(), "Unable to get connection to WhiteBoard"))
            << router.errors();
        router.kill();
    }
}

TEST(WhiteBoardStartUp, AHeldRequestIsRefusedWhenItsTimeIsUp) {
    ScratchFolder folder;
    // Two launched plug-ins that run and never connect: with the client that asks, fewer
    // connections have opened than launched plug-ins run.
    std::string silent = folder.at("silent.sh");
    writeFile(silent, "#!/bin/sh\nsleep 15\n");
    std::filesystem::permissions(silent, std::filesystem::perms::owner_all);
    ChildProcess router;
    uint16_t port =
        startRouter(&router, folder.root(), {"-stay", "-plugin", silent, "-plugin", silent});
    ASSERT_NE(port, 0) << router.errors();
    TestPlugin* client = new TestPlugin;
    std::string error;
    ASSERT_TRUE(client->connect(port, 10000, &error)) << error;
    ASSERT_TRUE(client->open({}, 10000, &error)) << error;
    int32_t asked = plat_tick_count();
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Nobody.Offers.This", {}, 30000, &reply));
    int32_t waited = plat_tick_diff(plat_tick_count(), asked);
    EXPECT_FALSE(reply.wasFound);
    EXPECT_GE(waited, 9000);
    EXPECT_LT(waited, 15000);
    std::string log = readFile(folder.at("router.log"));
    EXPECT_TRUE(contains(log, "\"Nobody.Offers.This\" is not offered yet")) << log;
    client->release();
    router.kill();
}

} // namespace
