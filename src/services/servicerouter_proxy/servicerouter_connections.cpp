// The proxy's service connections: offering services, route numbers, incoming and outgoing
// connections, their end, name/value lookups, client paths and plug-in management.
#include "servicerouter_proxy.h"

#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "negotiator.h"
#include "service_factory.h"
#include "service_listeners.h"
#include "stp_transport.h"

#include <algorithm>
#include <cstring>

namespace {

// Where the connection handler's assertion reports itself. The tools that read the service's
// reports match a failure by its file and line, so these stay fixed when the code moves.
constexpr const char* kProxySourceFile =
    "../src/services/servicerouter_proxy/servicerouter_proxy.cpp";
constexpr int kRequestingPluginAssertLine = 3439;

// Cookies of plug-in management requests, process-wide, pre-incremented.
uint32_t g_pluginCookie = 0;

bool sameName(const std::optional<std::string>& stored, const char* name) {
    if (!stored || !name)
        return !stored && !name;
    return *stored == name;
}

std::string keyName(const char* name) {
    return name ? name : "";
}

} // namespace

// ---- Offering services -------------------------------------------------------------------------

bool ServiceRouter_Proxy::registerService(ServiceFactory* factory, RetryHandler* retry) {
    options.connect_now = true;
    if (connected) {
        char* name = const_cast<char*>(factory->getName());
        StringList list;
        list.count = 1;
        list.data = &name;
        STPStatus status;
        RegisterServiceList(false, list, retry, &status);
        if (!status.ok())
            return false;
        registered_factories.push_back(factory);
        return true;
    }
    pending_factories.push_back(factory);
    if (initialized)
        return connectOrLaunch(retry);
    return true;
}

void ServiceRouter_Proxy::RNBlockReservedEvent(const RNList& rn_list) {
    // Numbers go to the factories in the order they were told to the router.
    int32_t count = stp_count(rn_list.data, rn_list.count);
    int32_t i = 0;
    for (; i < count && !registered_factories.empty(); ++i) {
        uint32_t rn = rn_list.data[i];
        service_by_rn[rn] = registered_factories.front();
        rns_in_use[rn] = true;
        registered_factories.pop_front();
    }
    for (; i < count; ++i)
        free_rns.push_back(rn_list.data[i]);
}

ServiceFactory* ServiceRouter_Proxy::factoryForRN(uint32_t rn) const {
    auto it = service_by_rn.find(rn);
    return it == service_by_rn.end() ? nullptr : it->second;
}

bool ServiceRouter_Proxy::isRNInUse(uint32_t rn) const {
    auto it = rns_in_use.find(rn);
    return it != rns_in_use.end() && it->second;
}

// ---- Server side -------------------------------------------------------------------------------

void ServiceRouter_Proxy::ConnectionRequestedEvent(uint32_t requesting_plugin_id,
                                                   uint32_t serviceRN, uint32_t remoteRN_,
                                                   const StringList& name_value_pairs) {
    gen_assert(requesting_plugin_id != static_cast<uint32_t>(-1), "requesting_plugin_id != -1",
               kProxySourceFile, kRequestingPluginAssertLine, 0);
    ServiceFactory* factory = factoryForRN(serviceRN);
    if (!factory) {
        ConnectionAcceptedEvent(false, serviceRN, remoteRN_, false);
        return;
    }
    STPSpecClass* spec = factory->createServer(transport, serviceRN, remoteRN_);
    if (!spec) {
        ConnectionAcceptedEvent(false, serviceRN, remoteRN_, false);
        return;
    }
    if (log)
        spec->setLogs(log);
    ConnectionAcceptedEvent(false, serviceRN, remoteRN_, true);
    int32_t pluginId = static_cast<int32_t>(requesting_plugin_id);
    pending_connections.push_back(new ServiceConnectionRecord(spec, pluginId, false, true));

    // The client's names and values (its "cwd" above all) come with the request.
    int32_t count = stp_count(name_value_pairs.data, name_value_pairs.count);
    for (int32_t i = 0; i + 1 < count; i += 2) {
        const char* name = name_value_pairs.data[i];
        const char* value = name_value_pairs.data[i + 1];
        if (name && value)
            plugin_values[{requesting_plugin_id, name}] = value;
    }

    if (requesting_plugin_id == plugin_id) {
        // The client lives in this process: both ends have the same tables.
        spec->negotiateLocally();
        removePendingConnection(spec);
        factory->serviceConnected(spec);
        addConnection(spec, pluginId, true);
        spec->unref();
        return;
    }
    negotiator->add(spec, pluginId, factory);
}

