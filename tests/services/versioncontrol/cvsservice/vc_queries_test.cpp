// The questions about files end to end: requests through svc_router to cvsservice, which reads
// the working copy's CVS/ files or runs cvs with -n in the file's directory of a real working
// copy (local and :fork: roots). Every state a file can reach, the history with its branches
// and names, version steps, templates, and names that a shell would take apart.
#include "plat_folders.h"
#include "vc_ops_session.h"

#include <regex>

namespace {

std::string str(const char* s) {
    return s ? s : "(absent)";
}

class Queries : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(repo.init());
    }
    // Module m with `files`, checked out as "wc" with the root of the parameter.
    void checkOut(const CvsFiles& files) {
        ASSERT_TRUE(repo.importModule("m", files)) << repo.lastError();
        wc = repo.checkout("m", "wc", GetParam());
        ASSERT_FALSE(wc.empty()) << repo.lastError();
    }
    // Writes a file with a modification time of its own, so that cvs sees every edit.
    void edit(const std::string& path, const std::string& content) {
        writeFile(path, content);
        stamp += std::chrono::seconds(2);
        std::filesystem::last_write_time(path, stamp);
    }

    // GetStatusInfo as "TYPE|WORD|LOCAL|REMOTE|TAG", with its error_string in *error.
    std::string status(const std::string& name, std::string* error = nullptr) {
        int32_t type = 0;
        char *word = nullptr, *local = nullptr, *remote = nullptr, *tag = nullptr, *lock = nullptr;
        std::string e = one([&](char** e, RetryHandler* r, STPStatus* st) {
            return vc->GetStatusInfo(name.c_str(), &type, &word, &local, &remote, &tag, &lock, e, r,
                                     st);
        });
        if (error)
            *error = e;
        else
            EXPECT_EQ(e, "(absent)") << name;
        EXPECT_EQ(text(lock), "(absent)");
        return std::to_string(type) + "|" + text(word) + "|" + text(local) + "|" + text(remote) +
               "|" + text(tag);
    }
    bool underVC(const std::string& name) {
        bool result = true;
        EXPECT_EQ(one([&](char** e, RetryHandler* r, STPStatus* st) {
                      return vc->FileIsUnderVC(name.c_str(), &result, e, r, st);
                  }),
                  "(absent)");
        return result;
    }
    // GetNextVersionForFile (next) or GetPreviousVersionForFile of wc/`name`.
    std::string step(bool next, const std::string& name, const char* version) {
        char* answer = nullptr;
        std::string path = "wc/" + name;
        EXPECT_EQ(one([&](char** e, RetryHandler* r, STPStatus* st) {
                      return next ? vc->GetNextVersionForFile(path.c_str(), version, &answer, e, r,
                                                              st)
                                  : vc->GetPreviousVersionForFile(path.c_str(), version, &answer, e,
                                                                  r, st);
                  }),
                  "(absent)");
        return text(answer);
    }

    std::string wc;
    std::filesystem::file_time_type stamp =
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
};

