// svc_router as a process, driven by test plug-ins in this process over loopback sockets:
// ids and route numbers, the registry, connections between plug-ins and the relay of their
// packets, drops and deaths, the small questions, and the rules of its end.
#include "router_process.h"

#include "stp_echo_listener.h"

#include "child_mode.h"

#include "plat_limits.h"
#include "plat_socket.h"
#include "stp_message.h"
#include "stp_retryhandler.h"
#include "stp_transport.h"
#include "test_plugin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

namespace {

constexpr int32_t kWaitMs = 10000;

// Owns test plug-ins of one group and releases them at the end.
class Plugins {
public:
    ~Plugins() {
        for (TestPlugin* p : made)
            p->release();
    }
    // A plug-in connected to `port`, opened with `services`.
    TestPlugin* open(uint16_t port, const std::vector<std::string>& services) {
        TestPlugin* plugin = make();
        std::string error;
        EXPECT_TRUE(plugin->connect(port, kWaitMs, &error)) << error;
        EXPECT_TRUE(plugin->open(services, kWaitMs, &error)) << error;
        return plugin;
    }
    TestPlugin* make() {
        made.push_back(new TestPlugin(&group));
        return made.back();
    }
    PluginGroup group;

private:
    std::vector<TestPlugin*> made;
};

class RouterTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(router.start(folder, {"-stay"})) << router.errors(); }
    ScratchFolder folder;
    RouterProcess router;
    Plugins plugins;
};

TEST_F(RouterTest, PluginsGetDistinctIdsAndRouteNumbersOutsideTheRouterPair) {
    TestPlugin* a = plugins.open(router.port, {"Alpha.One", "Alpha.Two"});
    TestPlugin* b = plugins.open(router.port, {"Beta.One"});
    TestPlugin* c = plugins.open(router.port, {});
    EXPECT_NE(a->getPluginId(), 0xffffffffu);
    EXPECT_NE(a->getPluginId(), b->getPluginId());
    EXPECT_NE(b->getPluginId(), c->getPluginId());
    ASSERT_EQ(a->getServiceRNs().size(), 2u);
    ASSERT_EQ(b->getServiceRNs().size(), 1u);
    EXPECT_TRUE(c->getServiceRNs().empty());
    std::set<uint32_t> numbers;
    for (TestPlugin* p : {a, b})
        for (uint32_t rn : p->getServiceRNs()) {
            EXPECT_GT(rn, 2u);
            EXPECT_TRUE(numbers.insert(rn).second) << rn << " given twice";
        }
    // A client's number for a connection is new as well.
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(c->requestConnection("Beta.One", {}, kWaitMs, &reply));
    ASSERT_TRUE(reply.wasAccepted);
    EXPECT_GT(reply.localRN, 2u);
    EXPECT_TRUE(numbers.insert(reply.localRN).second);
    EXPECT_EQ(reply.serviceRN, b->getServiceRNs()[0]);
    EXPECT_EQ(reply.pluginId, b->getPluginId());
}

// Sends one one-way packet of `body` from `from` under (localRN, remoteRN).
void sendRaw(TestPlugin* from, uint32_t localRN, uint32_t remoteRN, const char* body) {
    STPTransport* t = from->getTransport();
    STPMessage* m = t->newMessage(localRN, remoteRN, KIND_BINARY, 1, MSG_ONE_WAY);
    m->putRaw(body);
    t->sendMessage(m);
    delete m;
}

// Counts what arrives under one key.
struct CountingListener : ResponseListener {
    int count = 0;
    bool handle(STPMessage*) override {
        ++count;
        return true;
    }
};

