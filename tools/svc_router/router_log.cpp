#include "router_log.h"

#include "plugin_connection.h"

void RouterLog::beginRecord(STPSpecClass* spec, bool outgoing) {
    TimestampedSTPFileLog::beginRecord(spec, outgoing);
    if (auto* plugin = dynamic_cast<PluginConnection*>(spec))
        printf("plug-in %u: ", plugin->getPluginId());
}
