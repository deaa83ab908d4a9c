// A plug-in for tests and benchmarks.
#include "test_plugin.h"

#include "plat_files.h"
#include "plat_time.h"
#include "stp_transport.h"

#include <algorithm>

namespace {
const char* text(const char* s) {
    return s ? s : "";
}

// The strings of `words` as the generated stubs take a list; valid while `words` lives.
struct WordList {
    explicit WordList(const std::vector<std::string>& words) {
        for (const std::string& w : words)
            pointers.push_back(const_cast<char*>(w.c_str()));
        list.count = static_cast<int32_t>(pointers.size());
        list.data = pointers.empty() ? nullptr : pointers.data();
    }
    std::vector<char*> pointers;
    StringList list;
};
} // namespace

// ---- PluginGroup ----------------------------------------------------------------------------

void PluginGroup::add(TestPlugin* plugin) {
    members.push_back(plugin);
}

void PluginGroup::remove(TestPlugin* plugin) {
    std::erase(members, plugin);
}

bool PluginGroup::pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
    int32_t start = plat_tick_count();
    for (;;) {
        if (done())
            return true;
        if (plat_tick_diff(plat_tick_count(), start) >= timeoutMs)
            return false;
        std::vector<STPTransport*> live;
        for (TestPlugin* member : members)
            if (member->getTransport() && member->getTransport()->isBound())
                live.push_back(member->getTransport());
        if (live.empty())
            return done();
        for (STPTransport* t : live)
            t->ref();
        STPTransport::serviceFirst(20, live);
        for (STPTransport* t : live)
            t->unref();
    }
}

// ---- TestPlugin -----------------------------------------------------------------------------

TestPlugin::TestPlugin(PluginGroup* sharedGroup) : group(sharedGroup ? sharedGroup : &ownGroup) {
    group->add(this);
}

TestPlugin::~TestPlugin() {
    group->remove(this);
}

void TestPlugin::release() {
    group->remove(this);
    vanish();
    attachTransport(nullptr);
    unref();
}

bool TestPlugin::isClosed() const {
    return getTransport() == nullptr || getTransport()->isDisconnected();
}

void TestPlugin::vanish() {
    if (getTransport())
        getTransport()->closeConnection();
}

bool TestPlugin::pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
    return group->pumpUntil(done, timeoutMs);
}

bool TestPlugin::connect(uint16_t port, int32_t timeoutMs, std::string* error) {
    STPTransport* transport = new STPTransport;
    STPStatus status;
    if (!transport->connect("127.0.0.1", port, &status)) {
        *error = std::string("cannot connect to the router: ") + text(status.message);
        transport->unref();
        return false;
    }
    bool attached = attach(transport, timeoutMs, error);
    transport->unref();
    return attached;
}

bool TestPlugin::attach(STPTransport* transport, int32_t timeoutMs, std::string* error) {
    // The plug-in's end of its router connection is 2, the router's 1.
    attachTransport(transport, 2, 1);
    STPStatus status;
    if (!sendNegotiate(true, nullptr, &status)) {
        *error = std::string("cannot send the negotiation packet: ") + text(status.message);
        return false;
    }
    if (!pumpUntil([&] { return hasNegotiated() || isClosed(); }, timeoutMs) || !hasNegotiated()) {
        *error = isClosed() ? "the router closed the connection during negotiation"
                            : "no negotiation from the router in time";
        return false;
    }
    return true;
}

bool TestPlugin::open(const std::vector<std::string>& services, int32_t timeoutMs,
                      std::string* error) {
    char cwd[4096] = "";
    plat_getcwd(cwd, sizeof cwd);
    STPStatus status;
    WordList names(services);
    if (!SetWorkingDir(false, cwd, nullptr, &status) ||
        !RegisterServiceList(false, names.list, nullptr, &status)) {
        *error = std::string("cannot send the opening messages: ") + text(status.message);
        return false;
    }
    size_t blocksBefore = blocks;
    bool done = pumpUntil(
        [&] {
            return isClosed() ||
                   (pluginId != 0xffffffffu && (services.empty() || blocks > blocksBefore));
        },
        timeoutMs);
    if (!done || isClosed()) {
        *error = isClosed() ? "the router closed the connection" : "no plug-in id in time";
        return false;
    }
    if (serviceRNs.size() < services.size()) {
        *error = "the router gave no route numbers for the services";
        return false;
    }
    return true;
}

bool TestPlugin::requestConnection(const std::string& serviceName,
                                   const std::vector<std::string>& pairs, int32_t timeoutMs,
                                   ConnectionReply* reply, uint32_t providingPluginId) {
    uint32_t cookie = nextCookie++;
    WordList list(pairs);
    if (!RequestServiceConnection(false, serviceName.c_str(), providingPluginId, list.list, nullptr,
                                  false, cookie, false, false))
        return false;
    return awaitReply(serviceName, cookie, timeoutMs, reply);
}

