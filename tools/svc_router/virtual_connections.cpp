// The virtual connections between plug-ins.
#include "virtual_connections.h"

#include <algorithm>

void VirtualConnectionTable::add(const VirtualConnection& connection) {
    connections.push_back(connection);
}

VirtualConnection* VirtualConnectionTable::find(uint32_t serviceRN, uint32_t clientRN) {
    for (VirtualConnection& c : connections)
        if (c.serviceRN == serviceRN && c.clientRN == clientRN)
            return &c;
    return nullptr;
}

VirtualConnection* VirtualConnectionTable::findFromEnd(uint32_t pluginId, uint32_t localRN,
                                                       uint32_t remoteRN) {
    for (VirtualConnection& c : connections) {
        if (c.clientPlugin == pluginId && c.clientRN == localRN && c.serviceRN == remoteRN)
            return &c;
        if (c.providerPlugin == pluginId && c.serviceRN == localRN && c.clientRN == remoteRN)
            return &c;
    }
    return nullptr;
}

bool VirtualConnectionTable::remove(uint32_t serviceRN, uint32_t clientRN) {
    auto it = std::find_if(connections.begin(), connections.end(), [&](auto& c) {
        return c.serviceRN == serviceRN && c.clientRN == clientRN;
    });
    if (it == connections.end())
        return false;
    connections.erase(it);
    return true;
}

std::vector<VirtualConnection> VirtualConnectionTable::takeAllOf(uint32_t pluginId) {
    std::vector<VirtualConnection> taken;
    std::erase_if(connections, [&](const VirtualConnection& c) {
        if (c.clientPlugin != pluginId && c.providerPlugin != pluginId)
            return false;
        taken.push_back(c);
        return true;
    });
    return taken;
}
