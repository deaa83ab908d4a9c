// The virtual connections between plug-ins that the router has set up: who is client and who
// provider, under which route numbers, and whether the provider has accepted yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One connection. The client addresses the provider's `serviceRN` and the provider the
// client's `clientRN`; the pair names the connection at both ends.
struct VirtualConnection {
    uint32_t clientPlugin = 0;
    uint32_t clientRN = 0;
    uint32_t providerPlugin = 0;
    uint32_t serviceRN = 0;
    std::string serviceName;
    uint32_t clientCookie = 0; // the client's cookie, given back in the reply
    bool accepted = false;     // false while the provider has not answered
};

// Plain data; nothing here sends or waits. Pointers returned stay valid until the next change.
class VirtualConnectionTable {
public:
    void add(const VirtualConnection& connection);
    // The connection (serviceRN, clientRN), or null.
    VirtualConnection* find(uint32_t serviceRN, uint32_t clientRN);
    // The connection that plug-in `pluginId` names (localRN, remoteRN) from its own end, as
    // client or as provider; null if none.
    VirtualConnection* findFromEnd(uint32_t pluginId, uint32_t localRN, uint32_t remoteRN);
    // Removes the connection (serviceRN, clientRN); false if there is none.
    bool remove(uint32_t serviceRN, uint32_t clientRN);
    // Removes and returns every connection that has `pluginId` at either end.
    std::vector<VirtualConnection> takeAllOf(uint32_t pluginId);
    size_t size() const { return connections.size(); }

private:
    std::vector<VirtualConnection> connections;
};