TEST_F(RouterTest, APluginReachesAnotherOnlyOnAConnectionItIsAnEndOf) {
    TestPlugin* provider = plugins.open(router.port, {"Echo.Service"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin* intruder = plugins.open(router.port, {"Own.Service"});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &reply));
    ASSERT_TRUE(reply.wasAccepted);
    CountingListener asClient, madeUp;
    provider->getTransport()->addListener(reply.localRN, reply.serviceRN, &asClient, KIND_BINARY);
    provider->getTransport()->addListener(999, reply.serviceRN, &madeUp, KIND_BINARY);
    // The intruder uses the client's numbers, a number of its own, and one of its own service.
    sendRaw(intruder, reply.localRN, reply.serviceRN, "as the client");
    sendRaw(intruder, 999, reply.serviceRN, "made up");
    sendRaw(intruder, intruder->getServiceRNs()[0], reply.serviceRN, "from its own service");
    std::string id = std::to_string(intruder->getPluginId());
    std::string service = std::to_string(reply.serviceRN);
    auto dropped = [&](uint32_t localRN) {
        return router.log().find("plug-in " + id + ": packet " + std::to_string(localRN) + "-" +
                                 service + " on no open connection of its own, dropped") !=
               std::string::npos;
    };
    ASSERT_TRUE(plugins.group.pumpUntil(
        [&] {
            return dropped(reply.localRN) && dropped(999) && dropped(intruder->getServiceRNs()[0]);
        },
        kWaitMs))
        << router.log();
    sendRaw(client, reply.localRN, reply.serviceRN, "the client itself");
    ASSERT_TRUE(plugins.group.pumpUntil([&] { return asClient.count > 0; }, kWaitMs));
    EXPECT_EQ(asClient.count, 1);
    EXPECT_EQ(madeUp.count, 0);
    EXPECT_EQ(provider->getTransport()->unclaimedQueueSize(), 0u);
    provider->getTransport()->removeListener(&asClient);
    provider->getTransport()->removeListener(&madeUp);
}

TEST_F(RouterTest, ARegistrationWithoutRouteNumbersIsAnsweredEmpty) {
    // More names than one block may hold: the router cannot give numbers for them.
    std::vector<std::string> names;
    for (uint32_t i = 0; i <= 65536; ++i)
        names.push_back("S" + std::to_string(i));
    TestPlugin* greedy = plugins.make();
    std::string error;
    ASSERT_TRUE(greedy->connect(router.port, kWaitMs, &error)) << error;
    EXPECT_FALSE(greedy->open(names, kWaitMs, &error));
    EXPECT_EQ(error, "the router gave no route numbers for the services");
    EXPECT_NE(greedy->getPluginId(), 0xffffffffu);
    EXPECT_TRUE(greedy->getServiceRNs().empty());
    EXPECT_NE(router.log().find("no route numbers left for 65537 services"), std::string::npos);
    // The router goes on serving.
    TestPlugin* next = plugins.open(router.port, {"After.Greedy"});
    EXPECT_EQ(next->getServiceRNs().size(), 1u);
}

