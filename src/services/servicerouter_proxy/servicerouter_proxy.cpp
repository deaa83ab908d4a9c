// The router proxy as a whole: construction and end, the operations it forwards, the router's
// plain messages, the connect-or-launch tree, the opening conversation, and the global proxy.
#include "servicerouter_proxy.h"

#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "negotiator.h"
#include "plat_files.h"
#include "plat_process.h"
#include "service_factory.h"
#include "service_listeners.h"
#include "srp_socketlistener.h"
#include "stp_log.h"
#include "stp_transport.h"
#include "stp_wait.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Buffer size of the router transport.
constexpr int32_t kRouterTransportSize = 32768;
// The proxy's end of the router connection, and the router's.
constexpr uint32_t kRouterLocalRN = 2;
constexpr uint32_t kRouterRemoteRN = 1;
// The address every router connection goes to.
constexpr const char* kRouterAddress = "127.0.0.1";
// A StartPlugin shorter than this cannot be a plug-in command line of the router.
constexpr int32_t kMinStartPluginWords = 7;

ServiceRouter_Proxy* g_proxy = nullptr;

// At process exit, releases the global proxy if it still exists.
struct ProxyGuard {
    ~ProxyGuard() {
        if (ServiceRouter_Proxy* proxy = g_proxy) {
            g_proxy = nullptr;
            proxy->unref();
        }
    }
};
ProxyGuard g_proxyGuard;

// Writes `text` to `log` as one record of the proxy.
void logBlock(STPLog* log, STPSpecClass* spec, const char* text) {
    if (!log)
        return;
    log->beginRecord(spec, true);
    log->print(text);
    log->endRecord(spec, true);
}

// Whether a child could be started in `dir`.
bool canEnter(const char* dir) {
    return gen_is_directory(dir) && plat_access(dir, 1) == 0;
}

// The discovery files of a shared router (its lock and port file) arrive with a later build.
// Until then there is no file to lock or delete: taking the lock fails and the tree reports it.
bool lockRouterFile() {
    return false;
}
void deleteRouterFile() {}

} // namespace

// ---- Connection records ----------------------------------------------------------------------

ServiceConnectionRecord::ServiceConnectionRecord(STPSpecClass* s, int32_t pluginId,
                                                 bool isSharedObject, bool isServer)
    : spec(s), plugin_id(pluginId), is_shared_object(isSharedObject), is_server(isServer) {
    spec->ref();
}

ServiceConnectionRecord::~ServiceConnectionRecord() {
    spec->unref();
}

// ---- Construction and end ----------------------------------------------------------------------

ServiceRouter_Proxy::ServiceRouter_Proxy() {
    resolvers.push_back(new NameValueResolver("cwd", gen_getcwd(), true));
    negotiator = new Negotiator(this);
}

ServiceRouter_Proxy::~ServiceRouter_Proxy() {
    logBlock(log, this, "Destroying ServiceRouter_Proxy.\n");
    for (char** text : {&options.debug_plugin, &options.debugger, &options.debugger_opts,
                        &options.debug_debugger, &options.debug_debugger_opts}) {
        gen_free(*text);
        *text = nullptr;
    }
    service_by_rn.clear();
    delete negotiator;
    negotiator = nullptr;
    // Taken one at a time: dropping a connection may run code that looks at the lists.
    for (std::list<ServiceConnectionRecord*>* list : {&pending_connections, &connections}) {
        while (!list->empty()) {
            ServiceConnectionRecord* record = list->front();
            list->pop_front();
            record->spec->dropVirtualConnection();
            delete record;
        }
    }
    gen_free(options.router_log);
    gen_free(options.router_internal_log);
    options.router_log = options.router_internal_log = nullptr;
    if (sendLog == log)
        sendLog = nullptr;
    if (recvLog == log)
        recvLog = nullptr;
    delete log;
    log = nullptr;
    if (log_file)
        std::fclose(log_file);
    log_file = nullptr;
    plugin_values.clear();
    value_replies.clear();
    delete socket_listener;
    socket_listener = nullptr;
    if (transport) {
        transport->closeConnection();
        attachTransport(nullptr);
    }
    for (NameValueResolver* resolver : resolvers)
        delete resolver;
    resolvers.clear();
    died_listeners.clear();
    gen_free(options.zone);
    gen_free(options.program_tag);
    gen_free(options.router_host);
    gen_free(options.router_dir);
}

