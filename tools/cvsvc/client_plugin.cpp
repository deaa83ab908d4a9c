#include "client_plugin.h"

#include "plat_time.h"
#include "stp_transport.h"

#include <algorithm>

namespace {
const char* text(const char* s) {
    return s ? s : "";
}
} // namespace

ClientPlugin::ClientPlugin(std::string cwd) : cwd(std::move(cwd)) {}

bool ClientPlugin::isClosed() const {
    return getTransport() == nullptr || getTransport()->isDisconnected();
}

void ClientPlugin::release() {
    if (getTransport())
        getTransport()->closeConnection();
    attachTransport(nullptr);
    unref();
}

bool ClientPlugin::pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
    int32_t start = plat_tick_count();
    for (;;) {
        if (done())
            return true;
        if (plat_tick_diff(plat_tick_count(), start) >= timeoutMs || isClosed())
            return done();
        STPTransport* transport = getTransport();
        transport->ref(); // a handler may drop the connection while it is served
        STPTransport::serviceFirst(20, {transport});
        transport->unref();
    }
}

bool ClientPlugin::connect(uint16_t port, int32_t timeoutMs, std::string* error) {
    STPTransport* transport = new STPTransport;
    STPStatus status;
    bool connected = transport->connect("127.0.0.1", port, &status);
    if (connected)
        attachTransport(transport, 2, 1); // the plug-in's end is 2, the router's 1
    transport->unref();
    if (!connected) {
        *error = std::string("cannot connect: ") + text(status.message);
        return false;
    }
    if (!sendNegotiate(true, nullptr, &status) ||
        !pumpUntil([&] { return hasNegotiated(); }, timeoutMs)) {
        *error = "the router did not negotiate its protocol";
        return false;
    }
    StringList none{};
    if (!SetWorkingDir(false, cwd.c_str(), nullptr, &status) ||
        !RegisterServiceList(false, none, nullptr, &status) ||
        !pumpUntil([&] { return pluginId != kNoId; }, timeoutMs)) {
        *error = "the router gave no plug-in id";
        return false;
    }
    return true;
}

bool ClientPlugin::requestConnection(const std::string& serviceName, int32_t timeoutMs,
                                     ConnectionReply* reply) {
    uint32_t cookie = nextCookie++;
    StringList none{};
    if (!RequestServiceConnection(false, serviceName.c_str(), kNoId, none, nullptr, false, cookie,
                                  false, false))
        return false;
    auto match = [&](const Reply& r) { return r.cookie == cookie; };
    if (!pumpUntil([&] { return std::any_of(replies.begin(), replies.end(), match); }, timeoutMs))
        return false;
    auto it = std::find_if(replies.begin(), replies.end(), match);
    *reply = it->reply;
    replies.erase(it);
    return true;
}

bool ClientPlugin::disconnect(int32_t timeoutMs) {
    return RequestServiceRouterDisconnect(true) && pumpUntil([&] { return isClosed(); }, timeoutMs);
}

void ClientPlugin::PluginId(uint32_t plugin_id) {
    pluginId = plugin_id;
    getTransport()->setOriginId(static_cast<uint16_t>(plugin_id & 0xffff));
}

void ClientPlugin::ConnectionRequestedEvent(uint32_t, uint32_t serviceRN, uint32_t remoteRN,
                                            const StringList&) {
    // This plug-in offers nothing.
    ConnectionAcceptedEvent(false, serviceRN, remoteRN, false);
}

void ClientPlugin::ConnectionReplyEvent(const char*, uint32_t localRN, bool wasFound, bool,
                                        bool wasAccepted, uint32_t serviceRN, uint32_t, const char*,
                                        uint32_t client_cookie) {
    replies.push_back({client_cookie, {wasFound, wasAccepted, localRN, serviceRN}});
}

void ClientPlugin::ForwardedRequestValueOfNameOnPlugin(uint32_t requesting_plugin_id,
                                                       uint32_t my_plugin_id, const char* name) {
    bool isCwd = std::string(text(name)) == "cwd";
    ValueOfNameOnPluginResponseEvent(false, requesting_plugin_id, my_plugin_id, name,
                                     isCwd ? cwd.c_str() : nullptr);
}

// Nothing else that the router may send concerns a client.
void ClientPlugin::LocationEvent(const char*, uint32_t) {}
void ClientPlugin::ConnectionDroppedEvent(uint32_t, uint32_t) {}
void ClientPlugin::PluginIdForServiceReplyEvent(uint32_t, const char*, uint32_t, bool) {}
void ClientPlugin::RNBlockReservedEvent(const RNList&) {}
void ClientPlugin::PluginConnectedEvent(uint32_t, uint32_t, const char*) {}
void ClientPlugin::ValueOfNameOnPluginEvent(uint32_t, const char*, const char*) {}
void ClientPlugin::StartPlugin(const StringList&, uint32_t, const char*) {}
void ClientPlugin::StartLogging() {}
