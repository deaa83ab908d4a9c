// The registry of service names.
#include "service_registry.h"

#include "route_numbers.h"

#include <algorithm>

void ServiceRegistry::add(const std::string& name, uint32_t pluginId, uint32_t serviceRN) {
    services.push_back(RegisteredService{name, pluginId, serviceRN});
}

const RegisteredService* ServiceRegistry::find(const std::string& name, uint32_t pluginId) const {
    for (const RegisteredService& service : services)
        if (service.name == name && (pluginId == kNoPlugin || service.pluginId == pluginId))
            return &service;
    return nullptr;
}

const RegisteredService* ServiceRegistry::findByRN(uint32_t serviceRN) const {
    for (const RegisteredService& service : services)
        if (service.serviceRN == serviceRN)
            return &service;
    return nullptr;
}

bool ServiceRegistry::removeByRN(uint32_t serviceRN, uint32_t pluginId) {
    auto it = std::find_if(services.begin(), services.end(), [&](const RegisteredService& s) {
        return s.serviceRN == serviceRN && s.pluginId == pluginId;
    });
    if (it == services.end())
        return false;
    services.erase(it);
    return true;
}

size_t ServiceRegistry::removeAllOf(uint32_t pluginId) {
    return std::erase_if(services,
                         [&](const RegisteredService& s) { return s.pluginId == pluginId; });
}

size_t ServiceRegistry::countOf(const std::vector<uint32_t>& pluginIds) const {
    return static_cast<size_t>(std::count_if(services.begin(), services.end(), [&](auto& s) {
        return std::find(pluginIds.begin(), pluginIds.end(), s.pluginId) != pluginIds.end();
    }));
}