TEST_F(RouterTest, UnknownServiceIsNotFound) {
    TestPlugin* provider = plugins.open(router.port, {"VersionControl.CVS"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("VersionControl.SVN", {}, kWaitMs, &reply));
    EXPECT_FALSE(reply.wasFound);
    EXPECT_FALSE(reply.wasAccepted);
    EXPECT_EQ(reply.serviceName, "VersionControl.SVN");
    EXPECT_TRUE(provider->getRequests().empty());
    // Asking for it on a plug-in that does not offer it finds nothing either.
    ASSERT_TRUE(client->requestConnection("VersionControl.CVS", {}, kWaitMs, &reply,
                                          client->getPluginId()));
    EXPECT_FALSE(reply.wasFound);
}

TEST_F(RouterTest, RequestReachesTheProviderAndItsAnswerTheClient) {
    TestPlugin* provider = plugins.open(router.port, {"Echo.Service"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(
        client->requestConnection("Echo.Service", {"cwd", "/home/x", "odd"}, kWaitMs, &reply));
    EXPECT_TRUE(reply.wasFound);
    EXPECT_TRUE(reply.wasAccepted);
    ASSERT_EQ(provider->getRequests().size(), 1u);
    const TestPlugin::ConnectionRequest& request = provider->getRequests()[0];
    EXPECT_EQ(request.requestingPluginId, client->getPluginId());
    EXPECT_EQ(request.serviceRN, provider->getServiceRNs()[0]);
    EXPECT_EQ(request.remoteRN, reply.localRN);
    EXPECT_EQ(request.nameValuePairs, (std::vector<std::string>{"cwd", "/home/x", "odd"}))
        << "the client's names and values pass unchanged";
}

TEST_F(RouterTest, RefusedConnectionIsFoundButNotAccepted) {
    TestPlugin* provider = plugins.open(router.port, {"Picky.Service"});
    provider->setAnswer(TestPlugin::Answer::refuse);
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Picky.Service", {}, kWaitMs, &reply));
    EXPECT_TRUE(reply.wasFound);
    EXPECT_FALSE(reply.wasAccepted);
}

TEST_F(RouterTest, PacketsOfAConnectionAreRelayedByRouteNumberBothWays) {
    TestPlugin* provider = plugins.open(router.port, {"Echo.Service"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &reply));
    ASSERT_TRUE(reply.wasAccepted);
    StpEchoListener echo(provider->getTransport());
    // The client writes (its number, the service's); the provider hears it under that pair.
    provider->getTransport()->addListener(reply.localRN, reply.serviceRN, &echo, KIND_BINARY);
    for (int round = 0; round < 3; ++round) {
        STPTransport* t = client->getTransport();
        STPMessage* m =
            t->newMessage(reply.localRN, reply.serviceRN, KIND_BINARY, 1, MSG_WANTS_REPLY);
        std::string body = "payload " + std::to_string(round);
        m->putRaw(body.data(), static_cast<int32_t>(body.size()));
        TimeoutSTPRetryHandler retry(kWaitMs, t);
        uint32_t serial = t->sendMessage(m, &retry);
        delete m;
        ASSERT_NE(serial, 0u);
        // Both plug-ins are pumped, so that the provider answers; the reply waits in the
        // client's queue of responses until it is taken.
        ASSERT_TRUE(client->pumpUntil([&] { return t->responseQueueSize() > 0; }, kWaitMs));
        STPMessage* answer = t->awaitResponse(serial, &retry);
        ASSERT_NE(answer, nullptr) << t->getStatus().message;
        EXPECT_EQ(std::string(answer->data() + answer->headerSize, body.size()), body);
        EXPECT_EQ(answer->localRN, reply.serviceRN) << "the reply comes from the service's end";
        delete answer;
    }
    EXPECT_EQ(echo.echoed, 3);
    provider->getTransport()->removeListener(&echo);
}

TEST_F(RouterTest, DroppedConnectionIsToldToBothEnds) {
    TestPlugin* provider = plugins.open(router.port, {"Echo.Service"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &reply));
    ASSERT_TRUE(reply.wasAccepted);
    ASSERT_TRUE(client->DropServiceConnection(false, reply.localRN, reply.serviceRN));
    ASSERT_TRUE(client->pumpUntil(
        [&] { return !provider->getDrops().empty() && !client->getDrops().empty(); }, kWaitMs));
    EXPECT_EQ(provider->getDrops()[0], std::make_pair(reply.serviceRN, reply.localRN));
    EXPECT_EQ(client->getDrops()[0], std::make_pair(reply.localRN, reply.serviceRN));
    // A second drop of the same pair is unknown and tells nobody anything.
    ASSERT_TRUE(client->DropServiceConnection(false, reply.localRN, reply.serviceRN));
    TestPlugin::ConnectionReply again;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &again));
    EXPECT_EQ(provider->getDrops().size(), 1u);
}

TEST_F(RouterTest, APluginThatDiesTakesItsConnectionsWithIt) {
    TestPlugin* provider = plugins.open(router.port, {"Echo.Service"});
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin* other = plugins.open(router.port, {});
    TestPlugin::ConnectionReply first, second;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &first));
    ASSERT_TRUE(other->requestConnection("Echo.Service", {}, kWaitMs, &second));
    // A client dies: the provider hears of that connection only.
    client->vanish();
    ASSERT_TRUE(provider->pumpUntil([&] { return provider->getDrops().size() == 1; }, kWaitMs));
    EXPECT_EQ(provider->getDrops()[0], std::make_pair(first.serviceRN, first.localRN));
    // The provider dies: its other client hears of it, and the service is gone.
    provider->vanish();
    ASSERT_TRUE(other->pumpUntil([&] { return other->getDrops().size() == 1; }, kWaitMs));
    EXPECT_EQ(other->getDrops()[0], std::make_pair(second.localRN, second.serviceRN));
    TestPlugin::ConnectionReply after;
    ASSERT_TRUE(other->requestConnection("Echo.Service", {}, kWaitMs, &after));
    EXPECT_FALSE(after.wasFound);
}

