// Route numbers: the router's record of which plug-in owns each number it has handed out, so
// that a packet can be relayed by the number it is addressed to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

// Plug-in ids as the protocol carries them; this one means "no plug-in".
inline constexpr uint32_t kNoPlugin = 0xffffffffu;

// Numbers 1 and 2 name every plug-in's connection to the router itself and are never handed
// out. Numbers are never given twice while the router runs, so a packet still on its way to a
// connection that has ended cannot reach a newer one; a router that has given out all 2^32 - 3
// numbers refuses further requests. Plain data: nothing here waits.
class RouteNumbers {
public:
    // The first number handed out.
    static constexpr uint32_t kFirst = 3;
    // The most numbers one request gets; a larger request gets none.
    static constexpr uint32_t kMaxBlock = 65536;

    // `count` new numbers owned by `owner`, in ascending order; empty when count is 0 or above
    // kMaxBlock, or when the numbers have run out.
    std::vector<uint32_t> reserve(uint32_t owner, uint32_t count);
    // The owner of `rn`, or kNoPlugin.
    uint32_t ownerOf(uint32_t rn) const;
    // Forgets `rn` if `owner` owns it; false otherwise (nothing changes).
    bool release(uint32_t rn, uint32_t owner);
    // Forgets every number of `owner`; returns how many there were.
    size_t releaseAll(uint32_t owner);
    size_t size() const { return owners.size(); }

private:
    uint32_t next = kFirst;
    bool exhausted = false;
    std::map<uint32_t, uint32_t> owners;
};
