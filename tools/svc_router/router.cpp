// The router: plug-ins, route numbers, services, virtual connections and the relay.
#include "router.h"

#include "plat_time.h"
#include "plugin_connection.h"
#include "stp_log.h"
#include "stp_transport.h"

#include <cstdarg>
#include <vector>

namespace {
const char* text(const char* s) {
    return s ? s : "";
}
// The host told in LocationEvent: this router listens on the loopback address only.
constexpr const char* kRouterHost = "127.0.0.1";
// The numbers of every plug-in's own connection to the router: the plug-in's end and ours.
constexpr uint32_t kPluginRN = 2;
constexpr uint32_t kRouterRN = 1;

// A message the router sends to one plug-in because of a message of another belongs to that
// message's call tree: it carries its origin and stands one level below it. A plug-in that waits
// strictly for the reply of the call that led here then handles it at once; with a stamp of the
// router's own it would hold it back until the wait ended, which needs this very message.
class InCallTreeOf {
public:
    InCallTreeOf(PluginConnection* from, PluginConnection* to) : to_(to->getTransport()) {
        STPStamp stamp = from->getTransport()->currentStamp();
        to_->ref();
        to_->pushStamp(uint32_t{stamp.originId} << 16 | stamp.originSeq, stamp.depth, stamp.flags);
    }
    ~InCallTreeOf() {
        to_->popStamp();
        to_->unref();
    }
    InCallTreeOf(const InCallTreeOf&) = delete;
    InCallTreeOf& operator=(const InCallTreeOf&) = delete;

private:
    STPTransport* to_;
};
} // namespace

Router::Router(STPLog* log) : log(log) {}

Router::~Router() {
    for (auto& [id, plugin] : plugins)
        plugin->release();
    plugins.clear();
}

uint32_t Router::adopt(STPTransport* transport, const char* origin) {
    uint32_t id = nextPluginId++;
    PluginConnection* plugin = new PluginConnection(this, id, transport);
    transport->unref(); // the connection holds its own reference now
    plugins[id] = plugin;
    served = true;
    logEvent("plug-in %u connected (%s)", id, text(origin));
    return id;
}

PluginConnection* Router::find(uint32_t pluginId) const {
    auto it = plugins.find(pluginId);
    if (it == plugins.end() || it->second->isGone())
        return nullptr;
    return it->second;
}

STPForwarder::Route Router::route(PluginConnection* from, uint32_t localRN, uint32_t remoteRN,
                                  STPTransport** target) {
    uint32_t id = from->getPluginId();
    if (localRN == kPluginRN && remoteRN == kRouterRN)
        return STPForwarder::Route::handle;
    const VirtualConnection* c = connections.findFromEnd(id, localRN, remoteRN);
    PluginConnection* other = nullptr;
    if (c && c->accepted)
        other = find(c->clientPlugin == id && c->clientRN == localRN ? c->providerPlugin
                                                                     : c->clientPlugin);
    if (other == nullptr) {
        logEvent("plug-in %u: packet %u-%u on no open connection of its own, dropped", id, localRN,
                 remoteRN);
        return STPForwarder::Route::drop;
    }
    *target = other->getTransport();
    return STPForwarder::Route::forward;
}

void Router::logEvent(const char* format, ...) {
    if (log == nullptr)
        return;
    log->beginRecord(nullptr, false);
    va_list args;
    va_start(args, format);
    log->vprintf(format, args);
    va_end(args);
    log->print("\n");
    log->endRecord(nullptr, false);
}

void Router::flushWrites() {
    for (auto& [id, plugin] : plugins) {
        STPTransport* transport = plugin->getTransport();
        if (transport && transport->hasPendingWrite())
            transport->handleWrite();
    }
}