TEST_F(RouterTest, ProviderThatDiesBeforeAnsweringLeavesTheClientRefused) {
    TestPlugin* provider = plugins.open(router.port, {"Silent.Service"});
    provider->setAnswer(TestPlugin::Answer::ignore);
    TestPlugin* client = plugins.open(router.port, {});
    StringList none{};
    ASSERT_TRUE(client->RequestServiceConnection(false, "Silent.Service", 0xffffffffu, none,
                                                 nullptr, false, 77, false, false));
    ASSERT_TRUE(client->pumpUntil([&] { return provider->getRequests().size() == 1; }, kWaitMs));
    provider->vanish();
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->awaitReply("Silent.Service", 77, kWaitMs, &reply));
    EXPECT_TRUE(reply.wasFound);
    EXPECT_FALSE(reply.wasAccepted);
}

TEST_F(RouterTest, AcceptForAClientThatHasGoneIsDroppedAtOnce) {
    TestPlugin* provider = plugins.open(router.port, {"Slow.Service"});
    provider->setAnswer(TestPlugin::Answer::ignore);
    TestPlugin* client = plugins.open(router.port, {});
    StringList none{};
    ASSERT_TRUE(client->RequestServiceConnection(false, "Slow.Service", 0xffffffffu, none, nullptr,
                                                 false, 1, false, false));
    ASSERT_TRUE(client->pumpUntil([&] { return provider->getRequests().size() == 1; }, kWaitMs));
    std::string gone = "plug-in " + std::to_string(client->getPluginId()) + " has gone";
    client->vanish();
    // Once the router has seen the client go, the provider accepts, late.
    ASSERT_TRUE(
        provider->pumpUntil([&] { return router.log().find(gone) != std::string::npos; }, kWaitMs));
    const TestPlugin::ConnectionRequest request = provider->getRequests()[0];
    ASSERT_TRUE(
        provider->ConnectionAcceptedEvent(false, request.serviceRN, request.remoteRN, true));
    ASSERT_TRUE(provider->pumpUntil([&] { return provider->getDrops().size() == 1; }, kWaitMs));
    EXPECT_EQ(provider->getDrops()[0], std::make_pair(request.serviceRN, request.remoteRN));
}

