// The plug-in end of cvsvc's router connection: a plug-in that offers no service, asks the
// router for connections to services, and tells the services its working directory when they
// ask for "cwd". Driven step by step from the command, without an event loop of its own.
#pragma once

#include "servicerouter_plugin_impl.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Reference-counted like every message-speaking object: made with new, ended with release(). Every
// wait serves the router connection (running the handlers of this object and of every client object
// attached to the same transport), takes a limit in milliseconds and reports failure as false.
class ClientPlugin : public ServiceRouter_plugin_Impl {
public:
    struct ConnectionReply {
        bool wasFound = false;
        bool wasAccepted = false;
        uint32_t localRN = 0;
        uint32_t serviceRN = 0;
    };

    // `cwd` is the answer to the router's question for "cwd".
    explicit ClientPlugin(std::string cwd);

    // Connects to 127.0.0.1 `port`, negotiates the router protocol and opens as a plug-in with
    // no services: SetWorkingDir, RegisterServiceList, and the wait for the plug-in id. False
    // with the reason in *error.
    bool connect(uint16_t port, int32_t timeoutMs, std::string* error);
    // RequestServiceConnection for `serviceName` and the wait for its reply (by cookie).
    bool requestConnection(const std::string& serviceName, int32_t timeoutMs,
                           ConnectionReply* reply);
    // Serves the connection until `done` holds (true) or `timeoutMs` has passed (false).
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs);
    // RequestServiceRouterDisconnect and the wait for the router to close the connection.
    bool disconnect(int32_t timeoutMs);
    // Closes the socket and drops the creator's reference.
    void release();
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
    ~ClientPlugin() override = default;

private:
    static constexpr uint32_t kNoId = 0xffffffffu;
    std::string cwd;
    uint32_t pluginId = kNoId;
    uint32_t nextCookie = 1;
    struct Reply {
        uint32_t cookie;
        ConnectionReply reply;
    };
    std::vector<Reply> replies;
};
