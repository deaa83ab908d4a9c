// Configuration text as tokens: logical lines, directives and conditions, macros in and out of
// strings, includes, and the positions that reports carry. Each case is a file in a scratch
// folder; the tokens of a line are joined by blanks and lines by " | ".
#include "ut_line_source.h"

#include "report_capture.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// Every token of the file, a " | " where a new line begins.
std::string tokensOf(const std::string& path, ut_macro_table* macros = nullptr) {
    ut_line_source source(true, macros, nullptr);
    EXPECT_TRUE(source.open(path.c_str()));
    std::string out;
    bool first = true;
    for (;;) {
        bool newLine = source.at_end_of_line();
        char* token = source.next_token();
        if (token == nullptr)
            break;
        if (!first)
            out += newLine ? " | " : " ";
        out += token;
        first = false;
    }
    return out;
}

struct Case {
    const char* name;
    const char* text;
    const char* tokens;
    std::vector<std::string> reports; // with "<file>" for the path of the file
};

class Tokens : public testing::TestWithParam<Case> {};

TEST_P(Tokens, AreWhatTheTextGives) {
    ScratchFolder folder;
    std::string path = folder.at("case.cfg");
    writeFile(path, GetParam().text);
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_EQ(tokensOf(path), GetParam().tokens);
    std::vector<std::string> expected;
    for (std::string r : GetParam().reports) {
        size_t at = r.find("<file>");
        if (at != std::string::npos)
            r.replace(at, 6, path);
        expected.push_back(r);
    }
    EXPECT_EQ(ReportCapture::texts(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Tokens,
    testing::Values(Case{"continuation", "a \\\nb\nc", "a b | c", {}},
                    Case{"line_ends", "a\r\nb\rc\n", "a | b | c", {}},
                    Case{"comment", "a # b c\n# all\nd", "a | d", {}},
                    Case{"hash_in_string", "\"a # b\" c # d", "\"a # b\" c", {}},
                    Case{"unclosed_string", "\"abc\nd", "\"abc | d", {}},
                    Case{"words", "a/b_c 12x $ ;", "a/b_c 12x $ ;", {}},
                    Case{"operators", "a+=1 -- |= ^= == x.y", "a += 1 -- |= ^= = = x . y", {}},
                    Case{"percent_behind_a_blank", " %if 0", "% if 0", {}}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Conditions, Tokens,
    testing::Values(
        Case{"if_else", "%if 0\nfirst\n%else\nsecond\n%endif\n", "second", {}},
        Case{"only_first_branch", "%if 1\na\n%elif 1\nb\n%else\nc\n%endif", "a", {}},
        Case{"elif_taken", "%  if 0\na\n%elsif 2 > 1\nb\n%elseif 1\nc\n%endif", "b", {}},
        Case{"ifdef", "%define X\n%ifdef X\nyes\n%endif\n%ifdef Y\nno\n%endif", "yes", {}},
        Case{"nested_in_false", "%if 0\n%if NOPE\nx\n%else\ny\n%endif\n%endif\nz", "z", {}},
        Case{"undefined_in_active_if",
             "a\n%if NOPE\nb\n%endif",
             "a",
             {"error: \"<file>\", line 2: macro not defined(NOPE) ..."}},
        Case{"else_after_else",
             "%if 0\n%else\na\n%else\nb\n%endif",
             "a | b",
             {"error: \"<file>\", line 4: unexpected directive: else"}},
        Case{"stray_endif_and_elif",
             "%endif\n%elif 1\nx",
             "x",
             {"error: \"<file>\", line 1: unexpected directive: endif",
              "error: \"<file>\", line 2: unexpected directive: elif"}},
        Case{"illegal",
             "%frobnicate it\nx",
             "x",
             {"error: \"<file>\", line 1: illegal directive: \"%frobnicate it\""}},
        Case{"messages",
             "%info hello\n%warning careful\n%if 0\n%error hidden\n%endif\n%error \\\nshown",
             "",
             {"info: \"<file>\", line 1: hello", "warning: \"<file>\", line 2: careful",
              "error: \"<file>\", line 6: shown"}}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Macros, Tokens,
    testing::Values(
        Case{"define_and_use",
             "%define X hello world # note\n${X} \"$X\" \"${X}!\" \"$Xno\"",
             "hello world \"hello world\" \"hello world!\" \"$Xno\"",
             {}},
        Case{"undef", "%define X 1\n%undef X\n\"$X\"", "\"$X\"", {}},
        Case{"escaped_in_strings", "%define Q a\"b\\c\n\"${Q}\"", "\"a\\\"b\\\\c\"", {}},
        Case{"identifiers_in_macro_text", "%define A B 2\n%define B x\n\"$A\"", "\"x 2\"", {}},
        Case{"undefined_in_braces",
             "${NOPE} \"${NOPE}\" $",
             "NOPE \"NOPE\" $",
             {"error: \"<file>\", line 1: macro not defined(NOPE) ...",
              "error: \"<file>\", line 1: macro not defined(NOPE) ..."}},
        Case{"recursion",
             "%define A ${B}\n%define B ${A}\n${A} after\nnext",
             "A after | next",
             {"error: \"<file>\", line 3: error: macro recursion detected for: \"A\""}}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

TEST(LineSourceIncludes, AreReadRelativeToTheirFileWithTheirOwnDirectory) {
    ScratchFolder folder;
    writeFile(folder.at("main.cfg"), "\"${__DIR__}\"\n%include \"sub/inc.cfg\"\n\"${__DIR__}\"\n");
    writeFile(folder.at("sub/inc.cfg"), "\"${__DIR__}\"\n");
    ut_line_source source(true, nullptr, nullptr);
    ASSERT_TRUE(source.open(folder.at("main.cfg").c_str()));
    std::vector<std::string> seen;
    while (char* token = source.next_token()) {
        ut_line_source::unquote(token);
        seen.push_back(token);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{folder.root(), folder.at("sub"), folder.root()}));
    std::vector<std::string> files;
    for (auto* n = source.files_read().head; n; n = n->next)
        files.push_back(n->value.c_str());
    EXPECT_EQ(files, (std::vector<std::string>{folder.at("main.cfg"), folder.at("sub/inc.cfg")}));
}

TEST(LineSourceIncludes, AMissingOneEndsTheReading) {
    ScratchFolder folder;
    std::string main = folder.at("main.cfg");
    writeFile(main, "a\n\n%include \"missing.cfg\"\nb\n");
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_EQ(tokensOf(main), "a");
    EXPECT_EQ(ReportCapture::texts(),
              std::vector<std::string>{"error: could not open \"" + folder.at("missing.cfg") +
                                       "\" which was referenced at \"" + main + "\":3"});
}

TEST(LineSourceIncludes, AFileThatIncludesItselfStopsAtTheNestingLimit) {
    ScratchFolder folder;
    std::string main = folder.at("self.cfg");
    writeFile(main, "x\n%include \"self.cfg\"\n");
    ReportCapture capture;
    std::string tokens = tokensOf(main);
    EXPECT_EQ(std::count(tokens.begin(), tokens.end(), 'x'), ut_line_source::kMaxIncludeDepth);
    EXPECT_NE(ReportCapture::joined().find("could not open"), std::string::npos);
}

TEST(LineSource, PositionsNameTheFirstLineOfALogicalLine) {
    ScratchFolder folder;
    std::string path = folder.at("pos.cfg");
    writeFile(path, "a \\\n b\n\nc");
    ut_line_source source(true, nullptr, nullptr);
    EXPECT_EQ(source.position(), "");
    ASSERT_TRUE(source.open(path.c_str()));
    EXPECT_FALSE(source.open(path.c_str())) << "a second open is refused";
    std::vector<std::string> where;
    while (source.next_token())
        where.push_back(source.position());
    std::string line1 = "\"" + path + "\", line 1", line4 = "\"" + path + "\", line 4";
    EXPECT_EQ(where, (std::vector<std::string>{line1, line1, line4}));
}

TEST(LineSource, AcceptConsumesOnlyAMatchingText) {
    ScratchFolder folder;
    std::string path = folder.at("accept.cfg");
    writeFile(path, "\n  {a, b}");
    ut_line_source source(true, nullptr, nullptr);
    ASSERT_TRUE(source.open(path.c_str()));
    EXPECT_FALSE(source.accept("a"));
    EXPECT_TRUE(source.accept("{"));
    EXPECT_STREQ(source.next_token(), "a");
    EXPECT_TRUE(source.accept(","));
    source.skip_line();
    EXPECT_EQ(source.next_token(), nullptr);
}

TEST(LineSource, OuterMacrosOutliveTheSourceAndLocalOnesDoNot) {
    ScratchFolder folder;
    std::string path = folder.at("m.cfg");
    writeFile(path, "%define LOCAL 1\n${OUTER}\n");
    ut_macro_table outer;
    outer.define("OUTER", "from_outside");
    EXPECT_EQ(tokensOf(path, &outer), "from_outside");
    EXPECT_EQ(outer.lookup("LOCAL"), nullptr);
}

} // namespace