ServiceConnectionRecord* ServiceRouter_Proxy::takeRecord(std::list<ServiceConnectionRecord*>& list,
                                                         STPSpecClass* spec) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if ((*it)->spec == spec) {
            ServiceConnectionRecord* record = *it;
            list.erase(it);
            return record;
        }
    }
    return nullptr;
}

void ServiceRouter_Proxy::removePendingConnection(STPSpecClass* spec) {
    delete takeRecord(pending_connections, spec);
}

void ServiceRouter_Proxy::addConnection(STPSpecClass* spec, int32_t pluginId, bool isServer) {
    connections.push_back(new ServiceConnectionRecord(spec, pluginId, false, isServer));
}

const ServiceConnectionRecord* ServiceRouter_Proxy::findConnection(STPSpecClass* spec) const {
    for (const std::list<ServiceConnectionRecord*>* list : {&connections, &pending_connections})
        for (const ServiceConnectionRecord* record : *list)
            if (record->spec == spec)
                return record;
    return nullptr;
}

void ServiceRouter_Proxy::ConnectionDroppedEvent(uint32_t serviceRN, uint32_t remoteRN_) {
    ServiceConnectionRecord* record = nullptr;
    for (std::list<ServiceConnectionRecord*>* list : {&connections, &pending_connections}) {
        for (auto it = list->begin(); it != list->end(); ++it) {
            STPSpecClass* spec = (*it)->spec;
            if (spec->getLocalRN() == serviceRN && spec->getRemoteRN() == remoteRN_) {
                record = *it;
                list->erase(it);
                break;
            }
        }
        if (record)
            break;
    }
    if (!record)
        return;
    record->spec->dropVirtualConnection();
    notifyConnectionDied(record->spec);
    delete record;
}

void ServiceRouter_Proxy::notifyConnectionDied(STPSpecClass* spec) {
    // The list is walked once, over a copy: a listener may add or remove listeners.
    std::vector<ConnectionDiedListener*> walk = died_listeners;
    std::vector<ConnectionDiedListener*> done;
    for (ConnectionDiedListener* listener : walk) {
        listener->connectionDied(spec);
        if (listener->getSpec() == spec && listener->removeWhenDied())
            done.push_back(listener);
    }
    for (ConnectionDiedListener* listener : done)
        removeConnectionDiedListener(listener);
}

void ServiceRouter_Proxy::addConnectionDiedListener(ConnectionDiedListener* listener) {
    died_listeners.push_back(listener);
}

bool ServiceRouter_Proxy::removeConnectionDiedListener(ConnectionDiedListener* listener) {
    auto it = std::find(died_listeners.begin(), died_listeners.end(), listener);
    if (it == died_listeners.end())
        return false;
    died_listeners.erase(it);
    return true;
}

void ServiceRouter_Proxy::addNameValueResolver(NameValueResolver* resolver) {
    resolvers.push_back(resolver);
}

// ---- Client side -------------------------------------------------------------------------------

bool ServiceRouter_Proxy::connectToService(const char* serviceName, STPSpecClass* spec,
                                           bool* wasFound, bool* wasAccepted, RetryHandler* retry,
                                           const char* workingDir, bool localOnly, bool noReuse,
                                           bool clientStart) {
    if (wasFound)
        *wasFound = false;
    if (wasAccepted)
        *wasAccepted = false;
    if (!ensureConnected(retry) || !transport)
        return false;
    uint32_t cookie = next_client_cookie++;
    STPStatus status;
    RequestServiceConnection(false, serviceName, static_cast<uint32_t>(-1), workingDir, localOnly,
                             cookie, noReuse, clientStart, retry, &status);
    if (!status.ok())
        return false;
    return waitForConnectionReply(serviceName, cookie, spec, wasFound, wasAccepted, retry);
}

bool ServiceRouter_Proxy::connectToServiceOnPlugin(const char* serviceName, STPSpecClass* spec,
                                                   uint32_t pluginId, RetryHandler* retry) {
    if (!ensureConnected(retry) || !transport)
        return false;
    uint32_t cookie = next_client_cookie++;
    STPStatus status;
    RequestServiceConnection(false, serviceName, pluginId, nullptr, false, cookie, false, false,
                             retry, &status);
    if (!status.ok())
        return false;
    bool found = false, accepted = false;
    bool ok = waitForConnectionReply(serviceName, cookie, spec, &found, &accepted, retry);
    return ok && found && accepted;
}