TEST_F(RouterTest, SmallQuestionsAreAnswered) {
    TestPlugin* a = plugins.open(router.port, {"A.One", "A.Two"});
    TestPlugin* b = plugins.open(router.port, {"B.One"});
    ASSERT_TRUE(b->PersistentService(false, false));
    std::string host;
    uint32_t port = 0;
    // The router handles b's messages in order: once this is answered, so was the last.
    ASSERT_TRUE(b->requestLocation(kWaitMs, &host, &port));

    // Counting services is the one request with a reply.
    uint32_t persistent = 0, total = 0;
    TimeoutSTPRetryHandler retry(kWaitMs, a->getTransport());
    ASSERT_TRUE(a->NumPersistentServices(&persistent, &total, &retry));
    EXPECT_EQ(persistent, 2u);
    EXPECT_EQ(total, 3u);

    ASSERT_TRUE(a->requestLocation(kWaitMs, &host, &port));
    EXPECT_EQ(host, "127.0.0.1");
    EXPECT_EQ(port, router.port);

    b->setValue("cwd", "/work/b");
    TestPlugin::ValueReply value;
    ASSERT_TRUE(a->requestValue(b->getPluginId(), "cwd", kWaitMs, &value));
    EXPECT_TRUE(value.present);
    EXPECT_EQ(value.value, "/work/b");
    ASSERT_TRUE(a->requestValue(b->getPluginId(), "nothing", kWaitMs, &value));
    EXPECT_FALSE(value.present);
    ASSERT_TRUE(a->requestValue(999, "cwd", kWaitMs, &value)) << "no plug-in 999: no hang";
    EXPECT_FALSE(value.present);
}

TEST_F(RouterTest, DisconnectRequestClosesThatConnectionOnly) {
    TestPlugin* a = plugins.open(router.port, {"A.One"});
    TestPlugin* b = plugins.open(router.port, {});
    ASSERT_TRUE(a->disconnect(kWaitMs)) << "the router must close the connection";
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(b->requestConnection("A.One", {}, kWaitMs, &reply));
    EXPECT_FALSE(reply.wasFound) << "a plug-in's services leave with it";
    EXPECT_FALSE(b->isClosed());
}

TEST_F(RouterTest, GarbageFromOnePluginClosesOnlyItsConnection) {
    TestPlugin* good = plugins.open(router.port, {"Good.One"});
    plat_socket raw = plat_tcp_socket();
    ASSERT_TRUE(plat_connect(raw, plat_loopback_address(), router.port));
    // A header size of 7 is no packet at all.
    const char garbage[] = "\x07\x00\x00\x00\x10\x00\x00\x00garbage-garbage-garbage";
    ASSERT_GT(plat_send(raw, garbage, sizeof garbage), 0);
    char byte;
    plat_set_nonblocking(raw, false);
    // The router's negotiation packet may come first; the close follows.
    long n;
    while ((n = plat_recv(raw, &byte, 1)) > 0) {
    }
    EXPECT_EQ(n, 0) << "the router closes the connection";
    plat_close_socket(raw);
    TestPlugin* client = plugins.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Good.One", {}, kWaitMs, &reply));
    EXPECT_TRUE(reply.wasAccepted);
    (void)good;
}

// ---- Many peers ----

// Raises this process's soft descriptor limit (which the router it starts inherits) to
// `wanted` if it is lower; false when the hard limit does not allow that.
bool haveDescriptors(uint64_t wanted) {
    uint64_t soft = 0, hard = 0;
    if (!plat_descriptor_limit(&soft, &hard))
        return false;
    return soft >= wanted || (hard >= wanted && plat_set_descriptor_limit(wanted));
}

