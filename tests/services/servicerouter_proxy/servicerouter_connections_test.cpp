// Service connections of the router client against a scripted router over a loopback socket:
// route-number blocks, registration, incoming connections with the Negotiator, their end,
// outgoing connections, name/value lookups and client paths.
#include "servicerouter_proxy.h"

#include "gen_path.h"
#include "indgen.h"
#include "negotiator.h"
#include "proxy_on_fake_router.h"
#include "service_factory.h"
#include "service_listeners.h"
#include "stp_transport.h"
#include "ut_idle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

// Makes EmptySpec server objects; counts what it is told.
class EchoFactory : public ServiceFactory {
public:
    EchoFactory(const char* name, int32_t limit = -1) : ServiceFactory(name, limit, false) {}
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override {
        EmptySpec* spec = new EmptySpec("Echo", "server", &live);
        spec->attachTransport(transport, serviceRN, remoteRN);
        return spec;
    }
    void serviceConnected(STPSpecClass*) override { ++connectedCalls; }

    int live = 0;
    int connectedCalls = 0;
};

class DiedRecorder : public ConnectionDiedListener {
public:
    explicit DiedRecorder(STPSpecClass* watched, bool remove)
        : ConnectionDiedListener(watched), remove(remove) {}
    void connectionDied(STPSpecClass* died) override { deaths.push_back(died); }
    bool removeWhenDied() override { return remove; }

    std::vector<STPSpecClass*> deaths;
    bool remove;
};

class Connections : public testing::Test {
protected:
    void SetUp() override {
        router = new FakeRouter();
        ASSERT_TRUE(router->listen());
        proxy = new ServiceRouter_Proxy();
        ASSERT_TRUE(connectToFakeRouter(proxy, router, {}, kOwnId));
        ASSERT_TRUE(proxy->initializeRouterConnection(true, nullptr));
        ASSERT_TRUE(router->waitForRecords(1)); // the empty service list
        router->log.records.clear();
    }
    void TearDown() override {
        proxy->unref();
        router->unref();
    }

    // Factories outlive the proxy, whose records may still hold their objects at TearDown.
    EchoFactory& make(const char* name, int32_t limit = -1) {
        factories.push_back(std::make_unique<EchoFactory>(name, limit));
        return *factories.back();
    }
    STPTransport* proxyTransport() { return proxy->STPSpecClass::getTransport(); }
    STPTransport* routerTransport() { return router->routerTransport(); }
    // Lets the proxy handle what the router sent.
    bool pumpUntil(const std::function<bool()>& done) {
        return router->pumpUntil(done, 5000, {proxyTransport()});
    }
    void settle() {
        router->pumpUntil([] { return false; }, 50, {proxyTransport()});
    }
    PumpingRetryHandler* pumping() {
        handler = std::make_unique<PumpingRetryHandler>(
            std::vector<STPTransport*>{routerTransport(), proxyTransport()});
        return handler.get();
    }
    void giveBlock(std::vector<uint32_t> rns) {
        RNList list{static_cast<int32_t>(rns.size()), rns.data()};
        ASSERT_TRUE(router->RNBlockReservedEvent(true, list));
        ASSERT_TRUE(pumpUntil([&] {
            const std::vector<uint32_t>& free = proxy->getFreeRNs();
            return proxy->isRNInUse(rns[0]) || (!free.empty() && free.back() == rns.back());
        }));
        settle();
    }
    // The router forwards a client's request for a connection to the service at `serviceRN`.
    void requestConnection(uint32_t client, uint32_t serviceRN, uint32_t remoteRN,
                           std::vector<std::string> pairs) {
        std::vector<char*> data;
        for (std::string& p : pairs)
            data.push_back(p.data());
        StringList list{static_cast<int32_t>(data.size()), data.empty() ? nullptr : data.data()};
        ASSERT_TRUE(router->ConnectionRequestedEvent(true, client, serviceRN, remoteRN, list));
    }

