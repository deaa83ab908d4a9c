// The command line of cvsvc: which words become options, values and operands.
#include "cvsvc_options.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

struct ParseCase {
    std::vector<const char*> words; // behind the program name
    bool ok;
    // For a good line: the command's operands joined by '|', and what the options set.
    std::string operands;
    std::string expect; // "json", "tag=...", "rev=...", "lines=F-T", "msg=...", "port=N"
};

// The words of a case, for the names of the cases.
void PrintTo(const ParseCase& c, std::ostream* os) {
    for (size_t i = 0; i < c.words.size(); ++i)
        *os << (i == 0 ? "" : " ") << c.words[i];
}

Invocation parse(const ParseCase& c, bool* ok, std::string* error) {
    std::vector<const char*> argv{"cvsvc"};
    argv.insert(argv.end(), c.words.begin(), c.words.end());
    Invocation inv;
    *ok = parseInvocation(static_cast<int>(argv.size()), argv.data(), &inv, error);
    return inv;
}

class ParseInvocation : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseInvocation, TakesTheWordsApart) {
    const ParseCase& c = GetParam();
    bool ok = false;
    std::string error;
    Invocation inv = parse(c, &ok, &error);
    ASSERT_EQ(ok, c.ok) << error;
    if (!ok) {
        EXPECT_FALSE(error.empty());
        return;
    }
    std::string operands;
    for (const std::string& o : inv.operands)
        operands += (operands.empty() ? "" : "|") + o;
    EXPECT_EQ(operands, c.operands);
    std::string seen = inv.json ? "json" : "";
    if (inv.hasTag)
        seen = "tag=" + inv.tag;
    if (inv.hasRevision)
        seen = "rev=" + inv.revision + " lines=" + std::to_string(inv.fromLine) + "-" +
               std::to_string(inv.toLine);
    else if (inv.command && std::string(inv.command->name) == "blame")
        seen = "lines=" + std::to_string(inv.fromLine) + "-" + std::to_string(inv.toLine);
    if (inv.hasMessage)
        seen = "msg=" + inv.message;
    if (inv.routerPort)
        seen = "port=" + std::to_string(inv.routerPort);
    EXPECT_EQ(seen, c.expect);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ParseInvocation,
    ::testing::Values(
        ParseCase{{"scan", "--json"}, true, "", "json"},
        ParseCase{{"--json", "status", "a b", "c\"d"}, true, "a b|c\"d", "json"},
        ParseCase{{"blame", "f.c", "7"}, true, "f.c", "lines=7-7"},
        ParseCase{{"blame", "-r", "1.3", "f.c", "2-9"}, true, "f.c", "rev=1.3 lines=2-9"},
        ParseCase{{"blame", "f.c", "0-3"}, false, "", ""},
        ParseCase{{"blame", "f.c", "3-x"}, false, "", ""},
        ParseCase{{"commit", "-m", "-x is a message", "--", "-file"},
                  true,
                  "-file",
                  "msg=-x is a message"},
        ParseCase{{"exec", "--", "-n", "log", "--json"}, true, "-n|log|--json", ""},
        ParseCase{{"checkout", ":local:/r", "m", "d", "-r", "T1"}, true, ":local:/r|m|d", "tag=T1"},
        ParseCase{{"-connect_servicerouter", "4711", "update"}, true, "", "port=4711"},
        ParseCase{{"-connect_servicerouter", "70000", "update"}, false, "", ""},
        ParseCase{{"update", "-r", "T1"}, false, "", ""},
        ParseCase{{"switch", "d", "-D"}, false, "", ""}, ParseCase{{"info", "f.c"}, false, "", ""},
        ParseCase{{"--", "scan"}, false, "", ""}));

} // namespace
