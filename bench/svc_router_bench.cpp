// Round trips of a 64-byte request and its reply between two plug-ins through svc_router,
// beside the same payload over a direct STP connection between the same two kinds of process,
// measured alternately. Last line: "ratio NAME VALUE", the median of the per-round ratios of
// the routed rate over the direct one.
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
// Round trips per run, and runs of each side after the warm-up.
constexpr int kTrips = 5000;
constexpr int kRounds = 9;
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

// A direct STP connection to a second process that echoes.
class DirectSide : public stpbench::Side {
public:
    explicit DirectSide(const char* self) {
        uint16_t port = 0;
        plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
        std::string portText = std::to_string(port);
        const char* argv[] = {self, "--echo-direct", portText.c_str(), nullptr};
        peer = plat_spawn(argv, nullptr, nullptr);
        if (peer == nullptr)
            fail("cannot start the direct peer");
        t = new STPTransport;
        if (!t->bindFD(STPTransport::acceptClient(listenFd, true)))
            fail("the direct peer did not call");
        retry = new TimeoutSTPRetryHandler(kWaitMs, t);
    }
    ~DirectSide() override {
        delete retry;
        t->closeConnection();
        t->unref();
        plat_wait_process(peer, 10000);
        plat_close_process(peer);
    }
    double rate(int rounds) override { return stpbench::stpRate(t, 1, 2, kPayload, retry, rounds); }

private:
    PlatProcess* peer = nullptr;
    STPTransport* t = nullptr;
    RetryHandler* retry = nullptr;
};

// A connection through svc_router to a plug-in that the router launched and that echoes.
class RoutedSide : public stpbench::Side {
public:
    RoutedSide(const std::string& router, const char* self, const std::string& portFile) {
        std::remove(portFile.c_str());
        const char* argv[] = {router.c_str(),   "-port",   "0",  "-port_file",
                              portFile.c_str(), "-plugin", self, "-plugin_arg",
                              "--echo-plugin",  nullptr};
        // The router's own lines would only get in the way of the figures.
        PlatSpawnOptions quiet;
        quiet.stdoutFd = plat_open("/dev/null", PLAT_O_WRONLY, 0);
        quiet.stderrFd = quiet.stdoutFd;
        process = plat_spawn(argv, &quiet, nullptr);
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
        std::remove(portFile.c_str());
        client = new TestPlugin;
        std::string error;
        if (!client->connect(port, kWaitMs, &error) || !client->open({}, kWaitMs, &error))
            fail(error.c_str());
        int32_t start = plat_tick_count();
        do { // the echoing plug-in may still be starting
            if (!client->requestConnection(kService, {}, kWaitMs, &reply))
                fail("no reply from svc_router");
        } while (!reply.wasFound && plat_tick_diff(plat_tick_count(), start) < kWaitMs);
        if (!reply.wasAccepted)
            fail("the echoing plug-in did not take the connection");
        retry = new TimeoutSTPRetryHandler(kWaitMs, client->getTransport());
    }
    ~RoutedSide() override {
        delete retry;
        client->release();
        // The router ends once both plug-ins have gone.
        plat_wait_process(process, kWaitMs);
        plat_close_process(process);
    }
    double rate(int rounds) override {
        return stpbench::stpRate(client->getTransport(), reply.localRN, reply.serviceRN, kPayload,
                                 retry, rounds);
    }

private:
    PlatProcess* process = nullptr;
    TestPlugin* client = nullptr;
    TestPlugin::ConnectionReply reply;
    RetryHandler* retry = nullptr;
};

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

    DirectSide direct(self);
    RoutedSide routed(router, self, portFile);
    stpbench::alternate("svc_router_roundtrip_64B", "direct stp connection", direct,
                        "through svc_router", routed, kTrips, kRounds, 0);
    return 0;
}