    static constexpr uint32_t kOwnId = 0x30001;
    std::vector<std::unique_ptr<EchoFactory>> factories;
    FakeRouter* router = nullptr;
    ServiceRouter_Proxy* proxy = nullptr;
    std::unique_ptr<PumpingRetryHandler> handler;
};

TEST_F(Connections, ARegistrationWhileConnectedSendsOneName) {
    EchoFactory& factory = make("Echo.Svc");
    EXPECT_TRUE(proxy->registerService(&factory, nullptr));
    EXPECT_TRUE(proxy->getOptions().connect_now);
    ASSERT_TRUE(router->waitForRecords(1, 5000, {proxyTransport()}));
    EXPECT_EQ(router->log.records[0],
              "RECV: RegisterServiceList: name_list:{count:0x1 data:\"Echo.Svc\", }");
    EXPECT_EQ(proxy->getRegisteredFactories().size(), 1u);
}

TEST_F(Connections, RouteNumbersGoToFactoriesInOrderAndTheRestIsKept) {
    EchoFactory& a = make("A");
    EchoFactory& b = make("B");
    EchoFactory& c = make("C");
    proxy->registerService(&a, nullptr);
    proxy->registerService(&b, nullptr);
    proxy->registerService(&c, nullptr);
    // Fewer numbers than factories: the others wait for the next block.
    giveBlock({0x40});
    EXPECT_EQ(proxy->factoryForRN(0x40), &a);
    EXPECT_TRUE(proxy->isRNInUse(0x40));
    EXPECT_EQ(proxy->getRegisteredFactories().size(), 2u);
    // More numbers than factories: the rest is free.
    giveBlock({0x50, 0x51, 0x52, 0x53});
    EXPECT_EQ(proxy->factoryForRN(0x50), &b);
    EXPECT_EQ(proxy->factoryForRN(0x51), &c);
    EXPECT_EQ(proxy->factoryForRN(0x52), nullptr);
    EXPECT_FALSE(proxy->isRNInUse(0x52));
    EXPECT_EQ(proxy->getFreeRNs(), (std::vector<uint32_t>{0x52, 0x53}));
    EXPECT_TRUE(proxy->getRegisteredFactories().empty());
}

TEST_F(Connections, AnUnknownServiceOrARefusingFactoryIsAnsweredWithNo) {
    EchoFactory& full = make("Full", 0);
    proxy->registerService(&full, nullptr);
    giveBlock({0x60});
    router->log.records.clear();
    requestConnection(7, 0x999, 0x900, {});
    requestConnection(7, 0x60, 0x901, {});
    ASSERT_TRUE(router->waitForRecords(2, 5000, {proxyTransport()}));
    EXPECT_EQ(router->log.records,
              (std::vector<std::string>{
                  "RECV: ConnectionAcceptedEvent: serviceRN:0x999, remoteRN:0x900, accept:0x0",
                  "RECV: ConnectionAcceptedEvent: serviceRN:0x60, remoteRN:0x901, accept:0x0"}));
    EXPECT_EQ(full.live, 0);
    EXPECT_FALSE(full.hasCreatedOne());
    EXPECT_EQ(proxy->pendingConnectionCount(), 0u);
}