// ---- The sixteen operations --------------------------------------------------------------------

bool ServiceRouter_Proxy::DebugPlugin(bool blocking, const char* plugin_name, bool do_debug,
                                      const char* debugger_, const char* debugger_opts_,
                                      RetryHandler* retry, STPStatus* status) {
    return ServiceRouter_plugin_Impl::DebugPlugin(blocking, plugin_name, do_debug, debugger_,
                                                  debugger_opts_, retry, status);
}

bool ServiceRouter_Proxy::RequestPluginConnect(bool blocking, const char* host, uint32_t port,
                                               uint32_t cookie, RetryHandler* retry,
                                               STPStatus* status) {
    return ServiceRouter_plugin_Impl::RequestPluginConnect(blocking, host, port, cookie, retry,
                                                           status);
}

bool ServiceRouter_Proxy::RequestPluginIdForService(bool blocking, uint32_t cookie,
                                                    const char* serviceName,
                                                    const char* working_dir,
                                                    bool startup_if_not_running,
                                                    RetryHandler* retry, STPStatus* status) {
    return ServiceRouter_plugin_Impl::RequestPluginIdForService(
        blocking, cookie, serviceName, working_dir, startup_if_not_running, retry, status);
}

bool ServiceRouter_Proxy::RequestServiceRouterDisconnect(bool blocking, RetryHandler* retry,
                                                         STPStatus* status) {
    return ServiceRouter_plugin_Impl::RequestServiceRouterDisconnect(blocking, retry, status);
}

bool ServiceRouter_Proxy::RequestServiceConnection(bool blocking, const char* serviceName,
                                                   uint32_t providingPluginID,
                                                   const char* working_dir, bool local_only,
                                                   uint32_t client_cookie, bool no_reuse,
                                                   bool client_start, RetryHandler* retry,
                                                   STPStatus* status) {
    // The pairs point into the resolvers, which outlive the call.
    std::vector<char*> pairs;
    for (NameValueResolver* resolver : resolvers) {
        if (!resolver->sendsWithRequests())
            continue;
        const char* name = resolver->name();
        pairs.push_back(const_cast<char*>(name));
        pairs.push_back(const_cast<char*>(resolver->valueOf(name)));
    }
    StringList name_value_pairs;
    name_value_pairs.count = static_cast<int32_t>(pairs.size());
    name_value_pairs.data = pairs.empty() ? nullptr : pairs.data();
    return ServiceRouter_plugin_Impl::RequestServiceConnection(
        blocking, serviceName, providingPluginID, name_value_pairs, working_dir, local_only,
        client_cookie, no_reuse, client_start, retry, status);
}

bool ServiceRouter_Proxy::DropServiceConnection(bool blocking, uint32_t localRN_,
                                                uint32_t serviceRN, RetryHandler* retry,
                                                STPStatus* status) {
    return ServiceRouter_plugin_Impl::DropServiceConnection(blocking, localRN_, serviceRN, retry,
                                                            status);
}

bool ServiceRouter_Proxy::ConnectionAcceptedEvent(bool blocking, uint32_t serviceRN,
                                                  uint32_t remoteRN_, bool accept,
                                                  RetryHandler* retry, STPStatus* status) {
    return ServiceRouter_plugin_Impl::ConnectionAcceptedEvent(blocking, serviceRN, remoteRN_,
                                                              accept, retry, status);
}

bool ServiceRouter_Proxy::StartPluginEvent(bool blocking, uint32_t cookie, bool success,
                                           const char* error_message, RetryHandler* retry,
                                           STPStatus* status) {
    return ServiceRouter_plugin_Impl::StartPluginEvent(blocking, cookie, success, error_message,
                                                       retry, status);
}

