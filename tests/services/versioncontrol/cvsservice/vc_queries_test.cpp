// The questions about files end to end: requests through svc_router to cvsservice, which reads
// the working copy's CVS/ files or runs cvs with -n in the file's directory of a real working
// copy (local and :fork: roots). Every state a file can reach, the history with its branches
// and names, version steps, templates, and names that a shell would take apart.
#include "plat_folders.h"
#include "vc_ops_session.h"

#include <regex>

namespace {

struct Status {
    int32_t type = 0;
    std::string word, local, remote, tag, lockedBy, error;
};

struct Expected {
    const char* file;
    int32_t type;
    const char* word;
    const char* local;
    const char* remote;
};

class Queries : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(repo.init());
    }

    // Writes a file with a modification time of its own, so that cvs sees every edit.
    void edit(const std::string& path, const std::string& content) {
        writeFile(path, content);
        stamp += std::chrono::seconds(2);
        std::filesystem::last_write_time(path, stamp);
    }

    Status status(const std::string& name) {
        Status s;
        char *word = nullptr, *local = nullptr, *remote = nullptr, *tag = nullptr, *lock = nullptr;
        s.error = one([&](char** e, RetryHandler* r, STPStatus* st) {
            return vc->GetStatusInfo(name.c_str(), &s.type, &word, &local, &remote, &tag, &lock, e,
                                     r, st);
        });
        s.word = text(word);
        s.local = text(local);
        s.remote = text(remote);
        s.tag = text(tag);
        s.lockedBy = text(lock);
        return s;
    }

    bool underVC(const std::string& name) {
        bool result = true;
        char* error = nullptr;
        STPStatus st;
        EXPECT_TRUE(vc->FileIsUnderVC(name.c_str(), &result, &error, session.waiter().get(), &st));
        EXPECT_EQ(text(error), "(absent)");
        return result;
    }

    // GetNextVersionForFile (next) or GetPreviousVersionForFile; "(absent)" for no version.
    std::string step(bool next, const std::string& name, const char* version) {
        char* answer = nullptr;
        std::string error = one([&](char** e, RetryHandler* r, STPStatus* st) {
            return next ? vc->GetNextVersionForFile(name.c_str(), version, &answer, e, r, st)
                        : vc->GetPreviousVersionForFile(name.c_str(), version, &answer, e, r, st);
        });
        EXPECT_EQ(error, "(absent)");
        return text(answer);
    }

    std::filesystem::file_time_type stamp =
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
};