bool TestPlugin::awaitReply(const std::string& serviceName, uint32_t cookie, int32_t timeoutMs,
                            ConnectionReply* reply) {
    auto match = [&](const ConnectionReply& r) {
        return r.clientCookie == cookie && r.serviceName == serviceName;
    };
    if (!pumpUntil([&] { return std::any_of(replies.begin(), replies.end(), match); }, timeoutMs))
        return false;
    auto it = std::find_if(replies.begin(), replies.end(), match);
    *reply = *it;
    replies.erase(it);
    return true;
}

bool TestPlugin::requestValue(uint32_t id, const std::string& name, int32_t timeoutMs,
                              ValueReply* reply) {
    if (!RequestValueOfNameOnPlugin(false, id, name.c_str()))
        return false;
    auto match = [&](const ValueReply& r) { return r.pluginId == id && r.name == name; };
    if (!pumpUntil([&] { return std::any_of(valueReplies.begin(), valueReplies.end(), match); },
                   timeoutMs))
        return false;
    auto it = std::find_if(valueReplies.begin(), valueReplies.end(), match);
    *reply = *it;
    valueReplies.erase(it);
    return true;
}

bool TestPlugin::requestLocation(int32_t timeoutMs, std::string* host, uint32_t* port) {
    hasLocation = false;
    if (!RequestLocation(false) || !pumpUntil([&] { return hasLocation; }, timeoutMs))
        return false;
    *host = locationHost;
    *port = locationPort;
    return true;
}

bool TestPlugin::disconnect(int32_t timeoutMs) {
    if (!RequestServiceRouterDisconnect(true))
        return false;
    return awaitClosed(timeoutMs);
}

bool TestPlugin::awaitClosed(int32_t timeoutMs) {
    return pumpUntil([&] { return isClosed(); }, timeoutMs);
}

void TestPlugin::LocationEvent(const char* hostname, uint32_t port) {
    hasLocation = true;
    locationHost = text(hostname);
    locationPort = port;
}

void TestPlugin::PluginId(uint32_t plugin_id) {
    pluginId = plugin_id;
    getTransport()->setOriginId(static_cast<uint16_t>(plugin_id & 0xffff));
}

void TestPlugin::ConnectionRequestedEvent(uint32_t requesting_plugin_id, uint32_t serviceRN,
                                          uint32_t remoteRN, const StringList& name_value_pairs) {
    ConnectionRequest request{requesting_plugin_id, serviceRN, remoteRN, {}};
    for (int32_t i = 0; i < stp_count(name_value_pairs.data, name_value_pairs.count); ++i)
        request.nameValuePairs.push_back(text(name_value_pairs.data[i]));
    requests.push_back(request);
    if (answerWith != Answer::ignore)
        ConnectionAcceptedEvent(false, serviceRN, remoteRN, answerWith == Answer::accept);
}

void TestPlugin::ConnectionDroppedEvent(uint32_t serviceRN, uint32_t remoteRN) {
    drops.emplace_back(serviceRN, remoteRN);
}

void TestPlugin::ConnectionReplyEvent(const char* serviceName, uint32_t localRN, bool wasFound,
                                      bool, bool wasAccepted, uint32_t serviceRN,
                                      uint32_t plugin_id, const char*, uint32_t client_cookie) {
    replies.push_back(ConnectionReply{text(serviceName), localRN, wasFound, wasAccepted, serviceRN,
                                      plugin_id, client_cookie});
}

void TestPlugin::PluginIdForServiceReplyEvent(uint32_t, const char*, uint32_t, bool) {}

void TestPlugin::RNBlockReservedEvent(const RNList& rn_list) {
    ++blocks;
    for (int32_t i = 0; i < stp_count(rn_list.data, rn_list.count); ++i)
        serviceRNs.push_back(rn_list.data[i]);
}

void TestPlugin::PluginConnectedEvent(uint32_t, uint32_t, const char*) {}

void TestPlugin::ForwardedRequestValueOfNameOnPlugin(uint32_t requesting_plugin_id,
                                                     uint32_t my_plugin_id, const char* name) {
    auto it = values.find(text(name));
    ValueOfNameOnPluginResponseEvent(false, requesting_plugin_id, my_plugin_id, name,
                                     it == values.end() ? nullptr : it->second.c_str());
}

void TestPlugin::ValueOfNameOnPluginEvent(uint32_t plugin_id, const char* name, const char* value) {
    valueReplies.push_back(ValueReply{plugin_id, text(name), value != nullptr, text(value)});
}

void TestPlugin::StartPlugin(const StringList&, uint32_t, const char*) {}

void TestPlugin::StartLogging() {}