bool ServiceRouter_Proxy::SetWorkingDir(bool blocking, const char* working_dir, RetryHandler* retry,
                                        STPStatus* status) {
    return ServiceRouter_plugin_Impl::SetWorkingDir(blocking, working_dir, retry, status);
}

bool ServiceRouter_Proxy::PersistentService(bool blocking, bool flag, RetryHandler* retry,
                                            STPStatus* status) {
    return ServiceRouter_plugin_Impl::PersistentService(blocking, flag, retry, status);
}

bool ServiceRouter_Proxy::NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total,
                                                RetryHandler* retry, STPStatus* status) {
    return ServiceRouter_plugin_Impl::NumPersistentServices(num_persistent, num_total, retry,
                                                            status);
}

bool ServiceRouter_Proxy::ReserveRNBlock(bool blocking, uint32_t count, RetryHandler* retry,
                                         STPStatus* status) {
    return ServiceRouter_plugin_Impl::ReserveRNBlock(blocking, count, retry, status);
}

bool ServiceRouter_Proxy::ReleaseRN(bool blocking, uint32_t rn, RetryHandler* retry,
                                    STPStatus* status) {
    rns_in_use.erase(rn);
    return ServiceRouter_plugin_Impl::ReleaseRN(blocking, rn, retry, status);
}

bool ServiceRouter_Proxy::RegisterServiceList(bool blocking, const StringList& name_list,
                                              RetryHandler* retry, STPStatus* status) {
    return ServiceRouter_plugin_Impl::RegisterServiceList(blocking, name_list, retry, status);
}

bool ServiceRouter_Proxy::RequestValueOfNameOnPlugin(bool blocking, uint32_t pluginId,
                                                     const char* name, RetryHandler* retry,
                                                     STPStatus* status) {
    return ServiceRouter_plugin_Impl::RequestValueOfNameOnPlugin(blocking, pluginId, name, retry,
                                                                 status);
}

bool ServiceRouter_Proxy::ValueOfNameOnPluginResponseEvent(bool blocking,
                                                           uint32_t requesting_plugin_id,
                                                           uint32_t pluginId, const char* name,
                                                           const char* value, RetryHandler* retry,
                                                           STPStatus* status) {
    return ServiceRouter_plugin_Impl::ValueOfNameOnPluginResponseEvent(
        blocking, requesting_plugin_id, pluginId, name, value, retry, status);
}

// ---- The router's plain messages ---------------------------------------------------------------

void ServiceRouter_Proxy::LocationEvent(const char* hostname, uint32_t port) {
    // A host from the command line stays, and with it its port.
    if (options.router_host)
        return;
    options.router_host = gen_strdup(hostname);
    options.router_port = port;
}

void ServiceRouter_Proxy::PluginId(uint32_t id) {
    plugin_id = id;
    if (transport)
        transport->setOriginId(static_cast<uint16_t>(id & 0xFFFFu));
}

void ServiceRouter_Proxy::PluginConnectedEvent(uint32_t cookie, uint32_t pluginID,
                                               const char* errors) {
    PluginConnectedReply reply{pluginID, std::nullopt};
    if (errors)
        reply.errors = errors;
    plugin_connected_replies[cookie] = reply;
}

void ServiceRouter_Proxy::PluginIdForServiceReplyEvent(uint32_t cookie, const char* service_name,
                                                       uint32_t id, bool found) {
    PluginIdReply reply{std::nullopt, id, found};
    if (service_name)
        reply.service_name = service_name;
    plugin_id_replies[cookie] = reply;
}

void ServiceRouter_Proxy::StartLogging() {
    setLog(new ForwardingSTPLog(this));
}

void ServiceRouter_Proxy::sendLogMessage(const char* text) {
    ServiceRouter_plugin_Impl::LogMessageEvent(false, text);
}

