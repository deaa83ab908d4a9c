// The expressions of `%if`: operators, precedence, macros, functions and parse errors, evaluated
// with the preprocessor as the evaluator's client.
#include "ut_simple_integer_evaluator.h"

#include "report_capture.h"
#include "scratch_folder.h"
#include "ut_simple_preprocessor.h"

#include <gtest/gtest.h>

namespace {

struct Case {
    const char* text;
    int32_t value;
    const char* report; // "" for none; otherwise the one report expected
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << c.text;
}

class Evaluate : public testing::TestWithParam<Case> {};

TEST_P(Evaluate, GivesTheValueAndReportsWhatIsWrong) {
    ReportCapture capture;
    ReportCapture::clear();
    simple_preprocessor pre('%', nullptr, nullptr, nullptr);
    pre.define("FIVE", "5");
    pre.define("EXPR", "FIVE + 2");
    pre.define("EMPTY", "");
    pre.define("NAME", "abc");
    pre.define("ALSO_ABC", "abc");
    pre.define("LOOP", "LOOP + 1");
    const Case& c = GetParam();
    EXPECT_EQ(pre.evaluator().evaluate(c.text, false), c.value);
    std::vector<std::string> reports = ReportCapture::texts();
    if (*c.report == '\0')
        EXPECT_TRUE(reports.empty()) << ReportCapture::joined();
    else
        EXPECT_EQ(reports, std::vector<std::string>{std::string("error: ") + c.report});
}

INSTANTIATE_TEST_SUITE_P(
    Operators, Evaluate,
    testing::Values(Case{"1 + 2", 3, ""}, Case{"10-3-2", 9, ""}, Case{"0x10 + 010", 24, ""},
                    Case{"-1 > 1", 1, ""}, Case{"1 < -1", 1, ""}, Case{"-1 >= -1", 1, ""},
                    Case{"2 <= 1", 0, ""}, Case{"1 << 33", 2, ""}, Case{"-2 >> 28", 15, ""},
                    Case{"0xFFFFFFFF + 2", 1, ""}, Case{"!0", 1, ""}, Case{"!7", 0, ""},
                    Case{"- 2 + 3", 1, ""}, Case{"-(2 + 3)", -5, ""}, Case{"+4", 4, ""},
                    Case{"3 - 1 == 2", 1, ""}, Case{"1 != 1", 0, ""}, Case{"(1, 2)", 2, ""},
                    Case{"5 || 0", 1, ""}, Case{"0 && 1", 0, ""}, Case{"6 & 3", 2, ""},
                    Case{"6 | 3", 7, ""}, Case{"6 ^ 3", 5, ""}, Case{"1 + 2 == 3 && 4 > 3", 1, ""},
                    Case{"1 | 2 ^ 3 & 4", 3, ""}));

INSTANTIATE_TEST_SUITE_P(
    MacrosAndFunctions, Evaluate,
    testing::Values(Case{"FIVE + 1", 6, ""}, Case{"EXPR", 7, ""}, Case{"EMPTY", 0, ""},
                    Case{"NOPE + 1", 1, "macro not defined(NOPE) ..."},
                    Case{"LOOP", 32, "macro recursion detected for: \"LOOP\""},
                    Case{"defined(FIVE) + defined(NOPE)", 1, ""},
                    Case{"notempty(EMPTY) + 2 * 0", 2, "parse error: near: \"* 0\""},
                    Case{"notempty(NAME)", 1, ""}, Case{"streq(NAME, \"x\", \"abc\")", 1, ""},
                    Case{"streq(NAME, ALSO_ABC)", 1, ""}, Case{"streq(NAME, \"abd\")", 0, ""},
                    Case{"streq(NOPE, \"a\")", 0, "macro not defined(NOPE) ..."},
                    Case{"streq(NAME)", 0, "too few arguments streq"},
                    Case{"defined(a, b)", 0, "too many arguments defined"},
                    Case{"env(HOME)", 0, ""}, Case{"foo(a)", 0, "unknown function: foo"},
                    Case{"defined(a,a,a,a,a,a,a,a,a,a,a,a,a)", 0,
                         "parse error: too many arguments"}));

INSTANTIATE_TEST_SUITE_P(ParseErrors, Evaluate,
                         testing::Values(Case{"1 +", 1, "parse error: near: \"\""},
                                         Case{"1 $ 2", 1, "parse error: near: \"$ 2\""},
                                         Case{"\"str\"", 0, "parse error: near: \"\"str\"\""},
                                         Case{"1 = 2", 1, "parse error: near: \"= 2\""},
                                         Case{"(1 + 2", 3, ""},
                                         Case{"defined(1)", 0, "parse error: near: \"1)\""}));

TEST(EvaluateSkipping, ReportsNothingAndReadsNoMacro) {
    ReportCapture capture;
    ReportCapture::clear();
    simple_preprocessor pre('%', nullptr, nullptr, nullptr);
    pre.define("ONE", "1");
    EXPECT_EQ(pre.evaluator().evaluate("ONE + NOPE + 2", true), 2);
    EXPECT_EQ(pre.evaluator().evaluate("streq(NOPE, \"x\")", true), 0);
    EXPECT_TRUE(ReportCapture::texts().empty()) << ReportCapture::joined();
}

TEST(EvaluateHooks, VariablesOfTheHooksComeAfterTheMacros) {
    ut_preprocessor_hooks hooks;
    hooks.has_variable = [](void*, const char* name) { return std::string(name) == "LEVEL"; };
    hooks.get_variable = [](void*, const char*) { return ut_string("0x20"); };
    ut_macro_table outer;
    outer.define("OUTER", "3");
    simple_preprocessor pre('%', &outer, &hooks, nullptr);
    EXPECT_EQ(pre.evaluator().evaluate("env(LEVEL) + LEVEL + OUTER", false), 67);
    EXPECT_EQ(pre.evaluator().evaluate("env(NOPE) + defined(LEVEL)", false), 1);
    pre.define("OUTER", "10");
    EXPECT_EQ(pre.evaluator().evaluate("OUTER", false), 10) << "local macros come first";
}

TEST(EvaluateFiles, FileexistsTakesTheDirectoryMacros) {
    ScratchFolder folder;
    writeFile(folder.at("present.cfg"), "x");
    simple_preprocessor pre('%', nullptr, nullptr, nullptr);
    pre.define("__DIR__", folder.root().c_str());
    EXPECT_EQ(pre.evaluator().evaluate("fileexists(\"${__DIR__}/present.cfg\")", false), 1);
    EXPECT_EQ(pre.evaluator().evaluate("file_exists(\"${__DIR__}/absent.cfg\")", false), 0);
}

TEST(Unquote, ReadsEveryEscape) {
    std::string text = "\"a\\\"b\\'\\?\\\\\\a\\b\\f\\n\\r\\t\\v\\101\\x41\\x4g\\q\\400\"";
    EXPECT_EQ(ut_unquote_escapes(text.data(), text.size()), "a\"b'?\\\a\b\f\n\r\t\vAA\x04gq400");
    std::string open = "\"no end";
    EXPECT_EQ(ut_unquote_escapes(open.data(), open.size()), "no end");
}

} // namespace
