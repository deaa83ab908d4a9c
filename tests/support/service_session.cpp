#include "service_session.h"

#include "plat_time.h"
#include "stp_transport.h"

namespace {
constexpr int32_t kStartMs = 30000;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
} // namespace

ServiceSession::~ServiceSession() {
    for (const Connection& c : connections_) {
        c.client->dropVirtualConnection();
        c.client->attachTransport(nullptr);
        c.client->unref();
    }
    if (plugin_)
        plugin_->release();
    router_.kill();
}

bool ServiceSession::start(const ScratchFolder& folder,
                           const std::vector<std::string>& extraRouterArgs, bool stay) {
    std::vector<std::string> args;
    if (stay)
        args.push_back("-stay");
    args.insert(args.end(), extraRouterArgs.begin(), extraRouterArgs.end());
    args.insert(args.end(), {"-plugin", CVSSERVICE_PATH});
    if (!router_.start(folder, args)) {
        error_ = "svc_router did not start: " + router_.errors();
        return false;
    }
    // A client that asked before the service registered would be told "not found".
    int32_t begin = plat_tick_count();
    while (!contains(router_.log(), "offers \"VC_CheckoutInfo.CVS\"")) {
        if (plat_tick_diff(plat_tick_count(), begin) > kStartMs || !router_.running()) {
            error_ =
                "cvsservice did not register its services:\n" + router_.log() + router_.errors();
            return false;
        }
        plat_sleep_ms(10);
    }
    plugin_ = new TestPlugin;
    if (!plugin_->connect(router_.port, kStartMs, &error_) || !plugin_->open({}, kStartMs, &error_))
        return false;
    return true;
}

bool ServiceSession::attach(STPSpecClass* client, const std::string& service,
                            const std::string& cwd) {
    if (plugin_ == nullptr) {
        error_ = "the session has not started";
        client->unref();
        return false;
    }
    plugin_->setValue("cwd", cwd);
    TestPlugin::ConnectionReply reply;
    if (!plugin_->requestConnection(service, {}, kStartMs, &reply) || !reply.wasAccepted) {
        error_ = "the router did not connect " + service;
        client->unref();
        return false;
    }
    client->attachTransport(plugin_->getTransport(), reply.localRN, reply.serviceRN);
    connections_.push_back({client, reply.localRN, reply.serviceRN});
    // The server's tables may have come with the router's reply, before anybody took them.
    plugin_->getTransport()->redeliverUnclaimed(reply.serviceRN, reply.localRN, KIND_NEGOTIATE);
    std::unique_ptr<RetryHandler> wait = waiter(kStartMs);
    STPStatus status;
    if (!client->negotiate(wait.get(), &status)) {
        error_ = std::string("negotiation failed: ") + (status.message ? status.message : "");
        return false;
    }
    return true;
}

VcClient* ServiceSession::connectVersionControl(const std::string& cwd) {
    return connect(new VcClient, "VersionControl.CVS", cwd);
}

std::unique_ptr<RetryHandler> ServiceSession::waiter(int32_t timeoutMs) const {
    return std::make_unique<TimeoutSTPRetryHandler>(timeoutMs,
                                                    plugin_ ? plugin_->getTransport() : nullptr);
}

bool ServiceSession::pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
    return plugin_ && plugin_->pumpUntil(done, timeoutMs);
}
