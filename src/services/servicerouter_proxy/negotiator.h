// Negotiator: finishes the protocol negotiation of new server-side connections inside the event
// loop, so that the handler that accepted a connection need not wait for the client.
#pragma once

#include "ut_idle.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class ServiceFactory;
class ServiceRouter_Proxy;
class STPSpecClass;

// An Idler of the IdleNotifier while it has entries. Each entry holds the reference on its
// object that the connection handler handed over; the entry gives it back when it is done.
class Negotiator : public Idler {
public:
    explicit Negotiator(ServiceRouter_Proxy* proxy);
    // Leaves the notifier; entries still waiting lose their references.
    ~Negotiator() override;
    Negotiator(const Negotiator&) = delete;
    Negotiator& operator=(const Negotiator&) = delete;

    // Takes over one reference on `spec`, sends its negotiate packet (queued, not written) and
    // watches it. Registers with the notifier when it had nothing to watch.
    void add(STPSpecClass* spec, int32_t pluginId, ServiceFactory* factory);

    // Moves each entry whose negotiation has ended (or whose connection went down) from the
    // proxy's pending connections to its connections, tells the factory, and drops the entry.
    // Unregisters once nothing is left. Re-enters only through what the factory does.
    void idle(IdleNotifier* notifier) override;
    bool hasUrgentWork() override { return false; }

    size_t waitingCount() const { return entries.size(); }

private:
    struct Entry {
        STPSpecClass* spec;
        int32_t plugin_id;
        ServiceFactory* factory;
    };
    ServiceRouter_Proxy* proxy;
    std::vector<Entry> entries;
    bool registered = false;
};
