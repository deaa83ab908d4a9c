// The operations on lists of files end to end: requests through svc_router to cvsservice, which
// runs cvs in real repositories with local and :fork: roots. Groups of working copies of
// different repositories, the sentences of failed batches, commit messages kept on every failed
// commit, lock waits, removals that touch nothing but their own group, and file names that are
// data and never commands.
#include "vc_ops_session.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string real(const std::string& path) {
    return std::filesystem::canonical(path).string();
}

// What `cvs ARGS` prints in `dir`, standard error first, as the service reports it.
std::string cvsSays(const CvsRepo& repo, const std::string& dir,
                    const std::vector<std::string>& args) {
    ProgramRun r = repo.cvs(dir, args);
    return r.err + r.out;
}

const char* const kAddAborted = "\nSince this was the first attempt no other files\nhave been "
                                "added and the operation was aborted.\n";
const char* const kCommitAborted = "\nSince this was the first attempt no other files\nhave been "
                                   "committed and the operation was aborted.\n";
const char* const kContinuing = "\nContinuing to attempt to update in other directories\nsince "
                                "some directories succeeded.\n";

// Two repositories: "one" with module m (a.c, sub/b.c) checked out as wc1 with a local root, and
// "two" with module m (c.c) checked out as wc2 with a :fork: root.
class BatchOps : public VcOpsSession {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(one.init() && two.init());
        ASSERT_TRUE(one.importModule("m", {{"a.c", "a\n"}, {"sub/b.c", "b\n"}})) << one.lastError();
        ASSERT_TRUE(two.importModule("m", {{"c.c", "1\n2\n3\n"}})) << two.lastError();
        wc1 = one.checkout("m", "wc1");
        wc2 = two.checkout("m", "wc2", CvsRootKind::fork);
        ASSERT_TRUE(!wc1.empty() && !wc2.empty());
    }
    std::string entries(const std::string& dir) { return readFile(dir + "/CVS/Entries"); }
    // Makes a change that cvs sees even within the second of the checkout.
    static void change(const std::string& path, const std::string& content) {
        writeFile(path, content);
        std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) +
                                                   std::chrono::seconds(2));
    }

    CvsRepo one{folder.root(), "one"};
    CvsRepo two{folder.root(), "two"};
    std::string wc1, wc2;
};

TEST_F(BatchOps, TwoWorkingCopiesOfTwoRepositoriesGiveTwoCommandsInTheOrderOfTheirFirstNames) {
    for (const char* name : {"wc1/n1.c", "wc2/n2.c", "wc1/sub/n3.c", "wc2/n4.c"})
        writeFile(at(name), "new\n");
    // Relative names are taken against the client's working directory.
    std::vector<std::string> names{"wc1/n1.c", "wc2/n2.c", at("wc1/sub/n3.c"), "wc2/n4.c"};
    EXPECT_EQ(add(names), "(absent)");
    EXPECT_EQ(runs(), (std::vector<std::string>{real(wc1) + "|-Q add n1.c sub/n3.c",
                                                real(wc2) + "|-Q add n2.c n4.c"}));
    EXPECT_TRUE(contains(entries(wc1), "/n1.c/0/"));
    EXPECT_TRUE(contains(entries(wc1 + "/sub"), "/n3.c/0/"));
    EXPECT_TRUE(contains(entries(wc2), "/n4.c/0/"));

    EXPECT_EQ(commit(names, "the message\n"), "(absent)");
    std::vector<std::string> commits = runs();
    ASSERT_EQ(commits.size(), 2u);
    EXPECT_TRUE(
        commits[0].starts_with(real(wc1) + "|-Q commit -F " + real(at("tmp")) + "/vccomment"));
    EXPECT_TRUE(commits[0].ends_with(" n1.c sub/n3.c")) << commits[0];
    EXPECT_TRUE(commits[1].starts_with(real(wc2) + "|")) << commits[1];
    EXPECT_TRUE(commentFiles().empty());
    EXPECT_TRUE(contains(entries(wc2), "/n2.c/1.1/"));

    // Changes from elsewhere reach both working copies in one request.
    std::string other1 = one.checkout("m", "other1");
    std::string other2 = two.checkout("m", "other2");
    ASSERT_TRUE(one.commitChange(other1, "a.c", "a, changed\n", "x")) << one.lastError();
    ASSERT_TRUE(two.commitChange(other2, "c.c", "1\n2\n3, changed\n", "x")) << two.lastError();
    EXPECT_EQ(update({"wc2/c.c", "wc1/a.c"}), "(absent)");
    EXPECT_EQ(runs(), (std::vector<std::string>{real(wc2) + "|-Q update c.c",
                                                real(wc1) + "|-Q update a.c"}));
    EXPECT_EQ(readFile(wc1 + "/a.c"), "a, changed\n");
    EXPECT_EQ(readFile(wc2 + "/c.c"), "1\n2\n3, changed\n");

    EXPECT_EQ(remove({"wc1/n1.c", "wc2/n2.c", "wc1/sub/n3.c"}), "(absent)");
    EXPECT_EQ(runs(), (std::vector<std::string>{real(wc1) + "|-Q remove n1.c sub/n3.c",
                                                real(wc2) + "|-Q remove n2.c"}));
    EXPECT_FALSE(std::filesystem::exists(wc1 + "/n1.c"));
    EXPECT_TRUE(contains(entries(wc1), "/n1.c/-1.1/"));
    EXPECT_TRUE(contains(entries(wc2), "/n2.c/-1.1/"));
    EXPECT_TRUE(std::filesystem::exists(wc2 + "/n4.c"));
}