void Router::sweep() {
    expireHeld();
    flushWrites();
    int32_t now = plat_tick_count();
    std::vector<PluginConnection*> gone;
    for (auto& [id, plugin] : plugins) {
        STPTransport* transport = plugin->getTransport();
        if (!plugin->isGone() && plugin->wantsClose() && !transport->hasWriteBytes()) {
            logEvent("plug-in %u: closing its connection as it asked", id);
            plugin->close();
        } else if (!plugin->isGone() && !plugin->hasNegotiated() &&
                   plat_tick_diff(now, plugin->getStartTick()) > kNegotiateDeadlineMs) {
            logEvent("plug-in %u: no negotiation within %d ms, closing", id, kNegotiateDeadlineMs);
            plugin->close();
        }
        if (plugin->isGone())
            gone.push_back(plugin);
    }
    for (PluginConnection* plugin : gone)
        pluginGone(plugin);
    if (!gone.empty())
        flushWrites();
}

void Router::pluginGone(PluginConnection* plugin) {
    uint32_t id = plugin->getPluginId();
    const STPStatus& status = plugin->getTransport()->getStatus();
    logEvent("plug-in %u has gone%s%s", id, status.message && *status.message ? ": " : "",
             text(status.message));
    plugins.erase(id);
    held.dropOf(id);
    for (const VirtualConnection& c : connections.takeAllOf(id)) {
        if (c.clientPlugin == id && c.providerPlugin == id)
            continue;
        if (!c.accepted) {
            if (c.clientPlugin != id) { // the provider went before it answered
                routeNumbers.release(c.clientRN, c.clientPlugin);
                refuse(c);
            }
            continue; // a provider that accepts later is told then that the client went
        }
        bool clientGone = c.clientPlugin == id;
        PluginConnection* other = find(clientGone ? c.providerPlugin : c.clientPlugin);
        if (other == nullptr)
            continue;
        logEvent("connection %u-%u of \"%s\" dropped: plug-in %u has gone", c.serviceRN, c.clientRN,
                 c.serviceName.c_str(), id);
        if (clientGone)
            other->ConnectionDroppedEvent(false, c.serviceRN, c.clientRN);
        else
            other->ConnectionDroppedEvent(false, c.clientRN, c.serviceRN);
    }
    size_t services = registry.removeAllOf(id);
    size_t numbers = routeNumbers.releaseAll(id);
    // The log's printf engine has no size_t conversion.
    logEvent("plug-in %u: %u services and %u route numbers released", id,
             static_cast<unsigned>(services), static_cast<unsigned>(numbers));
    plugin->release();
}

void Router::registerServices(PluginConnection* from, const StringList& names) {
    uint32_t id = from->getPluginId();
    if (!from->hasSentPluginId()) {
        from->PluginId(false, id);
        from->markPluginIdSent();
    }
    int32_t count = stp_count(names.data, names.count);
    if (count == 0)
        return;
    // The plug-in pairs the numbers of a block with the names it registered, in order.
    std::vector<uint32_t> block = routeNumbers.reserve(id, static_cast<uint32_t>(count));
    if (block.empty()) {
        // An empty block is the answer: the plug-in learns that none is coming and keeps its
        // services unregistered rather than waiting for numbers.
        logEvent("plug-in %u: no route numbers left for %d services; none registered", id, count);
        RNList none{0, nullptr};
        from->RNBlockReservedEvent(false, none);
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        registry.add(text(names.data[i]), id, block[i]);
        logEvent("plug-in %u offers \"%s\" as %u", id, text(names.data[i]), block[i]);
    }
    RNList list{static_cast<int32_t>(block.size()), block.data()};
    from->RNBlockReservedEvent(false, list);
    for (int32_t i = 0; i < count; ++i)
        releaseHeld(text(names.data[i]));
}

void Router::unregisterService(PluginConnection* from, uint32_t serviceRN) {
    const RegisteredService* service = registry.findByRN(serviceRN);
    std::string name = service ? service->name : "";
    if (registry.removeByRN(serviceRN, from->getPluginId()))
        logEvent("plug-in %u withdraws \"%s\" (%u)", from->getPluginId(), name.c_str(), serviceRN);
}

void Router::reserveBlock(PluginConnection* from, uint32_t count) {
    std::vector<uint32_t> block = routeNumbers.reserve(from->getPluginId(), count);
    logEvent("plug-in %u reserves %u route numbers: %u given", from->getPluginId(), count,
             static_cast<unsigned>(block.size()));
    RNList list{static_cast<int32_t>(block.size()), block.data()};
    from->RNBlockReservedEvent(false, list);
}

