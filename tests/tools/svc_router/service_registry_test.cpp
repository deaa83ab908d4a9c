// The registry of service names.
#include "service_registry.h"

#include "route_numbers.h"

#include <gtest/gtest.h>

namespace {

TEST(ServiceRegistry, FindsByNameOnAnyOrOneProviderAndByNumber) {
    ServiceRegistry registry;
    registry.add("VersionControl.CVS", 1, 3);
    registry.add("VC_CheckoutInfo.CVS", 1, 4);
    registry.add("VersionControl.CVS", 2, 5);
    const RegisteredService* any = registry.find("VersionControl.CVS", kNoPlugin);
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(any->pluginId, 1u) << "the earliest registration serves";
    const RegisteredService* onTwo = registry.find("VersionControl.CVS", 2);
    ASSERT_NE(onTwo, nullptr);
    EXPECT_EQ(onTwo->serviceRN, 5u);
    EXPECT_EQ(registry.find("VC_CheckoutInfo.CVS", 2), nullptr);
    EXPECT_EQ(registry.find("VersionControl", kNoPlugin), nullptr) << "names match whole";
    ASSERT_NE(registry.findByRN(4), nullptr);
    EXPECT_EQ(registry.findByRN(4)->name, "VC_CheckoutInfo.CVS");
}

TEST(ServiceRegistry, RemovalIsByOwnerAndTheNextProviderTakesOver) {
    ServiceRegistry registry;
    registry.add("A", 1, 3);
    registry.add("B", 1, 4);
    registry.add("A", 2, 5);
    EXPECT_FALSE(registry.removeByRN(3, 2)) << "plug-in 2 does not offer 3";
    EXPECT_TRUE(registry.removeByRN(4, 1));
    EXPECT_EQ(registry.countOf({1}), 1u);
    EXPECT_EQ(registry.countOf({1, 2}), 2u);
    EXPECT_EQ(registry.removeAllOf(1), 1u);
    ASSERT_NE(registry.find("A", kNoPlugin), nullptr);
    EXPECT_EQ(registry.find("A", kNoPlugin)->pluginId, 2u);
    EXPECT_EQ(registry.size(), 1u);
}

} // namespace
