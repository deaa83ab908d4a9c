// Route numbers handed out by the router.
#include "route_numbers.h"

std::vector<uint32_t> RouteNumbers::reserve(uint32_t owner, uint32_t count) {
    std::vector<uint32_t> block;
    if (exhausted || count == 0 || count > kMaxBlock || count - 1 > UINT32_MAX - next)
        return block;
    block.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        owners[next] = owner;
        block.push_back(next);
        if (next == UINT32_MAX)
            exhausted = true;
        else
            ++next;
    }
    return block;
}

uint32_t RouteNumbers::ownerOf(uint32_t rn) const {
    auto it = owners.find(rn);
    return it == owners.end() ? kNoPlugin : it->second;
}

bool RouteNumbers::release(uint32_t rn, uint32_t owner) {
    auto it = owners.find(rn);
    if (it == owners.end() || it->second != owner)
        return false;
    owners.erase(it);
    return true;
}

size_t RouteNumbers::releaseAll(uint32_t owner) {
    size_t released = 0;
    for (auto it = owners.begin(); it != owners.end();) {
        if (it->second == owner) {
            it = owners.erase(it);
            ++released;
        } else {
            ++it;
        }
    }
    return released;
}
