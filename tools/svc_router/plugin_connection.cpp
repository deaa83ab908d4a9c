// One plug-in's connection to the router.
#include "plugin_connection.h"

#include "plat_time.h"
#include "router.h"
#include "stp_socketlistener.h"
#include "stp_transport.h"

namespace {
const char* text(const char* s) {
    return s ? s : "";
}
} // namespace

PluginConnection::PluginConnection(Router* router, uint32_t pluginId, STPTransport* transport)
    : router(router), pluginId(pluginId) {
    startTick = plat_tick_count();
    attachTransport(transport, defaultLocalRN(), defaultRemoteRN());
    transport->setForwarder(this);
    setLogs(router->getLog());
    socketListener = new STPSocketListener(transport);
    // Only queued: the loop's next turn sends it, and nothing here waits for the peer's.
    sendNegotiate(false);
}

PluginConnection::~PluginConnection() = default;

bool PluginConnection::isGone() const {
    return getTransport() == nullptr || getTransport()->isDisconnected();
}

void PluginConnection::close() {
    if (getTransport())
        getTransport()->closeConnection();
}

STPForwarder::Route PluginConnection::route(uint32_t localRN, uint32_t remoteRN,
                                            STPTransport** target) {
    return router->route(this, localRN, remoteRN, target);
}

void PluginConnection::release() {
    if (getTransport())
        getTransport()->setForwarder(nullptr);
    close();
    delete socketListener;
    socketListener = nullptr;
    attachTransport(nullptr);
    unref();
}

void PluginConnection::ConnectionAcceptedEvent(uint32_t serviceRN, uint32_t remoteRN, bool accept) {
    router->connectionAccepted(this, serviceRN, remoteRN, accept);
}

void PluginConnection::DebugPlugin(const char* plugin_name, bool do_debug, const char* debugger,
                                   const char* debugger_opts) {
    // There is no debugger to start here; the wish is only recorded.
    router->logEvent("plug-in %u asks to debug \"%s\" (%s) with \"%s\" \"%s\": not supported",
                     pluginId, text(plugin_name), do_debug ? "on" : "off", text(debugger),
                     text(debugger_opts));
}

void PluginConnection::DropServiceConnection(uint32_t localRN, uint32_t serviceRN) {
    router->dropConnection(this, localRN, serviceRN);
}

void PluginConnection::LogMessageEvent(const char* message) {
    router->logEvent("plug-in %u log: %s", pluginId, text(message));
}

void PluginConnection::NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total) {
    router->countServices(num_persistent, num_total);
}

void PluginConnection::PersistentService(bool isPersistent) {
    persistent = isPersistent;
}

void PluginConnection::RegisterServiceList(const StringList& name_list) {
    router->registerServices(this, name_list);
}

void PluginConnection::ReleaseRN(uint32_t rn) {
    router->releaseRN(this, rn);
}

void PluginConnection::RequestLocation() {
    router->requestLocation(this);
}

void PluginConnection::RequestPluginConnect(const char* host, uint32_t port, uint32_t cookie) {
    router->logEvent("plug-in %u asks to connect to a plug-in at %s:%u: not supported", pluginId,
                     text(host), port);
    PluginConnectedEvent(false, cookie, kNoPlugin,
                         "svc_router does not connect to plug-ins on request.");
}

void PluginConnection::RequestPluginIdForService(uint32_t cookie, const char* serviceName,
                                                 const char*, bool) {
    router->requestPluginIdForService(this, cookie, serviceName);
}

void PluginConnection::RequestPluginLaunch(const StringList& argv, uint32_t cookie, bool,
                                           const char*) {
    router->logEvent("plug-in %u asks to launch \"%s\": not supported", pluginId,
                     argv.count > 0 && argv.data ? text(argv.data[0]) : "");
    PluginConnectedEvent(false, cookie, kNoPlugin,
                         "svc_router does not launch plug-ins on request.");
}

void PluginConnection::RequestServiceConnection(const char* serviceName, uint32_t providingPluginID,
                                                const StringList& name_value_pairs,
                                                const char* working_dir, bool,
                                                uint32_t client_cookie, bool, bool) {
    // Local-only, no-reuse and client-start ask for providers this router does not start or
    // share; every request gets a connection of its own to a running provider.
    router->logEvent("plug-in %u asks for \"%s\" from %s", pluginId, text(serviceName),
                     text(working_dir));
    router->requestConnection(this, serviceName, providingPluginID, name_value_pairs,
                              client_cookie);
}

void PluginConnection::RequestServiceRouterDisconnect() {
    router->logEvent("plug-in %u asks to disconnect", pluginId);
    closeWanted = true;
}

void PluginConnection::RequestValueOfNameOnPlugin(uint32_t plugin_id, const char* name) {
    router->requestValue(this, plugin_id, name);
}

void PluginConnection::ReserveRNBlock(uint32_t count) {
    router->reserveBlock(this, count);
}

void PluginConnection::SetEnvironmentVariable(const char* variable, const char* value) {
    // This router starts its plug-ins before any of them can ask; the setting is only noted.
    router->logEvent("plug-in %u sets %s=%s: not applied", pluginId, text(variable), text(value));
}

void PluginConnection::SetWorkingDir(const char* working_dir) {
    workingDir = text(working_dir);
    router->logEvent("plug-in %u works in %s", pluginId, workingDir.c_str());
}

void PluginConnection::StartPluginEvent(uint32_t cookie, bool success, const char* error_message) {
    router->logEvent("plug-in %u started with cookie %u: %s %s", pluginId, cookie,
                     success ? "success" : "failure", text(error_message));
}

void PluginConnection::UnregisterService(uint32_t serviceRN) {
    router->unregisterService(this, serviceRN);
}

void PluginConnection::ValueOfNameOnPluginResponseEvent(uint32_t requesting_plugin_id, uint32_t,
                                                        const char* name, const char* value) {
    router->answerValue(this, requesting_plugin_id, name, value);
}
