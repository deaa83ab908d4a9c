// The way from cvsvc to the two services: a router (the one on a given port, or one started for
// this run with cvsservice as its plug-in), the plug-in connection to it, and one client object
// per service, connected through it and negotiated.
#pragma once

#include "client_plugin.h"
#include "plat_process.h"
#include "stp_retryhandler.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class ServiceLink {
public:
    ServiceLink() = default;
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;
    // Drops the service connections, leaves the router and, if this link started it, stops it.
    ~ServiceLink();

    // Reaches a router: with `port` non-zero the one listening on 127.0.0.1 `port`; with 0 a new
    // svc_router, found beside this program, launching the cvsservice found there too, started
    // in `cwd` and stopped by the destructor. The plug-in answers the router's question for
    // "cwd" with `cwd`, so that the services take relative paths against it. False with a
    // sentence for the user in error().
    bool open(uint16_t port, const std::string& cwd);

    // Connects `client` (a new generated client object; the link takes over its reference) to
    // `service` and negotiates its protocol. The client, or null with the reason in error().
    // Waits, serving the router connection.
    template <class Client> Client* connect(Client* client, const std::string& service) {
        return attach(client, service) ? client : nullptr;
    }

    // A retry handler for one request of `client`: it serves the router connection and gives up
    // after `timeoutMs` or when the client's connection goes down.
    std::unique_ptr<RetryHandler> waiter(STPSpecClass* client, int32_t timeoutMs) const;
    // Serves the router connection (running the handlers of the clients) until `done` holds
    // (true), `timeoutMs` has passed or the router has gone (false).
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs);
    // The router connection is gone.
    bool lost() const;

    const std::string& error() const { return error_; }

private:
    bool startRouter(const std::string& cwd, uint16_t* port);
    bool attach(STPSpecClass* client, const std::string& service);

    PlatProcess* router_ = nullptr; // the router this link started, if any
    std::string portFile_;
    ClientPlugin* plugin_ = nullptr;
    uint16_t port_ = 0;
    std::string error_;
    struct Connection {
        STPSpecClass* client;
        uint32_t localRN, serviceRN;
    };
    std::vector<Connection> connections_;
};
