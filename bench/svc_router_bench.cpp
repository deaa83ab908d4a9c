// Round trips of a 64-byte request and its reply between two plug-ins through svc_router,
// beside the same payload over a direct STP connection between the same two kinds of process.
// Last line: "ratio NAME VALUE", the routed rate over the direct one.
//
// The echoing end is this program again in a second process: started by svc_router as a
// plug-in ("--echo-plugin" behind the router's words), or connected straight to this process
// ("--echo-direct PORT"). svc_router is looked for beside this program.
#include "stp_bench_common.h"

#include "plat_files.h"
#include "plat_process.h"
#include "plat_socket.h"
#include "plat_time.h"
#include "stp_message.h"
#include "stp_retryhandler.h"
#include "stp_transport.h"
#include "test_plugin.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kPayload = 64;
constexpr int kRounds = 10000;
constexpr int kRepeats = 3;
constexpr int32_t kWaitMs = 20000;
const char* const kService = "Bench.Echo";

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "svc_router_bench: %s\n", what);
    std::exit(1);
}

using stpbench::EchoListener;

// The echoing plug-in: accepts every connection and echoes on it from the moment it accepts.
class EchoPlugin : public TestPlugin {
public:
    void ConnectionRequestedEvent(uint32_t requesting_plugin_id, uint32_t serviceRN,
                                  uint32_t remoteRN, const StringList& name_value_pairs) override {
        TestPlugin::ConnectionRequestedEvent(requesting_plugin_id, serviceRN, remoteRN,
                                             name_value_pairs);
        echoes.push_back(new EchoListener(getTransport()));
        getTransport()->addListener(remoteRN, serviceRN, echoes.back(), KIND_BINARY);
    }
    std::vector<EchoListener*> echoes;
};

int runEchoPlugin(uint16_t routerPort) {
    EchoPlugin* plugin = new EchoPlugin;
    std::string error;
    if (!plugin->connect(routerPort, kWaitMs, &error) || !plugin->open({kService}, kWaitMs, &error))
        fail(error.c_str());
    // Serves until its client has gone, then asks the router to let it go.
    while (!plugin->isClosed() && plugin->getDrops().empty())
        plugin->getTransport()->serviceOnce(1000);
    if (!plugin->isClosed())
        plugin->disconnect(kWaitMs);
    std::vector<EchoListener*> echoes = plugin->echoes;
    plugin->release();
    for (EchoListener* e : echoes)
        delete e;
    return 0;
}

// Round trips per second of requests from `localRN` to `remoteRN` on `t`.
double roundTrips(STPTransport* t, uint32_t localRN, uint32_t remoteRN) {
    std::string body(kPayload, 'r');
    auto once = [&] {
        STPMessage* m = t->newMessage(localRN, remoteRN, KIND_BINARY, 1, MSG_WANTS_REPLY);
        m->putRaw(body.data(), static_cast<int32_t>(kPayload));
        TimeoutSTPRetryHandler retry(kWaitMs, t);
        uint32_t serial = t->sendMessage(m, &retry);
        delete m;
        STPMessage* reply = serial ? t->awaitResponse(serial, &retry) : nullptr;
        if (reply == nullptr || static_cast<size_t>(reply->dataSize) < kPayload)
            fail("round trip failed");
        delete reply;
    };
    for (int i = 0; i < kRounds / 10; ++i) // warm-up
        once();
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRounds; ++i)
        once();
    return kRounds /
           std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double directRate(const char* self) {
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    std::string portText = std::to_string(port);
    const char* argv[] = {self, "--echo-direct", portText.c_str(), nullptr};
    PlatProcess* peer = plat_spawn(argv, nullptr, nullptr);
    if (peer == nullptr)
        fail("cannot start the direct peer");
    STPTransport* t = new STPTransport;
    if (!t->bindFD(STPTransport::acceptClient(listenFd, true)))
        fail("the direct peer did not call");
    double rate = roundTrips(t, 1, 2);
    t->closeConnection();
    t->unref();
    plat_wait_process(peer, 10000);
    plat_close_process(peer);
    return rate;
}

