// The whole system with real processes: svc_router, cvsservice and a client plug-in. Each wait
// has a limit, so a service that never ends fails the test instead of stalling it.
#include "router_process.h"

#include "cvs_repo.h"
#include "gen_string.h"
#include "negotiation_probe.h"
#include "plat_socket.h"
#include "plat_time.h"
#include "service_session.h"
#include "stp_transport.h"
#include "test_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

constexpr int32_t kWaitMs = 20000;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// svc_testclient against the router on `port`; its output and exit code.
struct ClientRun {
    int code = -1;
    std::string out;
};
ClientRun runClient(const ScratchFolder& folder, uint16_t port,
                    const std::vector<std::string>& extra) {
    std::vector<std::string> words{SVC_TESTCLIENT_PATH, "-connect_servicerouter",
                                   std::to_string(port), "-timeout", "15000"};
    words.insert(words.end(), extra.begin(), extra.end());
    ChildProcess client;
    ClientRun run;
    if (!client.start(words, folder.at("client.out"), folder.at("client.err")))
        return run;
    run.code = client.wait(kWaitMs);
    run.out = client.output() + client.errors();
    return run;
}

// Waits until the service launched by the router has registered `service`, so that a client
// started next does not race the service's start-up.
bool waitForOffer(const RouterProcess& router, const std::string& service) {
    int32_t start = plat_tick_count();
    while (!contains(router.log(), "offers \"" + service + "\"")) {
        if (plat_tick_diff(plat_tick_count(), start) > kWaitMs)
            return false;
        plat_sleep_ms(20);
    }
    return true;
}

TEST(CvsserviceEndToEnd, RouterLaunchesTheServiceAClientNegotiatesAndEverythingEnds) {
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {"-plugin", CVSSERVICE_PATH})) << router.errors();
    ASSERT_TRUE(waitForOffer(router, "VersionControl.CVS")) << router.log();
    ClientRun client = runClient(folder, router.port, {});
    EXPECT_EQ(client.code, 0) << client.out << router.log();
    EXPECT_TRUE(contains(client.out, "reply found=1 accepted=1")) << client.out;
    EXPECT_TRUE(contains(client.out, "negotiated VersionControl with server \"1\"")) << client.out;
    EXPECT_TRUE(contains(client.out, "disconnected")) << client.out;
    // With its last server object gone the service asks to disconnect and ends; then the
    // router ends, reporting the service's exit code.
    EXPECT_EQ(router.wait(kWaitMs), 0) << router.errors() << router.log();
    EXPECT_TRUE(contains(router.errors(), "exited with code 0")) << router.errors();
    std::string log = router.log();
    EXPECT_TRUE(contains(log, "offers \"VersionControl.CVS\"")) << log;
    EXPECT_TRUE(contains(log, "RECV: RequestServiceRouterDisconnect")) << log;
}

TEST(CvsserviceEndToEnd, UnknownServiceNameIsNotFound) {
    ScratchFolder folder;
    RouterProcess router;
    // -stay: the router outlives the service, which leaves once the first client has gone.
    ASSERT_TRUE(router.start(folder, {"-stay", "-plugin", CVSSERVICE_PATH})) << router.errors();
    ASSERT_TRUE(waitForOffer(router, "VC_CheckoutInfo.CVS")) << router.log();
    ClientRun known = runClient(folder, router.port, {"-service", "VC_CheckoutInfo.CVS"});
    EXPECT_EQ(known.code, 0) << known.out;
    ClientRun unknown = runClient(folder, router.port, {"-service", "VersionControl.SVN"});
    EXPECT_EQ(unknown.code, 3) << unknown.out;
    EXPECT_TRUE(contains(unknown.out, "reply found=0 accepted=0")) << unknown.out;
    router.kill();
}

TEST(CvsserviceEndToEnd, AClientThatVanishesLetsTheServiceEnd) {
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {"-plugin", CVSSERVICE_PATH})) << router.errors();
    ASSERT_TRUE(waitForOffer(router, "VersionControl.CVS")) << router.log();
    ClientRun client = runClient(folder, router.port, {"-vanish"});
    EXPECT_EQ(client.code, 0) << client.out;
    EXPECT_TRUE(contains(client.out, "vanishing")) << client.out;
    EXPECT_EQ(router.wait(kWaitMs), 0) << router.errors() << router.log();
    EXPECT_TRUE(contains(router.errors(), "exited with code 0")) << router.errors();
}

