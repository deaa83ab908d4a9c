// The router options of the command line: which words are taken out, what each sets, the
// automatic number base, a value-taking option as the last word, and the debug warnings.
#include "servicerouter_proxy.h"

#include "child_mode.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_tempname.h"
#include "indgen.h"
#include "plat_files.h"
#include "run_program.h"
#include "scratch_folder.h"
#include "stp_transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <optional>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// What the proxy holds after parsing; unset entries must read as their start values.
struct Expect {
    bool launched = false;
    uint32_t port = 0;
    std::optional<std::string> host, zone, routerLog, internalLog, debugPlugin, debugger,
        debuggerOpts, debugDebugger, debugDebuggerOpts;
    bool hasCookie = false;
    uint32_t cookie = static_cast<uint32_t>(-1);
    bool privateRouter = false, newRouter = false, debugStartup = false;
};

struct OptionCase {
    const char* label;
    Words args;
    Words remaining;
    Expect expect;
};

std::optional<std::string> text(const char* s) {
    return s ? std::optional<std::string>(s) : std::nullopt;
}

// Runs parseOptions on a copy of the words as a real, null-terminated argument vector.
struct Parsed {
    Words remaining;
    bool terminated = false;
    ServiceRouter_Proxy* proxy = nullptr;
};

Parsed parse(const Words& words) {
    std::vector<std::string> storage = words;
    std::vector<char*> argv;
    for (std::string& w : storage)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(words.size());
    Parsed out;
    out.proxy = new ServiceRouter_Proxy();
    out.proxy->parseOptions(&argc, argv.data());
    for (int i = 0; i < argc; ++i)
        out.remaining.push_back(argv[i]);
    out.terminated = argv[argc] == nullptr;
    return out;
}

class RouterOptions : public testing::TestWithParam<OptionCase> {};

TEST_P(RouterOptions, TakesOutItsWordsAndSetsTheProxy) {
    const OptionCase& c = GetParam();
    testing::internal::CaptureStderr();
    Parsed p = parse(c.args);
    testing::internal::GetCapturedStderr();
    ServiceRouter_Proxy* proxy = p.proxy;
    EXPECT_EQ(p.remaining, c.remaining);
    EXPECT_TRUE(p.terminated);
    const Expect& e = c.expect;
    EXPECT_EQ(proxy->isLaunchedByRouter(), e.launched);
    EXPECT_EQ(proxy->getRouterPort(), e.port);
    EXPECT_EQ(text(proxy->getRouterHost()), e.host);
    EXPECT_EQ(text(proxy->getZone()), e.zone);
    EXPECT_EQ(text(proxy->getRouterLog()), e.routerLog);
    EXPECT_EQ(text(proxy->getRouterInternalLog()), e.internalLog);
    EXPECT_EQ(text(proxy->getDebugPlugin()), e.debugPlugin);
    EXPECT_EQ(text(proxy->getDebugger()), e.debugger);
    EXPECT_EQ(text(proxy->getDebuggerOpts()), e.debuggerOpts);
    EXPECT_EQ(text(proxy->getDebugDebugger()), e.debugDebugger);
    EXPECT_EQ(text(proxy->getDebugDebuggerOpts()), e.debugDebuggerOpts);
    EXPECT_EQ(proxy->hasClientStartCookie(), e.hasCookie);
    EXPECT_EQ(proxy->getClientStartCookie(), e.cookie);
    EXPECT_EQ(proxy->isPrivateRouter(), e.privateRouter);
    EXPECT_EQ(proxy->isNewRouter(), e.newRouter);
    EXPECT_EQ(proxy->isDebugStartup(), e.debugStartup);
    proxy->unref();
}

Expect launchedOn(uint32_t port) {
    Expect e;
    e.launched = true;
    e.port = port;
    return e;
}

Expect withCookie(uint32_t cookie) {
    Expect e;
    e.hasCookie = true;
    e.cookie = cookie;
    return e;
}

Expect with(std::optional<std::string> Expect::*field, const char* value) {
    Expect e;
    e.*field = value;
    return e;
}