bool ServiceRouter_Proxy::waitForConnectionReply(const char* serviceName, uint32_t cookie,
                                                 STPSpecClass* spec, bool* wasFound,
                                                 bool* wasAccepted, RetryHandler* retry) {
    if (wasFound)
        *wasFound = false;
    if (wasAccepted)
        *wasAccepted = false;
    if (!transport)
        return false;
    auto find = [&] {
        return std::find_if(connection_replies.begin(), connection_replies.end(),
                            [&](const ServiceConnectionReply& reply) {
                                return reply.client_cookie == cookie &&
                                       sameName(reply.serviceName, serviceName);
                            });
    };
    if (!pumpUntil(retry, [&] { return find() != connection_replies.end(); }))
        return false;
    auto it = find();
    ServiceConnectionReply reply = *it;
    connection_replies.erase(it);
    if (wasFound)
        *wasFound = reply.wasFound;
    if (wasAccepted)
        *wasAccepted = reply.wasAccepted;
    if (!reply.wasFound || !(reply.wasAccepted || reply.is_shared_object))
        return false;
    if (log)
        spec->setLogs(log);
    if (reply.is_shared_object) {
        // Services in shared objects arrive with a later build; such a reply cannot be used.
        gen_error("Unable to setup connection to shared object service.\n");
        return false;
    }
    rns_in_use[reply.localRN] = true;
    spec->attachTransport(transport, reply.localRN, reply.serviceRN);
    STPStatus status;
    if (isRNInUse(reply.serviceRN))
        spec->negotiateLocally();
    else
        spec->negotiate(retry, &status);
    if (!status.ok())
        return false;
    connections.push_back(
        new ServiceConnectionRecord(spec, static_cast<int32_t>(reply.plugin_id), false, false));
    return true;
}

void ServiceRouter_Proxy::ConnectionReplyEvent(const char* serviceName, uint32_t localRN_,
                                               bool wasFound, bool is_shared_object,
                                               bool wasAccepted, uint32_t serviceRN, uint32_t id,
                                               const char* shared_object_name,
                                               uint32_t client_cookie) {
    ServiceConnectionReply reply;
    if (serviceName)
        reply.serviceName = serviceName;
    reply.localRN = localRN_;
    reply.wasFound = wasFound;
    reply.is_shared_object = is_shared_object;
    reply.wasAccepted = wasAccepted;
    reply.serviceRN = serviceRN;
    reply.plugin_id = id;
    if (shared_object_name)
        reply.shared_object_name = shared_object_name;
    reply.client_cookie = client_cookie;
    connection_replies.push_back(reply);
}

bool ServiceRouter_Proxy::dropServiceConnection(STPSpecClass* spec, RetryHandler* retry,
                                                bool force) {
    if (!force && spec->getBusyCount() > 0)
        return false;
    STPSpecClassRef hold(spec);
    uint32_t local = spec->getLocalRN();
    uint32_t remote = spec->getRemoteRN();
    spec->dropVirtualConnection();
    DropServiceConnection(false, local, remote, retry);
    ServiceConnectionRecord* record = takeRecord(connections, spec);
    if (!record)
        record = takeRecord(pending_connections, spec);
    if (record && !record->is_server)
        ReleaseRN(false, local, retry);
    notifyConnectionDied(spec);
    delete record;
    return true;
}

int32_t ServiceRouter_Proxy::pluginIdOfConnection(STPSpecClass* spec) {
    const ServiceConnectionRecord* record = findConnection(spec);
    return record ? record->plugin_id : -1;
}

// ---- Names and values --------------------------------------------------------------------------

void ServiceRouter_Proxy::ForwardedRequestValueOfNameOnPlugin(uint32_t requesting_plugin_id,
                                                              uint32_t, const char* name) {
    const char* value = nullptr;
    for (NameValueResolver* resolver : resolvers)
        if (resolver->matches(name))
            value = resolver->valueOf(name);
    ValueOfNameOnPluginResponseEvent(false, requesting_plugin_id, plugin_id, name, value);
}

void ServiceRouter_Proxy::ValueOfNameOnPluginEvent(uint32_t id, const char* name,
                                                   const char* value) {
    PluginName key{id, keyName(name)};
    value_replies[key] = value ? std::optional<std::string>(value) : std::nullopt;
    // Only a known value enters the cache, so that a later question asks again.
    if (value)
        plugin_values[key] = value;
}

