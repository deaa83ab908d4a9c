// ServiceRouter_Proxy: the process's one client of the service router. Its command-line options,
// the way to a connected router, the opening conversation, the service connections this process
// offers and asks for, and its end; and the global proxy with its creation and destruction.
//
// Everything runs on the event-loop thread. Operations documented as waiting re-enter the loop:
// any handler of this or another object may run inside them (a connection request may be served
// while this process waits for a reply of its own), and callers re-check their state after
// them. Answers from the router land in reply stores and are picked up by the operation that
// waits for them, never returned through a call chain. Failures are values: bool results, -1
// ids, null strings; the texts of the connect-or-launch tree go through the reporter.
#pragma once

#include "servicerouter_plugin_impl.h"
#include "stp_log.h"
#include "svc_routerlink.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class ConnectionDiedListener;
class NameValueResolver;
class Negotiator;
class SRP_SocketListener;
class ServiceFactory;
class SharedObjectConnection;
struct PlatProcess;

// One live virtual connection of this process. Holds one reference on `spec` for its life; the
// record of a server object is what keeps that object alive.
struct ServiceConnectionRecord {
    ServiceConnectionRecord(STPSpecClass* spec, int32_t pluginId, bool isSharedObject,
                            bool isServer);
    ~ServiceConnectionRecord();
    ServiceConnectionRecord(const ServiceConnectionRecord&) = delete;
    ServiceConnectionRecord& operator=(const ServiceConnectionRecord&) = delete;

    STPSpecClass* spec;
    int32_t plugin_id;     // the peer's plug-in id, -1 for a shared object
    bool is_shared_object; // in-process service
    bool is_server;        // this end is the service
    SharedObjectConnection* shared_object = nullptr;
};

// What ConnectionReplyEvent said; strings copied (absent stays absent).
struct ServiceConnectionReply {
    std::optional<std::string> serviceName;
    uint32_t localRN = 0;
    bool wasFound = false;
    bool is_shared_object = false;
    bool wasAccepted = false;
    uint32_t serviceRN = 0;
    uint32_t plugin_id = 0;
    std::optional<std::string> shared_object_name;
    uint32_t client_cookie = 0;
};

// What the command line (the router options, taken out of argv) and the set-up chose. Strings
// are owned by the proxy; absent is null.
struct ServiceRouterOptions {
    // Set up by a router: -connect_servicerouter, -sr_connect_servicerouter_host/_port.
    bool launched_by_router = false;
    uint32_t router_port = 0;
    char* router_host = nullptr;          // also from LocationEvent while none is known
    char* zone = nullptr;                 // -sr_zone
    bool has_client_start_cookie = false; // -sr_client_start_cookie
    uint32_t client_start_cookie = static_cast<uint32_t>(-1);
    bool private_router = false;         // -sr_private / -sr_shared
    bool new_router = false;             // -sr_new / -sr_reuse
    char* debug_plugin = nullptr;        // -sr_debug
    char* debugger = nullptr;            // -sr_debugger
    char* debugger_opts = nullptr;       // -sr_debugger_opts
    bool debug_startup = false;          // -sr_debug_startup
    char* debug_debugger = nullptr;      // -sr_debug_debugger
    char* debug_debugger_opts = nullptr; // -sr_debug_debugger_opts
    char* router_dir = nullptr;          // -sr_dir, made absolute
    char* router_log = nullptr;          // -sr_log_router, -sr_log_all
    char* router_internal_log = nullptr; // -sr_log_router_internal
    // The flags of setup (persistent also follows setPersistent), and its program tag.
    bool persistent = false;
    bool connect_now = false; // also set by a registration and by a router that launched us
    bool may_launch = true;
    char* program_tag = nullptr;
};