void ServiceRouter_Proxy::StartPlugin(const StringList& args, uint32_t cookie,
                                      const char* working_dir) {
    if (args.count < kMinStartPluginWords) {
        StartPluginEvent(false, cookie, false,
                         "Invalid arguments specified when attempting to launch plugin.");
        return;
    }
    std::vector<std::string> words;
    for (int32_t i = 0; i < stp_count(args.data, args.count); ++i)
        words.push_back(args.data[i] ? args.data[i] : "");
    // A program beside this one wins over one found in the search path.
    if (const char* self = gen_program_path()) {
        char* dir = gen_dirname(self);
        char* beside = gen_path_join(dir, words[0].c_str());
        PlatFileStatus st;
        if (beside && plat_stat(beside, &st) == 0 && st.isRegular && (st.mode & 0111) != 0)
            words[0] = beside;
        gen_free(beside);
        gen_free(dir);
    }
    std::vector<const char*> argv;
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    argv.push_back(nullptr);

    // The child starts in the working directory; this process's own stays where it is.
    PlatSpawnOptions options;
    if (working_dir && *working_dir)
        options.workingDir = working_dir;
    PlatProcess* process = plat_spawn(argv.data(), &options, nullptr);
    if (!process || plat_process_id(process) < 0) {
        if (process)
            plat_close_process(process);
        if (options.workingDir && !canEnter(options.workingDir)) {
            char* text =
                gen_asprintf("Unable to launch plugin: cannot enter the working directory \"%s\".",
                             options.workingDir);
            StartPluginEvent(false, cookie, false, text);
            gen_free(text);
        } else {
            StartPluginEvent(false, cookie, false, "Unable to launch plugin.");
        }
        return;
    }
    // The new plug-in reports itself to the router with the cookie it was given.
    launched_plugins.push_back(process);
    launched_plugin_names[process] = gen_basename(words[0].c_str());
}

// ---- Set-up and the way to a router ------------------------------------------------------------

bool ServiceRouter_Proxy::setup(bool persistentFlag, int* argc, char** argv, const char* programTag,
                                bool privateRouter, RetryHandler* retry, bool connectNow,
                                bool mayLaunchFlag) {
    if (options_parsed)
        return true;
    options_parsed = true;
    options.persistent = persistentFlag;
    options.private_router = privateRouter;
    options.connect_now = connectNow;
    options.may_launch = mayLaunchFlag;
    parseOptions(argc, argv);
    logBlock(log, this, "Created global ServiceRouter_Proxy.\n");
    startDebuggerOnSelf();
    gen_free(options.program_tag);
    options.program_tag = gen_strdup(programTag);
    if (!ServiceFactory::selfRegisteredFactories().empty() || options.launched_by_router)
        options.connect_now = true;
    if (options.connect_now) {
        bool ok = connectOrLaunch(retry);
        initialized = true;
        return ok;
    }
    initialized = true;
    return true;
}

bool ServiceRouter_Proxy::ensureConnected(RetryHandler* retry) {
    return connected || connectOrLaunch(retry);
}

bool ServiceRouter_Proxy::connectOrLaunch(RetryHandler* retry) {
    if (options.launched_by_router && (options.new_router || options.private_router))
        gen_warning("Incompatible options specified, defaulting to connecting to launching "
                    "ServiceRouter.\n");
    if (!options.may_launch && (options.new_router || options.private_router))
        return false;

    if (options.launched_by_router) {
        if (!connectSocket(options.router_host, options.router_port)) {
            gen_error("Unable to connect to ServiceRouter who launched us.\n");
            return false;
        }
    } else {
        if (options.new_router)
            deleteRouterFile();
        if (options.private_router) {
            if (!launchRouter(retry, true)) {
                gen_warning("Unable to launch private service router.\n");
                return false;
            }
        } else if (options.router_port != 0) {
            if (!connectSocket(options.router_host, options.router_port)) {
                gen_warning("Unable to connect to specified service router.\n");
                return false;
            }
        } else if (!lockRouterFile()) {
            // The shared router is found through its port file under a lock; without the
            // discovery files the lock fails, and so does this branch. The retry with a router
            // of our own, when an existing one does not answer, belongs to that branch too.
            gen_error("Unable to lock service router file.\n");
            return false;
        }
    }

    if (initializeRouterConnection(options.persistent, retry))
        return true;
    gen_warning("Unable to initialize service router.\n");
    return false;
}

