// The registry of service names: which plug-in offers each service, under which route number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One registered service.
struct RegisteredService {
    std::string name;
    uint32_t pluginId = 0;  // the plug-in that offers it
    uint32_t serviceRN = 0; // the route number its clients address
};

// Several plug-ins may register the same name: a lookup by name alone finds the earliest of
// them still registered, so a second provider takes over when the first goes. Plain data;
// pointers returned stay valid until the next change.
class ServiceRegistry {
public:
    void add(const std::string& name, uint32_t pluginId, uint32_t serviceRN);
    // The service `name`, on plug-in `pluginId` unless that is kNoPlugin; null if none.
    const RegisteredService* find(const std::string& name, uint32_t pluginId) const;
    const RegisteredService* findByRN(uint32_t serviceRN) const;
    // Removes the service under `serviceRN` if `pluginId` offers it; false otherwise.
    bool removeByRN(uint32_t serviceRN, uint32_t pluginId);
    // Removes every service of `pluginId`; returns how many.
    size_t removeAllOf(uint32_t pluginId);
    size_t size() const { return services.size(); }
    // How many services the plug-ins in `pluginIds` offer.
    size_t countOf(const std::vector<uint32_t>& pluginIds) const;
    const std::vector<RegisteredService>& all() const { return services; }

private:
    std::vector<RegisteredService> services; // in order of registration
};
