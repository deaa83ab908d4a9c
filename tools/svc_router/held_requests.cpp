// Connection requests held at start-up.
#include "held_requests.h"

#include "plat_time.h"

#include <algorithm>

template <class Pred> std::vector<HeldRequest> HeldRequests::take(Pred pred) {
    std::vector<HeldRequest> taken;
    auto keep = std::stable_partition(requests.begin(), requests.end(),
                                      [&](const HeldRequest& r) { return !pred(r); });
    std::move(keep, requests.end(), std::back_inserter(taken));
    requests.erase(keep, requests.end());
    return taken;
}

std::vector<HeldRequest> HeldRequests::takeFor(const std::string& name) {
    return take([&](const HeldRequest& r) { return r.serviceName == name; });
}

std::vector<HeldRequest> HeldRequests::takeDue(int32_t now) {
    return take([&](const HeldRequest& r) { return plat_tick_diff(now, r.deadlineTick) >= 0; });
}

std::vector<HeldRequest> HeldRequests::takeAll() {
    return take([](const HeldRequest&) { return true; });
}

void HeldRequests::dropOf(uint32_t clientPlugin) {
    take([&](const HeldRequest& r) { return r.clientPlugin == clientPlugin; });
}