TEST_F(Connections, AClientConnectionBecomesOneServerObjectNegotiatedInTheEventLoop) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x70});
    router->log.records.clear();
    requestConnection(9, 0x70, 0x900, {"cwd", "/client/dir", "user", "someone"});
    ASSERT_TRUE(pumpUntil([&] { return factory.live == 1; }));
    EXPECT_TRUE(ServiceFactory::createdAService());
    ASSERT_EQ(factory.getServers().size(), 1u);
    STPSpecClass* server = factory.getServers()[0];
    EXPECT_EQ(server->getLocalRN(), 0x70u);
    EXPECT_EQ(server->getRemoteRN(), 0x900u);
    EXPECT_EQ(proxy->pendingConnectionCount(), 1u);
    EXPECT_EQ(proxy->getNegotiator()->waitingCount(), 1u);
    ASSERT_TRUE(router->waitForRecords(1, 5000, {proxyTransport()}));
    EXPECT_EQ(router->log.records[0],
              "RECV: ConnectionAcceptedEvent: serviceRN:0x70, remoteRN:0x900, accept:0x1");

    // The client end, relayed by the router on the same socket.
    EmptySpec* client = new EmptySpec("Echo", "client");
    client->attachTransport(routerTransport(), 0x900, 0x70);
    STPStatus status;
    ASSERT_TRUE(client->negotiate(pumping(), &status)) << status.message;
    ASSERT_TRUE(pumpUntil([&] { return server->hasNegotiated(); }));
    IdleNotifier::get()->runIdlers(false);
    EXPECT_EQ(proxy->getNegotiator()->waitingCount(), 0u);
    EXPECT_EQ(proxy->pendingConnectionCount(), 0u);
    EXPECT_EQ(proxy->connectionCount(), 1u);
    EXPECT_EQ(factory.connectedCalls, 1);
    // The record alone holds the object now.
    EXPECT_EQ(server->getRefCount(), 1);
    EXPECT_EQ(proxy->pluginIdOfConnection(server), 9);

    // A relative path of the client is resolved against the "cwd" that came with the request,
    // without asking anybody.
    size_t before = router->log.records.size();
    char* path = proxy->fullPathForConnection(server, "sub/../file.c", nullptr);
    EXPECT_STREQ(path, "/client/dir/file.c");
    gen_free(path);
    EXPECT_EQ(router->log.records.size(), before);

    auto watcher = std::make_unique<DiedRecorder>(server, true);
    DiedRecorder bystander(nullptr, true);
    proxy->addConnectionDiedListener(watcher.get());
    proxy->addConnectionDiedListener(&bystander);
    ASSERT_TRUE(router->ConnectionDroppedEvent(true, 0x70, 0x900));
    ASSERT_TRUE(pumpUntil([&] { return proxy->connectionCount() == 0; }));
    EXPECT_TRUE(server->isVirtualConnectionDown());
    EXPECT_EQ(watcher->deaths, std::vector<STPSpecClass*>{server});
    EXPECT_EQ(bystander.deaths, std::vector<STPSpecClass*>{server});
    // Only the listener of that very connection leaves the list.
    EXPECT_FALSE(proxy->removeConnectionDiedListener(watcher.get()));
    EXPECT_TRUE(proxy->removeConnectionDiedListener(&bystander));
    // The watcher's reference is the last one: the record has let go.
    EXPECT_EQ(factory.live, 1);
    watcher.reset();
    EXPECT_EQ(factory.live, 0);
    client->unref();
}

TEST_F(Connections, AConnectionThatDropsWhileNegotiatingEndsInTheNegotiator) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x71});
    requestConnection(9, 0x71, 0x905, {});
    ASSERT_TRUE(pumpUntil([&] { return proxy->pendingConnectionCount() == 1; }));
    ASSERT_TRUE(router->ConnectionDroppedEvent(true, 0x71, 0x905));
    ASSERT_TRUE(pumpUntil([&] { return proxy->pendingConnectionCount() == 0; }));
    EXPECT_EQ(factory.live, 1); // the negotiator still holds it
    IdleNotifier::get()->runIdlers(false);
    EXPECT_EQ(factory.live, 0);
    EXPECT_EQ(factory.connectedCalls, 1);
    EXPECT_EQ(proxy->connectionCount(), 0u);
    EXPECT_EQ(proxy->getNegotiator()->waitingCount(), 0u);
}

