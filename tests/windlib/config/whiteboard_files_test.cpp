// Group files: what each block gives a group, values of the wrong kind, files that are missing,
// empty or broken, merging and replacing a group of the WhiteBoard, and where the files lie.
#include "whiteboard_files.h"

#include "report_capture.h"
#include "scratch_folder.h"
#include "whiteboard.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

// The values of a group, one type after the other, in map order.
std::string dump(const Group& g) {
    std::string out;
    for (const auto& [n, v] : g.bools())
        out += std::string("bool ") + n.c_str() + "=" + (v ? "1" : "0") + "; ";
    for (const auto& [n, v] : g.int32s())
        out += std::string("int32 ") + n.c_str() + "=" + std::to_string(v) + "; ";
    for (const auto& [n, v] : g.strings())
        out += std::string("string ") + n.c_str() + "=" + v.c_str() + "; ";
    for (const auto& [n, v] : g.stringLists()) {
        out += std::string("list ") + n.c_str() + "=[";
        for (const ut_string& s : v)
            out += std::string(s.c_str()) + ",";
        out += "]; ";
    }
    return out;
}

struct Case {
    const char* name;
    const char* text;
    const char* values; // of a group that held "string keep=old" before
    const char* report; // "" or the one report, after the file's name
};

class ReadGroupFile : public testing::TestWithParam<Case> {};

TEST_P(ReadGroupFile, TakesWhatTheBlocksHold) {
    ScratchFolder folder;
    std::string path = folder.at("g.wbd");
    writeFile(path, GetParam().text);
    Group group("G");
    group.setString("keep", "old", false);
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_TRUE(readGroupFile(&group, path.c_str()));
    EXPECT_EQ(dump(group), GetParam().values);
    if (*GetParam().report)
        EXPECT_EQ(ReportCapture::texts(),
                  std::vector<std::string>{"error: \"" + path + "\", " + GetParam().report});
    else
        EXPECT_EQ(ReportCapture::joined(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Files, ReadGroupFile,
    testing::Values(
        Case{"every_block",
             "Bool {\n  on = 1\n  off = 0\n}\nInt32 {\n  n = -7\n}\nString {\n  keep = \"new\"\n"
             "  path = \"C:\\\\cvs\\\\cvs.exe\"\n}\nStringList {\n  l = { \"a\", \"b\" }\n}\n",
             "bool off=0; bool on=1; int32 n=-7; string keep=new; string path=C:\\cvs\\cvs.exe; "
             "list l=[a,b,]; ",
             ""},
        Case{"a_bool_of_two_is_skipped_and_the_rest_read", "Bool {\n a = 2\n b = 1\n}\n",
             "bool b=1; string keep=old; ", ""},
        Case{"values_of_another_kind",
             "Bool {\n s = \"1\"\n}\nInt32 {\n s = \"5\"\n}\nString {\n n = 3\n}\n"
             "StringList {\n one = \"x\"\n}\n",
             "int32 s=-1; string keep=old; string n=; list one=[x,]; ", ""},
        Case{"other_blocks_are_ignored", "Other {\n x = 1\n}\ntop = 2\n", "string keep=old; ", ""},
        Case{"empty", "", "string keep=old; ", ""},
        Case{"broken", "String {\n a = \"x\"\n b = oops\n}\n", "string keep=old; ",
             "line 3: parse error: expected a number: \"oops\""}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

TEST(GroupFiles, AMissingFileChangesNothingAndANullPathFails) {
    ScratchFolder folder;
    Group group("G");
    group.setInt32("n", 1, false);
    EXPECT_TRUE(readGroupFile(&group, folder.at("absent.wbd").c_str()));
    EXPECT_EQ(dump(group), "int32 n=1; ");
    EXPECT_FALSE(readGroupFile(&group, nullptr));
}

class WhiteBoardFiles : public ScratchTest {
protected:
    void SetUp() override { board = new WhiteBoard; }
    void TearDown() override { board->unref(); }
    WhiteBoard* board = nullptr;
};

TEST_F(WhiteBoardFiles, MergingFiresForTheValuesThatDiffer) {
    write(at("m.wbd"), "Int32 {\n same = 1\n other = 2\n}\n");
    board->setInt32Value("G", "same", 1, false);
    board->setInt32Value("G", "kept", 9, false);
    std::vector<std::string> fired;
    board->addInt32Listener("G", [&](const char*, const char* n, int32_t) { fired.push_back(n); });
    EXPECT_TRUE(board->mergeGroupFromFile("G", at("m.wbd").c_str()));
    EXPECT_EQ(fired, std::vector<std::string>{"other"});
    EXPECT_EQ(dump(*board->findGroup("G")), "int32 kept=9; int32 other=2; int32 same=1; ");
    EXPECT_TRUE(board->mergeGroupFromFile("G", at("absent.wbd").c_str()));
    EXPECT_EQ(dump(*board->findGroup("G")), "int32 kept=9; int32 other=2; int32 same=1; ");
}

TEST_F(WhiteBoardFiles, ReplacingDropsTheOldGroupWithItsListeners) {
    write(at("r.wbd"), "String {\n s = \"from file\"\n}\n");
    board->setInt32Value("G", "old", 1, false);
    int fired = 0;
    board->addStringListener("G", [&](const char*, const char*, const char*) { ++fired; });
    EXPECT_TRUE(board->replaceGroupFromFile("G", at("r.wbd").c_str()));
    EXPECT_EQ(dump(*board->findGroup("G")), "string s=from file; ");
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(board->replaceGroupFromFile("G", at("absent.wbd").c_str()));
    ASSERT_NE(board->findGroup("G"), nullptr);
    EXPECT_EQ(dump(*board->findGroup("G")), "") << "a new, empty group";
}

TEST_F(WhiteBoardFiles, RegisteringWithAFileReadsItIntoTheGroup) {
    write(at("reg.wbd"), "Bool {\n b = 1\n}\n");
    EXPECT_TRUE(board->registerGroup("G", false, false, at("reg.wbd").c_str(), false));
    bool b = false;
    EXPECT_TRUE(board->getBoolValue("G", "b", &b));
    EXPECT_TRUE(b);
}

TEST(WhiteBoardDirectory, LiesInTheUsersConfigurationFolder) {
    ScratchFolder folder;
    // The folders are found once per process; this test is the first to ask.
    setenv("XDG_CONFIG_HOME", folder.root().c_str(), 1);
    const char* dir = whiteBoardDirectory();
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(std::string(dir), folder.at("ORT/WhiteBoard"));
    EXPECT_TRUE(std::filesystem::is_directory(dir));
    char* file = defaultGroupFile("GeneralConfiguration");
    EXPECT_EQ(std::string(file), folder.at("ORT/WhiteBoard/GeneralConfiguration.wbd"));
    gen_free(file);
}

} // namespace