// One file per state, as a working copy reaches them: edits of its own, changes committed from
// another working copy, and merges that met conflicts.
TEST_P(Queries, GetStatusInfoOfEveryStateOfAWorkingCopy) {
    const char* const conflicting[] = {"conf.c", "unres.c", "hadm.c", "stray.c", "fixed.c"};
    CvsFiles files;
    for (const char* f : {"up.c", "mod.c", "rem.c", "patch.c", "merge.c", "gone.c", "lost.c"})
        files[f] = "1\n2\n3\n4\n5\n";
    for (const char* f : conflicting)
        files[f] = "1\n2\n3\n4\n5\n";
    checkOut(files);
    std::string other = repo.checkout("m", "other");
    edit(other + "/patch.c", "1\n2\n3\n4\nfive\n");
    edit(other + "/merge.c", "one\n2\n3\n4\n5\n");
    for (const char* f : conflicting) {
        edit(other + "/" + f, "1\n2\nthree from other\n4\n5\n");
        edit(wc + "/" + f, "1\n2\nthree here\n4\n5\n");
    }
    ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "other"})) << repo.lastError();
    ASSERT_TRUE(repo.run(other, {"-Q", "remove", "-f", "gone.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "gone", "gone.c"})) << repo.lastError();

    edit(wc + "/mod.c", "1\n2\n3\n4\nfive here\n");
    edit(wc + "/merge.c", "1\n2\n3\n4\nfive here\n");
    edit(wc + "/add.c", "new\n");
    edit(wc + "/unknown.c", "not added\n");
    std::filesystem::remove(wc + "/rem.c");
    std::filesystem::remove(wc + "/lost.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "add.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "rem.c"})) << repo.lastError();
    repo.cvs(wc, {"-Q", "update", "unres.c", "hadm.c", "stray.c", "fixed.c"});
    // Markers kept while editing; resolved by hand but with a line that merely looks like a
    // marker (cvs still says "File had conflicts on merge"); resolved cleanly.
    std::string kept = readFile(wc + "/hadm.c");
    ASSERT_NE(kept.find("<<<<<<< hadm.c\n"), std::string::npos) << kept;
    edit(wc + "/hadm.c", kept.replace(kept.find("three here"), 10, "three, edited"));
    edit(wc + "/stray.c", "Title\n=======\n1\n2\nthree resolved\n4\n5\n");
    edit(wc + "/fixed.c", "1\n2\nthree resolved\n4\n5\n");
    runs();

    const std::pair<const char*, const char*> states[] = {
        {"up.c", "2300|Up-to-date|1.1.1.1|1.1.1.1|HEAD"},
        {"mod.c", "1200|Locally Modified|1.1.1.1|1.1.1.1|HEAD"},
        {"add.c", "1000|Locally Added|New file|N/A|HEAD"},
        {"rem.c", "1100|Locally Removed|1.1.1.1|1.1.1.1|HEAD"},
        {"patch.c", "1700|Needs Patch|1.1.1.1|1.2|HEAD"},
        {"merge.c", "600|Needs Merge|1.1.1.1|1.2|HEAD"},
        {"conf.c", "500|Needs Merge|1.1.1.1|1.2|HEAD"},
        {"unres.c", "700|Unresolved Conflict|1.2|1.2|HEAD"},
        {"hadm.c", "700|File had conflicts on merge|1.2|1.2|HEAD"},
        {"stray.c", "1200|File had conflicts on merge|1.2|1.2|HEAD"},
        {"fixed.c", "1200|Locally Modified|1.2|1.2|HEAD"},
        {"lost.c", "1500|Needs Checkout|N/A|1.1.1.1|HEAD"},
        {"gone.c", "1600|Entry Invalid|1.1.1.1|1.2|HEAD"},
        {"unknown.c", "2000|Unknown|N/A|N/A|N/A"},
        {"nowhere.c", "2600|File does not exist|N/A|N/A|N/A"},
    };
    std::string dir = std::filesystem::canonical(wc).string();
    for (auto [file, expected] : states) {
        EXPECT_EQ(status("wc/" + std::string(file)), expected);
        // Only a file that needs a merge gets the dry update, in its own directory.
        std::vector<std::string> ran{dir + "|-n stat " + file};
        if (std::string(expected).find("Needs Merge") != std::string::npos)
            ran.push_back(dir + "|-nq update " + file);
        EXPECT_EQ(runs(), ran) << file;
    }

    // A failure that is not about the file is passed on as cvs said it.
    std::string root = readFile(wc + "/CVS/Root");
    writeFile(wc + "/CVS/Root", root.substr(0, root.find('/')) + "/no/such/repository\n");
    std::string error;
    EXPECT_EQ(status("wc/up.c", &error), "0|(absent)|(absent)|(absent)|(absent)");
    const std::string lead = "Error: Unable to get file status information. CVS reported:\n";
    EXPECT_EQ(error.rfind(lead, 0), 0u) << error;
    EXPECT_NE(error.find("/no/such/repository", lead.size()), std::string::npos) << error;
}