void ServiceRouter_Proxy::dropConnectionTransport() {
    delete socket_listener;
    socket_listener = nullptr;
}

bool ServiceRouter_Proxy::connectSocket(const char*, uint32_t port) {
    dropConnectionTransport();
    STPTransport* newTransport = new STPTransport(kRouterTransportSize);
    socket_listener = new SRP_SocketListener(newTransport);
    STPStatus status;
    newTransport->connect(kRouterAddress, static_cast<uint16_t>(port), &status);
    if (!status.ok()) {
        dropConnectionTransport();
        newTransport->unref();
        return false;
    }
    attachTransport(newTransport, kRouterLocalRN, kRouterRemoteRN);
    // From here the listener and this object hold the transport.
    newTransport->unref();
    return true;
}

bool ServiceRouter_Proxy::launchRouter(RetryHandler*, bool) {
    // Starting a router of our own (and the child-process launch it stands on) arrives with a
    // later build; the tree reports the failure in its own words.
    return false;
}

bool ServiceRouter_Proxy::initializeRouterConnection(bool persistentFlag, RetryHandler* retry) {
    if (log)
        setLogs(log);
    STPStatus status;
    if (!negotiate(retry, &status) || !status.ok()) {
        gen_warning("Negotiation with ServiceRouter failed during initialization: %s.\n",
                    status.message);
        return false;
    }
    connected = true;

    if (options.has_client_start_cookie) {
        StartPluginEvent(true, options.client_start_cookie, true, "", retry, &status);
        if (!status.ok()) {
            gen_error("Unable to give the ServiceRouter the client start cookie.\n");
            return false;
        }
    }
    if (!options.launched_by_router || options.has_client_start_cookie) {
        SetWorkingDir(true, gen_getcwd(), retry, &status);
        if (!status.ok()) {
            gen_error("Unable to send our working directory to the ServiceRouter.\n");
            return false;
        }
    }

    std::vector<char*> names;
    for (ServiceFactory* factory : ServiceFactory::selfRegisteredFactories()) {
        names.push_back(const_cast<char*>(factory->getName()));
        registered_factories.push_back(factory);
    }
    while (!pending_factories.empty()) {
        ServiceFactory* factory = pending_factories.front();
        pending_factories.pop_front();
        names.push_back(const_cast<char*>(factory->getName()));
        registered_factories.push_back(factory);
    }
    StringList name_list;
    name_list.count = static_cast<int32_t>(names.size());
    name_list.data = names.empty() ? nullptr : names.data();
    RegisterServiceList(true, name_list, retry, &status);
    if (!status.ok()) {
        gen_error("Failed to send list of available services.\n");
        return false;
    }

    if (!persistentFlag && !setPersistent(false, retry, &status))
        return false;
    if (options.debug_plugin || options.debugger || options.debugger_opts)
        DebugPlugin(true, options.debug_plugin, true, options.debugger, options.debugger_opts,
                    retry, &status);
    return waitForPluginId(retry);
}

bool ServiceRouter_Proxy::pumpUntil(RetryHandler* retry, const std::function<bool()>& done) {
    STPSpecClassRef hold(this);
    STPTransport* t = transport;
    if (!t)
        return done();
    MessageDepthGuard guard(t);
    bool reached = false;
    stp_wait_until(t, retry, [&] {
        reached = done();
        return reached || transport != t || t->isDisconnected() || isVirtualConnectionDown();
    });
    return reached;
}

bool ServiceRouter_Proxy::waitForPluginId(RetryHandler* retry) {
    return pumpUntil(retry, [this] { return plugin_id != static_cast<uint32_t>(-1); });
}

bool ServiceRouter_Proxy::isConnected() {
    if (!connected)
        return true;
    return transport && !transport->isDisconnected() && !isVirtualConnectionDown();
}

void ServiceRouter_Proxy::requestDisconnect() {
    requestDisconnect(nullptr);
}

bool ServiceRouter_Proxy::requestDisconnect(RetryHandler* retry) {
    return RequestServiceRouterDisconnect(true, retry);
}

