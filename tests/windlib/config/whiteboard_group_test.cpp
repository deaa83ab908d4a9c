// WhiteBoard groups: values by type, what a change fires and in which order, and the
// process-wide defaults and callbacks a new group starts with.
#include "whiteboard_group.h"

#include "whiteboard_defaults.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every listener of a group writes one line here.
struct Trace {
    std::vector<std::string> lines;
    void attach(GroupClient& g) {
        g.addBoolListener([this](const char* gr, const char* n, bool v) {
            lines.push_back(std::string("bool ") + gr + "." + n + "=" + (v ? "1" : "0"));
        });
        g.addInt32Listener([this](const char*, const char* n, int32_t v) {
            lines.push_back(std::string("int32 ") + n + "=" + std::to_string(v));
        });
        g.addStringListener([this](const char*, const char* n, const char* v) {
            lines.push_back(std::string("string ") + n + "=" + v);
        });
        g.addStringListListener([this](const char*, const char* n, const WBStringList& v) {
            lines.push_back(std::string("list ") + n + "=" + std::to_string(v.size()));
        });
        g.addDeleteListener([this](const char*, const char* n, int32_t type) {
            lines.push_back(std::string("delete ") + n + " " + std::to_string(type));
        });
        g.addNameListener(nullptr, [this](const char*, const char* n) {
            lines.push_back(std::string("any-name ") + n);
        });
        g.addNameListener(
            "x", [this](const char*, const char* n) { lines.push_back(std::string("name ") + n); });
    }
};

TEST(Group, KeepsOneValuePerTypeAndSaysWhetherASetChangedAnything) {
    Group g("G");
    EXPECT_TRUE(g.setBool("x", true, false));
    EXPECT_FALSE(g.setBool("x", true, false));
    EXPECT_TRUE(g.setInt32("x", 7, false));
    EXPECT_TRUE(g.setString("x", "v", false));
    EXPECT_FALSE(g.setString("x", "v", false));
    EXPECT_TRUE(g.setStringList("x", {"a", "b"}, false));
    EXPECT_FALSE(g.setStringList("x", {"a", "b"}, false));
    EXPECT_TRUE(g.setStringList("x", {"a"}, false));
    EXPECT_TRUE(g.setString("empty", nullptr, false));
    ut_string text("untouched");
    EXPECT_FALSE(g.getString("missing", &text));
    EXPECT_STREQ(text.c_str(), "untouched");
    EXPECT_TRUE(g.getString("empty", &text));
    EXPECT_STREQ(text.c_str(), "");
    int32_t n = 0;
    EXPECT_TRUE(g.getInt32("x", &n));
    EXPECT_EQ(n, 7);
    EXPECT_FALSE(g.deleteName("x", 5, false));
    EXPECT_TRUE(g.deleteName("x", WB_TYPE_INT32, false));
    EXPECT_FALSE(g.getInt32("x", &n));
    EXPECT_TRUE(g.getBool("x", nullptr));
}

TEST(GroupClient, FiresTypeListenersThenNameListenersExactKeyFirst) {
    GroupClient g("G", nullptr);
    Trace trace;
    trace.attach(g);
    EXPECT_TRUE(g.setBool("x", true, false));
    EXPECT_FALSE(g.setBool("x", true, false)) << "the present value fires nothing";
    EXPECT_TRUE(g.setString("y", "new", true)) << "quiet: type listeners only";
    EXPECT_EQ(trace.lines,
              (std::vector<std::string>{"bool G.x=1", "name x", "any-name x", "string y=new"}));
}

TEST(GroupClient, DeletingEveryTypeFiresTheDeleteListenersOnceWithTypeZero) {
    GroupClient g("G", nullptr);
    g.setBool("x", true, true);
    g.setString("x", "s", true);
    Trace trace;
    trace.attach(g);
    EXPECT_TRUE(g.deleteName("x", WB_TYPE_ANY, false));
    EXPECT_FALSE(g.getBool("x", nullptr));
    EXPECT_FALSE(g.getString("x", nullptr));
    EXPECT_FALSE(g.deleteName("x", WB_TYPE_ANY, false)) << "nothing left: nothing fires";
    EXPECT_EQ(trace.lines, (std::vector<std::string>{"delete x 0", "name x", "any-name x"}));
}

TEST(GroupClient, AListenerMayAddListenersWhileItRuns) {
    GroupClient g("G", nullptr);
    int added = 0;
    g.addInt32Listener([&](const char*, const char*, int32_t) {
        g.addInt32Listener([&](const char*, const char*, int32_t) { ++added; });
    });
    g.setInt32("a", 1, false);
    EXPECT_EQ(added, 0) << "a listener added during a change hears the next one";
    g.setInt32("a", 2, false);
    EXPECT_EQ(added, 1);
}

std::vector<std::string> g_callbacks;
void firstCallback(const char* group, const char* name) {
    g_callbacks.push_back(std::string("first ") + group + "." + name);
}
void secondCallback(const char* group, const char* name) {
    g_callbacks.push_back(std::string("second ") + group + "." + name);
}

TEST(GroupDefaults, TheLastCallbackOfAPairCountsAndOnlyForGroupsMadeAfterIt) {
    g_callbacks.clear();
    GroupClient before("CallbackGroup", nullptr);
    registerNameCallback("CallbackGroup", "k", firstCallback);
    registerNameCallback("CallbackGroup", "k", secondCallback);
    registerNameCallback("CallbackGroup", "k", nullptr);
    GroupClient after("CallbackGroup", nullptr);
    before.setInt32("k", 1, false);
    after.setInt32("k", 1, false);
    after.setInt32("k", 2, true);
    EXPECT_EQ(g_callbacks, std::vector<std::string>{"second CallbackGroup.k"});

    registerStringDefault("DefaultGroup", "s", "one");
    registerStringDefault("DefaultGroup", "s", "two");
    EXPECT_STREQ(stringDefaults().at("DefaultGroup").at("s").c_str(), "two");
}

} // namespace
