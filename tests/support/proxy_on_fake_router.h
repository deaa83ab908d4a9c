// A router client connected to a FakeRouter as a router that launched it would connect it: the
// fixture that the tests of the router client share.
#pragma once

#include "fake_router.h"
#include "servicerouter_proxy.h"

#include <string>
#include <vector>

// Parses "-connect_servicerouter PORT" and `extra` into `proxy` (bare), connects its socket, lets
// `router` (listening) accept, and sends the router's tables and, unless `pluginId` is -1, the
// plug-in id. Both ends share this thread, so all of that is on its way before the proxy starts
// its conversation. False when a step failed.
inline bool connectToFakeRouter(ServiceRouter_Proxy* proxy, FakeRouter* router,
                                std::vector<std::string> extra,
                                uint32_t pluginId = static_cast<uint32_t>(-1)) {
    std::vector<std::string> words{"plugin", "-connect_servicerouter",
                                   std::to_string(router->port())};
    words.insert(words.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(words.size());
    proxy->parseOptions(&argc, argv.data());
    if (!proxy->connectSocket(nullptr, router->port()) || !router->accept(5000))
        return false;
    router->negotiateLocally();
    if (!router->sendNegotiate(true))
        return false;
    return pluginId == static_cast<uint32_t>(-1) || router->PluginId(true, pluginId);
}
