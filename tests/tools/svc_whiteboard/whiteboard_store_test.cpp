// The service's groups: who hears of a change, groups kept in files (read, written after each
// change, and a broken file that is reported and never overwritten), saving and the folder of
// group files.
#include "whiteboard_store.h"

#include "group_files.h"
#include "report_capture.h"
#include "scratch_folder.h"
#include "ut_options_database.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Peer : WhiteBoardPeer {
    std::string name;
    std::vector<std::string>* log;
    Peer(const char* n, std::vector<std::string>* l) : name(n), log(l) {}
    void say(const std::string& what) { log->push_back(name + ": " + what); }
    void tellBool(const char* g, const char* n, bool v) override {
        say(std::string(g) + "." + n + " bool " + (v ? "1" : "0"));
    }
    void tellInt32(const char* g, const char* n, int32_t v) override {
        say(std::string(g) + "." + n + " int32 " + std::to_string(v));
    }
    void tellString(const char* g, const char* n, const char* v) override {
        say(std::string(g) + "." + n + " string " + v);
    }
    void tellStringList(const char* g, const char* n, const WBStringList& v) override {
        say(std::string(g) + "." + n + " list " + std::to_string(v.size()));
    }
    void tellDelete(const char* g, const char* n, int32_t type) override {
        say(std::string(g) + "." + n + " delete " + std::to_string(type));
    }
};

class Store : public ScratchTest {
protected:
    std::vector<std::string> told;
    Peer a{"a", &told}, b{"b", &told}, c{"c", &told};
    WhiteBoardStore store;
};

TEST_F(Store, AChangeGoesToTheOtherBroadcastingPeersOnly) {
    store.registerGroup(&a, "G", true, false, nullptr);
    store.registerGroup(&b, "G", true, false, nullptr);
    store.registerGroup(&c, "G", false, false, nullptr);
    store.changeInt32(&a, "G", "n", 1);
    store.changeInt32(&b, "G", "n", 1); // no change: nobody hears
    store.changeString(&c, "G", "s", "x");
    store.changeStringList(nullptr, "G", "l", {"1", "2"});
    store.deleteName(&b, "G", "s", WB_TYPE_ANY);
    store.deleteName(&b, "G", "s", WB_TYPE_ANY);
    store.forget(&b);
    store.changeBool(&a, "G", "f", true);
    store.changeBool(&a, "Other", "f", true);
    EXPECT_EQ(told,
              (std::vector<std::string>{"b: G.n int32 1", "a: G.s string x", "b: G.s string x",
                                        "a: G.l list 2", "b: G.l list 2", "a: G.s delete 0"}));
    EXPECT_NE(store.findGroup("Other"), nullptr);
    EXPECT_EQ(store.allGroups().size(), 2u);
}

TEST_F(Store, AGroupOnDiskIsReadAndWrittenAfterEachChange) {
    write(at("g.wbd"), "Int32 {\n    n = 4\n}\n");
    write(at(".g.wbd.1.1.tmp"), "left by a killed run");
    store.registerGroup(&a, "G", true, true, at("g.wbd").c_str());
    int32_t n = 0;
    EXPECT_TRUE(store.findGroup("G")->getInt32("n", &n));
    EXPECT_EQ(n, 4);
    EXPECT_FALSE(std::filesystem::exists(at(".g.wbd.1.1.tmp")));
    store.changeString(&b, "G", "path", "C:\\cvs \"x\"");
    store.changeBool(&b, "G", "", true); // an empty name stays in memory only
    EXPECT_EQ(read(at("g.wbd")),
              "Int32 {\n    n = 4\n}\nString {\n    path = \"C:\\\\cvs \\\"x\\\"\"\n}\n");
    store.deleteName(&b, "G", "n", WB_TYPE_INT32);
    EXPECT_EQ(read(at("g.wbd")), "String {\n    path = \"C:\\\\cvs \\\"x\\\"\"\n}\n");
    // A second registration with another file keeps the first.
    store.registerGroup(&b, "G", false, false, at("other.wbd").c_str());
    EXPECT_EQ(store.fileOf("G"), at("g.wbd"));
    EXPECT_EQ(told, (std::vector<std::string>{"a: G.path string C:\\cvs \"x\"", "a: G. bool 1",
                                              "a: G.n delete 2"}));
}

TEST_F(Store, ABrokenFileIsReportedWithItsLineAndNeverOverwritten) {
    std::string broken = "Int32 {\n    n = 1\n    m = nonsense_is_0\n    x = what\n}\n";
    write(at("broken.wbd"), broken);
    write(at("fine.wbd"), "Bool {\n    b = 1\n}\n");
    ReportCapture capture;
    ReportCapture::clear();
    store.registerGroup(&a, "Broken", false, true, at("broken.wbd").c_str());
    store.registerGroup(&a, "Fine", false, true, at("fine.wbd").c_str());
    EXPECT_EQ(ReportCapture::texts(),
              (std::vector<std::string>{
                  "error: \"" + at("broken.wbd") +
                      "\", line 4: parse error: expected a number: "
                      "\"what\"",
                  "error: group \"Broken\": the file " + at("broken.wbd") +
                      " cannot be read; it is left as it is and the group's changes are not "
                      "written to it"}));
    EXPECT_FALSE(store.findGroup("Broken")->getInt32("n", nullptr)) << "nothing half-read";
    store.changeInt32(&b, "Broken", "n", 2);
    EXPECT_FALSE(store.saveGroup("Broken", nullptr));
    EXPECT_EQ(read(at("broken.wbd")), broken);
    int32_t n = 0;
    EXPECT_TRUE(store.findGroup("Broken")->getInt32("n", &n));
    EXPECT_EQ(n, 2);
    store.changeBool(&b, "Fine", "c", false);
    EXPECT_EQ(read(at("fine.wbd")), "Bool {\n    b = 1\n    c = 0\n}\n");
}

TEST_F(Store, SavingWritesTheGroupWhereAsked) {
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_FALSE(store.saveGroup("Unknown", at("u.wbd").c_str()));
    EXPECT_EQ(ReportCapture::texts(),
              std::vector<std::string>{"warning: SaveGroupChangesToFile: there is no group "
                                       "\"Unknown\""});
    store.changeStringList(&a, "G", "l", {"a", "b"});
    store.changeStringList(&a, "G", "empty", {});
    EXPECT_TRUE(store.saveGroup("G", at("saved.wbd").c_str()));
    EXPECT_EQ(read(at("saved.wbd")),
              "StringList {\n    empty = {  }\n    l = { \"a\", \"b\" }\n}\n");
    EXPECT_FALSE(store.saveGroup("G", at("no/such/folder/x.wbd").c_str()));
    Group again("G");
    EXPECT_EQ(loadGroupFile(&again, at("saved.wbd").c_str()), GroupFileRead::read);
    EXPECT_EQ(again.stringLists(), store.findGroup("G")->stringLists());
}

TEST_F(Store, EveryGroupFileOfTheFolderIsKeptFromTheStart) {
    write(at("One.wbd"), "Int32 {\n    n = 1\n}\n");
    write(at("Two.wbd"), "");
    write(at("notes.txt"), "not a group");
    store.loadDirectory(root().c_str());
    EXPECT_EQ(store.allGroups().size(), 2u);
    EXPECT_EQ(store.fileOf("One"), at("One.wbd"));
    store.changeInt32(&a, "Two", "n", 2);
    EXPECT_EQ(read(at("Two.wbd")), "Int32 {\n    n = 2\n}\n");
}

} // namespace
