// The command line of svc_router, as a table of command lines and what they give.
#include "router_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct OptionCase {
    const char* label;
    std::vector<const char*> words; // after the program name
    bool ok;
    const char* error; // expected error text when !ok
    uint16_t port;
    uint16_t connectBackPort;
    size_t plugins;
    int32_t idleExitMs;
};

class RouterOptionsTable : public ::testing::TestWithParam<OptionCase> {};

TEST_P(RouterOptionsTable, ParsesAsExpected) {
    const OptionCase& c = GetParam();
    std::vector<const char*> argv{"svc_router"};
    argv.insert(argv.end(), c.words.begin(), c.words.end());
    RouterOptions options;
    std::string error;
    bool ok = parseRouterOptions(static_cast<int>(argv.size()), argv.data(), &options, &error);
    ASSERT_EQ(ok, c.ok) << error;
    if (!ok) {
        EXPECT_EQ(error, c.error);
        return;
    }
    EXPECT_EQ(options.port, c.port);
    EXPECT_EQ(options.connectBackPort, c.connectBackPort);
    EXPECT_EQ(options.plugins.size(), c.plugins);
    EXPECT_EQ(options.idleExitMs, c.idleExitMs);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RouterOptionsTable,
    ::testing::Values(
        OptionCase{"nothing", {}, true, "", 0, 0, 0, -1},
        OptionCase{"decimal_port", {"-port", "4000"}, true, "", 4000, 0, 0, -1},
        OptionCase{"hex_port", {"-port", "0x10"}, true, "", 16, 0, 0, -1},
        OptionCase{"octal_port", {"-port", "010"}, true, "", 8, 0, 0, -1},
        OptionCase{"port_too_big",
                   {"-port", "65536"},
                   false,
                   "-port takes a number, not \"65536\"",
                   0,
                   0,
                   0,
                   -1},
        OptionCase{"port_negative",
                   {"-port", "-1"},
                   false,
                   "-port takes a number, not \"-1\"",
                   0,
                   0,
                   0,
                   -1},
        OptionCase{"port_trailing_text",
                   {"-port", "12ab"},
                   false,
                   "-port takes a number, not \"12ab\"",
                   0,
                   0,
                   0,
                   -1},
        OptionCase{"port_last_word", {"-port"}, false, "-port needs a value", 0, 0, 0, -1},
        OptionCase{"connect_back", {"-connect_servicerouter", "5555"}, true, "", 0, 5555, 0, -1},
        OptionCase{"connect_back_zero",
                   {"-connect_servicerouter", "0"},
                   false,
                   "-connect_servicerouter needs a port other than 0",
                   0,
                   0,
                   0,
                   -1},
        OptionCase{"two_plugins",
                   {"-plugin", "a", "-plugin_arg", "x", "-plugin", "b"},
                   true,
                   "",
                   0,
                   0,
                   2,
                   -1},
        OptionCase{"arg_before_plugin",
                   {"-plugin_arg", "x"},
                   false,
                   "-plugin_arg before any -plugin",
                   0,
                   0,
                   0,
                   -1},
        OptionCase{"idle_exit", {"-idle_exit", "250"}, true, "", 0, 0, 0, 250},
        OptionCase{"launcher_words_ignored",
                   {"-sr_log_internal", "f", "-not_shared", "-sr_zone", "z", "-port", "7"},
                   true,
                   "",
                   7,
                   0,
                   0,
                   -1},
        OptionCase{
            "unknown", {"-port", "1", "-verbose"}, false, "unknown option -verbose", 0, 0, 0, -1}),
    [](const ::testing::TestParamInfo<OptionCase>& info) { return info.param.label; });

TEST(RouterOptions, PluginArgumentsBelongToTheLastPluginInOrder) {
    const char* argv[] = {"svc_router",  "-plugin", "first",       "-plugin_arg", "1",
                          "-plugin_dir", "/d",      "-plugin",     "second",      "-plugin_arg",
                          "2",           "-plugin_arg", "3",       "-log",        "router.log",
                          "-stay"};
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
