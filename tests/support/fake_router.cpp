#include "fake_router.h"

#include "plat_time.h"
#include "stp_transport.h"

void RecordingLog::endRecord(STPSpecClass*, bool) {
    while (!current.empty() && current.back() == '\n')
        current.pop_back();
    records.push_back(current);
    current.clear();
}

FakeRouter::FakeRouter() {
    setRecvLog(&log);
}

FakeRouter::~FakeRouter() {
    if (listening)
        listening->unref();
}

bool FakeRouter::listen() {
    listenFD = STPTransport::getEphemeralListenSocket(&listenPort);
    if (listenFD == PLAT_INVALID_SOCKET)
        return false;
    listening = new STPTransport();
    return listening->startListenOnFD(listenFD);
}

bool FakeRouter::accept(int timeoutMs) {
    int32_t deadline = plat_tick_add(plat_tick_count(), timeoutMs);
    while (plat_tick_diff(plat_tick_count(), deadline) < 0) {
        listening->serviceOnce(20);
        STPStatus status;
        if (listening->tryAccept(true, &status)) {
            attachTransport(listening, 1, 2);
            return true;
        }
        if (!status.ok())
            return false;
    }
    return false;
}

bool FakeRouter::pumpUntil(const std::function<bool()>& done, int timeoutMs,
                           const std::vector<STPTransport*>& others) {
    int32_t deadline = plat_tick_add(plat_tick_count(), timeoutMs);
    for (;;) {
        if (done())
            return true;
        if (plat_tick_diff(plat_tick_count(), deadline) >= 0)
            return false;
        if (transport && !transport->isDisconnected())
            transport->serviceOnce(5);
        for (STPTransport* other : others)
            if (!other->isDisconnected())
                other->serviceOnce(5);
        if ((!transport || transport->isDisconnected()) && others.empty())
            plat_sleep_ms(5);
    }
}

bool FakeRouter::waitForRecords(size_t count, int timeoutMs,
                                const std::vector<STPTransport*>& others) {
    return pumpUntil([&] { return log.records.size() >= count; }, timeoutMs, others);
}

std::vector<std::string> FakeRouter::recordsOf(const std::string& name) const {
    std::vector<std::string> out;
    std::string prefix = "RECV: " + name + ":";
    for (const std::string& record : log.records)
        if (record.rfind(prefix, 0) == 0)
            out.push_back(record);
    return out;
}

void FakeRouter::seen(const char* name) {
    if (onMessage)
        onMessage(name);
}

void FakeRouter::ConnectionAcceptedEvent(uint32_t, uint32_t, bool) {
    seen("ConnectionAcceptedEvent");
}
void FakeRouter::DebugPlugin(const char*, bool, const char*, const char*) {
    seen("DebugPlugin");
}
void FakeRouter::DropServiceConnection(uint32_t, uint32_t) {
    seen("DropServiceConnection");
}
void FakeRouter::LogMessageEvent(const char*) {
    seen("LogMessageEvent");
}
void FakeRouter::NumPersistentServices(uint32_t* num_persistent, uint32_t* num_total) {
    *num_persistent = 1;
    *num_total = 2;
    seen("NumPersistentServices");
}
void FakeRouter::PersistentService(bool) {
    seen("PersistentService");
}
void FakeRouter::RegisterServiceList(const StringList&) {
    seen("RegisterServiceList");
}
void FakeRouter::ReleaseRN(uint32_t) {
    seen("ReleaseRN");
}
void FakeRouter::RequestLocation() {
    seen("RequestLocation");
}
void FakeRouter::RequestPluginConnect(const char*, uint32_t, uint32_t cookie) {
    lastClientCookie = cookie;
    seen("RequestPluginConnect");
}
void FakeRouter::RequestPluginIdForService(uint32_t cookie, const char* serviceName, const char*,
                                           bool) {
    lastClientCookie = cookie;
    lastServiceName = serviceName ? serviceName : "";
    seen("RequestPluginIdForService");
}
void FakeRouter::RequestPluginLaunch(const StringList&, uint32_t cookie, bool, const char*) {
    lastClientCookie = cookie;
    seen("RequestPluginLaunch");
}
void FakeRouter::RequestServiceConnection(const char* serviceName, uint32_t, const StringList&,
                                          const char*, bool, uint32_t client_cookie, bool, bool) {
    lastClientCookie = client_cookie;
    lastServiceName = serviceName ? serviceName : "";
    seen("RequestServiceConnection");
}
void FakeRouter::RequestServiceRouterDisconnect() {
    seen("RequestServiceRouterDisconnect");
}
void FakeRouter::RequestValueOfNameOnPlugin(uint32_t plugin_id, const char* name) {
    lastValuePluginId = plugin_id;
    lastValueName = name ? name : "";
    seen("RequestValueOfNameOnPlugin");
}
void FakeRouter::ReserveRNBlock(uint32_t) {
    seen("ReserveRNBlock");
}
void FakeRouter::SetEnvironmentVariable(const char*, const char*) {
    seen("SetEnvironmentVariable");
}
void FakeRouter::SetWorkingDir(const char*) {
    seen("SetWorkingDir");
}
void FakeRouter::StartPluginEvent(uint32_t, bool, const char*) {
    seen("StartPluginEvent");
}
void FakeRouter::UnregisterService(uint32_t) {
    seen("UnregisterService");
}
void FakeRouter::ValueOfNameOnPluginResponseEvent(uint32_t, uint32_t, const char*, const char*) {
    seen("ValueOfNameOnPluginResponseEvent");
}

void PumpingRetryHandler::wait() {
    for (STPTransport* t : transports)
        if (!t->isDisconnected())
            t->serviceOnce(5);
    if (step)
        step();
}

EmptySpec::EmptySpec(const char* protocol, const char* role, int* liveCount) : live(liveCount) {
    setProtocol(protocol, role, "1", 0);
    setTables(nullptr, 0, nullptr, 0, nullptr, 0);
    if (live)
        ++*live;
}

EmptySpec::~EmptySpec() {
    if (live)
        --*live;
}