TEST(RouterLoad, FiveHundredIdlePluginsGetTheirIdsAndTwoTalkingOnesAreServed) {
    constexpr int kIdle = 500;
    if (!haveDescriptors(2 * kIdle + 100))
        GTEST_SKIP() << "the hard descriptor limit is below " << 2 * kIdle + 100;
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {"-stay"})) << router.errors();
    std::vector<TestPlugin*> idle;
    std::set<uint32_t> ids;
    for (int i = 0; i < kIdle; ++i) {
        idle.push_back(new TestPlugin); // each in a group of its own, served only when it waits
        std::string error;
        ASSERT_TRUE(idle.back()->connect(router.port, kWaitMs, &error)) << i << ": " << error;
        ASSERT_TRUE(idle.back()->open({}, kWaitMs, &error)) << i << ": " << error;
        ids.insert(idle.back()->getPluginId());
    }
    EXPECT_EQ(ids.size(), static_cast<size_t>(kIdle));

    Plugins talking;
    TestPlugin* provider = talking.open(router.port, {"Echo.Service"});
    TestPlugin* client = talking.open(router.port, {});
    TestPlugin::ConnectionReply reply;
    ASSERT_TRUE(client->requestConnection("Echo.Service", {}, kWaitMs, &reply));
    ASSERT_TRUE(reply.wasAccepted);
    StpEchoListener echo(provider->getTransport());
    provider->getTransport()->addListener(reply.localRN, reply.serviceRN, &echo, KIND_BINARY);
    for (int round = 0; round < 50; ++round) {
        STPTransport* t = client->getTransport();
        STPMessage* m =
            t->newMessage(reply.localRN, reply.serviceRN, KIND_BINARY, 1, MSG_WANTS_REPLY);
        m->putRaw("ping");
        uint32_t serial = t->sendMessage(m);
        delete m;
        ASSERT_NE(serial, 0u);
        ASSERT_TRUE(talking.group.pumpUntil(
            [&] { return t->responseQueueSize() > 0 || t->isDisconnected(); }, kWaitMs))
            << "round " << round;
        delete t->awaitResponse(serial, nullptr);
    }
    EXPECT_EQ(echo.echoed, 50);
    provider->getTransport()->removeListener(&echo);
    EXPECT_EQ(router.log().find("no negotiation within"), std::string::npos);
    for (TestPlugin* p : idle)
        p->release();
    EXPECT_TRUE(router.running()) << router.errors();
}

// The state of raw calls to the router: answered (the router's negotiation came), closed at
// once, or neither yet.
enum class Call { pending, answered, closed };

std::vector<Call> classify(const std::vector<plat_socket>& calls, int32_t timeoutMs) {
    std::vector<Call> state(calls.size(), Call::pending);
    int32_t start = plat_tick_count();
    while (plat_tick_diff(plat_tick_count(), start) < timeoutMs &&
           std::count(state.begin(), state.end(), Call::pending) > 0) {
        std::vector<PlatPollEntry> entries;
        for (size_t i = 0; i < calls.size(); ++i)
            if (state[i] == Call::pending)
                entries.push_back(PlatPollEntry{calls[i], true});
        plat_poll(entries.data(), entries.size(), 50);
        for (const PlatPollEntry& e : entries) {
            if (!e.readable)
                continue;
            size_t i = std::find(calls.begin(), calls.end(), e.fd) - calls.begin();
            char bytes[256];
            state[i] = plat_recv(e.fd, bytes, sizeof bytes) > 0 ? Call::answered : Call::closed;
        }
    }
    return state;
}

std::vector<plat_socket> call(uint16_t port, int count) {
    std::vector<plat_socket> calls;
    for (int i = 0; i < count; ++i) {
        plat_socket s = plat_tcp_socket();
        EXPECT_TRUE(plat_connect(s, plat_loopback_address(), port));
        calls.push_back(s);
    }
    return calls;
}

