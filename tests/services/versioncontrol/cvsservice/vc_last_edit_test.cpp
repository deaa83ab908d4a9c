// The last-edit query end to end: requests through svc_router to cvsservice, which annotates a
// file of a real working copy (local and :fork: roots), restores the revisions it needs and
// follows a line between them with the diff engine.
#include "vc_ops_session.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// What one ShowLastEdit gave, "(absent)" for an absent string.
struct LastEdit {
    std::string version, postver;
    int32_t lineno = -1, postlineno = -1, ret_val = 99;
    std::string error;
};

std::ostream& operator<<(std::ostream& out, const LastEdit& e) {
    return out << "version " << e.version << ", postver " << e.postver << ", lineno " << e.lineno
               << ", postlineno " << e.postlineno << ", ret_val " << e.ret_val << ", error "
               << e.error;
}

// f.c over four revisions and a branch:
//   1.1 one two three            (import)
//   1.2 one two three four       (a line added)
//   1.3 one TWO three four       (a line changed)
//   1.3.2.1 one TWO three four branch   (on branch b1)
//   1.4 zero one TWO three four  (a line added in front)
// g.c with ten revisions, whose line 1 last changed in 1.9 and line 2 in 1.10. "wc" is at the
// heads, "wcb" on the branch.
class LastEditQuery : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(repo.init());
        ASSERT_TRUE(repo.importModule("m", {{"f.c", "one\ntwo\nthree\n"}, {"g.c", "a1\nb\n"}}))
            << repo.lastError();
        wc = repo.checkout("m", "wc", GetParam());
        ASSERT_FALSE(wc.empty()) << repo.lastError();
        commit("f.c", "one\ntwo\nthree\nfour\n");
        commit("f.c", "one\nTWO\nthree\nfour\n");
        ASSERT_TRUE(repo.run(wc, {"-Q", "tag", "-b", "b1", "f.c"})) << repo.lastError();
        commit("f.c", "zero\none\nTWO\nthree\nfour\n");
        // cvs numbers a change 1.9 when asked to, which spares seven commits of a second each.
        writeFile(wc + "/g.c", "a9\nb\n");
        std::filesystem::last_write_time(
            wc + "/g.c", std::filesystem::last_write_time(wc + "/g.c") + std::chrono::seconds(1));
        ASSERT_TRUE(repo.run(wc, {"-Q", "commit", "-r", "1.9", "-m", "nine", "g.c"}))
            << repo.lastError();
        ASSERT_TRUE(repo.run(wc, {"-Q", "update", "-A", "g.c"})) << repo.lastError();
        commit("g.c", "a9\nb10\n");
        wcb = repo.checkout("m", "wcb", GetParam(), {"-r", "b1"});
        ASSERT_FALSE(wcb.empty()) << repo.lastError();
        ASSERT_TRUE(repo.commitChange(wcb, "f.c", "one\nTWO\nthree\nfour\nbranch\n", "branch"))
            << repo.lastError();
        runs();
    }
    void commit(const std::string& file, const std::string& content) {
        ASSERT_TRUE(repo.commitChange(wc, file, content, "change")) << repo.lastError();
    }

    LastEdit query(const std::string& name, int32_t from, int32_t to,
                   const char* theversion = nullptr) {
        LastEdit e;
        char* version = nullptr;
        char* postver = nullptr;
        char* error = nullptr;
        STPStatus status;
        EXPECT_TRUE(vc->ShowLastEdit(name.c_str(), from, to, theversion, &version, &e.lineno,
                                     &postver, &e.postlineno, &e.ret_val, &error,
                                     session.waiter().get(), &status))
            << status.message;
        e.version = text(version);
        e.postver = text(postver);
        e.error = text(error);
        return e;
    }
    // The operation's temporary files left in the service's temporary folder.
    size_t leftovers() const {
        size_t n = 0;
        for (const auto& entry : std::filesystem::directory_iterator(at("tmp")))
            n += entry.path().filename().string().starts_with("tq_");
        return n;
    }

    std::string wc, wcb;
};

