#include "client_path.h"

#include "servicerouter_proxy.h"

char* ClientPath(STPSpecClass* connection, const char* path) {
    ServiceRouter_Proxy* proxy = getServiceRouterProxy();
    if (!proxy)
        return nullptr;
    return proxy->fullPathForConnection(connection, path, nullptr);
}
