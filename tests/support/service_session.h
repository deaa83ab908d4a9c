// The service as its clients meet it, with real processes: svc_router (kept up with -stay)
// launches cvsservice, and a client plug-in in the test's process connects to one of the
// service's names through the router and negotiates a generated client class on it. Requests
// then travel test -> router -> cvsservice -> router -> test over loopback sockets.
#pragma once

#include "router_process.h"
#include "stp_retryhandler.h"
#include "test_plugin.h"
#include "versioncontrol_client_impl.h"

#include <memory>
#include <string>
#include <vector>

#ifndef CVSSERVICE_PATH
#error "CVSSERVICE_PATH must name the cvsservice program"
#endif

// The client end of "VersionControl.CVS" for tests. The service never asks the user anything,
// so QueryUser has nothing to answer.
class VcClient : public VersionControl_client_Impl {
public:
    void QueryUser(const char*, char** response_str) override { *response_str = nullptr; }

protected:
    ~VcClient() override = default;
};

class ServiceSession {
public:
    ServiceSession() = default;
    ServiceSession(const ServiceSession&) = delete;
    ServiceSession& operator=(const ServiceSession&) = delete;
    // Drops every client connection, leaves the router and kills it; cvsservice then ends by
    // itself, as it does when its router dies.
    ~ServiceSession();

    // Starts svc_router with "-stay -plugin CVSSERVICE_PATH" and `extraRouterArgs` (before the
    // plug-in), logging into `folder`, and waits until the service offers both of its names.
    // Without `stay` the router ends once the service has gone, and its exit code tells how the
    // service ended.
    bool start(const ScratchFolder& folder, const std::vector<std::string>& extraRouterArgs = {},
               bool stay = true);

    // Connects `client` (a new generated client object; the session takes over its reference)
    // to `service`. The client plug-in answers "cwd" with `cwd` when the service asks for it, so
    // that relative paths are taken against it. Negotiates the protocol and returns the client,
    // or null with the reason in error().
    template <class Client>
    Client* connect(Client* client, const std::string& service, const std::string& cwd) {
        return attach(client, service, cwd) ? client : nullptr;
    }
    // connect() with a new VcClient to "VersionControl.CVS".
    VcClient* connectVersionControl(const std::string& cwd);

    // A fresh retry handler for one call over the router connection: it serves that connection
    // (and with it every handler of this process) and gives up after `timeoutMs`.
    std::unique_ptr<RetryHandler> waiter(int32_t timeoutMs = 120000) const;
    // Serves the router connection until `done` holds or `timeoutMs` passes.
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs = 60000);

    TestPlugin* plugin() const { return plugin_; }
    RouterProcess& router() { return router_; }
    const std::string& error() const { return error_; }

private:
    bool attach(STPSpecClass* client, const std::string& service, const std::string& cwd);

    RouterProcess router_;
    TestPlugin* plugin_ = nullptr;
    std::string error_;
    struct Connection {
        STPSpecClass* client;
        uint32_t localRN, serviceRN;
    };
    std::vector<Connection> connections_;
};