// One file per state, as a working copy reaches them: edits of its own, changes committed from
// another working copy, and merges that met conflicts.
TEST_P(Queries, GetStatusInfoOfEveryStateOfAWorkingCopy) {
    const std::string lines = "1\n2\n3\n4\n5\n";
    CvsFiles files;
    for (const char* f : {"up.c", "mod.c", "rem.c", "patch.c", "merge.c", "conf.c", "unres.c",
                          "hadm.c", "stray.c", "fixed.c", "gone.c", "lost.c"})
        files[f] = lines;
    ASSERT_TRUE(repo.importModule("m", files)) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    std::string other = repo.checkout("m", "other");
    ASSERT_FALSE(wc.empty() || other.empty()) << repo.lastError();

    edit(other + "/patch.c", "1\n2\n3\n4\nfive\n");
    edit(other + "/merge.c", "one\n2\n3\n4\n5\n");
    for (const char* f : {"conf.c", "unres.c", "hadm.c", "stray.c", "fixed.c"})
        edit(other + "/" + f, "1\n2\nthree from other\n4\n5\n");
    ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "other", "patch.c", "merge.c", "conf.c",
                                 "unres.c", "hadm.c", "stray.c", "fixed.c"}))
        << repo.lastError();
    ASSERT_TRUE(repo.run(other, {"-Q", "remove", "-f", "gone.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "gone", "gone.c"})) << repo.lastError();

    edit(wc + "/mod.c", "1\n2\n3\n4\nfive here\n");
    edit(wc + "/add.c", "new\n");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "add.c"})) << repo.lastError();
    std::filesystem::remove(wc + "/rem.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "rem.c"})) << repo.lastError();
    edit(wc + "/merge.c", "1\n2\n3\n4\nfive here\n");
    for (const char* f : {"conf.c", "unres.c", "hadm.c", "stray.c", "fixed.c"})
        edit(wc + "/" + f, "1\n2\nthree here\n4\n5\n");
    std::filesystem::remove(wc + "/lost.c");
    edit(wc + "/unknown.c", "not added\n");
    repo.cvs(wc, {"-Q", "update", "unres.c", "hadm.c", "stray.c", "fixed.c"});
    ASSERT_NE(readFile(wc + "/hadm.c").find("<<<<<<< hadm.c"), std::string::npos);
    // Markers kept while editing; resolved by hand with one line that merely looks like a
    // marker (cvs still says "File had conflicts on merge"); resolved cleanly.
    std::string kept = readFile(wc + "/hadm.c");
    edit(wc + "/hadm.c", kept.replace(kept.find("three here"), 10, "three, edited"));
    edit(wc + "/stray.c", "Title\n=======\n1\n2\nthree resolved\n4\n5\n");
    edit(wc + "/fixed.c", "1\n2\nthree resolved\n4\n5\n");
    runs();

    const Expected states[] = {
        {"up.c", 2300, "Up-to-date", "1.1.1.1", "1.1.1.1"},
        {"mod.c", 1200, "Locally Modified", "1.1.1.1", "1.1.1.1"},
        {"add.c", 1000, "Locally Added", "New file", "N/A"},
        {"rem.c", 1100, "Locally Removed", "1.1.1.1", "1.1.1.1"},
        {"patch.c", 1700, "Needs Patch", "1.1.1.1", "1.2"},
        {"merge.c", 600, "Needs Merge", "1.1.1.1", "1.2"},
        {"conf.c", 500, "Needs Merge", "1.1.1.1", "1.2"},
        {"unres.c", 700, "Unresolved Conflict", "1.2", "1.2"},
        {"hadm.c", 700, "File had conflicts on merge", "1.2", "1.2"},
        {"stray.c", 1200, "File had conflicts on merge", "1.2", "1.2"},
        {"fixed.c", 1200, "Locally Modified", "1.2", "1.2"},
        {"lost.c", 1500, "Needs Checkout", "N/A", "1.1.1.1"},
        {"gone.c", 1600, "Entry Invalid", "1.1.1.1", "1.2"},
        {"unknown.c", 2000, "Unknown", "N/A", "N/A"},
        {"nowhere.c", 2600, "File does not exist", "N/A", "N/A"},
    };
    for (const Expected& e : states) {
        Status s = status("wc/" + std::string(e.file));
        EXPECT_EQ(s.error, "(absent)") << e.file;
        EXPECT_EQ(s.type, e.type) << e.file;
        EXPECT_EQ(s.word, e.word) << e.file;
        EXPECT_EQ(s.local, e.local) << e.file;
        EXPECT_EQ(s.remote, e.remote) << e.file;
        std::string tag = e.type == 2000 || e.type == 2600 ? "N/A" : "HEAD";
        EXPECT_EQ(s.tag, tag) << e.file;
        EXPECT_EQ(s.lockedBy, "(absent)") << e.file;
        // Only a file that needs a merge gets the dry update, in its own directory.
        std::vector<std::string> ran = runs();
        std::string dir = std::filesystem::canonical(wc).string();
        std::vector<std::string> expected{dir + "|-n stat " + e.file};
        if (e.type == 600 || e.type == 500)
            expected.push_back(dir + "|-nq update " + e.file);
        EXPECT_EQ(ran, expected) << e.file;
    }

    // A failure that is not about the file is passed on as cvs said it.
    std::string root = readFile(wc + "/CVS/Root");
    writeFile(wc + "/CVS/Root", root.substr(0, root.find('/')) + "/no/such/repository\n");
    Status broken = status("wc/up.c");
    const std::string lead = "Error: Unable to get file status information. CVS reported:\n";
    EXPECT_EQ(broken.error.rfind(lead, 0), 0u) << broken.error;
    EXPECT_NE(broken.error.find("/no/such/repository", lead.size()), std::string::npos)
        << broken.error;
    EXPECT_EQ(broken.type, 0);
    EXPECT_EQ(broken.word, "(absent)");
}

