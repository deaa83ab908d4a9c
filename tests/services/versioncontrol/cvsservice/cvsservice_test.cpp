// The cvsservice entry: which command lines count as launched by a router, and what the
// program does with the others, run as a real process.
#include "cvsservice.h"

#include "run_program.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct OptionCase {
    std::vector<std::string> args;
    bool expected;
};

// Names cases by their number, so that test listings stay readable.
std::string caseName(const testing::TestParamInfo<OptionCase>& info) {
    return "line" + std::to_string(info.index);
}

class RouterConnectOption : public testing::TestWithParam<OptionCase> {};

TEST_P(RouterConnectOption, FindsAConnectOptionWithAValueBehindIt) {
    std::vector<std::string> args = GetParam().args;
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    EXPECT_EQ(hasRouterConnectOption(static_cast<int>(args.size()), argv.data()),
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RouterConnectOption,
    testing::Values(OptionCase{{"cvsservice"}, false},
                    OptionCase{{"cvsservice", "-connect_servicerouter"}, false},
                    OptionCase{{"cvsservice", "-connect_servicerouter", "4000"}, true},
                    OptionCase{{"cvsservice", "-sr_connect_servicerouter_host", "h"}, true},
                    OptionCase{{"cvsservice", "-sr_connect_servicerouter_port", "9"}, true},
                    OptionCase{{"cvsservice", "x", "-sr_connect_servicerouter_port"}, false},
                    OptionCase{{"cvsservice", "-sr_zone", "z", "-sr_new"}, false},
                    OptionCase{{"cvsservice", "-CONNECT_SERVICEROUTER", "1"}, false},
                    // argv[0] counts for this test; the option parser itself starts at 1.
                    OptionCase{{"-connect_servicerouter", "1"}, true}),
    caseName);

const std::string kStandalone = "The cvsservice may not be run as a standalone program.\n";

TEST(CvsServiceProcess, RefusesToRunStandalone) {
    for (std::vector<std::string> args :
         {std::vector<std::string>{CVSSERVICE_PATH},
          std::vector<std::string>{CVSSERVICE_PATH, "-connect_servicerouter"},
          std::vector<std::string>{CVSSERVICE_PATH, "-sr_zone", "z", "extra"}}) {
        ProgramRun run = runProgram(args);
        ASSERT_TRUE(run.started);
        ASSERT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err, kStandalone);
        EXPECT_EQ(run.out, "");
    }
}

TEST(CvsServiceProcess, WithARouterOptionItTriesToConnectAndFailsWithExitOne) {
    ProgramRun run = runProgram({CVSSERVICE_PATH, "-sr_connect_servicerouter_host", "localhost"});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err, kStandalone);
    EXPECT_EQ(run.err.rfind("cvsservice: error: ", 0), 0u) << run.err;
}

} // namespace