class ServiceRouter_Proxy : public virtual ServiceRouter_plugin_Impl,
                            public Svc_RouterLink,
                            public STPLogSender {
public:
    // A bare proxy: not connected, options not parsed. Adds the "cwd" resolver with the current
    // directory of this moment and makes the negotiator. Destroyed by the last unref.
    ServiceRouter_Proxy();

    // ---- The sixteen operations of the proxy -------------------------------------------------
    // Each forwards to the generated send operation (same arguments and result), except where
    // noted. They do not connect by themselves.
    virtual bool DebugPlugin(bool blocking, const char* plugin_name, bool do_debug,
                             const char* debugger, const char* debugger_opts,
                             RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    virtual bool RequestPluginConnect(bool blocking, const char* host, uint32_t port,
                                      uint32_t cookie, RetryHandler* retry = nullptr,
                                      STPStatus* status = nullptr);
    virtual bool RequestPluginIdForService(bool blocking, uint32_t cookie, const char* serviceName,
                                           const char* working_dir, bool startup_if_not_running,
                                           RetryHandler* retry = nullptr,
                                           STPStatus* status = nullptr);
    virtual bool RequestServiceRouterDisconnect(bool blocking, RetryHandler* retry = nullptr,
                                                STPStatus* status = nullptr);
    // Builds name_value_pairs itself: the name and value of every resolver that goes along with
    // requests, in list order.
    virtual bool RequestServiceConnection(bool blocking, const char* serviceName,
                                          uint32_t providingPluginID, const char* working_dir,
                                          bool local_only, uint32_t client_cookie, bool no_reuse,
                                          bool client_start, RetryHandler* retry = nullptr,
                                          STPStatus* status = nullptr);
    virtual bool DropServiceConnection(bool blocking, uint32_t localRN, uint32_t serviceRN,
                                       RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    virtual bool ConnectionAcceptedEvent(bool blocking, uint32_t serviceRN, uint32_t remoteRN,
                                         bool accept, RetryHandler* retry = nullptr,
                                         STPStatus* status = nullptr);
    virtual bool StartPluginEvent(bool blocking, uint32_t cookie, bool success,
                                  const char* error_message, RetryHandler* retry = nullptr,
                                  STPStatus* status = nullptr);
    virtual bool SetWorkingDir(bool blocking, const char* working_dir,
                               RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    virtual bool PersistentService(bool blocking, bool persistent, RetryHandler* retry = nullptr,
                                   STPStatus* status = nullptr);
    // Waits for the router's answer.
    virtual bool NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total,
                                       RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    virtual bool ReserveRNBlock(bool blocking, uint32_t count, RetryHandler* retry = nullptr,
                                STPStatus* status = nullptr);
    // First forgets `rn` in the map of numbers in use.
    virtual bool ReleaseRN(bool blocking, uint32_t rn, RetryHandler* retry = nullptr,
                           STPStatus* status = nullptr);
    virtual bool RegisterServiceList(bool blocking, const StringList& name_list,
                                     RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    virtual bool RequestValueOfNameOnPlugin(bool blocking, uint32_t plugin_id, const char* name,
                                            RetryHandler* retry = nullptr,
                                            STPStatus* status = nullptr);
    virtual bool ValueOfNameOnPluginResponseEvent(bool blocking, uint32_t requesting_plugin_id,
                                                  uint32_t plugin_id, const char* name,
                                                  const char* value, RetryHandler* retry = nullptr,
                                                  STPStatus* status = nullptr);

    // ---- Handlers of the router's messages ---------------------------------------------------
    void LocationEvent(const char* hostname, uint32_t port) override;
    void PluginId(uint32_t plugin_id) override;
    void ConnectionRequestedEvent(uint32_t requesting_plugin_id, uint32_t serviceRN,
                                  uint32_t remoteRN, const StringList& name_value_pairs) override;
    void ConnectionDroppedEvent(uint32_t serviceRN, uint32_t remoteRN) override;
    void ConnectionReplyEvent(const char* serviceName, uint32_t localRN, bool wasFound,
                              bool is_shared_object, bool wasAccepted, uint32_t serviceRN,
                              uint32_t plugin_id, const char* shared_object_name,
                              uint32_t client_cookie) override;
    void PluginIdForServiceReplyEvent(uint32_t cookie, const char* service_name, uint32_t plugin_id,
                                      bool found) override;
    void RNBlockReservedEvent(const RNList& rn_list) override;
    void PluginConnectedEvent(uint32_t cookie, uint32_t pluginID, const char* errors) override;
    void ForwardedRequestValueOfNameOnPlugin(uint32_t requesting_plugin_id, uint32_t my_plugin_id,
                                             const char* name) override;
    void ValueOfNameOnPluginEvent(uint32_t plugin_id, const char* name, const char* value) override;
    // Launches another plug-in for the router (fewer than 7 words are refused). Starts a
    // process; does not wait.
    void StartPlugin(const StringList& args, uint32_t cookie, const char* working_dir) override;
    void StartLogging() override;

    // ---- Set-up, connection and end -----------------------------------------------------------
    // The set-up of createGlobalServiceRouterProxy, once: stores the flags, parses (and removes)
    // the options, and connects now when a factory registered itself or a router launched this
    // process. Connecting waits. A second call returns true and does nothing.
    bool setup(bool persistent, int* argc, char** argv, const char* programTag, bool privateRouter,
               RetryHandler* retry, bool connectNow, bool mayLaunch);
    // Takes the router options out of argv (from index 1; the vector stays null-terminated and
    // *argc shrinks), then validateOptions.
    void parseOptions(int* argc, char** argv);
    // Warns about each broken rule of the debug options; never stops anything.
    void validateOptions();
    // Starts the debugger of "-sr_debug_startup" on this process, when both its strings are set.
    void startDebuggerOnSelf();
    // True when connected, else connectOrLaunch (waits).
    bool ensureConnected(RetryHandler* retry);
    // The decision tree from the options to a connected, negotiated router with this process's
    // plug-in id (waits). Reports why it failed.
    bool connectOrLaunch(RetryHandler* retry);
    // A new router transport with its socket listener, connected to 127.0.0.1:`port` (`host` is
    // only remembered by the caller; every connection goes to the local address) and attached
    // under route numbers 2 and 1.
    bool connectSocket(const char* host, uint32_t port);
    // Starting a router of our own is not part of this build: false, with no message.
    bool launchRouter(RetryHandler* retry, bool notShared);
    // The opening conversation: negotiate, the client start cookie, the working directory, the
    // service names, the persistent flag, the debug request, then the plug-in id (waits).
    bool initializeRouterConnection(bool persistent, RetryHandler* retry);
    // Pumps the router transport until the plug-in id has come (true), or the connection went
    // or `retry` gave up (false). Waits.
    bool waitForPluginId(RetryHandler* retry);
    // True until the first connection is made; then while the transport and the router's
    // virtual connection are up.
    bool isConnected() override;
    // RequestServiceRouterDisconnect, pushed out now; does not wait for the router.
    void requestDisconnect() override;
    bool requestDisconnect(RetryHandler* retry);
    // Stores the flag; when connected, tells the router and returns whether that went well.
    bool setPersistent(bool flag, RetryHandler* retry, STPStatus* status);
    // The router's host (owned by the proxy) and port; asks the router when the host is not
    // known yet (waits). False when still unknown.
    bool getRouterLocation(const char** host, uint32_t* port, RetryHandler* retry);
    // Ensures the connection (waits) and returns the router transport, or null.
    STPTransport* getTransport();
    // Installs `newLog` (owned from here on; null for none) on the proxy's own records and on
    // every service connection.
    void setLog(STPLog* newLog);
    STPLog* getLog() const { return log; }

    // ---- Service connections ------------------------------------------------------------------
    // Offers `factory`'s service: tells the router now when connected (RegisterServiceList with
    // this one name); otherwise keeps it pending and, once set up, connects (waits).
    bool registerService(ServiceFactory* factory, RetryHandler* retry);
    // Asks the router for a connection to `serviceName` and binds `spec` to it (waits through
    // the negotiation). `wasFound`/`wasAccepted` may be null. True when connected.
    bool connectToService(const char* serviceName, STPSpecClass* spec, bool* wasFound,
                          bool* wasAccepted, RetryHandler* retry, const char* workingDir,
                          bool localOnly, bool noReuse, bool clientStart);
    // The same with a given provider, no working directory and no flags; true only when found
    // and accepted.
    bool connectToServiceOnPlugin(const char* serviceName, STPSpecClass* spec, uint32_t pluginId,
                                  RetryHandler* retry);
    // Waits for the ConnectionReplyEvent of (serviceName, cookie) and sets `spec` up with it.
    bool waitForConnectionReply(const char* serviceName, uint32_t cookie, STPSpecClass* spec,
                                bool* wasFound, bool* wasAccepted, RetryHandler* retry);
    // Ends a connection of this process: refused (false) while a stub of `spec` is active,
    // unless `force`. Deletes the record, which may destroy `spec`.
    bool dropServiceConnection(STPSpecClass* spec, RetryHandler* retry, bool force);
    // The peer's plug-in id of `spec`'s connection, or -1.
    int32_t pluginIdOfConnection(STPSpecClass* spec);
    // The value of `name` on plug-in `pluginId`, from the cache or asked of the router (waits).
    // Owned by the cache; null when unknown.
    const char* valueOfNameOnPlugin(uint32_t pluginId, const char* name, RetryHandler* retry);
    const char* cwdOfPlugin(uint32_t pluginId, RetryHandler* retry);
    // `path` as this process must use it: absolute paths and unknown plug-ins give a copy, a
    // relative path is joined to the plug-in's "cwd" and normalised. New string (gen_free);
    // null for null.
    char* fullPathForPlugin(int32_t pluginId, const char* path, RetryHandler* retry);
    char* fullPathForConnection(STPSpecClass* spec, const char* path, RetryHandler* retry);
    // Listeners are not owned.
    void addConnectionDiedListener(ConnectionDiedListener* listener);
    bool removeConnectionDiedListener(ConnectionDiedListener* listener);
    // Takes ownership of `resolver`; it answers after those already there.
    void addNameValueResolver(NameValueResolver* resolver);
    // Plug-in management through the router (each waits for its answer). -1 on failure, the
    // router's text in *errors (gen_free) when given.
    int32_t launchPlugin(const char* const* words, bool clientStart, const char* workingDir,
                         char** errors, RetryHandler* retry);
    int32_t connectPlugin(const char* host, uint32_t port, char** errors, RetryHandler* retry);
    int32_t getPluginIdForService(const char* serviceName, const char* workingDir,
                                  bool startupIfNotRunning, bool* found, RetryHandler* retry);

    // The Negotiator's steps on the connection lists.
    void removePendingConnection(STPSpecClass* spec);
    void addConnection(STPSpecClass* spec, int32_t pluginId, bool isServer);

    // STPLogSender: one LogMessageEvent, not blocking.
    void sendLogMessage(const char* text) override;

    // ---- Read-only views, for the process and its tests ------------------------------------
    uint32_t getPluginId() const { return plugin_id; }
    const ServiceRouterOptions& getOptions() const { return options; }
    // The opening conversation has negotiated (isConnected tells whether it still is).
    bool hasConnected() const { return connected; }
    bool isInitialized() const { return initialized; }
    ServiceFactory* factoryForRN(uint32_t rn) const;
    bool isRNInUse(uint32_t rn) const;
    const std::vector<uint32_t>& getFreeRNs() const { return free_rns; }
    const std::list<ServiceFactory*>& getPendingFactories() const { return pending_factories; }
    const std::list<ServiceFactory*>& getRegisteredFactories() const {
        return registered_factories;
    }
    size_t connectionCount() const { return connections.size(); }
    size_t pendingConnectionCount() const { return pending_connections.size(); }
    // The record of `spec` in connections, then pending_connections; null if none.
    const ServiceConnectionRecord* findConnection(STPSpecClass* spec) const;
    Negotiator* getNegotiator() const { return negotiator; }
    // What shut-down waits for after the proxy is gone.
    PlatProcess* getRouterProcess() const { return router_process; }
    const std::vector<PlatProcess*>& getLaunchedPlugins() const { return launched_plugins; }
    const std::map<PlatProcess*, std::string>& getLaunchedPluginNames() const {
        return launched_plugin_names;
    }

protected:
    // The proxy's end; only the last unref gets here.
    ~ServiceRouter_Proxy() override;

private:
    using PluginName = std::pair<uint32_t, std::string>;
    struct PluginConnectedReply {
        uint32_t pluginID;
        std::optional<std::string> errors;
    };
    struct PluginIdReply {
        std::optional<std::string> service_name;
        uint32_t plugin_id;
        bool found;
    };

    // Pumps until `done` holds; false when the connection went or `retry` gave up first.
    // Waits (re-enters) under a MessageDepthGuard.
    bool pumpUntil(RetryHandler* retry, const std::function<bool()>& done);
    void notifyConnectionDied(STPSpecClass* spec);
    ServiceConnectionRecord* takeRecord(std::list<ServiceConnectionRecord*>& list,
                                        STPSpecClass* spec);
    void dropConnectionTransport();

    uint32_t next_client_cookie = 0;
    uint32_t plugin_id = static_cast<uint32_t>(-1);
    bool connected = false;
    bool initialized = false;
    bool options_parsed = false;
    ServiceRouterOptions options;
    std::map<uint32_t, ServiceFactory*> service_by_rn;
    std::list<ServiceFactory*> pending_factories;
    std::list<ServiceFactory*> registered_factories;
    Negotiator* negotiator = nullptr;
    std::list<ServiceConnectionRecord*> connections;
    std::list<ServiceConnectionRecord*> pending_connections;
    std::map<PluginName, std::string> plugin_values;
    std::map<uint32_t, bool> rns_in_use;
    std::vector<NameValueResolver*> resolvers;
    std::vector<ConnectionDiedListener*> died_listeners;
    std::list<ServiceConnectionReply> connection_replies;
    std::vector<uint32_t> free_rns;
    std::map<uint32_t, PluginConnectedReply> plugin_connected_replies;
    std::map<PluginName, std::optional<std::string>> value_replies;
    std::map<uint32_t, PluginIdReply> plugin_id_replies;
    STPLog* log = nullptr;
    FILE* log_file = nullptr;
    PlatProcess* router_process = nullptr;
    std::vector<PlatProcess*> launched_plugins;
    std::map<PlatProcess*, std::string> launched_plugin_names;
    SRP_SocketListener* socket_listener = nullptr;
};

// ---- The global proxy ----------------------------------------------------------------------

// Creates the global proxy if there is none and runs its set-up once (parses and removes the
// router options from *argc/argv, connects, negotiates and waits for the plug-in id when a
// router launched this process or a factory registered itself). False when that fails; the
// reason has been reported. A second call returns true.
bool createGlobalServiceRouterProxy(bool persistent, int* argc, char** argv, const char* programTag,
                                    bool privateRouter, RetryHandler* retry, bool connectNow,
                                    bool mayLaunch);

// Asks the router to disconnect, releases the global proxy (which drops every connection) and
// waits for a private router and the plug-ins this process started: at once without
// `terminateChildren`, else up to 4000 ms each before stopping them.
void destroyGlobalServiceRouterProxy(bool terminateChildren);

// The global proxy, or null before the first use and after destroyGlobalServiceRouterProxy.
ServiceRouter_Proxy* getServiceRouterProxy();
// The global proxy, made bare (without set-up) if there is none.
ServiceRouter_Proxy* ensureServiceRouterProxy();

// The global proxy as the event loop sees it; null when there is none.
Svc_RouterLink* globalServiceRouterLink();

// Waits up to timeoutMs for `process` to end. On a time-out with `terminate`, writes
// "trellis: <label> (handle=<pid>) took more than <s> seconds (<ms> msecs) to shut down,
// terminating process." to standard error and terminates it with exit code 0.
// Returns true when the process has ended (by itself or terminated).
bool waitForChildExit(PlatProcess* process, const char* label, bool terminate, int timeoutMs);