Expect flags(bool privateRouter, bool newRouter) {
    Expect e;
    e.privateRouter = privateRouter;
    e.newRouter = newRouter;
    return e;
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RouterOptions,
    testing::Values(
        OptionCase{"nothing", {"p"}, {"p"}, {}},
        OptionCase{"connect", {"p", "-connect_servicerouter", "4000"}, {"p"}, launchedOn(4000)},
        OptionCase{
            "port_option", {"p", "-sr_connect_servicerouter_port", "17"}, {"p"}, launchedOn(17)},
        OptionCase{"hex_port", {"p", "-connect_servicerouter", "0x1f90"}, {"p"}, launchedOn(8080)},
        OptionCase{"octal_port", {"p", "-connect_servicerouter", "017"}, {"p"}, launchedOn(15)},
        OptionCase{"host",
                   {"p", "-sr_connect_servicerouter_host", "example"},
                   {"p"},
                   [] {
                       Expect e = launchedOn(0);
                       e.host = "example";
                       return e;
                   }()},
        OptionCase{"value_missing_at_end",
                   {"p", "x", "-connect_servicerouter"},
                   {"p", "x", "-connect_servicerouter"},
                   {}},
        OptionCase{"argv0_never_an_option", {"-sr_new", "-sr_zone"}, {"-sr_new", "-sr_zone"}, {}},
        OptionCase{"unknown_words_keep_their_order",
                   {"p", "a", "-sr_zone", "z", "b", "-sr_private", "c"},
                   {"p", "a", "b", "c"},
                   [] {
                       Expect e = flags(true, false);
                       e.zone = "z";
                       return e;
                   }()},
        OptionCase{
            "case_sensitive", {"p", "-SR_NEW", "-Sr_private"}, {"p", "-SR_NEW", "-Sr_private"}, {}},
        OptionCase{"value_that_looks_like_an_option",
                   {"p", "-sr_zone", "-sr_new"},
                   {"p"},
                   with(&Expect::zone, "-sr_new")},
        OptionCase{
            "cookie_zero_counts", {"p", "-sr_client_start_cookie", "0"}, {"p"}, withCookie(0)},
        OptionCase{"cookie_hex", {"p", "-sr_client_start_cookie", "0x10"}, {"p"}, withCookie(16)},
        OptionCase{"log_router",
                   {"p", "-sr_log_router", "r.log"},
                   {"p"},
                   with(&Expect::routerLog, "r.log")},
        OptionCase{"log_all_last_wins",
                   {"p", "-sr_log_router", "a", "-sr_log_all", "b"},
                   {"p"},
                   with(&Expect::routerLog, "b")},
        OptionCase{"log_internal",
                   {"p", "-sr_log_router_internal", "i"},
                   {"p"},
                   with(&Expect::internalLog, "i")},
        OptionCase{
            "shared_after_private", {"p", "-sr_private", "-sr_shared"}, {"p"}, flags(false, false)},
        OptionCase{"new_then_reuse", {"p", "-sr_new", "-sr_reuse"}, {"p"}, flags(false, false)},
        OptionCase{"new", {"p", "-sr_new"}, {"p"}, flags(false, true)},
        OptionCase{"debug_set",
                   {"p", "-sr_debug", "P", "-sr_debugger", "gdb", "-sr_debugger_opts", "-q"},
                   {"p"},
                   [] {
                       Expect e;
                       e.debugPlugin = "P";
                       e.debugger = "gdb";
                       e.debuggerOpts = "-q";
                       return e;
                   }()},
        OptionCase{
            "startup_debugger",
            {"p", "-sr_debug_startup", "-sr_debug_debugger", "d", "-sr_debug_debugger_opts", "o"},
            {"p"},
            [] {
                Expect e;
                e.debugStartup = true;
                e.debugDebugger = "d";
                e.debugDebuggerOpts = "o";
                return e;
            }()},
        OptionCase{"everything_between_others",
                   {"p", "-x", "-connect_servicerouter", "9", "-y", "-sr_zone", "z"},
                   {"p", "-x", "-y"},
                   [] {
                       Expect e = launchedOn(9);
                       e.zone = "z";
                       return e;
                   }()}),
    [](const testing::TestParamInfo<OptionCase>& info) { return std::string(info.param.label); });

TEST(RouterOptionsDir, IsMadeAbsolute) {
    Parsed p = parse({"p", "-sr_dir", "routers/here"});
    ASSERT_NE(p.proxy->getRouterDir(), nullptr);
    char* expected = gen_abspath("routers/here");
    EXPECT_STREQ(p.proxy->getRouterDir(), expected);
    EXPECT_TRUE(gen_is_absolute(p.proxy->getRouterDir()));
    gen_free(expected);
    p.proxy->unref();
}

TEST(RouterOptionsLog, OpensTheFileAndLogsTheProxysRecordsThere) {
    std::string path = testing::TempDir() + "sr_log_test.log";
    std::remove(path.c_str());
    Parsed p = parse({"p", "-sr_log", path});
    EXPECT_EQ(p.remaining, Words{"p"});
    ASSERT_NE(p.proxy->getLog(), nullptr);
    p.proxy->unref(); // writes "Destroying ServiceRouter_Proxy." and closes the file
    FILE* file = std::fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    char buffer[256] = {};
    size_t n = std::fread(buffer, 1, sizeof buffer - 1, file);
    std::fclose(file);
    std::string content(buffer, n);
    EXPECT_NE(content.find(": Destroying ServiceRouter_Proxy.\n"), std::string::npos) << content;
    std::remove(path.c_str());
}