void expectEdit(const LastEdit& e, const std::string& version, const std::string& postver,
                int32_t postlineno) {
    EXPECT_EQ(e.ret_val, 0) << e;
    EXPECT_EQ(e.version, version) << e;
    EXPECT_EQ(e.postver, postver) << e;
    EXPECT_EQ(e.lineno, 0) << e;
    EXPECT_EQ(e.postlineno, postlineno) << e;
    EXPECT_EQ(e.error, "(absent)") << e;
}

TEST_P(LastEditQuery, TheWorkingFileOfAHistoryOfAddedChangedAndKeptLines) {
    // Line 2, "one", is as old as the file.
    expectEdit(query("wc/f.c", 2, 2), "original", "", 0);
    // Line 3, "TWO", changed in 1.3, where it is line 2.
    expectEdit(query("wc/f.c", 3, 3), "1.2", "1.3", 2);
    // "three" (1.1) and "four" (1.2): the newer one counts; "three" is line 3 of 1.2.
    expectEdit(query("wc/f.c", 4, 5), "1.1", "1.2", 3);
    expectEdit(query("wc/f.c", 1, 5), "1.3", "1.4", 1);
    // 1.10 is newer than 1.9, and line 1 of the working file is line 1 of 1.10.
    expectEdit(query("wc/g.c", 1, 2), "1.9", "1.10", 1);

    std::vector<std::string> lines = runs();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(contains(lines[0], "|-Q -n annotate -r 1.4 f.c")) << lines[0];
    EXPECT_EQ(leftovers(), 0u);
}

TEST_P(LastEditQuery, ABranchAndNamedRevisions) {
    // The working file of the branch: its newest line is of 1.3.2.1, whose predecessor is 1.3.
    expectEdit(query("wcb/f.c", 5, 5), "1.3", "1.3.2.1", 5);
    expectEdit(query("wcb/f.c", 1, 4), "1.2", "1.3", 1);
    // The same through a named revision from the head's working copy: the revision is compared
    // with the one that made the edit, not the working file.
    expectEdit(query("wc/f.c", 1, 2, "1.3.2.1"), "1.2", "1.3", 1);
    expectEdit(query("wc/f.c", 5, 5, "b1"), "1.3", "1.3.2.1", 5);
    EXPECT_EQ(leftovers(), 0u);
}

TEST_P(LastEditQuery, RangesOutsideTheTextAndFilesCvsCannotAnnotate) {
    // `from` above `to` looks at no line.
    expectEdit(query("wc/f.c", 3, 2), "original", "", 0);
    LastEdit e = query("wc/f.c", 4, 6);
    EXPECT_EQ(e.ret_val, -2) << e;
    // A revision that does not exist annotates nothing, so every range runs past the end.
    EXPECT_EQ(query("wc/f.c", 1, 1, "1.9").ret_val, -2);

    // An added file has no revision to name: "New File" never reaches cvs, which then fails
    // as the file has no history yet.
    ASSERT_TRUE(repo.addFile(wc, "new.c", "n\n"));
    ASSERT_TRUE(contains(readFile(wc + "/CVS/Entries"), "/new.c/0/"));
    runs();
    e = query("wc/new.c", 1, 1);
    std::vector<std::string> lines = runs();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], std::filesystem::canonical(wc).string() + "|-Q -n annotate new.c");
    EXPECT_EQ(e.ret_val, -1) << e;
    EXPECT_EQ(e.error.rfind("Error: Unable to annotate file new.c. CVS reported:\n", 0), 0u) << e;

    e = query("nowhere/f.c", 1, 1);
    EXPECT_EQ(e.ret_val, -1) << e;
    EXPECT_EQ(e.error,
              "Could not change into directory containing file: " + at("nowhere/f.c") + "\n");
    EXPECT_EQ(leftovers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Roots, LastEditQuery,
                         testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
