#include "service_link.h"

#include "gen_tempname.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_time.h"
#include "stp_transport.h"

#include <fstream>
#include <iterator>

namespace {
constexpr int32_t kRouterStartMs = 10000;
constexpr int32_t kConnectMs = 30000;
constexpr int32_t kLeaveMs = 2000;

std::string readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The folder of this program, with its trailing slash; empty if unknown.
std::string programFolder() {
    char self[4096] = "";
    if (!plat_self_path(self, sizeof self))
        return std::string();
    std::string path = self;
    return path.substr(0, path.rfind('/') + 1);
}
} // namespace

ServiceLink::~ServiceLink() {
    for (const Connection& c : connections_) {
        c.client->dropVirtualConnection();
        c.client->attachTransport(nullptr);
        c.client->unref();
        if (plugin_ && !plugin_->isClosed()) {
            plugin_->DropServiceConnection(false, c.localRN, c.serviceRN);
            plugin_->ReleaseRN(false, c.localRN);
        }
    }
    if (plugin_) {
        if (!plugin_->isClosed())
            plugin_->disconnect(kLeaveMs);
        plugin_->release();
    }
    if (router_) {
        // The service has no client left; its router goes, and the service with it.
        plat_terminate_process_group(router_, 0);
        plat_close_process(router_);
    }
    if (!portFile_.empty())
        plat_unlink(portFile_.c_str());
}

bool ServiceLink::startRouter(const std::string& cwd, uint16_t* port) {
    std::string folder = programFolder();
    std::string routerPath = folder + "svc_router";
    std::string servicePath = folder + "cvsservice";
    for (const std::string& path : {routerPath, servicePath})
        if (folder.empty() || plat_access(path.c_str(), 1) != 0) {
            error_ = "Cannot start a service router: " + path +
                     " is missing (or give -connect_servicerouter PORT).";
            return false;
        }
    char* name = gen_temp_name(nullptr, "port");
    if (name == nullptr) {
        error_ = "Cannot start a service router: no temporary file for its port.";
        return false;
    }
    portFile_ = name;
    gen_free(name);
    const char* argv[] = {
        routerPath.c_str(),  "-port", "0", "-port_file", portFile_.c_str(), "-plugin",
        servicePath.c_str(), nullptr};
    PlatSpawnOptions options;
    options.workingDir = cwd.c_str();
    options.stdinFd = PLAT_SPAWN_NULL_DEVICE;
    options.stdoutFd = PLAT_SPAWN_NULL_DEVICE;
    options.stderrFd = PLAT_SPAWN_NULL_DEVICE;
    // A session of its own: Ctrl-C at the terminal reaches cvsvc alone, which then halts its
    // job through the service instead of losing the service under it.
    options.newSession = true;
    PlatError spawnError{};
    router_ = plat_spawn(argv, &options, &spawnError);
    if (router_ == nullptr) {
        error_ = "Cannot start the service router " + routerPath + ".";
        return false;
    }
    int32_t begin = plat_tick_count();
    while (plat_tick_diff(plat_tick_count(), begin) < kRouterStartMs) {
        std::string text = readWhole(portFile_);
        if (!text.empty() && text.back() == '\n') {
            *port = static_cast<uint16_t>(std::strtoul(text.c_str(), nullptr, 10));
            return *port != 0;
        }
        if (plat_wait_process(router_, 0) == PlatWait::exited)
            break;
        plat_sleep_ms(10);
    }
    error_ = "The service router started by cvsvc did not come up.";
    return false;
}

bool ServiceLink::open(uint16_t port, const std::string& cwd) {
    if (port == 0 && !startRouter(cwd, &port))
        return false;
    port_ = port;
    plugin_ = new ClientPlugin(cwd);
    std::string why;
    if (!plugin_->connect(port, kConnectMs, &why)) {
        error_ =
            "No service router can be reached on port " + std::to_string(port) + " (" + why + ").";
        return false;
    }
    return true;
}

bool ServiceLink::attach(STPSpecClass* client, const std::string& service) {
    ClientPlugin::ConnectionReply reply;
    int32_t begin = plat_tick_count();
    for (;;) {
        if (!plugin_->requestConnection(service, kConnectMs, &reply)) {
            client->unref();
            error_ = "The service router on port " + std::to_string(port_) + " did not answer.";
            return false;
        }
        // The service that our own router launched registers its names a moment after it has
        // connected; until then the router knows of no such service.
        if (reply.wasFound || router_ == nullptr ||
            plat_tick_diff(plat_tick_count(), begin) > kRouterStartMs)
            break;
        plugin_->pumpUntil([] { return false; }, 20);
    }
    if (!reply.wasFound || !reply.wasAccepted) {
        client->unref();
        error_ = "The service router on port " + std::to_string(port_) +
                 (reply.wasFound ? " could not connect to " : " offers no service ") + service +
                 ".";
        return false;
    }
    client->attachTransport(plugin_->getTransport(), reply.localRN, reply.serviceRN);
    connections_.push_back({client, reply.localRN, reply.serviceRN});
    // The server's tables may have come with the router's reply, before anybody took them.
    plugin_->getTransport()->redeliverUnclaimed(reply.serviceRN, reply.localRN, KIND_NEGOTIATE);
    std::unique_ptr<RetryHandler> wait = waiter(client, kConnectMs);
    STPStatus status;
    if (!client->negotiate(wait.get(), &status)) {
        error_ = "The service " + service + " did not negotiate its protocol" +
                 (status.message ? std::string(": ") + status.message : std::string()) + ".";
        return false;
    }
    return true;
}

std::unique_ptr<RetryHandler> ServiceLink::waiter(STPSpecClass* client, int32_t timeoutMs) const {
    return std::make_unique<ServiceConnRetryHandler>(client, timeoutMs);
}

bool ServiceLink::pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
    return plugin_ && plugin_->pumpUntil(done, timeoutMs);
}

bool ServiceLink::lost() const {
    return plugin_ == nullptr || plugin_->isClosed();
}