// A working copy with Entries lines of every kind, read directly: nothing runs cvs.
TEST_P(Queries, FileIsUnderVCFollowsCVSEntries) {
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "a\n"}, {"b.c", "b\n"}, {"sub/s.c", "s\n"}}))
        << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    writeFile(wc + "/new.c", "n\n");
    writeFile(wc + "/free.c", "f\n");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "new.c"})) << repo.lastError();
    std::filesystem::remove(wc + "/b.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "b.c"})) << repo.lastError();
    runs();

    EXPECT_TRUE(underVC("wc/a.c"));
    EXPECT_TRUE(underVC(wc + "/new.c"));
    EXPECT_TRUE(underVC("wc/b.c")); // removed, still in CVS/Entries
    EXPECT_TRUE(underVC("wc/sub/s.c"));
    EXPECT_FALSE(underVC("wc/free.c"));
    EXPECT_FALSE(underVC("wc/sub")); // a directory line is no file line
    EXPECT_FALSE(underVC("wc/no/such/dir/a.c"));
    EXPECT_FALSE(underVC("a.c")); // the client's own directory has no CVS/Entries

    // A change made behind the service's back, within the second of the last read, is seen at
    // the next question; lines ending in "\r\n" count as well.
    std::string entries = readFile(wc + "/CVS/Entries");
    writeFile(wc + "/CVS/Entries", entries + "/free.c/1.1/dummy timestamp//\r\n");
    EXPECT_TRUE(underVC("wc/free.c"));
    writeFile(wc + "/CVS/Entries", entries);
    EXPECT_FALSE(underVC("wc/free.c"));

    // Lines it can't take are passed over; what remains still counts.
    writeFile(wc + "/CVS/Entries", std::string("garbage\n/a.c/1.1/x\n/\n\x01\xff/x\n//1.1///\n") +
                                       "/free.c/1.1/dummy timestamp//Tb1\nD/sub////\n");
    EXPECT_FALSE(underVC("wc/a.c"));
    EXPECT_TRUE(underVC("wc/free.c"));
    // An Entries that can't be read (a directory in its place): one that was read before keeps
    // what it knew, one never read knows no file.
    std::filesystem::remove(wc + "/sub/CVS/Entries");
    std::filesystem::create_directory(wc + "/sub/CVS/Entries");
    EXPECT_TRUE(underVC("wc/sub/s.c"));
    std::filesystem::create_directories(wc + "/fresh/CVS/Entries");
    EXPECT_FALSE(underVC("wc/fresh/s.c"));
    EXPECT_EQ(runs(), std::vector<std::string>{});
}

