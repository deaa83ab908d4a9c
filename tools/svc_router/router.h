// The router: its plug-in connections, their ids, route numbers, the registry of services and
// the virtual connections between plug-ins, and the relay of those connections' packets.
#pragma once

#include "held_requests.h"
#include "route_numbers.h"
#include "service_registry.h"
#include "stp_transport.h"
#include "virtual_connections.h"

#include <cstdint>
#include <map>

class PluginConnection;
class STPLog;
struct StringList;

// Everything runs on the one thread of the event loop, and nothing here waits: messages to
// plug-ins are queued and pushed out by sweep() or by the loop's next turn. Packets of virtual
// connections are relayed unread (the transport asks route() before it parses a packet), and
// only between the two ends of a connection that the router opened: a plug-in reaches another
// only through a connection it is an end of, under that connection's numbers. Packets from 2
// to 1 are the plug-in's messages to the router and reach its PluginConnection; anything else
// is dropped, and the log names the plug-in that sent it.
class Router {
public:
    // How long a new connection may take to send its negotiation packet before it is closed.
    static constexpr int32_t kNegotiateDeadlineMs = 30000;
    // How long a request for a service nobody offers may wait for a launched plug-in that is
    // still starting (see pluginStillStarting).
    static constexpr int32_t kStartHoldMs = 10000;

    // `log` (not owned, may be null) gets the message records of every connection and a line
    // for every event.
    explicit Router(STPLog* log);
    ~Router();
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    // The port told to plug-ins that ask for the router's location.
    void setListenPort(uint16_t port) { listenPort = port; }
    // Takes over `transport`, connected, and the caller's reference to it, as a new plug-in
    // named `origin` in the log. Returns the plug-in id it will be given.
    uint32_t adopt(STPTransport* transport, const char* origin);
    // After each turn of the loop: pushes out queued bytes, closes the connections that asked
    // to go (once their bytes are out) or missed the negotiation deadline, and cleans up after
    // plug-ins that have gone, telling the other end of each of their virtual connections.
    void sweep();
    // Plug-ins connected now.
    size_t pluginCount() const { return plugins.size(); }
    // A plug-in has connected at some time.
    bool hasServed() const { return served; }
    // How many plug-ins this router launched are running now; told after every turn.
    void setLaunchedRunning(size_t count) { launchedRunning = count; }

    // Where a packet that plug-in `from` sent under (localRN, remoteRN) goes.
    STPForwarder::Route route(PluginConnection* from, uint32_t localRN, uint32_t remoteRN,
                              STPTransport** target);

    // A line in the log, time-stamped by it; nothing without a log.
    void logEvent(const char* format, ...) __attribute__((format(printf, 2, 3)));
    STPLog* getLog() const { return log; }

    // ---- What plug-ins ask for (called by PluginConnection's handlers) ----
    void registerServices(PluginConnection* from, const StringList& names);
    void unregisterService(PluginConnection* from, uint32_t serviceRN);
    void reserveBlock(PluginConnection* from, uint32_t count);
    void releaseRN(PluginConnection* from, uint32_t rn);
    void requestConnection(PluginConnection* from, const char* serviceName,
                           uint32_t providingPluginId, const StringList& nameValuePairs,
                           uint32_t clientCookie);
    void connectionAccepted(PluginConnection* from, uint32_t serviceRN, uint32_t clientRN,
                            bool accept);
    void dropConnection(PluginConnection* from, uint32_t localRN, uint32_t remoteRN);
    void countServices(uint32_t* numPersistent, uint32_t* numTotal) const;
    void requestLocation(PluginConnection* from);
    void requestValue(PluginConnection* from, uint32_t pluginId, const char* name);
    void answerValue(PluginConnection* from, uint32_t requestingPluginId, const char* name,
                     const char* value);
    void requestPluginIdForService(PluginConnection* from, uint32_t cookie,
                                   const char* serviceName);

    // For tests and diagnostics.
    const ServiceRegistry& getRegistry() const { return registry; }
    const RouteNumbers& getRouteNumbers() const { return routeNumbers; }
    size_t virtualConnectionCount() const { return connections.size(); }

private:
    // The live connection of plug-in `pluginId`, or null.
    PluginConnection* find(uint32_t pluginId) const;
    void flushWrites();
    // Cleans up after a plug-in whose connection has ended and releases the connection.
    void pluginGone(PluginConnection* plugin);
    // Tells a client that its request came to nothing: found, not accepted.
    void refuse(const VirtualConnection& connection);
    void answerNotFound(PluginConnection* from, const char* serviceName, uint32_t clientCookie);
    // More launched plug-ins run than connections have opened (been given their plug-in id):
    // one of them may still offer a name that nobody offers now. Launched plug-ins and
    // connections are not matched one to one; a client that connects early only shortens the
    // hold, and every hold ends after kStartHoldMs.
    bool pluginStillStarting() const;
    // Carries out the held requests for a name that has just been offered.
    void releaseHeld(const std::string& name);
    // Refuses held requests whose time is up, or all of them when nothing is starting.
    void expireHeld();

    STPLog* log;
    uint16_t listenPort = 0;
    uint32_t nextPluginId = 1;
    bool served = false;
    std::map<uint32_t, PluginConnection*> plugins;
    RouteNumbers routeNumbers;
    ServiceRegistry registry;
    VirtualConnectionTable connections;
    HeldRequests held;
    size_t launchedRunning = 0;
};