void Router::releaseRN(PluginConnection* from, uint32_t rn) {
    // A number another plug-in holds, or one already released, changes nothing.
    routeNumbers.release(rn, from->getPluginId());
}

void Router::requestConnection(PluginConnection* from, const char* serviceName,
                               uint32_t providingPluginId, const StringList& nameValuePairs,
                               uint32_t clientCookie) {
    const RegisteredService* service = registry.find(text(serviceName), providingPluginId);
    PluginConnection* provider = service ? find(service->pluginId) : nullptr;
    std::vector<uint32_t> rn;
    if (service == nullptr && providingPluginId == kNoPlugin && pluginStillStarting()) {
        HeldRequest request;
        request.clientPlugin = from->getPluginId();
        request.serviceName = text(serviceName);
        request.clientCookie = clientCookie;
        request.deadlineTick = plat_tick_add(plat_tick_count(), kStartHoldMs);
        for (int32_t i = 0; i < stp_count(nameValuePairs.data, nameValuePairs.count); ++i)
            request.nameValuePairs.push_back(text(nameValuePairs.data[i]));
        held.hold(request);
        logEvent("plug-in %u: \"%s\" is not offered yet; the request waits for the plug-ins "
                 "that are starting",
                 from->getPluginId(), text(serviceName));
        return;
    }
    if (provider)
        rn = routeNumbers.reserve(from->getPluginId(), 1);
    if (rn.empty()) {
        answerNotFound(from, serviceName, clientCookie);
        return;
    }
    VirtualConnection c;
    c.clientPlugin = from->getPluginId();
    c.clientRN = rn[0];
    c.providerPlugin = service->pluginId;
    c.serviceRN = service->serviceRN;
    c.serviceName = text(serviceName);
    c.clientCookie = clientCookie;
    connections.add(c);
    logEvent("connection %u-%u: plug-in %u asks plug-in %u for \"%s\"", c.serviceRN, c.clientRN,
             c.clientPlugin, c.providerPlugin, c.serviceName.c_str());
    provider->ConnectionRequestedEvent(false, c.clientPlugin, c.serviceRN, c.clientRN,
                                       nameValuePairs);
}

void Router::answerNotFound(PluginConnection* from, const char* serviceName,
                            uint32_t clientCookie) {
    logEvent("plug-in %u: no service \"%s\"", from->getPluginId(), text(serviceName));
    from->ConnectionReplyEvent(false, serviceName, 0, false, false, false, 0, kNoPlugin, nullptr,
                               clientCookie);
}

bool Router::pluginStillStarting() const {
    size_t opened = 0;
    for (const auto& [id, plugin] : plugins)
        if (!plugin->isGone() && plugin->hasSentPluginId())
            ++opened;
    return launchedRunning > opened;
}

void Router::releaseHeld(const std::string& name) {
    for (HeldRequest& r : held.takeFor(name)) {
        PluginConnection* client = find(r.clientPlugin);
        if (client == nullptr)
            continue;
        std::vector<char*> words;
        for (std::string& w : r.nameValuePairs)
            words.push_back(w.data());
        StringList pairs{static_cast<int32_t>(words.size()),
                         words.empty() ? nullptr : words.data()};
        requestConnection(client, r.serviceName.c_str(), kNoPlugin, pairs, r.clientCookie);
    }
}

void Router::expireHeld() {
    if (held.size() == 0)
        return;
    std::vector<HeldRequest> due = held.takeDue(plat_tick_count());
    if (!pluginStillStarting())
        for (HeldRequest& r : held.takeAll())
            due.push_back(std::move(r));
    for (const HeldRequest& r : due)
        if (PluginConnection* client = find(r.clientPlugin))
            answerNotFound(client, r.serviceName.c_str(), r.clientCookie);
}

void Router::refuse(const VirtualConnection& c) {
    PluginConnection* client = find(c.clientPlugin);
    if (client == nullptr)
        return;
    client->ConnectionReplyEvent(false, c.serviceName.c_str(), 0, true, false, false, c.serviceRN,
                                 c.providerPlugin, nullptr, c.clientCookie);
}

