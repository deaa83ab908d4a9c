// The router options of the command line: which words are taken out and what each sets (read
// from the proxy's options record), the automatic number base, a value-taking option as the last
// word, the debug warnings; and a child holding only the standard streams while the -sr_log file
// is open.
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

#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// The options that differ from their start values, in a fixed order.
std::string describe(const ServiceRouterOptions& o) {
    std::string d;
    auto add = [&](const std::string& text) { d += (d.empty() ? "" : " ") + text; };
    auto text = [&](const char* name, const char* value) {
        if (value)
            add(std::string(name) + "=" + value);
    };
    if (o.launched_by_router)
        add("launched");
    if (o.router_port)
        add("port=" + std::to_string(o.router_port));
    text("host", o.router_host);
    text("zone", o.zone);
    if (o.has_client_start_cookie)
        add("cookie=" + std::to_string(o.client_start_cookie));
    if (o.private_router)
        add("private");
    if (o.new_router)
        add("new");
    text("debug", o.debug_plugin);
    text("debugger", o.debugger);
    text("opts", o.debugger_opts);
    if (o.debug_startup)
        add("startup");
    text("debug_debugger", o.debug_debugger);
    text("debug_opts", o.debug_debugger_opts);
    text("log", o.router_log);
    text("internal", o.router_internal_log);
    return d;
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

struct OptionCase {
    const char* label;
    Words args;
    Words remaining;
    const char* options;
};

class RouterOptions : public testing::TestWithParam<OptionCase> {};

TEST_P(RouterOptions, TakesOutItsWordsAndSetsTheOptions) {
    const OptionCase& c = GetParam();
    testing::internal::CaptureStderr();
    Parsed p = parse(c.args);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(p.remaining, c.remaining);
    EXPECT_TRUE(p.terminated);
    EXPECT_EQ(describe(p.proxy->getOptions()), c.options);
    p.proxy->unref();
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RouterOptions,
    testing::Values(
        OptionCase{"nothing", {"p"}, {"p"}, ""},
        OptionCase{"connect", {"p", "-connect_servicerouter", "4000"}, {"p"}, "launched port=4000"},
        OptionCase{"port_option",
                   {"p", "-sr_connect_servicerouter_port", "17"},
                   {"p"},
                   "launched port=17"},
        OptionCase{"hex_and_octal",
                   {"p", "-connect_servicerouter", "0x1f90", "-sr_client_start_cookie", "017"},
                   {"p"},
                   "launched port=8080 cookie=15"},
        OptionCase{"host",
                   {"p", "-sr_connect_servicerouter_host", "example"},
                   {"p"},
                   "launched host=example"},
        OptionCase{"value_missing_at_end",
                   {"p", "x", "-connect_servicerouter"},
                   {"p", "x", "-connect_servicerouter"},
                   ""},
        OptionCase{"argv0_never_an_option", {"-sr_new", "-sr_zone"}, {"-sr_new", "-sr_zone"}, ""},
        OptionCase{"unknown_words_keep_their_order",
                   {"p", "a", "-sr_zone", "z", "b", "-sr_private", "c"},
                   {"p", "a", "b", "c"},
                   "zone=z private"},
        OptionCase{
            "case_sensitive", {"p", "-SR_NEW", "-Sr_private"}, {"p", "-SR_NEW", "-Sr_private"}, ""},
        OptionCase{
            "value_that_looks_like_an_option", {"p", "-sr_zone", "-sr_new"}, {"p"}, "zone=-sr_new"},
        OptionCase{"cookie_zero_counts", {"p", "-sr_client_start_cookie", "0"}, {"p"}, "cookie=0"},
        OptionCase{"logs_last_wins",
                   {"p", "-sr_log_router", "a", "-sr_log_all", "b", "-sr_log_router_internal", "i"},
                   {"p"},
                   "log=b internal=i"},
        OptionCase{"later_flags_win",
                   {"p", "-sr_private", "-sr_shared", "-sr_new", "-sr_reuse", "-sr_new"},
                   {"p"},
                   "new"},
        OptionCase{"debug_set",
                   {"p", "-sr_debug", "P", "-sr_debugger", "gdb", "-sr_debugger_opts", "-q"},
                   {"p"},
                   "debug=P debugger=gdb opts=-q"},
        OptionCase{
            "startup_debugger",
            {"p", "-sr_debug_startup", "-sr_debug_debugger", "d", "-sr_debug_debugger_opts", "o"},
            {"p"},
            "startup debug_debugger=d debug_opts=o"}),
    [](const testing::TestParamInfo<OptionCase>& info) { return std::string(info.param.label); });

TEST(RouterOptionsDir, IsMadeAbsolute) {
    Parsed p = parse({"p", "-sr_dir", "routers/here"});
    char* expected = gen_abspath("routers/here");
    ASSERT_NE(p.proxy->getOptions().router_dir, nullptr);
    EXPECT_STREQ(p.proxy->getOptions().router_dir, expected);
    gen_free(expected);
    p.proxy->unref();
}

TEST(RouterOptionsLog, OpensTheFileAndLogsTheProxysRecordsThere) {
    ScratchFolder folder;
    Parsed p = parse({"p", "-sr_log", folder.at("sr.log")});
    EXPECT_EQ(p.remaining, Words{"p"});
    ASSERT_NE(p.proxy->getLog(), nullptr);
    p.proxy->unref(); // writes "Destroying ServiceRouter_Proxy." and closes the file
    std::string content = readFile(folder.at("sr.log"));
    EXPECT_NE(content.find(": Destroying ServiceRouter_Proxy.\n"), std::string::npos) << content;

    // A file that cannot be opened leaves no log and says nothing.
    testing::internal::CaptureStderr();
    p = parse({"p", "-sr_log", "/nonexistent-folder/x/y.log"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(p.remaining, Words{"p"});
    EXPECT_EQ(p.proxy->getLog(), nullptr);
    p.proxy->unref();
}

const char* kNeedDebugForDebugger = "Must specify -sr_debug for -sr_debugger to have meaning.";
const char* kNeedDebugForOpts = "Must specify -sr_debug for -sr_debugger_opts to have meaning.";
const char* kNeedBoth = "Must specify both -sr_debug_debugger and -sr_debug_debugger_opts when "
                        "-sr_debug_startup is passed.";
const char* kNeedStartup =
    "Must specify -sr_debug_startup with -sr_debug_debugger and -sr_debug_debugger_opts.";

TEST(DebugOptionWarnings, EachBrokenRuleIsReportedAndNothingStops) {
    struct Case {
        Words args;
        std::vector<std::string> warnings;
    };
    for (const Case& c : std::vector<Case>{
             {{"p", "-sr_debugger", "g", "-sr_debugger_opts", "o"},
              {kNeedDebugForDebugger, kNeedDebugForOpts}},
             {{"p", "-sr_debug", "x", "-sr_debugger", "g"}, {}},
             {{"p", "-sr_debug_startup", "-sr_debug_debugger", "d"}, {kNeedBoth}},
             {{"p", "-sr_debug_debugger_opts", "o"}, {kNeedStartup}},
         }) {
        testing::internal::CaptureStderr();
        Parsed p = parse(c.args);
        std::string err = testing::internal::GetCapturedStderr();
        std::string expected;
        for (const std::string& w : c.warnings)
            expected += std::string(gen_program_name() ? gen_program_name() : "") +
                        (gen_program_name() ? ": " : "") + "warning: " + w + "\n";
        EXPECT_EQ(err, expected) << testing::PrintToString(c.args);
        EXPECT_EQ(p.remaining, Words{"p"});
        p.proxy->unref();
    }
}

// A child gets the standard streams and nothing else, even while the process holds its -sr_log
// file, a temporary file by name and by descriptor, a listening socket and a connection open.
TEST(ChildDescriptors, AChildInheritsOnlyTheStandardStreams) {
    std::vector<int> inherited = openDescriptors();
    ScratchFolder folder;
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
    EXPECT_GE(openDescriptors().size(), inherited.size() + 5);

    std::string list = folder.at("fds.txt");
    ProgramRun run =
        runProgram(childCommand("ChildDescriptors.DISABLED_List", {"--fd-list=" + list}));
    EXPECT_TRUE(run.finished && run.exitCode == 0) << run.err;
    EXPECT_EQ(leakedDescriptors(list, inherited), std::vector<int>{});

    client->unref();
    plat_close_socket(listening);
    std::fclose(output);
    gen_free(named);
    plat_close(temp);
    p.proxy->unref();
}

TEST(ChildDescriptors, DISABLED_List) {
    writeOpenDescriptors(childArgument("fd-list"));
}

} // namespace
