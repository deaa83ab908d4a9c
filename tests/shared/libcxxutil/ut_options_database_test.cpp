// The options database: texts and the trees they give (shown in the written form), parse
// errors with their lines, the accessors, and a written tree that reads back the same, over
// generated trees.
#include "ut_options_database.h"

#include "report_capture.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

namespace {

struct Case {
    const char* name;
    const char* text;
    const char* tree;  // the text form of what was read
    const char* error; // "" when the read succeeds; otherwise the one report, after the path
};

class Read : public testing::TestWithParam<Case> {};

TEST_P(Read, GivesTheTreeOrTheErrorWithItsLine) {
    ScratchFolder folder;
    std::string path = folder.at("case.wbd");
    writeFile(path, GetParam().text);
    ReportCapture capture;
    ReportCapture::clear();
    ut_options_database db("test");
    bool ok = db.read(path.c_str());
    EXPECT_EQ(db.text(), GetParam().tree);
    if (*GetParam().error == '\0') {
        EXPECT_TRUE(ok);
        EXPECT_FALSE(db.had_errors());
        EXPECT_EQ(ReportCapture::joined(), "");
    } else {
        EXPECT_FALSE(ok);
        EXPECT_TRUE(db.had_errors());
        EXPECT_EQ(ReportCapture::texts(),
                  std::vector<std::string>{"error: \"" + path + "\", " + GetParam().error});
    }
}

INSTANTIATE_TEST_SUITE_P(
    Trees, Read,
    testing::Values(
        Case{"empty", "", "", ""},
        Case{"dots_find_the_child", "a.b = 1\na.c = 2\n", "a {\n    b = 1\n    c = 2\n}\n", ""},
        Case{"a_new_line_starts_at_the_scope", "a.b = 1\nc = 2\n", "c = 2\na {\n    b = 1\n}\n",
             ""},
        Case{"one_line_stays_in_the_group", "a.b = 1 c = 2", "a {\n    b = 1\n    c = 2\n}\n", ""},
        Case{"braces", "g {\n  x = 1\n  h { y = \"z\" }\n  w = 2\n}\nv = 3",
             "v = 3\ng {\n    x = 1\n    w = 2\n    h {\n        y = \"z\"\n    }\n}\n", ""},
        Case{"words", "a = nonsense\nb = onward\nc = FALSE\nd = Yes\ne = off\nf = TRUE2",
             "a = 0\nb = 1\nc = 0\nd = 1\ne = 0\nf = 1\n", ""},
        Case{"numbers", "a = -5; b = 0x1F; c = 010; d = 4294967295; e = - 2147483648",
             "a = -5\nb = 31\nc = 8\nd = -1\ne = -2147483648\n", ""},
        Case{"strings_and_appending", "s = \"a\\\\b\"\ns += \"c\"\nt = 5\nt += \"x\"",
             "s = \"a\\\\bc\"\nt = \"x\"\n", ""},
        Case{"another_type_replaces", "n = 1\nn = \"one\"\nm = \"x\"\nm = { \"p\" }",
             "n = \"one\"\nm = { \"p\" }\n", ""},
        Case{"lists", "l = { \"a\"\n  , \"b\"\n  }\nm = { }\nl += { \"c\" }",
             "l = { \"a\", \"b\", \"c\" }\nm = {  }\n", ""},
        Case{"quoted_names", "\"my name\" = 1\n\"x_y\".\"#\" = 2",
             "\"my name\" = 1\n\"x_y\" {\n    \"#\" = 2\n}\n", ""},
        Case{"directives", "%define V 7\n%if V > 5\nx = ${V}\n%else\nx = 0\n%endif\ny = \"${V}\"",
             "x = 7\ny = \"7\"\n", ""}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Errors, Read,
    testing::Values(
        Case{"not_a_number", "a = 1\nb = hello\nc = 2", "a = 1\n",
             "line 2: parse error: expected a number: \"hello\""},
        Case{"name_at_line_end", "a\n= 1", "", "line 1: parse error: unexpected end of file"},
        Case{"open_list", "a = { \"x\"", "a = { \"x\" }\n", "line 1: parse error: expected '}'"},
        Case{"list_on_the_next_line", "a = {\n\"x\" }", "",
             "line 1: parse error: unexpected end of line"},
        Case{"line_end_behind_a_comma", "a = { \"x\",\n\"y\" }", "a = { \"x\" }\n",
             "line 1: parse error: unexpected end of line"},
        Case{"unquoted_list_element", "a = { x }", "",
             "line 1: parse error: expected a quoted string in the list: \"x\""},
        Case{"unknown_operator", "a ~ 1", "",
             "line 1: parse error: unknown operator sequence \"~\" "},
        Case{"unknown_two_characters", "a -= 1", "",
             "line 1: parse error: unknown operator sequence \"-=\" "},
        Case{"number_append", "a += 1", "",
             "line 1: parse error: '+=' needs a string or number lists"},
        Case{"empty_name", "= 1", "", "line 1: parse error: empty attribute name"},
        Case{"no_value", "a =", "", "line 1: parse error: empty attribute value"},
        Case{"lone_minus", "a = -", "", "line 1: parse error: unexpected end of line"},
        Case{"too_big", "a = 0x100000000", "",
             "line 1: parse error: number out of range: \"0x100000000\""},
        Case{"close_without_open", "a = 1\n}\nb = 2", "a = 1\n",
             "line 2: parse error: '}' with no open group"}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

TEST(OptionsDatabase, KeepGoingSkipsTheBadLineAndStillFails) {
    ScratchFolder folder;
    std::string path = folder.at("k.wbd");
    writeFile(path, "a = 1\nb = bad\nc = 2\n");
    ReportCapture capture;
    ut_options_database db("test");
    db.keep_going = true;
    EXPECT_FALSE(db.read(path.c_str()));
    EXPECT_EQ(db.text(), "a = 1\nc = 2\n");
}

TEST(OptionsDatabase, TheFlatFormTakesValuesAsWrittenAndWritesPaths) {
    ScratchFolder folder;
    std::string path = folder.at("flat.cfg");
    writeFile(path, "a.b.c=hello\nTop=\"quoted value\"\nn=12\n");
    ut_options_database db("flat");
    db.flat_format = true;
    ASSERT_TRUE(db.read(path.c_str()));
    EXPECT_STREQ(db.get_opt_str_attribute("n", ""), "12");
    db.add_or_replace_int32_attribute("i", -3);
    EXPECT_EQ(db.text(), "Top=\"quoted value\"\nn=\"12\"\ni=-3\na.b.c=\"hello\"\n");
}

TEST(OptionsDatabase, AClosingBraceReturnsToTheRootOfTheRead) {
    ScratchFolder folder;
    std::string path = folder.at("r.wbd");
    writeFile(path, "g {\nx = 1\n}\ny = 2\n");
    ut_options_database db("test");
    ut_options_group* into = db.add_child("into");
    EXPECT_TRUE(db.read(path.c_str(), into));
    EXPECT_EQ(db.text(), "into {\n    y = 2\n    g {\n        x = 1\n    }\n}\n");
}

TEST(OptionsDatabase, NumberListsDoNotSurviveAWrite) {
    ScratchFolder folder;
    std::string path = folder.at("n.wbd");
    writeFile(path, "l = { 1, -2 }\nl += 3\n");
    ut_options_database db("test");
    db.number_lists = true;
    ASSERT_TRUE(db.read(path.c_str()));
    EXPECT_EQ(db.find_attribute("l")->numbers, (std::vector<int32_t>{1, -2, 3}));
    ASSERT_TRUE(db.write(path.c_str()));
    EXPECT_EQ(readFile(path), "l = ...\n");
    ReportCapture capture;
    ut_options_database again("test");
    EXPECT_FALSE(again.read(path.c_str()));
}

TEST(OptionsDatabase, FilesThatCannotBeOpenedOrWritten) {
    ScratchFolder folder;
    ReportCapture capture;
    ReportCapture::clear();
    ut_options_database db("test");
    db.add_or_replace_int32_attribute("keep", 1);
    EXPECT_FALSE(db.read(folder.at("absent.wbd").c_str()));
    EXPECT_TRUE(db.had_errors());
    EXPECT_TRUE(db.file_failed());
    EXPECT_EQ(db.text(), "keep = 1\n");
    std::string bad = folder.at("no/such/dir/x.wbd");
    EXPECT_FALSE(db.write(bad.c_str()));
    EXPECT_EQ(ReportCapture::texts(),
              std::vector<std::string>{"error: failed when writing " + bad});
}

TEST(OptionsGroup, RequiredAttributesWarnWithTheFullNameAndTheFile) {
    ScratchFolder folder;
    std::string path = folder.at("f.wbd");
    writeFile(path, "a.b.s = \"text\"\na.b.n = 4\na.b.l = { \"x\", \"y\" }\n");
    ut_options_database db("test");
    ASSERT_TRUE(db.read(path.c_str()));
    ut_options_group* b = db.find_child("a", "b");
    ASSERT_NE(b, nullptr);
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_STREQ(b->get_str_attribute("s", "d"), "text");
    EXPECT_EQ(b->get_int32_attribute("s", 9), 9);
    EXPECT_EQ(b->flags & ut_options_group::MISSING_REQUIRED, ut_options_group::MISSING_REQUIRED);
    EXPECT_EQ(ReportCapture::texts(),
              std::vector<std::string>{"warning: \"" + path +
                                       ":a.b\": is missing required int32 attribute \"s\""});
    EXPECT_EQ(b->get_opt_int32_attribute("missing", 3), 3);
    EXPECT_TRUE(b->get_opt_bool_attribute("n", false));
    EXPECT_EQ(b->get_opt_str_array_attribute("l").size(), 2u);
    EXPECT_EQ(b->get_opt_str_array_attribute("s").size(), 1u);
    EXPECT_TRUE(b->get_opt_str_array_attribute("n").empty());
    EXPECT_EQ(db.get_opt_int32_attribute("a", "x", 8), 8);
    EXPECT_EQ(b->attribute(2).asNumber(), -1);
    EXPECT_EQ(b->attribute(1).asString(), nullptr);
    b->add_or_replace_str_attribute("num", "0x20");
    b->add_or_replace_str_attribute("minus", "-1");
    EXPECT_EQ(b->get_opt_number_attribute("num", 0), 32);
    EXPECT_EQ(b->get_opt_number_attribute("minus", 7), 7);
    EXPECT_EQ(b->get_opt_number_attribute("s", 7), 7);
}

TEST(OptionsGroup, ChildrenCanBeCopiedMergedSortedAndRemoved) {
    ut_options_database db("test");
    ut_options_group* a = db.add_child("a");
    a->add_str_attribute("k", "2");
    a->add_child("inner")->add_int32_attribute("v", 1);
    ut_options_group* b = db.add_child("b");
    b->add_str_attribute("k", "1");
    db.add_child("c");
    db.copy_child(a, "a2", false);
    db.copy_child(a, nullptr, true);
    EXPECT_EQ(db.child_count(), 5);
    db.sort_children("k");
    std::vector<std::string> order;
    for (ut_options_group* g = db.first_child(); g; g = g->next_sibling())
        order.push_back(g->name().c_str() + std::string(g->first_child() ? "+" : ""));
    EXPECT_EQ(order, (std::vector<std::string>{"b", "a+", "a+", "a2", "c"}));
    b->add_str_list_attribute("list", {"x"});
    a->merge_attributes(b, false);
    EXPECT_STREQ(a->get_opt_str_attribute("k", ""), "2");
    a->merge_attributes(b, true);
    EXPECT_STREQ(a->get_opt_str_attribute("k", ""), "1");
    EXPECT_FALSE(a->attribute_exists("list"));
    EXPECT_TRUE(db.remove_child(b, true));
    EXPECT_FALSE(db.remove_child(b, false));
    EXPECT_EQ(db.find_child("b"), nullptr);
    EXPECT_EQ(a->find_child("inner")->full_name(false), "a.inner");
}

// ---- A written tree reads back the same

// Bytes that the text form must carry through: quotes, backslashes, line ends, macro and
// comment signs, directive signs, blanks, high bytes.
const char kAlphabet[] = "aZ09_ \"\\'\n\r\t\x01\x02\x03$#%{}=.,;\x7f\xc3\xa9";

std::string randomText(std::mt19937& rng, size_t maxLength, bool allowEmpty) {
    std::uniform_int_distribution<size_t> length(allowEmpty ? 0 : 1, maxLength);
    std::uniform_int_distribution<size_t> pick(0, sizeof kAlphabet - 2);
    std::string out;
    for (size_t n = length(rng); out.size() < n;)
        out += kAlphabet[pick(rng)];
    return out;
}

void fillGroup(std::mt19937& rng, ut_options_group* group, int depth) {
    std::uniform_int_distribution<int> count(0, 4), kind(0, 2);
    int attributes = count(rng);
    for (int i = 0; i < attributes; ++i) {
        // Names are unique within a group: a counter in front keeps them apart.
        std::string name = std::to_string(i) + randomText(rng, 6, true);
        switch (kind(rng)) {
        case 0:
            group->add_str_attribute(name.c_str(), randomText(rng, 12, true).c_str());
            break;
        case 1: {
            int32_t values[] = {0, 1, -1, INT32_MIN, INT32_MAX, static_cast<int32_t>(rng())};
            group->add_int32_attribute(name.c_str(), values[rng() % 6]);
            break;
        }
        default: {
            std::vector<ut_string> list;
            for (int k = count(rng); k > 0; --k)
                list.push_back(ut_string(randomText(rng, 8, true).c_str()));
            group->add_str_list_attribute(name.c_str(), list);
        }
        }
    }
    if (depth == 0)
        return;
    int children = count(rng);
    for (int i = 0; i < children; ++i)
        fillGroup(rng, group->add_child((std::to_string(i) + randomText(rng, 6, true)).c_str()),
                  depth - 1);
}

::testing::AssertionResult sameTree(const ut_options_group* a, const ut_options_group* b) {
    if (a->name() != b->name())
        return testing::AssertionFailure() << "group " << a->name().c_str();
    if (a->attribute_count() != b->attribute_count() || a->child_count() != b->child_count())
        return testing::AssertionFailure() << "counts in " << a->full_name(false).c_str();
    for (int i = 0; i < a->attribute_count(); ++i) {
        const ut_options_attribute& x = a->attribute(i);
        const ut_options_attribute& y = b->attribute(i);
        if (x.name != y.name || x.type != y.type || x.str != y.str || x.number != y.number ||
            x.strings != y.strings)
            return testing::AssertionFailure() << "attribute " << x.name.c_str();
    }
    for (const ut_options_group *c = a->first_child(), *d = b->first_child(); c;
         c = c->next_sibling(), d = d->next_sibling())
        if (auto r = sameTree(c, d); !r)
            return r;
    return testing::AssertionSuccess();
}

TEST(OptionsDatabaseRoundTrip, GeneratedTreesReadBackAsTheyWereWritten) {
    ScratchFolder folder;
    std::string path = folder.at("tree.wbd");
    ReportCapture capture;
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        std::mt19937 rng(seed);
        ut_options_database written("written");
        fillGroup(rng, &written, 3);
        ASSERT_TRUE(written.write(path.c_str()));
        ut_options_database read("read");
        ASSERT_TRUE(read.read(path.c_str())) << "seed " << seed << "\n"
                                             << readFile(path) << ReportCapture::joined();
        ASSERT_TRUE(sameTree(&written, &read)) << "seed " << seed << "\n" << readFile(path);
        EXPECT_EQ(read.text(), written.text());
    }
}

} // namespace