void Router::connectionAccepted(PluginConnection* from, uint32_t serviceRN, uint32_t clientRN,
                                bool accept) {
    VirtualConnection* c = connections.find(serviceRN, clientRN);
    if (c != nullptr && c->accepted) {
        logEvent("plug-in %u: connection %u-%u: second answer ignored", from->getPluginId(),
                 serviceRN, clientRN);
        return;
    }
    if (c == nullptr || c->providerPlugin != from->getPluginId()) {
        // The client went before the answer came: a provider that took the connection is told
        // at once that it has ended.
        logEvent("plug-in %u: connection %u-%u: answer %s for no request", from->getPluginId(),
                 serviceRN, clientRN, accept ? "accept" : "refuse");
        if (accept)
            from->ConnectionDroppedEvent(false, serviceRN, clientRN);
        return;
    }
    logEvent("plug-in %u: connection %u-%u of \"%s\" %s", from->getPluginId(), serviceRN, clientRN,
             c->serviceName.c_str(), accept ? "accepted" : "refused");
    if (!accept) {
        VirtualConnection refused = *c;
        connections.remove(serviceRN, clientRN);
        routeNumbers.release(refused.clientRN, refused.clientPlugin);
        refuse(refused);
        return;
    }
    c->accepted = true;
    PluginConnection* client = find(c->clientPlugin);
    if (client == nullptr)
        return; // the client's end is cleaned up, and the provider told, in the sweep
    client->ConnectionReplyEvent(false, c->serviceName.c_str(), c->clientRN, true, false, true,
                                 c->serviceRN, c->providerPlugin, nullptr, c->clientCookie);
}

void Router::dropConnection(PluginConnection* from, uint32_t localRN, uint32_t remoteRN) {
    uint32_t id = from->getPluginId();
    VirtualConnection* found = connections.findFromEnd(id, localRN, remoteRN);
    if (found == nullptr) {
        logEvent("plug-in %u drops unknown connection %u-%u", id, localRN, remoteRN);
        return;
    }
    VirtualConnection c = *found;
    connections.remove(c.serviceRN, c.clientRN);
    logEvent("connection %u-%u of \"%s\" dropped by plug-in %u", c.serviceRN, c.clientRN,
             c.serviceName.c_str(), id);
    // Both ends hear of it; the end that dropped it no longer knows the pair and ignores it.
    if (PluginConnection* provider = find(c.providerPlugin))
        provider->ConnectionDroppedEvent(false, c.serviceRN, c.clientRN);
    if (PluginConnection* client = find(c.clientPlugin))
        client->ConnectionDroppedEvent(false, c.clientRN, c.serviceRN);
}

void Router::countServices(uint32_t* numPersistent, uint32_t* numTotal) const {
    std::vector<uint32_t> persistent;
    for (auto& [id, plugin] : plugins)
        if (plugin->isPersistent())
            persistent.push_back(id);
    *numPersistent = static_cast<uint32_t>(registry.countOf(persistent));
    *numTotal = static_cast<uint32_t>(registry.size());
}

void Router::requestLocation(PluginConnection* from) {
    from->LocationEvent(false, kRouterHost, listenPort);
}

void Router::requestValue(PluginConnection* from, uint32_t pluginId, const char* name) {
    PluginConnection* target = find(pluginId);
    if (target == nullptr) {
        // Nobody to ask: the asker gets an absent value rather than waiting for ever.
        from->ValueOfNameOnPluginEvent(false, pluginId, name, nullptr);
        return;
    }
    InCallTreeOf tree(from, target);
    target->ForwardedRequestValueOfNameOnPlugin(false, from->getPluginId(), pluginId, name);
}

void Router::answerValue(PluginConnection* from, uint32_t requestingPluginId, const char* name,
                         const char* value) {
    if (PluginConnection* asker = find(requestingPluginId)) {
        InCallTreeOf tree(from, asker);
        asker->ValueOfNameOnPluginEvent(false, from->getPluginId(), name, value);
    }
}

void Router::requestPluginIdForService(PluginConnection* from, uint32_t cookie,
                                       const char* serviceName) {
    const RegisteredService* service = registry.find(text(serviceName), kNoPlugin);
    from->PluginIdForServiceReplyEvent(false, cookie, serviceName,
                                       service ? service->pluginId : kNoPlugin, service != nullptr);
}
