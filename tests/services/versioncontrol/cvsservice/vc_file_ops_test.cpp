// The operations on one file end to end: requests through svc_router to cvsservice, which runs
// cvs in the file's directory of a real working copy (local and :fork: roots). Files brought
// back from removal with their versions, files placed under version control, check-ins that
// keep their message when they fail, and updates of one file, one of which throws the working
// file away first.
#include "vc_ops_session.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Module m (a.c at revision 1.2, sub/b.c) checked out as "wc" with the root of the parameter.
class FileOps : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(repo.init());
        ASSERT_TRUE(repo.importModule("m", {{"a.c", "1\n2\n3\n"}, {"sub/b.c", "b\n"}}))
            << repo.lastError();
        wc = repo.checkout("m", "wc", GetParam());
        ASSERT_FALSE(wc.empty()) << repo.lastError();
        ASSERT_TRUE(repo.commitChange(wc, "a.c", "1\n2\n3\n4\n", "second")) << repo.lastError();
        runs();
    }
    std::string entries(const std::string& dir = std::string()) {
        return readFile(wc + dir + "/CVS/Entries");
    }
    // A change made elsewhere and committed.
    void changeElsewhere(const std::string& file, const std::string& content) {
        if (other.empty())
            other = repo.checkout("m", "other");
        ASSERT_TRUE(repo.run(other, {"-Q", "update"})) << repo.lastError();
        ASSERT_TRUE(repo.commitChange(other, file, content, "elsewhere")) << repo.lastError();
    }
    static void change(const std::string& path, const std::string& content) {
        writeFile(path, content);
        std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) +
                                                   std::chrono::seconds(2));
    }
    // Every commit in the repository fails from now on, as a hook of the repository rejects it.
    void rejectCommits() { writeFile(repo.path() + "/CVSROOT/commitinfo", "ALL /bin/false\n"); }
    std::string rejected(const std::string& file) {
        ProgramRun r = repo.cvs(wc, {"-Q", "commit", "-m", "probe", file});
        EXPECT_NE(r.exitCode, 0);
        return r.err + r.out;
    }

    std::string wc, other;
};

TEST_P(FileOps, UnremoveFilesGivesTheVersionsThatCameBack) {
    EXPECT_EQ(remove({"wc/a.c", "wc/sub/b.c"}), "(absent)");
    ASSERT_TRUE(contains(entries(), "/a.c/-1.2/"));
    std::vector<std::string> versions;
    // cvs 1.12 says nothing under -Q: the versions come from CVS/Entries.
    EXPECT_EQ(unremove({"wc/a.c", "wc/sub/b.c"}, &versions), "(absent)");
    EXPECT_EQ(versions, (std::vector<std::string>{"1.2", "1.1.1.1"}));
    EXPECT_EQ(readFile(wc + "/a.c"), "1\n2\n3\n4\n");
    EXPECT_TRUE(contains(entries("/sub"), "/b.c/1.1.1.1/"));

    // In the older wording the version is read from what cvs says.
    EXPECT_EQ(remove({"wc/a.c"}), "(absent)");
    mode("resurrect");
    EXPECT_EQ(unremove({"wc/a.c"}, &versions), "(absent)");
    EXPECT_EQ(versions, (std::vector<std::string>{"1.4"}));
    mode("");

    // A file that was not removed ends the request; the files after it are not tried.
    EXPECT_EQ(remove({"wc/a.c"}), "(absent)");
    runs();
    EXPECT_EQ(unremove({"wc/sub/b.c", "wc/a.c"}, &versions),
              "Unable to restore file " + wc + "/sub/b.c. CVS reported:\n");
    EXPECT_EQ(versions, (std::vector<std::string>{"(absent)", "(absent)"}));
    EXPECT_EQ(runs().size(), 1u);
    EXPECT_TRUE(contains(entries(), "/a.c/-1.2/"));
    EXPECT_EQ(unremove({}, &versions), "(absent)");
    EXPECT_TRUE(versions.empty());
}

TEST_P(FileOps, PlaceFileUnderVCAddsAndCommitsAndKeepsAFailedCommitsMessage) {
    writeFile(wc + "/new.c", "new\n");
    EXPECT_EQ(place("wc/new.c", nullptr), "(absent)");
    EXPECT_TRUE(contains(entries(), "/new.c/1.1/"));
    EXPECT_TRUE(commentFiles().empty());

    EXPECT_EQ(place("wc/nowhere.c", "x\n"),
              "Unable to add file to CVS repository. CVS reported:\ncvs add: nothing known about "
              "`nowhere.c'\n");

    rejectCommits();
    writeFile(wc + "/late.c", "late\n");
    std::string error = place("wc/late.c", "rejected\n");
    std::vector<std::string> kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_TRUE(error.starts_with("Unable to commit added file to CVS. CVS reported:\n")) << error;
    EXPECT_TRUE(error.ends_with(keptIn(kept[0]))) << error;
    EXPECT_EQ(readFile(kept[0]), "rejected\n");
    EXPECT_TRUE(contains(entries(), "/late.c/0/"));
}