TEST_F(BatchOps, AFirstGroupThatFailsEndsTheBatchWithTheFirstAttemptSentence) {
    writeFile(wc2 + "/new.c", "new\n");
    EXPECT_EQ(add({"wc1/nowhere.c", "wc2/new.c"}),
              "Unable to add files in directory: " + wc1 +
                  "\nCVS reported:\ncvs add: nothing known about `nowhere.c'\n" + kAddAborted);
    EXPECT_EQ(runs().size(), 1u);
    EXPECT_FALSE(contains(entries(wc2), "/new.c/"));

    // A commit that is refused: "Up-to-date check failed", with the message kept.
    std::string other1 = one.checkout("m", "other1");
    ASSERT_TRUE(one.commitChange(other1, "a.c", "a from elsewhere\n", "x")) << one.lastError();
    change(wc1 + "/a.c", "a here\n");
    change(wc2 + "/c.c", "c here\n");
    std::string refused = cvsSays(one, wc1, {"-Q", "commit", "-m", "probe", "a.c"});
    ASSERT_TRUE(contains(refused, "Up-to-date check failed for `a.c'")) << refused;
    std::string error = commit({"wc1/a.c", "wc2/c.c"}, "kept message\n");
    std::vector<std::string> kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(error, "Unable to commit files in directory: " + wc1 + "\nCVS reported:\n" + refused +
                         "\n" + kCommitAborted + keptIn(kept[0]));
    EXPECT_EQ(readFile(kept[0]), "kept message\n");
    EXPECT_EQ(runs().size(), 1u);
    EXPECT_TRUE(contains(entries(wc2), "/c.c/1.1.1.1/"));
}

TEST_F(BatchOps, AfterAGroupWorkedEveryLaterFailureIsCollectedAndEveryGroupTried) {
    // A third group: a working copy of "one" with a :fork: root, a root of its own. The
    // repository of "two" goes away, so that its group fails too.
    std::string wc3 = one.checkout("m", "wc3", CvsRootKind::fork);
    ASSERT_FALSE(wc3.empty()) << one.lastError();
    change(wc3 + "/a.c", "a in wc3\n");
    std::string other1 = one.checkout("m", "other1");
    ASSERT_TRUE(one.commitChange(other1, "sub/b.c", "b changed\n", "x")) << one.lastError();
    std::filesystem::remove_all(two.path());
    std::string second = cvsSays(one, wc3, {"-Q", "update", "a.c"});
    std::string third = cvsSays(two, wc2, {"-Q", "update", "c.c"});
    ASSERT_FALSE(third.empty());
    // wc3's group fails by the remark of an update of a directory, which is no harmless one.
    mode("updating", wc3);
    std::string error = update({"wc1/sub/b.c", "wc3/a.c", "wc2/c.c"});
    EXPECT_EQ(readFile(wc1 + "/sub/b.c"), "b changed\n");
    EXPECT_EQ(error, "Unable to update files in directory: " + wc3 +
                         "\nCVS reported:\ncvs server: Updating .\n" + second + kContinuing +
                         "Unable to update files in directory: " + wc2 + "\nCVS reported:\n" +
                         third + kContinuing);
    EXPECT_EQ(runs().size(), 3u);
}

TEST_F(BatchOps, ARealConflictIsNoFailureOfAnUpdateButACommitKeepsItsMessage) {
    std::string other2 = two.checkout("m", "other2");
    ASSERT_TRUE(two.commitChange(other2, "c.c", "1\ntwo from there\n3\n", "x")) << two.lastError();
    change(wc2 + "/c.c", "1\ntwo from here\n3\n");
    EXPECT_EQ(update({"wc2/c.c"}), "(absent)");
    EXPECT_TRUE(contains(readFile(wc2 + "/c.c"), "<<<<<<< c.c\n")) << readFile(wc2 + "/c.c");

    std::string error = commit({"wc2/c.c"}, "after the conflict\n");
    std::vector<std::string> kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_TRUE(error.starts_with("Unable to commit files in directory: " + wc2 +
                                  "\nCVS reported:\ncvs commit: file `c.c' had a conflict and "
                                  "has not been modified\n"))
        << error;
    EXPECT_TRUE(error.ends_with(keptIn(kept[0]))) << error;
    EXPECT_EQ(readFile(kept[0]), "after the conflict\n");
}

