// The requests the router holds at start-up: taken by name, by deadline (across the wrap of the
// tick counter) and dropped with their plug-in, in the order they came.
#include "held_requests.h"

#include <gtest/gtest.h>

namespace {

HeldRequest request(uint32_t plugin, const char* name, int32_t deadline) {
    HeldRequest r;
    r.clientPlugin = plugin;
    r.serviceName = name;
    r.deadlineTick = deadline;
    return r;
}

std::vector<uint32_t> pluginsOf(const std::vector<HeldRequest>& requests) {
    std::vector<uint32_t> ids;
    for (const HeldRequest& r : requests)
        ids.push_back(r.clientPlugin);
    return ids;
}

TEST(HeldRequests, AreTakenByNameByDeadlineAndDroppedWithTheirPlugin) {
    HeldRequests held;
    held.hold(request(1, "WhiteBoard", 100));
    held.hold(request(2, "Other", 50));
    held.hold(request(3, "WhiteBoard", 200));
    held.hold(request(4, "Other", 300));
    EXPECT_EQ(pluginsOf(held.takeFor("WhiteBoard")), (std::vector<uint32_t>{1, 3}));
    EXPECT_EQ(pluginsOf(held.takeDue(49)), std::vector<uint32_t>{});
    EXPECT_EQ(pluginsOf(held.takeDue(50)), std::vector<uint32_t>{2});
    held.dropOf(4);
    EXPECT_EQ(held.size(), 0u);

    // Deadlines past the wrap of the counter.
    held.hold(request(5, "A", INT32_MIN + 10));
    EXPECT_EQ(pluginsOf(held.takeDue(INT32_MAX - 10)), std::vector<uint32_t>{});
    EXPECT_EQ(pluginsOf(held.takeDue(INT32_MIN + 10)), std::vector<uint32_t>{5});
    held.hold(request(6, "A", 0));
    held.hold(request(7, "B", 0));
    EXPECT_EQ(pluginsOf(held.takeAll()), (std::vector<uint32_t>{6, 7}));
}

} // namespace