TEST(RouterOptionsLog, AFileThatCannotBeOpenedLeavesNoLogAndSaysNothing) {
    testing::internal::CaptureStderr();
    Parsed p = parse({"p", "-sr_log", "/nonexistent-folder/x/y.log"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(p.remaining, Words{"p"});
    EXPECT_EQ(p.proxy->getLog(), nullptr);
    p.proxy->unref();
}

struct WarningCase {
    const char* label;
    Words args;
    std::vector<std::string> warnings;
};

class DebugOptionWarnings : public testing::TestWithParam<WarningCase> {};

TEST_P(DebugOptionWarnings, ReportsEachBrokenRuleAndGoesOn) {
    testing::internal::CaptureStderr();
    Parsed p = parse(GetParam().args);
    std::string err = testing::internal::GetCapturedStderr();
    std::string expected;
    for (const std::string& w : GetParam().warnings)
        expected += std::string(gen_program_name() ? gen_program_name() : "") +
                    (gen_program_name() ? ": " : "") + "warning: " + w + "\n";
    EXPECT_EQ(err, expected);
    EXPECT_EQ(p.remaining, Words{"p"});
    p.proxy->unref();
}

const char* kNeedDebugForDebugger = "Must specify -sr_debug for -sr_debugger to have meaning.";
const char* kNeedDebugForOpts = "Must specify -sr_debug for -sr_debugger_opts to have meaning.";
const char* kNeedBoth = "Must specify both -sr_debug_debugger and -sr_debug_debugger_opts when "
                        "-sr_debug_startup is passed.";
const char* kNeedStartup =
    "Must specify -sr_debug_startup with -sr_debug_debugger and -sr_debug_debugger_opts.";

INSTANTIATE_TEST_SUITE_P(
    Rules, DebugOptionWarnings,
    testing::Values(
        WarningCase{"debugger_alone", {"p", "-sr_debugger", "g"}, {kNeedDebugForDebugger}},
        WarningCase{"opts_alone", {"p", "-sr_debugger_opts", "o"}, {kNeedDebugForOpts}},
        WarningCase{"both_without_debug",
                    {"p", "-sr_debugger", "g", "-sr_debugger_opts", "o"},
                    {kNeedDebugForDebugger, kNeedDebugForOpts}},
        WarningCase{"with_debug_fine", {"p", "-sr_debug", "x", "-sr_debugger", "g"}, {}},
        WarningCase{"startup_alone", {"p", "-sr_debug_startup"}, {kNeedBoth}},
        WarningCase{
            "startup_half", {"p", "-sr_debug_startup", "-sr_debug_debugger", "d"}, {kNeedBoth}},
        WarningCase{"debugger_without_startup", {"p", "-sr_debug_debugger", "d"}, {kNeedStartup}},
        WarningCase{"opts_without_startup", {"p", "-sr_debug_debugger_opts", "o"}, {kNeedStartup}}),
    [](const testing::TestParamInfo<WarningCase>& info) { return std::string(info.param.label); });

// A child gets the standard streams and nothing else, even while the process holds its -sr_log
// file, a temporary file by name and by descriptor, a listening socket and a connection open.
TEST(ChildDescriptors, AChildInheritsOnlyTheStandardStreams) {
    ScratchFolder folder;
    // What this process got from its own parent is not the process's doing.
    std::vector<int> before = openDescriptors();
    Parsed p = parse({"p", "-sr_log", folder.at("proxy.log")});
    ASSERT_NE(p.proxy->getLog(), nullptr);
    std::string made = folder.at("vccommentXXXXXX");
    int temp = gen_make_temp(made.data());
    ASSERT_GE(temp, 0);
    char* named = gen_temp_name(folder.root().c_str(), "log");
    ASSERT_NE(named, nullptr);
    FILE* output = gen_fopen(named, "w");
    ASSERT_NE(output, nullptr);
    uint16_t port = 0;
    plat_socket listening = STPTransport::getEphemeralListenSocket(&port);
    ASSERT_NE(listening, PLAT_INVALID_SOCKET);
    STPTransport* client = new STPTransport;
    ASSERT_TRUE(client->connect("127.0.0.1", port));

    std::string list = folder.at("fds.txt");
    ProgramRun run =
        runProgram(childCommand("ChildDescriptors.DISABLED_List", {"--fd-list=" + list}));
    EXPECT_TRUE(run.finished && run.exitCode == 0) << run.err;
    std::vector<int> inChild;
    std::istringstream words(readFile(list));
    for (int fd; words >> fd;)
        inChild.push_back(fd);
    std::vector<int> opened;
    for (int fd : openDescriptors())
        if (std::find(before.begin(), before.end(), fd) == before.end())
            opened.push_back(fd);
    EXPECT_GE(opened.size(), 5u);
    std::vector<int> leaked;
    for (int fd : inChild)
        if (fd > 2 && std::find(before.begin(), before.end(), fd) == before.end())
            leaked.push_back(fd);
    EXPECT_EQ(leaked, std::vector<int>{}) << "opened here: " << testing::PrintToString(opened);
    EXPECT_TRUE(std::find(inChild.begin(), inChild.end(), 1) != inChild.end());
    EXPECT_TRUE(std::find(inChild.begin(), inChild.end(), 2) != inChild.end());

    client->unref();
    plat_close_socket(listening);
    std::fclose(output);
    gen_free(named);
    plat_close(temp);
    p.proxy->unref();
}

TEST(ChildDescriptors, DISABLED_List) {
    std::string text;
    for (int fd : openDescriptors())
        text += std::to_string(fd) + " ";
    writeFile(childArgument("fd-list"), text);
}

} // namespace