TEST_F(BatchOps, ACommitMessageStaysWhenCvsCannotStartOrIsKilled) {
    change(wc1 + "/a.c", "a changed\n");
    struct Path {
        const char* what;
        std::function<void()> arrange, restore;
        std::string output;
    };
    std::vector<Path> paths{
        {"killed", [&] { mode("kill"); }, [&] { mode(""); }, ""},
        {"not startable", [&] { std::filesystem::rename(cvsPath(), cvsPath() + ".away"); },
         [&] { std::filesystem::rename(cvsPath() + ".away", cvsPath()); },
         "Unable to start " + cvsPath() + ": no such program was found.\n"},
    };
    for (const Path& p : paths) {
        p.arrange();
        std::string message = std::string("message when ") + p.what + "\n\nwith a blank line\n";
        std::string error = commit({"wc1/a.c"}, message.c_str());
        p.restore();
        std::vector<std::string> kept = commentFiles();
        ASSERT_EQ(kept.size(), 1u) << p.what;
        EXPECT_EQ(error, "Unable to commit files in directory: " + wc1 + "\nCVS reported:\n" +
                             p.output + "\n" + kCommitAborted + keptIn(kept[0]))
            << p.what;
        EXPECT_EQ(readFile(kept[0]), message);
        std::filesystem::remove(kept[0]);
    }
    EXPECT_TRUE(contains(entries(wc1), "/a.c/1.1.1.1/"));
    // And nothing is run without a message at all.
    runs();
    EXPECT_EQ(commit({"wc1/a.c"}, nullptr), "No comments specified, checkin not allowed.\n");
    EXPECT_TRUE(runs().empty());
    EXPECT_TRUE(commentFiles().empty());
}

TEST_F(BatchOps, ACommitThatWaitedForALockWentThroughInEitherWording) {
    int round = 0;
    for (const char* wording : {"lockwait", "oldlockwait"}) {
        change(wc1 + "/a.c", "round " + std::to_string(++round) + "\n");
        mode(wording);
        EXPECT_EQ(commit({"wc1/a.c"}, "waited\n"), "(absent)") << wording;
        EXPECT_TRUE(commentFiles().empty()) << wording;
    }
    EXPECT_TRUE(contains(entries(wc1), "/a.c/1.3/")) << entries(wc1);
}

TEST_F(BatchOps, CommitDirectoriesStopsAtTheFirstFailureAndKeepsTheMessage) {
    change(wc1 + "/a.c", "a changed\n");
    change(wc1 + "/sub/b.c", "b changed\n");
    change(wc2 + "/c.c", "c changed\n");
    EXPECT_EQ(commitDirectories({"wc1", "wc2"}, "whole directories\n"), "(absent)");
    EXPECT_TRUE(contains(entries(wc1 + "/sub"), "/b.c/1.2/"));
    EXPECT_TRUE(contains(entries(wc2), "/c.c/1.2/"));
    std::vector<std::string> done = runs();
    ASSERT_EQ(done.size(), 2u);
    EXPECT_TRUE(done[1].starts_with(real(wc2) + "|-Q commit -F ")) << done[1];
    EXPECT_TRUE(commentFiles().empty());

    change(wc1 + "/a.c", "a again\n");
    change(wc2 + "/c.c", "c again\n");
    std::filesystem::remove_all(two.path());
    std::string failed = cvsSays(two, wc2, {"-Q", "commit", "-m", "x"});
    std::string error = commitDirectories({"wc2", "wc1"}, "lost?\n");
    std::vector<std::string> kept = commentFiles();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(error, "Unable to commit files in directory: " + wc2 + "\nCVS reported:\n" + failed +
                         "\n" + keptIn(kept[0]));
    EXPECT_EQ(readFile(kept[0]), "lost?\n");
    EXPECT_EQ(runs().size(), 1u);
    EXPECT_TRUE(contains(entries(wc1), "/a.c/1.2/"));
}