TEST_F(Connections, AClientInThisVeryProcessIsNegotiatedLocally) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x72});
    requestConnection(kOwnId, 0x72, 0x906, {});
    ASSERT_TRUE(pumpUntil([&] { return proxy->connectionCount() == 1; }));
    EXPECT_EQ(proxy->getNegotiator()->waitingCount(), 0u);
    EXPECT_EQ(proxy->pendingConnectionCount(), 0u);
    EXPECT_EQ(factory.connectedCalls, 1);
    ASSERT_EQ(factory.getServers().size(), 1u);
    EXPECT_TRUE(factory.getServers()[0]->hasNegotiated());
    EXPECT_EQ(factory.getServers()[0]->getRefCount(), 1);
}

TEST_F(Connections, ClientValuesAreCachedPairByPairAndANewOneReplacesTheOld) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x73});
    // An odd count leaves the last string out.
    requestConnection(11, 0x73, 0x907, {"cwd", "/first", "lonely"});
    requestConnection(11, 0x73, 0x908, {"cwd", "/second"});
    ASSERT_TRUE(pumpUntil([&] { return factory.live == 2; }));
    settle();
    size_t before = router->log.records.size();
    EXPECT_STREQ(proxy->valueOfNameOnPlugin(11, "cwd", nullptr), "/second");
    EXPECT_EQ(router->log.records.size(), before);
    // "lonely" was never taken for a name: asking for it goes to the router, which has no value.
    router->onMessage = [&](const std::string& name) {
        if (name == "RequestValueOfNameOnPlugin")
            router->ValueOfNameOnPluginEvent(false, router->lastValuePluginId,
                                             router->lastValueName.c_str(), nullptr);
    };
    EXPECT_EQ(proxy->valueOfNameOnPlugin(11, "lonely", pumping()), nullptr);
    EXPECT_EQ(router->recordsOf("RequestValueOfNameOnPlugin").size(), 1u);
}

TEST_F(Connections, AnUnknownDroppedPairIsIgnored) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x74});
    requestConnection(9, 0x74, 0x909, {});
    ASSERT_TRUE(pumpUntil([&] { return factory.live == 1; }));
    ASSERT_TRUE(router->ConnectionDroppedEvent(true, 0x74, 0x999));
    ASSERT_TRUE(router->ConnectionDroppedEvent(true, 0x999, 0x909));
    settle();
    EXPECT_EQ(proxy->pendingConnectionCount(), 1u);
    EXPECT_FALSE(factory.getServers()[0]->isVirtualConnectionDown());
}

// A router that asks for a connection on behalf of no plug-in breaks the protocol: the process
// stops at once with the assertion, naming the handler's file and line.
TEST_F(Connections, ARequestFromNoPluginStopsTheProcessWithTheAssertion) {
    EchoFactory& factory = make("Echo.Svc");
    proxy->registerService(&factory, nullptr);
    giveBlock({0x75});
    EXPECT_EXIT(
        {
            requestConnection(0xFFFFFFFFu, 0x75, 0x90a, {});
            pumpUntil([] { return false; });
            std::exit(0);
        },
        testing::ExitedWithCode(1),
        "Assertion \\(requesting_plugin_id != -1\\) failed in "
        "'\\.\\./src/services/servicerouter_proxy/servicerouter_proxy\\.cpp' on line 3439");
    EXPECT_EQ(factory.live, 0);
}

TEST_F(Connections, ValuesOfOtherPluginsAreAskedOnceAndJoinedToPaths) {
    router->onMessage = [&](const std::string& name) {
        if (name == "RequestValueOfNameOnPlugin")
            router->ValueOfNameOnPluginEvent(false, router->lastValuePluginId,
                                             router->lastValueName.c_str(), "/far/away");
    };
    char* path = proxy->fullPathForPlugin(12, "x/../y", pumping());
    EXPECT_STREQ(path, "/far/away/y");
    gen_free(path);
    EXPECT_EQ(router->recordsOf("RequestValueOfNameOnPlugin"),
              (std::vector<std::string>{
                  "RECV: RequestValueOfNameOnPlugin: plugin_id:0xc, name:\"cwd\""}));
    // Cached from now on; absolute paths and unknown plug-ins need nothing.
    EXPECT_STREQ(proxy->cwdOfPlugin(12, pumping()), "/far/away");
    path = proxy->fullPathForPlugin(12, "/abs/p", nullptr);
    EXPECT_STREQ(path, "/abs/p");
    gen_free(path);
    path = proxy->fullPathForPlugin(-1, "rel", nullptr);
    EXPECT_STREQ(path, "rel");
    gen_free(path);
    EXPECT_EQ(proxy->fullPathForPlugin(12, nullptr, nullptr), nullptr);
    EXPECT_EQ(router->recordsOf("RequestValueOfNameOnPlugin").size(), 1u);
}

