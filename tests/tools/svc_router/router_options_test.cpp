// The command line of svc_router: numbers, the errors that name the bad word, plug-in words.
#include "router_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What a command line gives: the numbers read, or the error text of the first bad word.
std::string parsed(std::vector<const char*> words) {
    words.insert(words.begin(), "svc_router");
    RouterOptions o;
    std::string error;
    if (!parseRouterOptions(static_cast<int>(words.size()), words.data(), &o, &error))
        return "error: " + error;
    return "port=" + std::to_string(o.port) + " back=" + std::to_string(o.connectBackPort) +
           " plugins=" + std::to_string(o.plugins.size()) + " idle=" + std::to_string(o.idleExitMs);
}

TEST(RouterOptions, NumbersTakeTheirBaseAndBadWordsAreNamed) {
    EXPECT_EQ(parsed({}), "port=0 back=0 plugins=0 idle=-1");
    EXPECT_EQ(parsed({"-port", "4000", "-connect_servicerouter", "0x10", "-idle_exit", "010"}),
              "port=4000 back=16 plugins=0 idle=8");
    EXPECT_EQ(parsed({"-sr_log_internal", "f", "-not_shared", "-sr_zone", "z", "-port", "7"}),
              "port=7 back=0 plugins=0 idle=-1")
        << "the words a launching plug-in passes have no effect";
    EXPECT_EQ(parsed({"-port", "65536"}), "error: -port takes a number, not \"65536\"");
    EXPECT_EQ(parsed({"-port", "-1"}), "error: -port takes a number, not \"-1\"");
    EXPECT_EQ(parsed({"-port", "12ab"}), "error: -port takes a number, not \"12ab\"");
    EXPECT_EQ(parsed({"-port"}), "error: -port needs a value");
    EXPECT_EQ(parsed({"-connect_servicerouter", "0"}),
              "error: -connect_servicerouter needs a port other than 0");
    EXPECT_EQ(parsed({"-plugin_arg", "x"}), "error: -plugin_arg before any -plugin");
    EXPECT_EQ(parsed({"-port", "1", "-verbose"}), "error: unknown option -verbose");
}

TEST(RouterOptions, PluginArgumentsBelongToTheLastPluginInOrder) {
    const char* argv[] = {"svc_router", "-plugin", "first",      "-plugin_arg", "1", "-plugin_dir",
                          "/d",         "-plugin", "second",     "-plugin_arg", "2", "-plugin_arg",
                          "3",          "-log",    "router.log", "-stay"};
    RouterOptions options;
    std::string error;
    ASSERT_TRUE(parseRouterOptions(16, argv, &options, &error)) << error;
    ASSERT_EQ(options.plugins.size(), 2u);
    EXPECT_EQ(options.plugins[0].program, "first");
    EXPECT_EQ(options.plugins[0].args, std::vector<std::string>{"1"});
    EXPECT_EQ(options.plugins[0].workingDir, "/d");
    EXPECT_EQ(options.plugins[1].workingDir, "");
    EXPECT_EQ(options.plugins[1].program, "second");
    EXPECT_EQ(options.plugins[1].args, (std::vector<std::string>{"2", "3"}));
    EXPECT_EQ(options.logFile, "router.log");
    EXPECT_TRUE(options.stay);
}

} // namespace
