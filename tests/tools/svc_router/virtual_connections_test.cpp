// The virtual connections between plug-ins.
#include "virtual_connections.h"

#include <gtest/gtest.h>

namespace {

VirtualConnection connection(uint32_t client, uint32_t clientRN, uint32_t provider,
                             uint32_t serviceRN) {
    VirtualConnection c;
    c.clientPlugin = client;
    c.clientRN = clientRN;
    c.providerPlugin = provider;
    c.serviceRN = serviceRN;
    return c;
}

TEST(VirtualConnectionTable, EachEndFindsTheConnectionByItsOwnPair) {
    VirtualConnectionTable table;
    table.add(connection(1, 10, 2, 3));
    table.add(connection(4, 11, 2, 3)); // a second client of the same service
    EXPECT_EQ(table.findFromEnd(1, 10, 3), table.find(3, 10));
    EXPECT_EQ(table.findFromEnd(2, 3, 10), table.find(3, 10)) << "the provider's view";
    EXPECT_EQ(table.findFromEnd(2, 3, 11), table.find(3, 11));
    EXPECT_EQ(table.findFromEnd(1, 3, 10), nullptr) << "plug-in 1 is not the provider";
    EXPECT_EQ(table.findFromEnd(4, 10, 3), nullptr) << "10 is not plug-in 4's number";
}

TEST(VirtualConnectionTable, APluginsConnectionsGoWithItWhicheverEndItIs) {
    VirtualConnectionTable table;
    table.add(connection(1, 10, 2, 3));
    table.add(connection(2, 11, 5, 6));
    table.add(connection(4, 12, 5, 6));
    std::vector<VirtualConnection> taken = table.takeAllOf(2);
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].clientRN, 10u);
    EXPECT_EQ(taken[1].clientRN, 11u);
    EXPECT_EQ(table.size(), 1u);
    EXPECT_TRUE(table.remove(6, 12));
    EXPECT_FALSE(table.remove(6, 12));
}

} // namespace