TEST_F(Connections, OtherPluginsQuestionsAreAnsweredByTheResolvers) {
    proxy->addNameValueResolver(new NameValueResolver("colour", "blue", false));
    ASSERT_TRUE(router->ForwardedRequestValueOfNameOnPlugin(true, 5, kOwnId, "cwd"));
    ASSERT_TRUE(router->ForwardedRequestValueOfNameOnPlugin(true, 5, kOwnId, "colour"));
    ASSERT_TRUE(router->ForwardedRequestValueOfNameOnPlugin(true, 6, kOwnId, "nothing"));
    ASSERT_TRUE(router->waitForRecords(3, 5000, {proxyTransport()}));
    EXPECT_EQ(router->log.records,
              (std::vector<std::string>{
                  std::string("RECV: ValueOfNameOnPluginResponseEvent: requesting_plugin_id:0x5, "
                              "plugin_id:0x30001, name:\"cwd\", value:\"") +
                      gen_getcwd() + "\"",
                  "RECV: ValueOfNameOnPluginResponseEvent: requesting_plugin_id:0x5, "
                  "plugin_id:0x30001, name:\"colour\", value:\"blue\"",
                  "RECV: ValueOfNameOnPluginResponseEvent: requesting_plugin_id:0x6, "
                  "plugin_id:0x30001, name:\"nothing\", value:\"\""}));
}

// The router's part of an outgoing connection: a provider at route number 300 answers, and the
// client's new number is 200.
void answerConnections(FakeRouter* router, bool found, bool accepted, EmptySpec** provider) {
    router->onMessage = [=](const std::string& name) {
        if (name != "RequestServiceConnection")
            return;
        if (found && accepted) {
            *provider = new EmptySpec("Echo", "server");
            (*provider)->attachTransport(router->routerTransport(), 300, 200);
            (*provider)->sendNegotiate(false);
        }
        router->ConnectionReplyEvent(false, router->lastServiceName.c_str(), 200, found, false,
                                     accepted, 300, 0x44, "", router->lastClientCookie);
    };
}

TEST_F(Connections, AnOutgoingConnectionIsNegotiatedAndEndedWithItsNumbers) {
    EmptySpec* provider = nullptr;
    answerConnections(router, true, true, &provider);
    EmptySpec* client = new EmptySpec("Echo", "client");
    bool found = false, accepted = false;
    ASSERT_TRUE(proxy->connectToService("Echo.Svc", client, &found, &accepted, pumping(), "/wd",
                                        true, false, true));
    EXPECT_TRUE(found);
    EXPECT_TRUE(accepted);
    EXPECT_TRUE(client->hasNegotiated());
    EXPECT_EQ(client->getLocalRN(), 200u);
    EXPECT_EQ(client->getRemoteRN(), 300u);
    EXPECT_TRUE(proxy->isRNInUse(200));
    EXPECT_EQ(proxy->pluginIdOfConnection(client), 0x44);
    EXPECT_EQ(router->recordsOf("RequestServiceConnection"),
              (std::vector<std::string>{
                  std::string("RECV: RequestServiceConnection: serviceName:\"Echo.Svc\", "
                              "providingPluginID:0xffffffff, name_value_pairs:{count:0x2 "
                              "data:\"cwd\", \"") +
                  gen_getcwd() +
                  "\", }, working_dir:\"/wd\", local_only:0x1, client_cookie:0x0, no_reuse:0x0, "
                  "client_start:0x1"}));

    router->log.records.clear();
    EXPECT_TRUE(proxy->dropServiceConnection(client, nullptr, false));
    EXPECT_TRUE(client->isVirtualConnectionDown());
    EXPECT_EQ(proxy->connectionCount(), 0u);
    EXPECT_FALSE(proxy->isRNInUse(200));
    ASSERT_TRUE(router->waitForRecords(2, 5000, {proxyTransport()}));
    EXPECT_EQ(router->log.records, (std::vector<std::string>{
                                       "RECV: DropServiceConnection: localRN:0xc8, serviceRN:0x12c",
                                       "RECV: ReleaseRN: rn:0xc8"}));
    client->unref();
    provider->unref();
}