// The history of a file with trunk revisions, a branch with revisions and one without, names on
// revisions and branches, and messages of several lines; read on the branch and on the trunk.
TEST_P(Queries, ShowHistoryGivesRevisionsBranchesAndNames) {
    ASSERT_TRUE(repo.importModule("m", {{"h.c", "1\n2\n3\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(wc, "h.c", "1\ntwo\n3\n", "Second revision"));
    for (auto args : {std::vector<std::string>{"-Q", "tag", "rel1", "h.c"},
                      std::vector<std::string>{"-Q", "tag", "-b", "b1", "h.c"},
                      std::vector<std::string>{"-Q", "tag", "-b", "b2", "h.c"}})
        ASSERT_TRUE(repo.run(wc, args)) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(wc, "h.c", "1\ntwo\nthree\n",
                                  "Third revision\n\nA message of several lines,\n  indented."));
    ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "rel2", "h.c"})) << repo.lastError();
    std::string branch = repo.checkout("m", "branch", GetParam(), {"-r", "b1"});
    ASSERT_FALSE(branch.empty()) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(branch, "h.c", "1\ntwo\n3\nb1\n", "First change on b1"));
    ASSERT_TRUE(repo.commitChange(branch, "h.c", "1\ntwo\n3\nb1\nb1\n", "Second on b1\nline 2"));
    ASSERT_TRUE(repo.run(wc, {"-Q", "update"})) << repo.lastError();

    HistoryInfo info;
    auto history = [&](const std::string& name) {
        HistoryInfo_free(&info);
        return one([&](char** e, RetryHandler* r, STPStatus* st) {
            return vc->ShowHistory(name.c_str(), &info, e, r, st);
        });
    };
    ASSERT_EQ(history("branch/h.c"), "(absent)");
    auto str = [](const char* s) { return std::string(s ? s : "(absent)"); };
    EXPECT_TRUE(info._display_tags);
    EXPECT_FALSE(info._file_is_modified);
    EXPECT_EQ(str(info._version), "1.2.2.2");
    EXPECT_EQ(str(info._status), "Up-to-date");
    EXPECT_EQ(str(info._tag), "b1 (branch: 1.2.2)");
    std::vector<std::string> items;
    for (int32_t i = 0; i < info._num_items; ++i) {
        const HistoryItem& item = info._items[i];
        std::string line = str(item._version) + (item._is_branch ? " branch" : "");
        for (int32_t t = 0; t < item._numTags; ++t)
            line += " " + str(item._tags[t]);
        items.push_back(line + " | " + str(item._comments));
        EXPECT_EQ(str(item._username), str(info._items[0]._username)) << line;
    }
    // The tags of an item come in the order of the sorted symbol table; b2 has no revision and
    // no "branches:" entry, so its name is lost.
    EXPECT_EQ(items, (std::vector<std::string>{
                         "1.3 rel2 | Third revision\n\nA message of several lines,\n  indented.\n",
                         "1.2 rel1 | branches:  1.2.2;\nSecond revision\n",
                         "1.1 | branches:  1.1.1;\nInitial revision\n",
                         "1.1.1.1 start | import m\n",
                         "1.2.2.2 | Second on b1\nline 2\n",
                         "1.2.2.1 | First change on b1",
                         "1.2.2 branch b1 | Second on b1\nline 2\n",
                         "1.1.1 branch vendor | import m\n",
                     }));
    ASSERT_EQ(info._num_items, 8);
    EXPECT_EQ(str(info._items[6]._date), str(info._items[4]._date));
    EXPECT_NE(str(info._items[4]._date), "(absent)");

    // On the trunk, with a local change.
    writeFile(wc + "/h.c", "changed\n");
    ASSERT_EQ(history("wc/h.c"), "(absent)");
    EXPECT_TRUE(info._file_is_modified);
    EXPECT_EQ(str(info._status), "Locally Modified");
    EXPECT_EQ(str(info._version), "1.3");
    EXPECT_EQ(str(info._tag), "HEAD");
    EXPECT_EQ(info._num_items, 8);

    // A file that cvs reports on its error stream has no history, where its status is known.
    writeFile(wc + "/free.c", "x\n");
    EXPECT_EQ(
        history("wc/free.c"),
        "Error: Unable to get history log. CVS reported:\ncvs status: use `cvs add' to "
        "create an entry for `free.c'\n" +
            std::string("===================================================================\n"
                        "File: free.c           \tStatus: Unknown\n\n"
                        "   Working revision:\tNo entry for free.c\n"
                        "   Repository revision:\tNo revision control file\n\n"));
    EXPECT_EQ(info._num_items, 0);
    EXPECT_FALSE(info._display_tags);
    EXPECT_EQ(status("wc/free.c").type, 2000);
    HistoryInfo_free(&info);
}

