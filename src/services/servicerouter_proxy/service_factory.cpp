#include "service_factory.h"

#include "gen_string.h"
#include "indgen.h"
#include "servicerouter_proxy.h"

#include <algorithm>

namespace {
bool g_createdAService = false;

std::vector<ServiceFactory*>& selfRegistered() {
    static std::vector<ServiceFactory*> list;
    return list;
}
} // namespace

ServiceFactory::ServiceFactory(const char* factoryName, int32_t instanceLimit, bool selfRegister)
    : name(gen_strdup(factoryName)), instance_limit(instanceLimit) {
    ensureServiceRouterProxy();
    if (selfRegister)
        selfRegistered().push_back(this);
}

ServiceFactory::~ServiceFactory() {
    // The factories of the process live to its end; one that goes earlier leaves the list.
    std::vector<ServiceFactory*>& list = selfRegistered();
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
    gen_free(name);
}

bool ServiceFactory::canCreate() {
    return instance_limit == -1 || instance_count < instance_limit;
}

void ServiceFactory::serviceConnected(STPSpecClass*) {}

STPSpecClass* ServiceFactory::createServer(STPTransport* transport, uint32_t serviceRN,
                                           uint32_t remoteRN) {
    if (!canCreate())
        return nullptr;
    STPSpecClass* spec = createService(transport, serviceRN, remoteRN);
    if (!spec)
        return nullptr;
    g_createdAService = true;
    servers.push_back(spec);
    created_one = true;
    return spec;
}

bool ServiceFactory::createdAService() {
    return g_createdAService;
}

const std::vector<ServiceFactory*>& ServiceFactory::selfRegisteredFactories() {
    return selfRegistered();
}
