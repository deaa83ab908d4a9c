// ut_string_list: links, counts, removal of equal entries, sorting and copying.
#include "ut_string_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
std::vector<std::string> values(const ut_string_list& list) {
    std::vector<std::string> result;
    for (auto* node = list.head; node; node = node->next)
        result.push_back(node->value.c_str());
    // The backward links must tell the same story.
    std::vector<std::string> backward;
    for (auto* node = list.tail; node; node = node->prev)
        backward.insert(backward.begin(), node->value.c_str());
    EXPECT_EQ(result, backward);
    EXPECT_EQ(static_cast<int>(result.size()), list.count);
    return result;
}

using V = std::vector<std::string>;

TEST(UtStringList, PushInsertAndErase) {
    ut_string_list list;
    list.pushBack("b");
    list.pushFront(ut_string("a"));
    list.pushBack("cde", 1);
    auto* d = list.pushBack(ut_string("d"));
    list.insertBefore(d, "c2");
    list.insertBefore(nullptr, "e");
    list.pushFront("zzz", 2);
    EXPECT_EQ(values(list), (V{"zz", "a", "b", "c", "c2", "d", "e"}));

    auto* next = list.erase(list.head);
    EXPECT_EQ(next, list.head);
    EXPECT_STREQ(next->value.c_str(), "a");
    EXPECT_EQ(list.erase(list.tail), nullptr);
    EXPECT_EQ(list.erase(nullptr), nullptr);
    EXPECT_EQ(values(list), (V{"a", "b", "c", "c2", "d"}));
    list.clear();
    EXPECT_EQ(values(list), V{});
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST(UtStringList, RemoveTakesEveryEqualEntry) {
    ut_string_list list;
    for (const char* v : {"x", "a", "x", "b", "x", "x"})
        list.pushBack(v);
    EXPECT_EQ(list.remove("x"), 4);
    EXPECT_EQ(values(list), (V{"a", "b"}));
    EXPECT_EQ(list.remove("missing"), 0);
    list.pushBack("a");
    EXPECT_EQ(list.remove(list.head->value), 2); // the value of a node being removed
    EXPECT_EQ(values(list), (V{"b"}));
}

TEST(UtStringList, FindSortAndCompare) {
    ut_string_list list;
    for (const char* v : {"pear", "apple", "Zebra", "apple", "fig"})
        list.pushBack(v);
    auto* found = list.find("apple");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found, list.head->next);
    EXPECT_EQ(list.find("kiwi"), nullptr);

    ut_string_list copy(list);
    EXPECT_TRUE(copy == list);
    list.sort();
    EXPECT_EQ(values(list), (V{"Zebra", "apple", "apple", "fig", "pear"}));
    EXPECT_TRUE(copy != list); // same count, other order
    copy.sort();
    EXPECT_TRUE(copy == list);
    copy.pushBack("extra");
    EXPECT_FALSE(copy == list);
}

TEST(UtStringList, CopiesAndAppendsAreIndependent) {
    ut_string_list a;
    a.pushBack("1");
    a.pushBack("2");
    ut_string_list b;
    b.pushBack("old");
    b = a;
    b.pushBack("3");
    EXPECT_EQ(values(a), (V{"1", "2"}));
    EXPECT_EQ(values(b), (V{"1", "2", "3"}));
    b = b;
    EXPECT_EQ(values(b), (V{"1", "2", "3"}));
    a.appendList(b);
    EXPECT_EQ(values(a), (V{"1", "2", "1", "2", "3"}));
    a.appendList(a); // stops at its old end
    EXPECT_EQ(values(a), (V{"1", "2", "1", "2", "3", "1", "2", "1", "2", "3"}));
    // The values share their blocks with the source until written.
    EXPECT_EQ(a.head->value.c_str(), a.head->next->next->value.c_str());
}
} // namespace
