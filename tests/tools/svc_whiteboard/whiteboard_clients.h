// WhiteBoard clients of the tests, in the test's process: a test plug-in connected to a router,
// and WhiteBoard objects on virtual connections of it, each negotiated with the service.
#pragma once

#include "stp_retryhandler.h"
#include "stp_transport.h"
#include "test_plugin.h"
#include "whiteboard.h"

#include <string>
#include <vector>

class WhiteBoardClients {
public:
    static constexpr int32_t kWaitMs = 20000;

    WhiteBoardClients() = default;
    WhiteBoardClients(const WhiteBoardClients&) = delete;
    WhiteBoardClients& operator=(const WhiteBoardClients&) = delete;
    ~WhiteBoardClients() {
        drop();
        if (plugin)
            plugin->release();
    }

    // Connects the plug-in to the router on `port`; its "cwd" is `cwd`, sent with every
    // connection request as the router client of the process does.
    bool open(uint16_t port, const std::string& cwd, std::string* error) {
        plugin = new TestPlugin;
        workingDir = cwd;
        plugin->setValue("cwd", cwd);
        return plugin->connect(port, kWaitMs, error) && plugin->open({}, kWaitMs, error);
    }
    // A new WhiteBoard on a connection to "WhiteBoard", negotiated; null when that failed.
    WhiteBoard* connect() {
        TestPlugin::ConnectionReply reply;
        if (!plugin->requestConnection("WhiteBoard", {"cwd", workingDir}, kWaitMs, &reply) ||
            !reply.wasAccepted)
            return nullptr;
        WhiteBoard* board = new WhiteBoard;
        board->attachTransport(plugin->getTransport(), reply.localRN, reply.serviceRN);
        clients.push_back(board);
        // The service's tables may have come with the router's reply, before anybody took them.
        plugin->getTransport()->redeliverUnclaimed(reply.serviceRN, reply.localRN, KIND_NEGOTIATE);
        TimeoutSTPRetryHandler wait(kWaitMs, plugin->getTransport());
        return board->negotiate(&wait) ? board : nullptr;
    }
    // Asks for the group's values and waits for them (and with them for everything sent
    // before, which the service takes in order).
    bool fetch(WhiteBoard* board, const char* group) {
        TimeoutSTPRetryHandler wait(kWaitMs, plugin->getTransport());
        return board->requestChangesInGroup(group, &wait);
    }
    // Serves the router connection until `done` holds or `timeoutMs` passes.
    bool pumpUntil(const std::function<bool()>& done, int32_t timeoutMs) {
        return plugin->pumpUntil(done, timeoutMs);
    }
    // Leaves every connection.
    void drop() {
        for (WhiteBoard* board : clients) {
            board->dropVirtualConnection();
            board->attachTransport(nullptr);
            board->unref();
        }
        clients.clear();
    }

private:
    TestPlugin* plugin = nullptr;
    std::string workingDir;
    std::vector<WhiteBoard*> clients;
};