// Read from CVS/Entries alone: nothing runs cvs.
TEST_P(Queries, FileIsUnderVCFollowsCVSEntries) {
    checkOut({{"a.c", "a\n"}, {"b.c", "b\n"}, {"sub/s.c", "s\n"}});
    writeFile(wc + "/new.c", "n\n");
    writeFile(wc + "/free.c", "f\n");
    std::filesystem::remove(wc + "/b.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "new.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "b.c"})) << repo.lastError();
    runs();

    for (const std::string& name :
         {std::string("wc/a.c"), wc + "/new.c", std::string("wc/b.c"), std::string("wc/sub/s.c")})
        EXPECT_TRUE(underVC(name)) << name;
    // Not added; in a missing directory; in the client's own, which has no CVS/.
    for (const char* name : {"wc/free.c", "wc/no/such/dir/a.c", "a.c"})
        EXPECT_FALSE(underVC(name)) << name;

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

// A file with trunk revisions, a branch with revisions and one without, names on revisions and
// branches, and messages of several lines; read on the branch and on the trunk.
TEST_P(Queries, ShowHistoryGivesRevisionsBranchesAndNames) {
    checkOut({{"h.c", "1\n2\n3\n"}});
    ASSERT_TRUE(repo.commitChange(wc, "h.c", "1\ntwo\n3\n", "Second revision"));
    ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "rel1", "h.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "-b", "b1", "h.c"})) << repo.lastError();
    ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "-b", "b2", "h.c"})) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(wc, "h.c", "1\ntwo\nthree\n",
                                  "Third revision\n\nA message of several lines,\n  indented."));
    ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "rel2", "h.c"})) << repo.lastError();
    std::string branch = repo.checkout("m", "branch", GetParam(), {"-r", "b1"});
    ASSERT_TRUE(repo.commitChange(branch, "h.c", "1\ntwo\n3\nb1\n", "First change on b1"));
    ASSERT_TRUE(repo.commitChange(branch, "h.c", "1\ntwo\n3\nb1\nb1\n", "Second on b1\nline 2"));
    EXPECT_EQ(status("branch/h.c"), "2300|Up-to-date|1.2.2.2|1.2.2.2|b1 (branch: 1.2.2)");

    HistoryInfo info;
    auto history = [&](const std::string& name) {
        HistoryInfo_free(&info);
        return one([&](char** e, RetryHandler* r, STPStatus* st) {
            return vc->ShowHistory(name.c_str(), &info, e, r, st);
        });
    };
    ASSERT_EQ(history("branch/h.c"), "(absent)");
    EXPECT_TRUE(info._display_tags);
    EXPECT_FALSE(info._file_is_modified);
    EXPECT_EQ(str(info._version) + "|" + str(info._status) + "|" + str(info._tag),
              "1.2.2.2|Up-to-date|b1 (branch: 1.2.2)");
    std::vector<std::string> items;
    for (int32_t i = 0; i < info._num_items; ++i) {
        const HistoryItem& item = info._items[i];
        std::string line = str(item._version) + (item._is_branch ? " branch" : "");
        for (int32_t t = 0; t < item._numTags; ++t)
            line += " " + str(item._tags[t]);
        items.push_back(line + " | " + str(item._comments));
    }
    // b2 has no revision and no "branches:" entry, so its name is lost.
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
    // A branch bears the date and author of its last revision.
    ASSERT_EQ(info._num_items, 8);
    EXPECT_NE(str(info._items[4]._date), "(absent)");
    EXPECT_EQ(str(info._items[6]._date), str(info._items[4]._date));
    EXPECT_EQ(str(info._items[6]._username), str(info._items[4]._username));

    ASSERT_TRUE(repo.run(wc, {"-Q", "update"})) << repo.lastError();
    writeFile(wc + "/h.c", "changed\n");
    ASSERT_EQ(history("wc/h.c"), "(absent)");
    EXPECT_TRUE(info._file_is_modified);
    EXPECT_EQ(str(info._version) + "|" + str(info._status) + "|" + str(info._tag),
              "1.3|Locally Modified|HEAD");
    EXPECT_EQ(info._num_items, 8);

    // A file that cvs reports on its error stream has no history, where its status is known.
    writeFile(wc + "/free.c", "x\n");
    EXPECT_EQ(history("wc/free.c")
                  .rfind("Error: Unable to get history log. CVS reported:\ncvs "
                         "status: use `cvs add' to create an entry for `free.c'\n",
                         0),
              0u);
    EXPECT_EQ(info._num_items, 0);
    EXPECT_FALSE(info._display_tags);
    EXPECT_EQ(status("wc/free.c"), "2000|Unknown|N/A|N/A|N/A");
    HistoryInfo_free(&info);
}