const char* ServiceRouter_Proxy::valueOfNameOnPlugin(uint32_t pluginId, const char* name,
                                                     RetryHandler* retry) {
    PluginName key{pluginId, keyName(name)};
    auto cached = plugin_values.find(key);
    if (cached != plugin_values.end())
        return cached->second.c_str();
    STPStatus status;
    RequestValueOfNameOnPlugin(false, pluginId, name, retry, &status);
    if (!status.ok())
        return nullptr;
    bool answered =
        pumpUntil(retry, [&] { return value_replies.find(key) != value_replies.end(); });
    if (!answered)
        return nullptr;
    value_replies.erase(key);
    cached = plugin_values.find(key);
    return cached == plugin_values.end() ? nullptr : cached->second.c_str();
}

const char* ServiceRouter_Proxy::cwdOfPlugin(uint32_t pluginId, RetryHandler* retry) {
    return valueOfNameOnPlugin(pluginId, "cwd", retry);
}

char* ServiceRouter_Proxy::fullPathForPlugin(int32_t pluginId, const char* path,
                                             RetryHandler* retry) {
    if (!path)
        return nullptr;
    if (gen_is_absolute(path) || pluginId == -1)
        return gen_strdup(path);
    const char* cwd = cwdOfPlugin(static_cast<uint32_t>(pluginId), retry);
    if (!cwd)
        return gen_strdup(path);
    return gen_path_join(cwd, path);
}

char* ServiceRouter_Proxy::fullPathForConnection(STPSpecClass* spec, const char* path,
                                                 RetryHandler* retry) {
    int32_t pluginId = pluginIdOfConnection(spec);
    if (pluginId == -1)
        return gen_strdup(path);
    return fullPathForPlugin(pluginId, path, retry);
}

// ---- Plug-in management ------------------------------------------------------------------------

int32_t ServiceRouter_Proxy::launchPlugin(const char* const* words, bool clientStart,
                                          const char* workingDir, char** errors,
                                          RetryHandler* retry) {
    if (errors)
        *errors = nullptr;
    if (!ensureConnected(retry))
        return -1;
    std::vector<char*> argv;
    for (const char* const* w = words; w && *w; ++w)
        argv.push_back(const_cast<char*>(*w));
    StringList list;
    list.count = static_cast<int32_t>(argv.size());
    list.data = argv.empty() ? nullptr : argv.data();
    uint32_t cookie = ++g_pluginCookie;
    STPStatus status;
    ServiceRouter_plugin_Impl::RequestPluginLaunch(false, list, cookie, clientStart, workingDir,
                                                   retry, &status);
    if (!status.ok())
        return -1;
    if (!pumpUntil(retry, [&] { return plugin_connected_replies.count(cookie) != 0; }))
        return -1;
    PluginConnectedReply reply = plugin_connected_replies[cookie];
    plugin_connected_replies.erase(cookie);
    if (errors && reply.errors)
        *errors = gen_strdup(reply.errors->c_str());
    return static_cast<int32_t>(reply.pluginID);
}

int32_t ServiceRouter_Proxy::connectPlugin(const char* host, uint32_t port, char** errors,
                                           RetryHandler* retry) {
    if (errors)
        *errors = nullptr;
    if (!host || !*host) {
        if (errors)
            *errors = gen_strdup("Invalid host specified.");
        return -1;
    }
    if (!ensureConnected(retry)) {
        if (errors)
            *errors = gen_strdup("Unable to connect to ServiceRouter.");
        return -1;
    }
    uint32_t cookie = ++g_pluginCookie;
    STPStatus status;
    RequestPluginConnect(false, host, port, cookie, retry, &status);
    if (!status.ok())
        return -1;
    if (!pumpUntil(retry, [&] { return plugin_connected_replies.count(cookie) != 0; }))
        return -1;
    PluginConnectedReply reply = plugin_connected_replies[cookie];
    plugin_connected_replies.erase(cookie);
    if (errors && reply.errors)
        *errors = gen_strdup(reply.errors->c_str());
    return static_cast<int32_t>(reply.pluginID);
}

int32_t ServiceRouter_Proxy::getPluginIdForService(const char* serviceName, const char* workingDir,
                                                   bool startupIfNotRunning, bool* found,
                                                   RetryHandler* retry) {
    if (found)
        *found = false;
    if (!ensureConnected(retry))
        return -1;
    uint32_t cookie = ++g_pluginCookie;
    STPStatus status;
    RequestPluginIdForService(false, cookie, serviceName, workingDir, startupIfNotRunning, retry,
                              &status);
    if (!status.ok())
        return -1;
    if (!pumpUntil(retry, [&] { return plugin_id_replies.count(cookie) != 0; }))
        return -1;
    PluginIdReply reply = plugin_id_replies[cookie];
    plugin_id_replies.erase(cookie);
    if (found)
        *found = reply.found;
    return reply.found ? static_cast<int32_t>(reply.plugin_id) : -1;
}