TEST_P(FileOps, CheckInFileKeepsTheMessageOfEveryFailedCheckIn) {
    change(wc + "/a.c", "checked in\n");
    EXPECT_EQ(checkIn("wc/a.c", "first\n"), "(absent)");
    EXPECT_TRUE(contains(entries(), "/a.c/1.3/"));
    std::vector<std::string> done = runs();
    ASSERT_EQ(done.size(), 1u);
    EXPECT_TRUE(contains(done[0], "|-q commit -F ")) << done[0];
    // Nothing to commit: cvs says nothing and that is success.
    EXPECT_EQ(checkIn("wc/a.c", "nothing\n"), "(absent)");
    change(wc + "/a.c", "after a wait\n");
    mode("lockwait");
    EXPECT_EQ(checkIn("wc/a.c", "waited\n"), "(absent)");
    mode("");
    EXPECT_TRUE(contains(entries(), "/a.c/1.4/"));
    EXPECT_TRUE(commentFiles().empty());
    EXPECT_EQ(checkIn("wc/a.c", nullptr), "No comments specified, checkin not allowed.\n");
    EXPECT_EQ(runs().size(), 2u);

    // Refused by the repository, and refused for being out of date.
    change(wc + "/a.c", "refused\n");
    rejectCommits();
    std::string byHook = rejected("a.c");
    std::string error = checkIn("wc/a.c", "refused by a hook\n");
    std::vector<std::string> kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(error, "Unable to check file in. CVS reported:\n" + byHook + keptIn(kept[0]));
    EXPECT_EQ(readFile(kept[0]), "refused by a hook\n");
    std::filesystem::remove(kept[0]);

    std::filesystem::remove(repo.path() + "/CVSROOT/commitinfo");
    changeElsewhere("a.c", "from elsewhere\n");
    error = checkIn("wc/a.c", "out of date\n");
    kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_TRUE(error.starts_with("Unable to check file in. CVS reported:\ncvs commit: Up-to-date "
                                  "check failed for `a.c'\n"))
        << error;
    EXPECT_TRUE(error.ends_with(keptIn(kept[0]))) << error;
    EXPECT_EQ(readFile(kept[0]), "out of date\n");
}

TEST_P(FileOps, UpdatesOfOneFileAndTheOneThatThrowsTheWorkingFileAway) {
    changeElsewhere("a.c", "1\ntwo\n3\n4\n");
    EXPECT_EQ(updateOne(Update::checkOut, "wc/a.c"), "(absent)");
    EXPECT_EQ(readFile(wc + "/a.c"), "1\ntwo\n3\n4\n");
    changeElsewhere("sub/b.c", "b from elsewhere\n");
    EXPECT_EQ(updateOne(Update::get, "wc/sub/b.c"), "(absent)");
    EXPECT_EQ(readFile(wc + "/sub/b.c"), "b from elsewhere\n");
    EXPECT_EQ(runs(), (std::vector<std::string>{
                          std::filesystem::canonical(wc).string() + "|-Q update a.c",
                          std::filesystem::canonical(wc + "/sub").string() + "|-Q update b.c"}));

    // A conflict prints on the error stream: a failure here, unlike in a batch update.
    change(wc + "/a.c", "1\ntwo here\n3\n4\n");
    changeElsewhere("a.c", "1\ntwo there\n3\n4\n");
    std::string error = updateOne(Update::get, "wc/a.c");
    EXPECT_TRUE(error.starts_with("Unable to get file from CVS repository. CVS reported:\n"
                                  "rcsmerge: warning: conflicts during merge\n"
                                  "cvs update: conflicts found in a.c\n"))
        << error;

    // UncheckFile throws away the working file, read-only or not, and that file only.
    std::filesystem::permissions(wc + "/a.c", std::filesystem::perms::owner_read);
    change(wc + "/sub/b.c", "b here\n");
    writeFile(wc + "/notes.txt", "mine\n");
    EXPECT_EQ(updateOne(Update::uncheck, "wc/a.c"), "(absent)");
    EXPECT_EQ(readFile(wc + "/a.c"), "1\ntwo there\n3\n4\n");
    EXPECT_EQ(readFile(wc + "/sub/b.c"), "b here\n");
    EXPECT_EQ(readFile(wc + "/notes.txt"), "mine\n");

    std::filesystem::remove_all(repo.path());
    std::string failed = repo.cvs(wc, {"-Q", "update", "nowhere.c"}).err;
    error = updateOne(Update::uncheck, "wc/a.c");
    EXPECT_EQ(error, "Unable to get new file from CVS, but your old file was deleted.\nCVS "
                     "reported:\n" +
                         failed);
    EXPECT_FALSE(std::filesystem::exists(wc + "/a.c"));
    EXPECT_EQ(readFile(wc + "/sub/b.c"), "b here\n");
    EXPECT_EQ(readFile(wc + "/notes.txt"), "mine\n");
    EXPECT_TRUE(updateOne(Update::checkOut, "wc/sub/b.c")
                    .starts_with("Unable to update file. CVS reported:\n"));

    // A directory that does not exist costs no file of that name where the service works.
    writeFile(at("service/b.c"), "not to be lost\n");
    updateOne(Update::uncheck, at("nowhere/b.c"));
    EXPECT_EQ(readFile(at("service/b.c")), "not to be lost\n");
}

INSTANTIATE_TEST_SUITE_P(Roots, FileOps, testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