TEST_F(Connections, AServiceThatIsNotFoundOrRefusesGivesFalse) {
    EmptySpec* provider = nullptr;
    EmptySpec* client = new EmptySpec("Echo", "client");
    bool found = true, accepted = true;
    answerConnections(router, false, false, &provider);
    EXPECT_FALSE(proxy->connectToService("Nope", client, &found, &accepted, pumping(), nullptr,
                                         false, false, false));
    EXPECT_FALSE(found);
    EXPECT_FALSE(accepted);
    answerConnections(router, true, false, &provider);
    EXPECT_FALSE(proxy->connectToServiceOnPlugin("Busy", client, 0x44, pumping()));
    EXPECT_EQ(proxy->connectionCount(), 0u);
    EXPECT_EQ(client->getTransport(), nullptr);
    // The second request named its provider and carried no working directory.
    std::vector<std::string> sent = router->recordsOf("RequestServiceConnection");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_NE(sent[1].find("serviceName:\"Busy\", providingPluginID:0x44,"), std::string::npos);
    EXPECT_NE(sent[1].find("working_dir:\"\", local_only:0x0, client_cookie:0x1,"),
              std::string::npos);
    client->unref();
}

TEST_F(Connections, AWaitForAReplyEndsWhenTheRouterGoes) {
    EmptySpec* client = new EmptySpec("Echo", "client");
    router->onMessage = [&](const std::string& name) {
        if (name == "RequestServiceConnection")
            routerTransport()->closeConnection();
    };
    EXPECT_FALSE(proxy->connectToService("Echo.Svc", client, nullptr, nullptr, pumping(), nullptr,
                                         false, false, false));
    EXPECT_FALSE(proxy->isConnected());
    client->unref();
}

TEST_F(Connections, PluginManagementWaitsForItsAnswerByCookie) {
    router->onMessage = [&](const std::string& name) {
        if (name == "RequestPluginLaunch" || name == "RequestPluginConnect")
            router->PluginConnectedEvent(false, router->lastClientCookie, 0x77, "careful");
        if (name == "RequestPluginIdForService")
            router->PluginIdForServiceReplyEvent(false, router->lastClientCookie,
                                                 router->lastServiceName.c_str(), 0x78, true);
    };
    const char* words[] = {"prog", "-x", nullptr};
    char* errors = nullptr;
    EXPECT_EQ(proxy->launchPlugin(words, true, "/tmp", &errors, pumping()), 0x77);
    EXPECT_STREQ(errors, "careful");
    gen_free(errors);
    EXPECT_EQ(proxy->connectPlugin("", 5, &errors, pumping()), -1);
    EXPECT_STREQ(errors, "Invalid host specified.");
    gen_free(errors);
    EXPECT_EQ(proxy->connectPlugin("h", 5, nullptr, pumping()), 0x77);
    bool found = false;
    EXPECT_EQ(proxy->getPluginIdForService("S", nullptr, false, &found, pumping()), 0x78);
    EXPECT_TRUE(found);
}

} // namespace