// GetVersionInfo reads one revision's log through a temporary file that it removes again;
// the version steps are pure arithmetic unless no version is given, when CVS/Entries answers.
TEST_P(Queries, VersionInfoAndVersionSteps) {
    ASSERT_TRUE(repo.importModule("m", {{"h.c", "1\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(wc, "h.c", "2\n", "Two lines\n\n  of message"));
    writeFile(wc + "/new.c", "n\n");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "new.c"})) << repo.lastError();

    VersionInfo info;
    auto versionInfo = [&](const std::string& name, const char* version) {
        VersionInfo_free(&info);
        return one([&](char** e, RetryHandler* r, STPStatus* st) {
            return vc->GetVersionInfo(name.c_str(), version, &info, e, r, st);
        });
    };
    auto str = [](const char* s) { return std::string(s ? s : "(absent)"); };
    ASSERT_EQ(versionInfo("wc/h.c", "1.2"), "(absent)");
    EXPECT_EQ(str(info._filename), wc + "/h.c");
    EXPECT_EQ(str(info._version), "1.2");
    char login[64];
    ASSERT_TRUE(plat_user_name(login, sizeof login));
    EXPECT_EQ(str(info._author), login);
    EXPECT_TRUE(std::regex_match(
        str(info._date), std::regex(R"(\d{4}[-/]\d\d[-/]\d\d \d\d:\d\d:\d\d( [+-]\d{4})?)")))
        << str(info._date);
    EXPECT_EQ(str(info._comments), "Two lines\n\n  of message\n");
    ASSERT_EQ(versionInfo("wc/h.c", "1.1"), "(absent)");
    // A "branches:" line belongs to the message, as in the history.
    EXPECT_EQ(str(info._comments), "branches:  1.1.1;\nInitial revision\n");

    // A revision the file doesn't have: under -Q cvs says nothing of it.
    EXPECT_EQ(versionInfo("wc/h.c", "9.9"),
              "Error: Unexpected log output from CVS. Unable to get version information.\n");
    EXPECT_EQ(str(info._filename), "(absent)");
    // An unknown file: cvs fails without a word under -Q.
    EXPECT_EQ(versionInfo("wc/none.c", "1.1"),
              "Unable to get version information for file. CVS reported:\n");
    // No temporary file is left behind on either path.
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(at("tmp")))
        left.push_back(entry.path().filename().string());
    EXPECT_EQ(left, std::vector<std::string>{});

    EXPECT_EQ(step(true, "wc/h.c", "1.9"), "1.10");
    EXPECT_EQ(step(true, "wc/h.c", "1.2.2.9"), "1.2.2.10");
    EXPECT_EQ(step(true, "wc/h.c", "1..2"), "(absent)");
    EXPECT_EQ(step(false, "wc/h.c", "1.4"), "1.3");
    EXPECT_EQ(step(false, "wc/h.c", "1.2.2.3"), "1.2.2.2");
    EXPECT_EQ(step(false, "wc/h.c", "1.4.2.1"), "1.4"); // the first on a branch: its base
    EXPECT_EQ(step(false, "wc/h.c", "1.1"), "(absent)");
    EXPECT_EQ(step(false, "wc/h.c", "x"), "(absent)");
    for (bool next : {true, false}) {
        EXPECT_EQ(step(next, "wc/h.c", ""), "1.2");
        EXPECT_EQ(step(next, "wc/h.c", nullptr), "1.2");
        EXPECT_EQ(step(next, "wc/new.c", ""), "New File");
        EXPECT_EQ(step(next, "wc/none.c", ""), "(absent)");
    }
}

TEST_P(Queries, GetCommentTemplateForFileReadsCVSTemplate) {
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "a\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    auto commentTemplate = [&] {
        char* answer = nullptr;
        EXPECT_EQ(one([&](char** e, RetryHandler* r, STPStatus* st) {
                      return vc->GetCommentTemplateForFile("wc/a.c", &answer, e, r, st);
                  }),
                  "(absent)");
        return text(answer);
    };
    EXPECT_EQ(commentTemplate(), "(absent)");
    writeFile(wc + "/CVS/Template", "");
    EXPECT_EQ(commentTemplate(), "");
    writeFile(wc + "/CVS/Template", "Summary:\r\n\r\nCVS: lines\nlast");
    EXPECT_EQ(commentTemplate(), "Summary:\n\nCVS: lines\nlast\n");
}

// Blanks, quotes and a command substitution in a name reach cvs as one argument, and no shell
// ever sees them.
TEST_P(Queries, AwkwardNamesAreOneArgument) {
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "a\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    const std::string name = "it's a \"b\" $(touch CANARY) `touch CANARY`.c";
    ASSERT_TRUE(repo.addFile(wc, name, "x\n", "awkward")) << repo.lastError();
    runs();
    Status s = status("wc/" + name);
    EXPECT_EQ(s.error, "(absent)");
    EXPECT_EQ(s.type, 2300);
    EXPECT_EQ(s.local, "1.1");
    EXPECT_TRUE(underVC("wc/" + name));
    writeFile(wc + "/" + name, "changed\n");
    EXPECT_EQ(status("wc/" + name).type, 1200);
    EXPECT_EQ(runs().size(), 2u);
    for (const std::string& dir : {wc, at("service"), folder.root()})
        EXPECT_FALSE(std::filesystem::exists(dir + "/CANARY")) << dir;
}

INSTANTIATE_TEST_SUITE_P(Roots, Queries, testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
