// A plug-in for tests and benchmarks: the plug-in end of the router protocol, driven step by
// step, recording everything the router sends. Not the process's router client: it has no
// factories and no event loop, and it lets a test do what a real plug-in never would (vanish
// mid-way, refuse a connection, ask for names that do not exist).
#pragma once

#include "servicerouter_plugin_impl.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

class TestPlugin;

// Plug-ins of one process that must keep being served while any of them waits: a wait turns
// the sockets of all of them, so that one can answer what another asked the router for.
class PluginGroup {
public:
    void add(TestPlugin* plugin);
    void remove(TestPlugin* plugin);
    // Services every member's connection until `done` holds (true) or `timeoutMs` has passed
    // (false). Handlers of any member may run inside it.
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs);

private:
    std::vector<TestPlugin*> members;
};

// Reference-counted like every spec class: made with new, ended with release(). Every wait
// takes a limit in milliseconds and reports failure as false, with the reason in *error where
// there is one. Handlers only record and, for connection requests and value requests, answer at
// once without waiting.
class TestPlugin : public ServiceRouter_plugin_Impl {
public:
    // What to answer a ConnectionRequestedEvent with.
    enum class Answer { accept, refuse, ignore };

    struct ConnectionReply {
        std::string serviceName;
        uint32_t localRN = 0;
        bool wasFound = false;
        bool wasAccepted = false;
        uint32_t serviceRN = 0;
        uint32_t pluginId = 0;
        uint32_t clientCookie = 0;
    };
    struct ConnectionRequest {
        uint32_t requestingPluginId = 0;
        uint32_t serviceRN = 0;
        uint32_t remoteRN = 0;
        std::vector<std::string> nameValuePairs;
    };
    struct ValueReply {
        uint32_t pluginId = 0;
        std::string name;
        bool present = false; // false: the value came absent
        std::string value;
    };

    // Joins `group` (not owned; null for a group of its own) for the life of the object.
    explicit TestPlugin(PluginGroup* group = nullptr);

    // Connects to 127.0.0.1 `port` and negotiates the router protocol.
    bool connect(uint16_t port, int32_t timeoutMs, std::string* error);
    // Negotiates the router protocol on `transport`, already connected (referenced here): for
    // a router that calls its launcher back.
    bool attach(STPTransport* transport, int32_t timeoutMs, std::string* error);
    // The opening of a plug-in: SetWorkingDir, RegisterServiceList with `services`, and the
    // wait for the plug-in id and, with services, for the router's block of route numbers
    // (false when it came without numbers for them all).
    bool open(const std::vector<std::string>& services, int32_t timeoutMs, std::string* error);
    // RequestServiceConnection and the wait for its reply (matched by cookie).
    bool requestConnection(const std::string& serviceName, const std::vector<std::string>& pairs,
                           int32_t timeoutMs, ConnectionReply* reply,
                           uint32_t providingPluginId = 0xffffffffu);
    // Waits for the reply to a RequestServiceConnection sent with `cookie`.
    bool awaitReply(const std::string& serviceName, uint32_t cookie, int32_t timeoutMs,
                    ConnectionReply* reply);
    // RequestValueOfNameOnPlugin and the wait for its answer.
    bool requestValue(uint32_t pluginId, const std::string& name, int32_t timeoutMs,
                      ValueReply* reply);
    // RequestLocation and the wait for LocationEvent.
    bool requestLocation(int32_t timeoutMs, std::string* host, uint32_t* port);
    // RequestServiceRouterDisconnect and the wait for the router to close the connection.
    bool disconnect(int32_t timeoutMs);
    // Waits until the router has closed the connection.
    bool awaitClosed(int32_t timeoutMs);
    // Services the group until `done` holds.
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs);
    // Closes the socket at once, as a process that dies does.
    void vanish();
    // Leaves the group, closes the socket and drops the creator's reference.
    void release();

    void setAnswer(Answer answer) { answerWith = answer; }
    // The value this plug-in gives for `name` when another plug-in asks.
    void setValue(const std::string& name, const std::string& value) { values[name] = value; }
    uint32_t getPluginId() const { return pluginId; }
    const std::vector<uint32_t>& getServiceRNs() const { return serviceRNs; }
    const std::vector<ConnectionRequest>& getRequests() const { return requests; }
    // (serviceRN, remoteRN) of every ConnectionDroppedEvent, in order.
    const std::vector<std::pair<uint32_t, uint32_t>>& getDrops() const { return drops; }
    bool isClosed() const;

    // ---- Handlers ----
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
    void StartPlugin(const StringList& args, uint32_t cookie, const char* working_dir) override;
    void StartLogging() override;

protected:
    ~TestPlugin() override;

private:
    PluginGroup ownGroup;
    PluginGroup* group;
    Answer answerWith = Answer::accept;
    uint32_t pluginId = 0xffffffffu;
    uint32_t nextCookie = 1;
    std::vector<uint32_t> serviceRNs;
    size_t blocks = 0; // RNBlockReservedEvents received
    std::vector<ConnectionRequest> requests;
    std::vector<ConnectionReply> replies;
    std::vector<std::pair<uint32_t, uint32_t>> drops;
    std::vector<ValueReply> valueReplies;
    std::map<std::string, std::string> values;
    bool hasLocation = false;
    std::string locationHost;
    uint32_t locationPort = 0;
};