TEST_F(BatchOps, RemoveDeletesOnlyTheFilesOfTheGroupsItRuns) {
    // The first group can't delete its second file: nothing of a later group is touched.
    EXPECT_EQ(remove({"wc1/a.c", "wc1/gone.c", "wc2/c.c"}), "Error: Unable to delete file gone.c.");
    EXPECT_FALSE(std::filesystem::exists(wc1 + "/a.c"));
    EXPECT_TRUE(std::filesystem::exists(wc2 + "/c.c"));
    EXPECT_TRUE(runs().empty());

    // A group whose `cvs remove` fails ends the batch; its files are gone, later ones stay.
    ASSERT_TRUE(one.run(wc1, {"-Q", "update", "a.c"})) << one.lastError();
    std::filesystem::remove_all(two.path());
    std::string failed = cvsSays(two, wc2, {"-Q", "remove", "nowhere.c"});
    EXPECT_EQ(remove({"wc2/c.c", "wc1/a.c"}),
              "Unable to delete files in directory: " + wc2 + "\nCVS reported:\n" + failed);
    EXPECT_FALSE(std::filesystem::exists(wc2 + "/c.c"));
    EXPECT_TRUE(std::filesystem::exists(wc1 + "/a.c"));
    EXPECT_EQ(runs().size(), 1u);

    // A directory that does not exist costs no file of that name where the service works.
    writeFile(at("service/a.c"), "not to be lost\n");
    EXPECT_EQ(remove({at("nowhere/a.c")}), "Error: Unable to delete file a.c.");
    EXPECT_EQ(readFile(at("service/a.c")), "not to be lost\n");

    // Empty lists run nothing and answer with success; a commit still makes its comment file
    // and deletes it.
    for (auto& call : std::vector<std::function<std::string()>>{
             [&] { return add({}); }, [&] { return update({}); }, [&] { return remove({}); },
             [&] { return commit({}, ""); }})
        EXPECT_EQ(call(), "(absent)");
    EXPECT_TRUE(runs().empty());
    EXPECT_TRUE(commentFiles().empty());
}

// File names with every byte a command line or a shell could take for something else: they
// name files, in both kinds of working copy, and nothing is ever run.
class NamesAreData : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {};

TEST_P(NamesAreData, AddCommitStatusUpdateAndRemove) {
    const std::vector<std::string> odd{
        "with blank.c",    "dq\"uote.c",    "sq'uote.c",      "back\\slash.c",
        "dollar$HOME.c",   "back`tick`.c",  "semi;colon.c",   "pi|pe.c",
        "amp&ersand.c",    "star*.c",       "-dash.c",        "utf8-\xc3\xa4\xe6\x97\xa5.c",
        "$(touch CANARY)", ";touch CANARY", "`touch CANARY`", "|touch CANARY",
        "&& touch CANARY", "x:y.c"};
    ASSERT_TRUE(repo.init());
    ASSERT_TRUE(repo.importModule("m", {{"keep.c", "k\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc", GetParam());
    ASSERT_FALSE(wc.empty()) << repo.lastError();
    std::vector<std::string> names;
    for (const std::string& name : odd) {
        writeFile(wc + "/" + name, name + "\n");
        names.push_back("wc/" + name);
    }
    EXPECT_EQ(add(names), "(absent)");
    EXPECT_EQ(commit(names, "odd names\n"), "(absent)");
    std::vector<std::string> args{"-n", "status", "--"};
    args.insert(args.end(), odd.begin(), odd.end());
    std::string status = cvsSays(repo, wc, args);
    for (const std::string& name : odd) {
        EXPECT_TRUE(contains(status, "File: " + name + " ")) << name;
        EXPECT_TRUE(contains(readFile(wc + "/CVS/Entries"), "/" + name + "/1.1/")) << name;
    }
    EXPECT_FALSE(contains(status, "Status: Locally")) << status;

    std::string other = repo.checkout("m", "other");
    std::vector<std::string> commitArgs{"-Q", "commit", "-m", "x", "--"};
    for (const std::string& name : odd) {
        writeFile(other + "/" + name, "changed " + name + "\n");
        std::filesystem::last_write_time(other + "/" + name,
                                         std::filesystem::file_time_type::clock::now() +
                                             std::chrono::seconds(2));
        commitArgs.push_back(name);
    }
    ASSERT_TRUE(repo.run(other, commitArgs)) << repo.lastError();
    EXPECT_EQ(update(names), "(absent)");
    for (const std::string& name : odd)
        EXPECT_EQ(readFile(wc + "/" + name), "changed " + name + "\n");

    EXPECT_EQ(remove(names), "(absent)");
    for (const std::string& name : odd) {
        EXPECT_FALSE(std::filesystem::exists(wc + "/" + name)) << name;
        EXPECT_TRUE(contains(readFile(wc + "/CVS/Entries"), "/" + name + "/-1.2/")) << name;
    }
    EXPECT_EQ(readFile(wc + "/keep.c"), "k\n");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.root()))
        EXPECT_NE(entry.path().filename(), "CANARY") << entry.path();
    EXPECT_FALSE(std::filesystem::exists("CANARY"));
}

INSTANTIATE_TEST_SUITE_P(Roots, NamesAreData,
                         testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