bool ServiceRouter_Proxy::setPersistent(bool flag, RetryHandler* retry, STPStatus* status) {
    options.persistent = flag;
    if (!connected)
        return true;
    STPStatus local;
    PersistentService(true, flag, retry, &local);
    if (status)
        *status = local;
    return local.ok();
}

bool ServiceRouter_Proxy::getRouterLocation(const char** host, uint32_t* port,
                                            RetryHandler* retry) {
    if (ensureConnected(retry) && !options.router_host) {
        STPStatus status;
        RequestLocation(true, retry, &status);
        if (status.ok())
            pumpUntil(retry, [this] { return options.router_host != nullptr; });
    }
    if (host)
        *host = options.router_host;
    if (port)
        *port = options.router_port;
    return options.router_host != nullptr;
}

STPTransport* ServiceRouter_Proxy::getTransport() {
    return ensureConnected(nullptr) ? transport : nullptr;
}

void ServiceRouter_Proxy::setLog(STPLog* newLog) {
    // The proxy's own records never go to a forwarding log, whose every record is itself a
    // message of the proxy; and a log that goes away leaves no pointer behind.
    bool forwarding = dynamic_cast<ForwardingSTPLog*>(newLog) != nullptr;
    if (sendLog == log)
        sendLog = forwarding ? nullptr : newLog;
    if (recvLog == log)
        recvLog = forwarding ? nullptr : newLog;
    STPLog* old = log;
    log = newLog;
    for (std::list<ServiceConnectionRecord*>* list : {&connections, &pending_connections})
        for (ServiceConnectionRecord* record : *list)
            record->spec->setLogs(newLog);
    delete old;
}

// ---- The global proxy --------------------------------------------------------------------------

ServiceRouter_Proxy* getServiceRouterProxy() {
    return g_proxy;
}

ServiceRouter_Proxy* ensureServiceRouterProxy() {
    if (!g_proxy)
        g_proxy = new ServiceRouter_Proxy();
    return g_proxy;
}

bool createGlobalServiceRouterProxy(bool persistent, int* argc, char** argv, const char* programTag,
                                    bool privateRouter, RetryHandler* retry, bool connectNow,
                                    bool mayLaunch) {
    return ensureServiceRouterProxy()->setup(persistent, argc, argv, programTag, privateRouter,
                                             retry, connectNow, mayLaunch);
}

void destroyGlobalServiceRouterProxy(bool terminateChildren) {
    ServiceRouter_Proxy* proxy = g_proxy;
    if (!proxy)
        return;
    proxy->requestDisconnect(nullptr);
    PlatProcess* router = proxy->getOptions().private_router ? proxy->getRouterProcess() : nullptr;
    std::vector<PlatProcess*> plugins = proxy->getLaunchedPlugins();
    std::map<PlatProcess*, std::string> names = proxy->getLaunchedPluginNames();
    g_proxy = nullptr;
    proxy->unref();

    int timeoutMs = terminateChildren ? 4000 : 0;
    if (router)
        waitForChildExit(router, "svc_router", terminateChildren, timeoutMs);
    for (PlatProcess* plugin : plugins) {
        std::string label = "plugin";
        auto it = names.find(plugin);
        if (it != names.end())
            label += " " + it->second;
        waitForChildExit(plugin, label.c_str(), terminateChildren, timeoutMs);
        // The handle is forgotten; a plug-in that still runs goes on running.
        plat_close_process(plugin);
    }
}

Svc_RouterLink* globalServiceRouterLink() {
    return g_proxy;
}

bool waitForChildExit(PlatProcess* process, const char* label, bool terminate, int timeoutMs) {
    PlatWait result = plat_wait_process(process, timeoutMs);
    if (result == PlatWait::timed_out && terminate) {
        std::fprintf(stderr,
                     "trellis: %s (handle=%d) took more than %d seconds (%d msecs) to shut down, "
                     "terminating process.\n",
                     label, plat_process_id(process), timeoutMs / 1000, timeoutMs);
        return plat_terminate_process(process, 0);
    }
    return result == PlatWait::exited;
}