double routedRate(const std::string& router, const char* self, const std::string& portFile) {
    std::remove(portFile.c_str());
    const char* argv[] = {router.c_str(), "-port", "0",           "-port_file",    portFile.c_str(),
                          "-plugin",      self,    "-plugin_arg", "--echo-plugin", nullptr};
    // The router's own lines would only get in the way of the figures.
    PlatSpawnOptions quiet;
    quiet.stdoutFd = plat_open("/dev/null", PLAT_O_WRONLY, 0);
    quiet.stderrFd = quiet.stdoutFd;
    PlatProcess* process = plat_spawn(argv, &quiet, nullptr);
    plat_close(quiet.stdoutFd);
    if (process == nullptr)
        fail("cannot start svc_router");
    uint16_t port = 0;
    for (int32_t start = plat_tick_count(); port == 0;) {
        if (FILE* f = std::fopen(portFile.c_str(), "re")) {
            unsigned value = 0;
            if (std::fscanf(f, "%u\n", &value) == 1)
                port = static_cast<uint16_t>(value);
            std::fclose(f);
        }
        if (plat_tick_diff(plat_tick_count(), start) > kWaitMs)
            fail("svc_router did not tell its port");
        plat_sleep_ms(5);
    }
    TestPlugin* client = new TestPlugin;
    std::string error;
    if (!client->connect(port, kWaitMs, &error) || !client->open({}, kWaitMs, &error))
        fail(error.c_str());
    TestPlugin::ConnectionReply reply;
    int32_t start = plat_tick_count();
    do { // the echoing plug-in may still be starting
        if (!client->requestConnection(kService, {}, kWaitMs, &reply))
            fail("no reply from svc_router");
    } while (!reply.wasFound && plat_tick_diff(plat_tick_count(), start) < kWaitMs);
    if (!reply.wasAccepted)
        fail("the echoing plug-in did not take the connection");
    double rate = roundTrips(client->getTransport(), reply.localRN, reply.serviceRN);
    client->release();
    // The router ends once both plug-ins have gone.
    plat_wait_process(process, kWaitMs);
    plat_close_process(process);
    return rate;
}

} // namespace

int main(int argc, char** argv) {
    // Started by the router: argv is self, "-connect_servicerouter", PORT, "--echo-plugin".
    if (argc >= 4 && std::strcmp(argv[argc - 1], "--echo-plugin") == 0 &&
        std::strcmp(argv[1], "-connect_servicerouter") == 0)
        return runEchoPlugin(static_cast<uint16_t>(std::atoi(argv[2])));
    if (argc >= 3 && std::strcmp(argv[1], "--echo-direct") == 0)
        return stpbench::runStpEchoPeer(static_cast<uint16_t>(std::atoi(argv[2])));

    char self[4096];
    if (!plat_self_path(self, sizeof self))
        fail("cannot find this program's path");
    std::string dir(self);
    dir = dir.substr(0, dir.rfind('/') + 1);
    std::string router = dir + "svc_router";
    std::string portFile = dir + "svc_router_bench." + std::to_string(plat_current_process_id());

    double direct = 0, routed = 0;
    for (int r = 0; r < kRepeats; ++r) {
        direct = std::max(direct, directRate(self));
        routed = std::max(routed, routedRate(router, self, portFile));
    }
    std::remove(portFile.c_str());
    const char* name = "svc_router_roundtrip_64B";
    std::printf("%s direct stp connection: %.0f round trips/s\n", name, direct);
    std::printf("%s through svc_router: %.0f round trips/s\n", name, routed);
    std::printf("ratio %s %.3f\n", name, routed / direct);
    std::fflush(stdout);
    return 0;
}
