// The parser of cvs update and checkout output: golden files captured from real cvs 1.12 in
// local and :fork: working copies (scan_ cases parsed as a scan, all others in update mode),
// and hand-written texts in the wording of an older cvs and in odd shapes.
#include "cvs_update_parser.h"

#include "golden_files.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string kData = CVSS_TEST_DATA_DIR;

// Every record of `text`, one line each: its number and its path.
std::string describeRecords(const std::string& text, bool update_mode) {
    std::string out;
    const char* cursor = text.c_str();
    UpdateRecord record;
    while (cursor && *cursor) {
        const char* next = nullptr;
        if (!parseUpdateOutput(cursor, "/w", update_mode, &next, &record))
            break;
        out += std::to_string(record._type) + " " + goldenText(record.path.c_str()) + "\n";
        cursor = next;
    }
    return out;
}

TEST(UpdateParserGolden, OutputsOfRealCvsInEveryState) {
    GoldenFolder golden(kData + "/cvs_update_parser");
    ASSERT_FALSE(golden.cases().empty());
    for (const std::string& name : golden.cases()) {
        bool update_mode = name.find("_scan_") == std::string::npos;
        EXPECT_TRUE(golden.matches(name, describeRecords(golden.input(name), update_mode))) << name;
    }
}

TEST(UpdateParser, OlderWordingAndOddShapes) {
    const std::string merge = "RCS file: /r/a.c,v\nretrieving revision 1.1\n"
                              "retrieving revision 1.2\nMerging differences between 1.1 and "
                              "1.2 into a.c\n";
    struct Case {
        const char* name;
        std::string text;
        const char* scan;   // records without update_mode
        const char* update; // with it
    } cases[] = {
        {"names with directories", "U sub/dir/x.c\n? sub/new\n",
         "1700 \"/w/sub/dir/x.c\"\n"
         "2000 \"/w/sub/new\"\n",
         "2000 \"/w/sub/new\"\n"},
        {"a run of U lines to the end", "M a.c\nU b.c\nU c.c\n",
         "1200 \"/w/a.c\"\n1700 \"/w/b.c\"\n1700 \"/w/c.c\"\n", "1200 \"/w/a.c\"\n"},
        {"a U line without newline in update mode", "U b.c", "1700 \"/w/\"\n", ""},
        {"the server's pertinence warning",
         "cvs server: warning: a.c is not (any longer) pertinent\n", "1600 \"/w/a.c\"\n", ""},
        {"no longer in the repository, server and client prefixes",
         "cvs server: a.c is no longer in the repository\n"
         "cvs update: b.c is no longer in the repository\n",
         "1600 \"/w/a.c\"\n1600 \"/w/b.c\"\n", ""},
        {"a clean merge", merge + "M a.c\n", "600 \"/w/a.c\"\n", "600 \"/w/a.c\"\n"},
        {"a merge with conflicts", merge + "C a.c\n", "500 \"/w/a.c\"\n", "700 \"/w/a.c\"\n"},
        {"a merge with another outcome goes on at that line", merge + "A a.c\nM b.c\n",
         "1000 \"/w/a.c\"\n1200 \"/w/b.c\"\n", "1000 \"/w/a.c\"\n1200 \"/w/b.c\"\n"},
        {"a merge line with nothing behind it ends the parse", "M z.c\n" + merge,
         "1200 \"/w/z.c\"\n", "1200 \"/w/z.c\"\n"},
        {"RCS file without a merge is passed over", "RCS file: /r/a.c,v\nR a.c\n",
         "1100 \"/w/a.c\"\n", "1100 \"/w/a.c\"\n"},
        {"a merge line alone is passed over",
         "Merging differences between 1.1 and 1.2 into a.c\nM a.c\n", "1200 \"/w/a.c\"\n",
         "1200 \"/w/a.c\"\n"},
        {"unrecognised lines", "P a.c\n?\n?x\nm a.c\ncvs checkout: Updating x\n", "", ""},
        {"conflict remarks of every prefix",
         "rcsmerge: warning: conflicts during merge\ncvs server: conflicts found in a\n"
         "cvs update: conflicts found in b\ncvs checkout: conflicts found in c\n",
         "", ""},
        {"a marker searched beyond the line",
         "cvs update: conflict: `x' is modified but no longer in the repository\n"
         "cvs server: y is no longer in the repository\n",
         "1600 \"/w/conflict: `x' is modified but no longer in the repository\\ncvs server: y\"\n"
         "1600 \"/w/y\"\n",
         ""},
        {"a quoted remark that isn't the whole line falls to the older row",
         "cvs update: `a.c' is no longer in the repository (really)\n"
         "cvs checkout: `b.c' is no longer in the repository (really)\n",
         "1600 \"/w/\"\n", ""},
        {"the last line without newline", "C a.c", "700 \"/w/\"\n", "700 \"/w/\"\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(describeRecords(c.text, false), c.scan) << c.name;
        EXPECT_EQ(describeRecords(c.text, true), c.update) << c.name << " (update mode)";
    }
}

TEST(UpdateParser, NextStandsBehindTheRecordsLine) {
    std::string text = "RCS file: /r/a.c,v\nretrieving revision 1.1\nretrieving revision 1.2\n"
                       "Merging differences between 1.1 and 1.2 into a.c\nM a.c\nM b.c";
    const char* next = "stale";
    UpdateRecord record;
    ASSERT_TRUE(parseUpdateOutput(text.c_str(), "/w/", false, &next, &record));
    EXPECT_STREQ(record.path.c_str(), "/w/a.c");
    EXPECT_STREQ(next, "M b.c");
    // The last line: a record with no `next`.
    ASSERT_TRUE(parseUpdateOutput("M b.c\n", "/w", false, &next, &record));
    EXPECT_STREQ(next, "");
    ASSERT_TRUE(parseUpdateOutput("M b.c", "/w", false, &next, &record));
    EXPECT_EQ(next, nullptr);
    next = "stale";
    EXPECT_FALSE(parseUpdateOutput("", "/w", false, &next, &record));
    EXPECT_EQ(next, nullptr);
    EXPECT_FALSE(parseUpdateOutput(nullptr, "/w", true, &next, &record));
}

TEST(UpdateParser, LongRunsOfPassedOverLinesCostNoStack) {
    std::string text;
    for (int i = 0; i < 200000; ++i)
        text += i % 2 ? "U x.c\n" : "retrieving revision 1.1\n";
    text += "M end.c\n";
    // One call passes over every line in update mode.
    EXPECT_EQ(describeRecords(text, true), "1200 \"/w/end.c\"\n");
    EXPECT_TRUE(describeRecords(text, false).ends_with("1700 \"/w/x.c\"\n1200 \"/w/end.c\"\n"));
}

} // namespace
