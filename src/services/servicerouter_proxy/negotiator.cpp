#include "negotiator.h"

#include "service_factory.h"
#include "servicerouter_proxy.h"
#include "stp_specclass.h"

Negotiator::Negotiator(ServiceRouter_Proxy* owner) : proxy(owner) {}

Negotiator::~Negotiator() {
    if (registered)
        if (IdleNotifier* notifier = IdleNotifier::get())
            notifier->removeIdler(this);
    for (Entry& entry : entries)
        entry.spec->unref();
}

void Negotiator::add(STPSpecClass* spec, int32_t pluginId, ServiceFactory* factory) {
    if (entries.empty() && !registered) {
        if (IdleNotifier* notifier = IdleNotifier::get()) {
            notifier->addIdler(this);
            registered = true;
        }
    }
    spec->sendNegotiate(false);
    entries.push_back(Entry{spec, pluginId, factory});
}

void Negotiator::idle(IdleNotifier* notifier) {
    // Each entry is settled by itself; what the factory runs may add entries behind it.
    for (size_t i = 0; i < entries.size();) {
        Entry entry = entries[i];
        if (entry.spec->isVirtualConnectionDown()) {
            entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
            entry.factory->serviceConnected(entry.spec);
            proxy->removePendingConnection(entry.spec);
            entry.spec->unref();
        } else if (entry.spec->hasNegotiated()) {
            entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
            proxy->removePendingConnection(entry.spec);
            entry.factory->serviceConnected(entry.spec);
            if (!entry.spec->isVirtualConnectionDown())
                proxy->addConnection(entry.spec, entry.plugin_id, true);
            entry.spec->unref();
        } else {
            ++i;
        }
    }
    if (entries.empty() && registered) {
        notifier->removeIdler(this);
        registered = false;
    }
}