TEST(CvsserviceEndToEnd, KillingTheRouterMidSessionEndsTheServiceWithCode0) {
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {"-stay"})) << router.errors();
    ChildProcess service;
    ASSERT_TRUE(
        service.start({CVSSERVICE_PATH, "-connect_servicerouter", std::to_string(router.port)},
                      folder.at("service.out"), folder.at("service.err")));
    // Mid-session: the service has a server object with a negotiated connection.
    TestPlugin* client = new TestPlugin;
    std::string error;
    ASSERT_TRUE(client->connect(router.port, kWaitMs, &error)) << error;
    ASSERT_TRUE(client->open({}, kWaitMs, &error)) << error;
    TestPlugin::ConnectionReply reply;
    int32_t start = plat_tick_count();
    do {
        ASSERT_TRUE(client->requestConnection("VersionControl.CVS", {}, kWaitMs, &reply));
    } while (!reply.wasFound && plat_tick_diff(plat_tick_count(), start) < kWaitMs);
    ASSERT_TRUE(reply.wasAccepted) << service.errors();
    NegotiationProbe* probe = new NegotiationProbe("VersionControl", "client");
    probe->attachTransport(client->getTransport(), reply.localRN, reply.serviceRN);
    client->getTransport()->redeliverUnclaimed(reply.serviceRN, reply.localRN, KIND_NEGOTIATE);
    ASSERT_TRUE(probe->sendNegotiate(true));
    EXPECT_TRUE(client->pumpUntil([&] { return probe->hasNegotiated(); }, kWaitMs));
    router.kill();
    EXPECT_EQ(service.wait(kWaitMs), 0) << service.errors();
    probe->attachTransport(nullptr);
    probe->unref();
    client->release();
}

TEST(CvsserviceEndToEnd, GarbageFromARouterEndsTheServiceWithCode1) {
    ScratchFolder folder;
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    ASSERT_NE(listenFd, PLAT_INVALID_SOCKET);
    ChildProcess service;
    ASSERT_TRUE(service.start({CVSSERVICE_PATH, "-connect_servicerouter", std::to_string(port)},
                              folder.at("service.out"), folder.at("service.err")));
    plat_socket peer = STPTransport::acceptClient(listenFd, true);
    ASSERT_NE(peer, PLAT_INVALID_SOCKET);
    plat_set_nonblocking(peer, false);
    // A header size of 3 words is not a packet of any size.
    const char garbage[] = "\x0c\x00\x00\x00\x00\x00\x00\x00not a router at all";
    ASSERT_GT(plat_send(peer, garbage, sizeof garbage), 0);
    EXPECT_EQ(service.wait(kWaitMs), 1) << service.errors();
    EXPECT_TRUE(contains(service.errors(), "Negotiation with ServiceRouter failed"))
        << service.errors();
    plat_close_socket(peer);
}

TEST(CvsserviceEndToEnd, ARequestTravelsThroughTheRouterToTheServiceAndBack) {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    ASSERT_TRUE(repo.init()) << repo.lastError();
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "one\n"}, {"sub/b.c", "two\n"}}))
        << repo.lastError();
    ASSERT_NE(repo.checkout("m", "wc", CvsRootKind::fork), "") << repo.lastError();
    EXPECT_EQ(readFile(folder.at("wc/CVS/Root")), ":fork:" + repo.path() + "\n");

    ServiceSession session;
    ASSERT_TRUE(session.start(folder)) << session.error();
    VcClient* vc = session.connectVersionControl(folder.at("wc"));
    ASSERT_NE(vc, nullptr) << session.error();
    char* user = nullptr;
    char* error = nullptr;
    STPStatus status;
    ASSERT_TRUE(vc->GetVCUsername(&user, &error, session.waiter().get(), &status))
        << status.message;
    EXPECT_EQ(user, nullptr);
    EXPECT_STREQ(error, "GetVCUsername is not implemented.\n");
    gen_free(user);
    gen_free(error);
}

// A relative name makes the service ask the router for the client's "cwd" while the client waits
// strictly for its reply: the router's question is part of the client's call and gets through.
TEST(CvsserviceEndToEnd, ARelativeNameIsResolvedWhileTheClientWaitsForTheReply) {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    ASSERT_TRUE(repo.init()) << repo.lastError();
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "one\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc");
    ASSERT_NE(wc, "") << repo.lastError();
    std::filesystem::remove(wc + "/a.c");

    ServiceSession session;
    ASSERT_TRUE(session.start(folder)) << session.error();
    VcClient* vc = session.connectVersionControl(wc);
    ASSERT_NE(vc, nullptr) << session.error();
    char name[] = "a.c";
    char* names[] = {name};
    char* error = nullptr;
    STPStatus status;
    ASSERT_TRUE(
        vc->CheckOutFiles(StringList{1, names}, &error, session.waiter(kWaitMs).get(), &status))
        << status.message;
    EXPECT_EQ(error, nullptr) << error;
    gen_free(error);
    EXPECT_EQ(readFile(wc + "/a.c"), "one\n");
}

} // namespace