TEST(RouterLoad, OutOfDescriptorsNewCallsAreClosedAtOnceUntilSomeAreFree) {
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizers' own checks need a descriptor (they probe memory through a pipe) and
    // report false errors in a process that has none left.
    GTEST_SKIP() << "not meaningful under the sanitizers";
#endif
    uint64_t soft = 0;
    ASSERT_TRUE(plat_descriptor_limit(&soft, nullptr));
    ScratchFolder folder;
    RouterProcess router;
    // The router starts under a limit of 32 descriptors; this process's own goes back at once.
    ASSERT_TRUE(plat_set_descriptor_limit(32));
    bool started = router.start(folder, {"-stay"});
    plat_set_descriptor_limit(soft);
    ASSERT_TRUE(started) << router.errors();

    std::vector<plat_socket> calls = call(router.port, 60);
    std::vector<Call> state = classify(calls, kWaitMs);
    long answered = std::count(state.begin(), state.end(), Call::answered);
    long closed = std::count(state.begin(), state.end(), Call::closed);
    EXPECT_GE(answered, 10);
    EXPECT_GE(closed, 10);
    EXPECT_EQ(answered + closed, 60) << "calls left waiting: the router cannot take them";
    std::string log = router.log();
    EXPECT_NE(log.find("out of file descriptors (too many open files)"), std::string::npos) << log;

    // Calls that end free descriptors, and the router takes new calls again.
    int hungUp = 0;
    for (size_t i = 0; i < calls.size(); ++i) {
        if (state[i] == Call::answered && hungUp < 10) {
            plat_close_socket(calls[i]);
            calls[i] = PLAT_INVALID_SOCKET;
            ++hungUp;
        }
    }
    int32_t start = plat_tick_count();
    while (router.log().find(" has gone") == std::string::npos &&
           plat_tick_diff(plat_tick_count(), start) < 500)
        plat_sleep_ms(10);
    std::vector<plat_socket> more = call(router.port, 3);
    std::vector<Call> later = classify(more, kWaitMs);
    EXPECT_EQ(std::count(later.begin(), later.end(), Call::answered), 3);
    EXPECT_NE(router.log().find("descriptors available again"), std::string::npos);
    for (plat_socket s : calls)
        if (s != PLAT_INVALID_SOCKET)
            plat_close_socket(s);
    for (plat_socket s : more)
        plat_close_socket(s);
    EXPECT_TRUE(router.running()) << router.errors();
}

// ---- The router's end, without -stay ----

TEST(RouterEnd, EndsWhenTheLastPluginHasGone) {
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {}));
    Plugins plugins;
    TestPlugin* a = plugins.open(router.port, {"A.One"});
    TestPlugin* b = plugins.open(router.port, {});
    ASSERT_TRUE(a->disconnect(kWaitMs));
    EXPECT_TRUE(router.running()) << "one plug-in is left";
    b->vanish();
    EXPECT_EQ(router.wait(kWaitMs), 0) << router.errors();
    std::string log = router.log();
    EXPECT_NE(log.find("plug-in 1 asks to disconnect"), std::string::npos) << log;
    EXPECT_NE(log.find("plug-in 1: RECV: RegisterServiceList: name_list:{count:0x1 "
                       "data:\"A.One\", }"),
              std::string::npos)
        << log;
    // Every message line names its plug-in.
    std::istringstream lines(log);
    int messages = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("RECV: ") == std::string::npos && line.find("SEND: ") == std::string::npos)
            continue;
        ++messages;
        EXPECT_NE(line.find(": plug-in "), std::string::npos) << line;
    }
    EXPECT_GE(messages, 4);
}

TEST(RouterEnd, IdleLimitEndsARouterThatNobodyCalled) {
    ScratchFolder folder;
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, {"-idle_exit", "200"}));
    EXPECT_EQ(router.wait(kWaitMs), 0);
}

TEST(RouterEnd, ReportsTheExitCodesOfLaunchedPlugins) {
    ScratchFolder folder;
    RouterProcess ok, failing;
    ASSERT_TRUE(ok.start(folder, {"-plugin", "true"}));
    EXPECT_EQ(ok.wait(kWaitMs), 0);
    EXPECT_NE(ok.errors().find("plug-in true (pid "), std::string::npos) << ok.errors();
    EXPECT_NE(ok.errors().find("exited with code 0"), std::string::npos) << ok.errors();

    ScratchFolder other;
    ASSERT_TRUE(failing.start(other, {"-plugin", "false"}));
    EXPECT_EQ(failing.wait(kWaitMs), 2);
    EXPECT_NE(failing.errors().find("exited with code 1"), std::string::npos) << failing.errors();
}