// GetVersionInfo reads one revision's log through a temporary file that it removes again. The
// version steps answer from CVS/Entries when no version is given.
TEST_P(Queries, VersionInfoVersionStepsAndTemplate) {
    checkOut({{"h.c", "1\n"}});
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
    ASSERT_EQ(versionInfo("wc/h.c", "1.2"), "(absent)");
    char login[64];
    ASSERT_TRUE(plat_user_name(login, sizeof login));
    EXPECT_EQ(str(info._filename) + "|" + str(info._version) + "|" + str(info._author),
              wc + "/h.c|1.2|" + login);
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
    EXPECT_TRUE(std::filesystem::is_empty(at("tmp"))); // no log file is left behind

    EXPECT_EQ(step(true, "h.c", "1.9"), "1.10");
    EXPECT_EQ(step(false, "h.c", "1.4.2.1"), "1.4"); // the first on a branch: its base
    EXPECT_EQ(step(false, "h.c", "1.1"), "(absent)");
    for (bool next : {true, false}) {
        EXPECT_EQ(step(next, "h.c", ""), "1.2");
        EXPECT_EQ(step(next, "h.c", nullptr), "1.2");
        EXPECT_EQ(step(next, "new.c", ""), "New File");
        EXPECT_EQ(step(next, "none.c", ""), "(absent)");
    }

    auto commentTemplate = [&] {
        char* answer = nullptr;
        EXPECT_EQ(one([&](char** e, RetryHandler* r, STPStatus* st) {
                      return vc->GetCommentTemplateForFile("wc/h.c", &answer, e, r, st);
                  }),
                  "(absent)");
        return text(answer);
    };
    EXPECT_EQ(commentTemplate(), "(absent)");
    writeFile(wc + "/CVS/Template", "Summary:\r\n\r\nCVS: lines\nlast");
    EXPECT_EQ(commentTemplate(), "Summary:\n\nCVS: lines\nlast\n");
}

// Blanks, quotes and command substitutions in a name reach cvs as one argument, and no shell
// ever sees them.
TEST_P(Queries, AwkwardNamesAreOneArgument) {
    checkOut({{"a.c", "a\n"}});
    const std::string name = "it's a \"b\" $(touch CANARY) `touch CANARY`.c";
    ASSERT_TRUE(repo.addFile(wc, name, "x\n", "awkward")) << repo.lastError();
    runs();
    EXPECT_EQ(status("wc/" + name), "2300|Up-to-date|1.1|1.1|HEAD");
    EXPECT_TRUE(underVC("wc/" + name));
    writeFile(wc + "/" + name, "changed\n");
    EXPECT_EQ(status("wc/" + name), "1200|Locally Modified|1.1|1.1|HEAD");
    EXPECT_EQ(runs().size(), 2u);
    for (const std::string& dir : {wc, at("service"), folder.root()})
        EXPECT_FALSE(std::filesystem::exists(dir + "/CANARY")) << dir;
}

INSTANTIATE_TEST_SUITE_P(Roots, Queries, testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
