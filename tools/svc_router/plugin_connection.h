// One plug-in's connection to the router: the router end of the router protocol on that
// plug-in's socket, and what the router knows of the plug-in.
#pragma once

#include "servicerouter_router_impl.h"
#include "stp_transport.h"

#include <cstdint>
#include <string>

class Router;
class STPSocketListener;
class STPTransport;

// Made by Router::adopt for each connected socket; reference-counted like every spec class and
// destroyed through release(). Its handlers run inside the transport's reads and never wait:
// everything it sends is queued (blocking false) and goes out on a later turn or in the
// router's sweep. What concerns the plug-in alone (working directory, persistence, its log
// lines) is kept here; the rest goes to the router.
class PluginConnection : public ServiceRouter_router_Impl, public STPForwarder {
public:
    // Attaches to `transport` (referenced) under route numbers 1 and 2, gives its socket a turn
    // in the event loop and queues this end's negotiation packet.
    PluginConnection(Router* router, uint32_t pluginId, STPTransport* transport);

    uint32_t getPluginId() const { return pluginId; }
    // The plug-in id goes out once, as the answer to the plug-in's first list of services.
    bool hasSentPluginId() const { return sentPluginId; }
    void markPluginIdSent() { sentPluginId = true; }
    // A plug-in counts as persistent until it says otherwise (a persistent one says nothing).
    bool isPersistent() const { return persistent; }
    const std::string& getWorkingDir() const { return workingDir; }
    // The plug-in asked the router to close its connection.
    bool wantsClose() const { return closeWanted; }
    // The connection has ended (closed by either side or failed).
    bool isGone() const;
    // The tick at which the connection was adopted, for the negotiation deadline.
    int32_t getStartTick() const { return startTick; }
    // Closes the socket; the router cleans up on its next sweep.
    void close();
    // Closes the socket, leaves the event loop, lets go of the transport and drops the
    // router's reference: the object may be gone on return.
    void release();

    // STPForwarder: the router decides where each packet of this plug-in goes.
    Route route(uint32_t localRN, uint32_t remoteRN, STPTransport** target) override;

    // ---- Handlers of the router protocol ----
    void ConnectionAcceptedEvent(uint32_t serviceRN, uint32_t remoteRN, bool accept) override;
    void DebugPlugin(const char* plugin_name, bool do_debug, const char* debugger,
                     const char* debugger_opts) override;
    void DropServiceConnection(uint32_t localRN, uint32_t serviceRN) override;
    void LogMessageEvent(const char* message) override;
    void NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total) override;
    void PersistentService(bool persistent) override;
    void RegisterServiceList(const StringList& name_list) override;
    void ReleaseRN(uint32_t rn) override;
    void RequestLocation() override;
    void RequestPluginConnect(const char* host, uint32_t port, uint32_t cookie) override;
    void RequestPluginIdForService(uint32_t cookie, const char* serviceName,
                                   const char* working_dir, bool startup_if_not_running) override;
    void RequestPluginLaunch(const StringList& argv, uint32_t cookie, bool client_start,
                             const char* working_dir) override;
    void RequestServiceConnection(const char* serviceName, uint32_t providingPluginID,
                                  const StringList& name_value_pairs, const char* working_dir,
                                  bool local_only, uint32_t client_cookie, bool no_reuse,
                                  bool client_start) override;
    void RequestServiceRouterDisconnect() override;
    void RequestValueOfNameOnPlugin(uint32_t plugin_id, const char* name) override;
    void ReserveRNBlock(uint32_t count) override;
    void SetEnvironmentVariable(const char* variable, const char* value) override;
    void SetWorkingDir(const char* working_dir) override;
    void StartPluginEvent(uint32_t cookie, bool success, const char* error_message) override;
    void UnregisterService(uint32_t serviceRN) override;
    void ValueOfNameOnPluginResponseEvent(uint32_t requesting_plugin_id, uint32_t plugin_id,
                                          const char* name, const char* value) override;

protected:
    ~PluginConnection() override;

private:
    Router* router;
    uint32_t pluginId;
    STPSocketListener* socketListener = nullptr;
    int32_t startTick = 0;
    bool sentPluginId = false;
    bool persistent = true;
    bool closeWanted = false;
    std::string workingDir;
};