TEST(RouterEnd, ConnectsBackToItsLauncherAndServesItAsAPlugin) {
    ScratchFolder folder;
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    ASSERT_NE(listenFd, PLAT_INVALID_SOCKET);
    ChildProcess router;
    ASSERT_TRUE(router.start({SVC_ROUTER_PATH, "-connect_servicerouter", std::to_string(port)},
                             folder.at("out"), folder.at("err")));
    STPTransport* transport = new STPTransport;
    ASSERT_TRUE(transport->listenOnFD(listenFd, true, nullptr));
    Plugins plugins;
    TestPlugin* launcher = plugins.make();
    std::string error;
    ASSERT_TRUE(launcher->attach(transport, kWaitMs, &error)) << error;
    transport->unref();
    ASSERT_TRUE(launcher->open({"Launcher.Service"}, kWaitMs, &error)) << error;
    EXPECT_EQ(launcher->getServiceRNs().size(), 1u);
    ASSERT_TRUE(launcher->disconnect(kWaitMs));
    EXPECT_EQ(router.wait(kWaitMs), 0) << router.errors();
}

// A launched plug-in gets the standard streams, not the router's log, listening socket or
// spare descriptor.
TEST(RouterEnd, LaunchedPluginsInheritOnlyTheStandardStreams) {
    std::vector<int> inherited = openDescriptors(); // what the router gets from this process
    ScratchFolder folder;
    std::string list = folder.at("fds.txt");
    std::vector<std::string> args{"-plugin"};
    for (const std::string& word :
         childCommand("RouterChild.DISABLED_ListDescriptors", {"--fd-list=" + list})) {
        args.push_back(word);
        args.push_back("-plugin_arg");
    }
    args.pop_back();
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, args)) << router.errors();
    EXPECT_EQ(router.wait(kWaitMs), 0) << router.errors();
    EXPECT_EQ(leakedDescriptors(list, inherited), std::vector<int>{});
}

// A plug-in starts in its own working directory; one that cannot be entered is reported.
TEST(RouterEnd, LaunchedPluginsStartInTheirWorkingDirectory) {
    ScratchFolder folder;
    std::filesystem::create_directory(folder.at("work"));
    std::string cwdFile = folder.at("cwd.txt");
    std::vector<std::string> words =
        childCommand("RouterChild.DISABLED_WriteCwd", {"--cwd-file=" + cwdFile});
    std::vector<std::string> args{"-plugin", words[0]};
    for (size_t i = 1; i < words.size(); ++i)
        args.insert(args.end(), {"-plugin_arg", words[i]});
    args.insert(args.end(), {"-plugin_dir", folder.at("work"), "-plugin", "true", "-plugin_dir",
                             folder.at("missing")});
    RouterProcess router;
    ASSERT_TRUE(router.start(folder, args)) << router.errors();
    EXPECT_EQ(router.wait(kWaitMs), 2) << router.errors();
    EXPECT_EQ(readFile(cwdFile), folder.at("work"));
    EXPECT_NE(router.errors().find("could not start true: cannot enter the working directory " +
                                   folder.at("missing")),
              std::string::npos)
        << router.errors();
}

TEST(RouterChild, DISABLED_WriteCwd) {
    writeFile(childArgument("cwd-file"), std::filesystem::current_path().string());
}

TEST(RouterChild, DISABLED_ListDescriptors) {
    writeOpenDescriptors(childArgument("fd-list"));
}

TEST(RouterEnd, BadCommandLineEndsWithCode1) {
    ScratchFolder folder;
    ChildProcess router;
    ASSERT_TRUE(router.start({SVC_ROUTER_PATH, "-port"}, folder.at("out"), folder.at("err")));
    EXPECT_EQ(router.wait(kWaitMs), 1);
    EXPECT_NE(router.errors().find("-port needs a value"), std::string::npos);
}

} // namespace
