// Test support: a scripted router end of the router protocol over a real loopback socket, that
// records every message the plug-in sends as the generated "RECV:" line, and helpers that turn
// transports until something has happened or a deadline has passed.
#pragma once

#include "plat_socket.h"
#include "servicerouter_router_impl.h"
#include "stp_log.h"
#include "ut_retryhandler.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class STPTransport;

// Collects whole records, each without its final newline.
class RecordingLog : public STPLog {
public:
    void write(const char* data, size_t length) override { current.append(data, length); }
    void beginRecord(STPSpecClass*, bool) override { current.clear(); }
    void endRecord(STPSpecClass*, bool) override;

    std::vector<std::string> records;

private:
    std::string current;
};

// The router end of one plug-in connection (route numbers 1 and 2). Handlers record the values
// the scripts need and run `onMessage` with the message name, if set.
class FakeRouter : public ServiceRouter_router_Impl {
public:
    FakeRouter();

    // Listens on 127.0.0.1, port chosen by the system.
    bool listen();
    uint16_t port() const { return listenPort; }
    // Waits up to `timeoutMs` for the plug-in to connect, then attaches to it.
    bool accept(int timeoutMs);
    STPTransport* routerTransport() const { return transport; }

    // Turns the router transport (and `others`) until `done` holds; false at the deadline.
    bool pumpUntil(const std::function<bool()>& done, int timeoutMs = 5000,
                   const std::vector<STPTransport*>& others = {});
    // Waits until `count` records have arrived.
    bool waitForRecords(size_t count, int timeoutMs = 5000,
                        const std::vector<STPTransport*>& others = {});
    // The records that begin "RECV: <name>:".
    std::vector<std::string> recordsOf(const std::string& name) const;

    RecordingLog log;
    std::function<void(const std::string& name)> onMessage;
    uint32_t lastClientCookie = 0;
    std::string lastServiceName;
    uint32_t lastValuePluginId = 0;
    std::string lastValueName;

    void ConnectionAcceptedEvent(uint32_t serviceRN, uint32_t remoteRN, bool accept) override;
    void DebugPlugin(const char* plugin_name, bool do_debug, const char* debugger,
                     const char* debugger_opts) override;
    void DropServiceConnection(uint32_t localRN, uint32_t serviceRN) override;
    void LogMessageEvent(const char* message) override;
    void NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total) override;
    void PersistentService(bool persistent) override;
    void RegisterServiceList(const StringList& name_list) override;
    void ReleaseRN(uint32_t rn) override;
    void RequestLocation() override;
    void RequestPluginConnect(const char* host, uint32_t port, uint32_t cookie) override;
    void RequestPluginIdForService(uint32_t cookie, const char* serviceName,
                                   const char* working_dir, bool startup_if_not_running) override;
    void RequestPluginLaunch(const StringList& argv, uint32_t cookie, bool client_start,
                             const char* working_dir) override;
    void RequestServiceConnection(const char* serviceName, uint32_t providingPluginID,
                                  const StringList& name_value_pairs, const char* working_dir,
                                  bool local_only, uint32_t client_cookie, bool no_reuse,
                                  bool client_start) override;
    void RequestServiceRouterDisconnect() override;
    void RequestValueOfNameOnPlugin(uint32_t plugin_id, const char* name) override;
    void ReserveRNBlock(uint32_t count) override;
    void SetEnvironmentVariable(const char* variable, const char* value) override;
    void SetWorkingDir(const char* working_dir) override;
    void StartPluginEvent(uint32_t cookie, bool success, const char* error_message) override;
    void UnregisterService(uint32_t serviceRN) override;
    void ValueOfNameOnPluginResponseEvent(uint32_t requesting_plugin_id, uint32_t plugin_id,
                                          const char* name, const char* value) override;

protected:
    ~FakeRouter() override;

private:
    void seen(const char* name);

    plat_socket listenFD = PLAT_INVALID_SOCKET;
    uint16_t listenPort = 0;
    STPTransport* listening = nullptr;
};

// A spec class with empty tables: enough to stand at either end of a virtual connection and
// negotiate. `live` (may be null) counts the objects alive.
class EmptySpec : public STPSpecClass {
public:
    EmptySpec(const char* protocol, const char* role, int* live = nullptr);
    uint32_t defaultLocalRN() override { return 1; }
    uint32_t defaultRemoteRN() override { return 2; }

protected:
    ~EmptySpec() override;

private:
    int* live;
};

// A retry handler for waits of the code under test in this same thread: each wait turns the
// given transports for a few milliseconds and runs `step`; it gives up after `timeoutMs`.
class PumpingRetryHandler : public RetryHandler {
public:
    PumpingRetryHandler(std::vector<STPTransport*> transports, int32_t timeoutMs = 5000)
        : RetryHandler(kExactBase + timeoutMs), transports(std::move(transports)) {}
    void wait() override;

    std::vector<STPTransport*> transports;
    std::function<void()> step;
};
