// Route numbers handed out by the router.
#include "route_numbers.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(RouteNumbers, BlocksAreUniqueAcrossOwnersAndNeverUseTheRouterPair) {
    RouteNumbers numbers;
    std::vector<uint32_t> a = numbers.reserve(1, 3);
    std::vector<uint32_t> b = numbers.reserve(2, 2);
    std::vector<uint32_t> c = numbers.reserve(1, 1);
    ASSERT_EQ(a.size(), 3u);
    ASSERT_EQ(b.size(), 2u);
    ASSERT_EQ(c.size(), 1u);
    std::set<uint32_t> all;
    for (auto* block : {&a, &b, &c})
        for (uint32_t rn : *block) {
            EXPECT_GT(rn, 2u);
            EXPECT_TRUE(all.insert(rn).second) << rn << " given twice";
        }
    EXPECT_EQ(numbers.ownerOf(a[0]), 1u);
    EXPECT_EQ(numbers.ownerOf(b[1]), 2u);
    EXPECT_EQ(numbers.ownerOf(1), kNoPlugin);
    EXPECT_EQ(numbers.ownerOf(2), kNoPlugin);
}

TEST(RouteNumbers, ReleasedNumbersAreForgottenAndNotGivenAgain) {
    RouteNumbers numbers;
    std::vector<uint32_t> a = numbers.reserve(7, 2);
    EXPECT_FALSE(numbers.release(a[0], 8)) << "only the owner may release";
    EXPECT_EQ(numbers.ownerOf(a[0]), 7u);
    EXPECT_TRUE(numbers.release(a[0], 7));
    EXPECT_FALSE(numbers.release(a[0], 7));
    EXPECT_EQ(numbers.ownerOf(a[0]), kNoPlugin);
    std::vector<uint32_t> next = numbers.reserve(8, 1);
    ASSERT_EQ(next.size(), 1u);
    EXPECT_GT(next[0], a[1]);
    EXPECT_EQ(numbers.releaseAll(7), 1u);
    EXPECT_EQ(numbers.size(), 1u);
}

TEST(RouteNumbers, EmptyAndOversizedRequestsGetNothing) {
    RouteNumbers numbers;
    EXPECT_TRUE(numbers.reserve(1, 0).empty());
    EXPECT_TRUE(numbers.reserve(1, RouteNumbers::kMaxBlock + 1).empty());
    EXPECT_EQ(numbers.reserve(1, RouteNumbers::kMaxBlock).size(), RouteNumbers::kMaxBlock);
    EXPECT_EQ(numbers.size(), RouteNumbers::kMaxBlock);
}

} // namespace
