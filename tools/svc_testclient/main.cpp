// svc_testclient: a client plug-in for trying a service through the router. It connects to the
// router, asks for one service, negotiates the service's protocol with the server object at the
// other end, drops the connection and asks the router to let it go.
#include "indgen.h"
#include "negotiation_probe.h"
#include "stp_transport.h"
#include "test_plugin.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

enum ExitCode {
    kOk = 0,
    kFailed = 1, // no router, or the router went away
    kUsage = 2,
    kNotFound = 3, // the router knows no such service
    kRefused = 4,  // the provider refused the connection
    kNoNegotiation = 5,
};

const char* kUsageText =
    "usage: svc_testclient -connect_servicerouter PORT [-service NAME] [-protocol NAME]\n"
    "                      [-role ROLE] [-timeout MS] [-vanish]\n"
    "  -service NAME    the service to ask for (default VersionControl.CVS)\n"
    "  -protocol NAME   its protocol (default: the name up to its first '.')\n"
    "  -role ROLE       this end's role in it (default client)\n"
    "  -timeout MS      limit of each wait (default 20000)\n"
    "  -vanish          close the socket at once after the router's reply, as a client that\n"
    "                   dies does\n"
    "Prints what happened line by line. Exit codes: 0 done, 1 router failure, 2 usage, 3 not\n"
    "found, 4 refused, 5 negotiation failed.\n";

struct ClientOptions {
    uint16_t port = 0;
    std::string service = "VersionControl.CVS";
    std::string protocol;
    std::string role = "client";
    int32_t timeoutMs = 20000;
    bool vanish = false;
};

bool parse(int argc, char** argv, ClientOptions* options) {
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (word == "-vanish") {
            options->vanish = true;
            continue;
        }
        if (value == nullptr)
            return false;
        ++i;
        if (word == "-connect_servicerouter")
            options->port = static_cast<uint16_t>(std::strtoul(value, nullptr, 0));
        else if (word == "-service")
            options->service = value;
        else if (word == "-protocol")
            options->protocol = value;
        else if (word == "-role")
            options->role = value;
        else if (word == "-timeout")
            options->timeoutMs = static_cast<int32_t>(std::strtol(value, nullptr, 0));
        else
            return false;
    }
    if (options->protocol.empty())
        options->protocol = options->service.substr(0, options->service.find('.'));
    return options->port != 0 && options->timeoutMs > 0;
}

int run(const ClientOptions& options) {
    std::string error;
    TestPlugin* plugin = new TestPlugin;
    struct Release {
        TestPlugin* plugin;
        ~Release() { plugin->release(); }
    } release{plugin};
    if (!plugin->connect(options.port, options.timeoutMs, &error) ||
        !plugin->open({}, options.timeoutMs, &error)) {
        std::printf("router failure: %s\n", error.c_str());
        return kFailed;
    }
    std::printf("plug-in id %u\n", plugin->getPluginId());

    TestPlugin::ConnectionReply reply;
    if (!plugin->requestConnection(options.service, {}, options.timeoutMs, &reply)) {
        std::printf("router failure: no reply for %s\n", options.service.c_str());
        return kFailed;
    }
    std::printf("reply found=%d accepted=%d localRN=%u serviceRN=%u provider=%u\n", reply.wasFound,
                reply.wasAccepted, reply.localRN, reply.serviceRN, reply.pluginId);
    if (!reply.wasFound)
        return kNotFound;
    if (!reply.wasAccepted)
        return kRefused;
    if (options.vanish) {
        std::printf("vanishing\n");
        std::fflush(stdout);
        std::_Exit(kOk); // no goodbye of any kind: the socket closes with the process
    }

    NegotiationProbe* probe = new NegotiationProbe(options.protocol, options.role);
    probe->attachTransport(plugin->getTransport(), reply.localRN, reply.serviceRN);
    // The server's tables may have come with the router's reply, before there was anybody to
    // take them: they wait among the unclaimed messages.
    plugin->getTransport()->redeliverUnclaimed(reply.serviceRN, reply.localRN, KIND_NEGOTIATE);
    STPStatus status;
    bool negotiated =
        probe->sendNegotiate(true, nullptr, &status) &&
        plugin->pumpUntil([&] { return probe->hasNegotiated() || plugin->isClosed(); },
                          options.timeoutMs) &&
        probe->hasNegotiated();
    if (negotiated)
        std::printf("negotiated %s with %s \"%s\", %zu messages offered\n",
                    options.protocol.c_str(), probe->getPeerName(), probe->getPeerVstamp(),
                    probe->getExtraTable().size());
    else
        std::printf("negotiation failed: %s\n",
                    plugin->isClosed() ? "the router went away" : "no answer in time");
    probe->dropVirtualConnection();
    probe->attachTransport(nullptr);
    probe->unref();

    plugin->DropServiceConnection(false, reply.localRN, reply.serviceRN);
    plugin->ReleaseRN(false, reply.localRN);
    std::printf("dropped\n");
    bool closed = plugin->disconnect(options.timeoutMs);
    std::printf("%s\n", closed ? "disconnected" : "the router did not close the connection");
    if (!negotiated)
        return kNoNegotiation;
    return closed ? kOk : kFailed;
}

} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    ClientOptions options;
    if (!parse(argc, argv, &options)) {
        std::fputs(kUsageText, stderr);
        return kUsage;
    }
    int code = run(options);
    std::fflush(stdout);
    return code;
}
