// Running cvs: the command lines, names that need quoting or must not read as options (proved
// with the real cvs client in local and :fork: working copies), runs with a fake cvs for what the
// real one won't do on demand, output files, comment files, groups of files across
// repositories, and the batch loop with its sentences.
#include "cvs_command.h"

#include "cvs_repo.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "gen_tempname.h"
#include "indgen.h"
#include "plat_files.h"
#include "scratch_folder.h"
#include "ut_stringpool.h"
#include "versctrl_defaultconfig.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string take(char* text) {
    std::string s = text ? text : "(absent)";
    gen_free(text);
    return s;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class CvsCommand : public ScratchTest {
protected:
    void TearDown() override {
        setVersctrlCVSPath(nullptr);
        setVersctrlCVSTimeLimitSeconds(300);
    }
    // Makes a script at <scratch>/bin/cvs the configured cvs client.
    void fakeCvs(const std::string& body) {
        writeExecutable(at("bin/cvs"), "#!/bin/sh\n" + body);
        setVersctrlCVSPath(at("bin/cvs").c_str());
    }
    struct Run {
        bool ok = false;
        bool stderrSeen = false;
        std::string text;
    };
    static Run run(const std::string& command, bool wantStdout = true, bool wantStderr = true) {
        Run r;
        char* text = nullptr;
        r.ok = runCommandCapture(&text, command.c_str(), wantStdout, wantStderr, &r.stderrSeen);
        EXPECT_NE(text, nullptr);
        r.text = take(text);
        return r;
    }
    // Makes `dir` look like a working directory of the repository `root`.
    void workingDir(const std::string& dir, const std::string& root) {
        write(at(dir + "/CVS/Root"), root + "\n");
    }
};

// ---- Command lines ----

TEST_F(CvsCommand, TheLinesOfTheServiceByteForByteWithOrdinaryNames) {
    std::string cf = "/tmp/vccommenta12345";
    std::string commitF = " -Q commit -F " + cf + " ";
    std::vector<const char*> group{"a.c", "sub/b.c"};
    std::vector<std::pair<std::string, std::string>> lines{
        {take(cvsGroupLine(" -Q add ", group)), "\"cvs.exe\" -Q add  a.c sub/b.c"},
        {take(cvsGroupLine(commitF.c_str(), group)),
         "\"cvs.exe\" -Q commit -F /tmp/vccommenta12345  a.c sub/b.c"},
        {take(cvsFileLine(" -Q commit -F ", cf.c_str())),
         "\"cvs.exe\" -Q commit -F /tmp/vccommenta12345"},
        {take(cvsGroupLine(" -Q update ", group)), "\"cvs.exe\" -Q update  a.c sub/b.c"},
        {take(cvsGroupLine(" -Q remove ", group)), "\"cvs.exe\" -Q remove  a.c sub/b.c"},
        {take(cvsFileLine(" -Q add ", "a.c")), "\"cvs.exe\" -Q add a.c"},
        {take(cvsFileLine(commitF.c_str(), "a.c")),
         "\"cvs.exe\" -Q commit -F /tmp/vccommenta12345 a.c"},
        {take(cvsFileLine((" -q commit -F " + cf + " ").c_str(), "a.c")),
         "\"cvs.exe\" -q commit -F /tmp/vccommenta12345 a.c"},
        {take(cvsFileLine(" -Q update ", "a.c")), "\"cvs.exe\" -Q update a.c"},
        {take(cvsFileLine(
             (" -q -n update -p -D " + take(cvsFileWord("2024-05-01 10:00 GMT")) + " ").c_str(),
             "a.c")),
         "\"cvs.exe\" -q -n update -p -D \"2024-05-01 10:00 GMT\" a.c"},
        {take(cvsFileLine(" -q -n update -p -r 1.4 ", "a.c")),
         "\"cvs.exe\" -q -n update -p -r 1.4 a.c"},
        {take(cvsFileLine(" -nQ -n log -r1.4 ", "a.c")), "\"cvs.exe\" -nQ -n log -r1.4 a.c"},
        {take(cvsFileLine(" -n stat ", "a.c")), "\"cvs.exe\" -n stat a.c"},
        {take(cvsFileLine(" -nq update ", "a.c")), "\"cvs.exe\" -nq update a.c"},
        {take(cvsFileLine(" -nQ log ", "a.c")), "\"cvs.exe\" -nQ log a.c"},
    };
    for (const auto& [built, expected] : lines)
        EXPECT_EQ(built, expected);

    // The configured client is read on every call, quoted with its backslashes doubled.
    setVersctrlCVSPath("C:\\cvs\\cvs.exe");
    EXPECT_STREQ(cvsCommand(), "\"C:\\\\cvs\\\\cvs.exe\"");
    EXPECT_EQ(take(cvsFileLine(" -n stat ", "a.c")), "\"C:\\\\cvs\\\\cvs.exe\" -n stat a.c");
}

TEST_F(CvsCommand, NamesThatNeedQuotesAreQuotedAndADashNameIsNoOption) {
    EXPECT_EQ(take(cvsGroupLine(" -Q add ", {"a b", "-x", "it's", "c\\d"})),
              "\"cvs.exe\" -Q add  -- \"a b\" -x \"it\\'s\" \"c\\\\d\"");
    EXPECT_EQ(take(cvsFileLine(" -n stat ", "-x")), "\"cvs.exe\" -n stat -- -x");
    EXPECT_EQ(take(cvsFileLine(" -n stat ", "tab\there")), "\"cvs.exe\" -n stat \"tab\there\"");
}

// The forms above, given to the real cvs client, in both kinds of working copy.
TEST_F(CvsCommand, RealCvsTakesTheseNamesAsFilesInLocalAndForkWorkingCopies) {
    ASSERT_TRUE(cvsAvailable());
    CvsRepo repo(root());
    ASSERT_TRUE(repo.init()) << repo.lastError();
    std::vector<const char*> names{"-x", "a b", "it's", "q\"uote", "back\\slash"};
    for (CvsRootKind kind : {CvsRootKind::local, CvsRootKind::fork}) {
        std::string module = kind == CvsRootKind::local ? "local" : "fork";
        ASSERT_TRUE(repo.importModule(module, {{"keep.c", "k\n"}})) << repo.lastError();
        std::string wc = repo.checkout(module, "wc-" + module, kind);
        ASSERT_NE(wc, "") << repo.lastError();
        for (const char* name : names)
            write(wc + "/" + name, std::string(name) + "\n");
        char* commentFile = nullptr;
        ASSERT_TRUE(writeCommentFile(&commentFile, "names\n"));
        std::string commit = " -Q commit -F " + take(cvsFileWord(commentFile)) + " ";
        DirectoryChanger in(wc.c_str());

        Run add = run(take(cvsGroupLine(" -Q add ", names)));
        EXPECT_TRUE(add.ok && !add.stderrSeen) << add.text;
        Run commitAll = run(take(cvsGroupLine(commit.c_str(), names)));
        EXPECT_TRUE(commitAll.ok && !commitAll.stderrSeen) << commitAll.text;
        for (const char* name : names)
            EXPECT_TRUE(contains(readFile(wc + "/CVS/Entries"), "/" + std::string(name) + "/1.1/"))
                << name;

        write(wc + "/-x", "changed\n");
        Run commitOne = run(take(cvsFileLine(commit.c_str(), "-x")));
        EXPECT_TRUE(commitOne.ok && !commitOne.stderrSeen) << commitOne.text;
        Run status = run(take(cvsFileLine(" -n stat ", "-x")));
        EXPECT_TRUE(status.ok) << status.text;
        EXPECT_TRUE(contains(status.text, "File: -x ")) << status.text;
        EXPECT_TRUE(contains(status.text, "Working revision:\t1.2")) << status.text;
        Run update = run(take(cvsFileLine(" -Q update ", "a b")));
        EXPECT_TRUE(update.ok && !update.stderrSeen) << update.text;

        std::filesystem::remove(wc + "/-x");
        Run remove = run(take(cvsGroupLine(" -Q remove ", {"-x"})));
        EXPECT_TRUE(remove.ok && !remove.stderrSeen) << remove.text;
        EXPECT_TRUE(contains(readFile(wc + "/CVS/Entries"), "/-x/-1.2/")) << wc;
        gen_unlink(commentFile);
        gen_free(commentFile);
    }
}

// ---- Runs ----

TEST_F(CvsCommand, TextIsTheErrorStreamThenTheOutputAndExitCodesDecide) {
    fakeCvs("echo out; echo 'cvs update: warning' >&2; exit ${1:-0}\n");
    Run clean = run(std::string(cvsCommand()) + " 0");
    EXPECT_TRUE(clean.ok);
    EXPECT_TRUE(clean.stderrSeen);
    EXPECT_EQ(clean.text, "cvs update: warning\nout\n");
    Run failed = run(std::string(cvsCommand()) + " 1");
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ(failed.text, "cvs update: warning\nout\n");
    // What is not wanted is neither collected nor seen.
    Run outOnly = run(std::string(cvsCommand()) + " 0", true, false);
    EXPECT_FALSE(outOnly.stderrSeen);
    EXPECT_EQ(outOnly.text, "out\n");
    Run errOnly = run(std::string(cvsCommand()) + " 0", false, true);
    EXPECT_EQ(errOnly.text, "cvs update: warning\n");
}

TEST_F(CvsCommand, TenMegabytesOnTheErrorStreamAndNothingElse) {
    std::string big;
    for (int i = 0; big.size() < 10 * 1024 * 1024; ++i)
        big += "cvs server: line " + std::to_string(i) + "\n";
    write(at("big"), big);
    fakeCvs("cat '" + at("big") + "' >&2\n");
    Run r = run(cvsCommand());
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(r.stderrSeen);
    EXPECT_EQ(r.text.size(), big.size());
    EXPECT_TRUE(r.text == big);
}

// Real cvs waiting for a lock that nobody releases: the wait counts towards the configured
// limit. (A fake cvs that hangs is stopped in the process layer's tests.)
TEST_F(CvsCommand, ALockWaitCountsTowardsTheLimit) {
    ASSERT_TRUE(cvsAvailable());
    CvsRepo repo(root());
    ASSERT_TRUE(repo.init()) << repo.lastError();
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "a\n"}})) << repo.lastError();
    std::string wc = repo.checkout("m", "wc");
    ASSERT_NE(wc, "") << repo.lastError();
    std::filesystem::create_directory(repo.path() + "/m/#cvs.lock");
    setVersctrlCVSTimeLimitSeconds(2);
    DirectoryChanger in(wc.c_str());
    Run r = run(take(cvsFileLine(" -Q update ", "a.c")));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(contains(r.text, "waiting for")) << r.text;
    EXPECT_TRUE(r.text.ends_with("cvs was stopped after 2 seconds because it had not finished "
                                 "within the time limit.\n"))
        << r.text;
}

TEST_F(CvsCommand, AMissingCvsIsReportedNotSilent) {
    setVersctrlCVSPath(at("nowhere/cvs").c_str());
    Run r = run(cvsCommand());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.text, "Unable to start " + at("nowhere/cvs") + ": no such program was found.\n");
}

// ---- Output files ----

TEST_F(CvsCommand, OutputFilesGetTheOutputAndKeepTheirBits) {
    fakeCvs("printf 'new\\ncontent'; [ -n \"$1\" ] && echo \"$1\" >&2; exit ${2:-0}\n");
    std::string file = at("ro.c");
    write(file, "old text that is longer\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_read |
                                           std::filesystem::perms::group_read);
    auto bits = [&] { return std::filesystem::status(file).permissions(); };
    auto before = bits();

    char* error = nullptr;
    EXPECT_TRUE(runCommandToFile(cvsCommand(), file.c_str(), &error));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(read(file), "new\ncontent");
    EXPECT_EQ(bits(), before);

    // Words on the error stream stay for the caller, who counts them as a failure.
    EXPECT_TRUE(
        runCommandToFile((std::string(cvsCommand()) + " remark").c_str(), file.c_str(), &error));
    EXPECT_EQ(take(error), "remark\n");
    EXPECT_FALSE(
        runCommandToFile((std::string(cvsCommand()) + " broken 1").c_str(), file.c_str(), &error));
    EXPECT_EQ(take(error), "broken\n");
    EXPECT_EQ(bits(), before);

    std::string fresh = at("fresh.c");
    EXPECT_TRUE(runCommandToFile(cvsCommand(), fresh.c_str(), &error));
    EXPECT_EQ(read(fresh), "new\ncontent");

    std::string noDir = at("missing/dir/x.c");
    EXPECT_FALSE(runCommandToFile(cvsCommand(), noDir.c_str(), &error));
    EXPECT_EQ(take(error), "Unable to create file " + noDir + ".\n");
}

// ---- Comment files ----

TEST_F(CvsCommand, CommentFilesAreNewPrivateFilesWithoutTemplateLines) {
    struct Case {
        const char* comments;
        std::string content;
    };
    for (const Case& c : std::vector<Case>{{"fix\nCVS: template\nmore\n", "fix\nmore\n"},
                                           {"a\n\rCVS: x\n\rb", "a\nb\n"},
                                           {"one\n\ntwo", "one\n\ntwo\n"},
                                           {"", ""},
                                           {nullptr, ""}}) {
        char* path = nullptr;
        ASSERT_TRUE(writeCommentFile(&path, c.comments));
        ASSERT_NE(path, nullptr);
        std::string name = path;
        EXPECT_EQ(name.rfind(std::string(gen_temp_dir(nullptr)) + "/vccomment", 0), 0u) << name;
        EXPECT_EQ(read(name), c.content);
        PlatFileStatus status;
        ASSERT_EQ(plat_stat(path, &status), 0);
        EXPECT_EQ(status.mode & 0777, 0600u);
        gen_unlink(path);
        gen_free(path);
    }
}

// ---- Groups ----

TEST_F(CvsCommand, FilesUnderOneRepositoryRootFormOneGroup) {
    for (const char* dir : {"w/a", "w/a/x", "w/a/y"})
        workingDir(dir, ":fork:/repo");
    std::string f = at("w/a/x/f"), g = at("w/a/y/g");
    std::vector<const char*> files{f.c_str(), g.c_str()}, group;
    EXPECT_EQ(take(nextCVSGroup(&group, &files)), at("w/a"));
    EXPECT_EQ(group, (std::vector<const char*>{f.c_str() + at("w/a/").size(),
                                               g.c_str() + at("w/a/").size()}));
    EXPECT_STREQ(group[0], "x/f");
    EXPECT_TRUE(files.empty());
    EXPECT_EQ(nextCVSGroup(&group, &files), nullptr);
    EXPECT_TRUE(group.empty());

    // A directory between them that names another repository keeps them apart.
    workingDir("w/a", ":fork:/other");
    files = {f.c_str(), g.c_str()};
    EXPECT_EQ(take(nextCVSGroup(&group, &files)), at("w/a/x"));
    EXPECT_EQ(take(nextCVSGroup(&group, &files)), at("w/a/y"));
    EXPECT_STREQ(group[0], "g");

    std::vector<const char*> outside{"/elsewhere/f"};
    EXPECT_FALSE(relativeToRoot(at("w").c_str(), &outside));

    // With POSIX paths a backslash is a byte of a name, also right behind the root.
    gen_set_posix_paths(true);
    std::string odd = at("w/a/x/\\b\\c");
    files = {odd.c_str()};
    EXPECT_EQ(take(nextCVSGroup(&group, &files)), at("w/a/x"));
    EXPECT_STREQ(group[0], "\\b\\c");
    gen_set_posix_paths(false);
}

TEST_F(CvsCommand, TwoWorkingCopiesOfTwoRepositoriesGiveTwoGroupsAndBothWork) {
    ASSERT_TRUE(cvsAvailable());
    CvsRepo one(root(), "repo1"), two(root(), "repo2");
    ASSERT_TRUE(one.init() && two.init());
    ASSERT_TRUE(one.importModule("m", {{"a.c", "a\n"}, {"sub/b.c", "b\n"}})) << one.lastError();
    ASSERT_TRUE(two.importModule("m", {{"c.c", "c\n"}})) << two.lastError();
    std::string wc1 = one.checkout("m", "wc1");
    std::string wc2 = two.checkout("m", "wc2", CvsRootKind::fork);
    ASSERT_TRUE(!wc1.empty() && !wc2.empty());
    std::vector<std::string> paths{wc1 + "/new1.c", wc2 + "/new2.c", wc1 + "/sub/new3.c",
                                   wc2 + "/new4.c"};
    for (const std::string& p : paths)
        write(p, "x\n");
    std::vector<const char*> files;
    for (const std::string& p : paths)
        files.push_back(p.c_str());

    std::vector<const char*> copy = files, group;
    EXPECT_EQ(take(nextCVSGroup(&group, &copy)), wc1);
    EXPECT_EQ(group,
              (std::vector<const char*>{files[0] + wc1.size() + 1, files[2] + wc1.size() + 1}));
    EXPECT_EQ(take(nextCVSGroup(&group, &copy)), wc2);
    EXPECT_EQ(group.size(), 2u);

    // The batch runs one real cvs command in each working copy.
    CVSBatchOperation add{" -Q add ", nullptr, "Unable to add files in directory: ", "",
                          "\nfirst attempt\n"};
    StringPool pool;
    char* error = nullptr;
    EXPECT_EQ(runCVSBatch(add, &files, &pool, &error), 2);
    EXPECT_EQ(error, nullptr) << error;
    EXPECT_TRUE(contains(readFile(wc1 + "/CVS/Entries"), "/new1.c/0/"));
    EXPECT_TRUE(contains(readFile(wc1 + "/sub/CVS/Entries"), "/new3.c/0/"));
    EXPECT_TRUE(contains(readFile(wc2 + "/CVS/Entries"), "/new4.c/0/"));
}

// ---- The batch loop ----

class CvsBatch : public CvsCommand {
protected:
    void SetUp() override {
        // Fails in a directory named "bad*", with a remark on the error stream in "noisy*";
        // every run is logged with its directory and arguments.
        fakeCvs("echo \"$(pwd -P):$*\" >> '" + at("runs") +
                "'\n"
                "case $(basename \"$(pwd)\") in\n"
                "bad*) echo \"cvs server: cannot do it\" >&2; echo done; exit 1;;\n"
                "noisy*) echo \"cvs server: harmless\" >&2;;\n"
                "esac\n");
        for (const char* dir : {"good1", "good2", "bad1", "bad2", "noisy"})
            workingDir(dir, std::string(":fork:/repo/") + dir);
    }
    std::string batch(const std::vector<std::string>& dirs, bool acceptRemarks = false) {
        names.clear();
        for (const std::string& d : dirs)
            names.push_back(at(d + "/f.c"));
        std::vector<const char*> files;
        for (const std::string& n : names)
            files.push_back(n.c_str());
        CVSBatchOperation op{" -Q update ", acceptRemarks ? harmless : nullptr,
                             "Unable to update files in directory: ", "",
                             "\nSince this was the first attempt no other files.\nhave been "
                             "updated and the operation was aborted.\n"};
        StringPool pool;
        char* error = nullptr;
        runCVSBatch(op, &files, &pool, &error);
        return take(error);
    }
    static bool harmless(const char* output) { return contains(output, "harmless"); }
    std::string block(const std::string& dir, const std::string& output) {
        return "Unable to update files in directory: " + at(dir) + "\nCVS reported:\n" + output;
    }
    std::vector<std::string> names;
};

TEST_F(CvsBatch, AllGroupsWorkEachInItsRootAndTheErrorStaysAbsent) {
    EXPECT_EQ(batch({"good1", "good2"}), "(absent)");
    EXPECT_EQ(read(at("runs")),
              at("good1") + ":-Q update f.c\n" + at("good2") + ":-Q update f.c\n");
}

TEST_F(CvsBatch, AFirstFailureEndsTheBatchAtOnce) {
    EXPECT_EQ(batch({"bad1", "good1"}),
              block("bad1", "cvs server: cannot do it\ndone\n") +
                  "\nSince this was the first attempt no other files.\nhave been updated and the "
                  "operation was aborted.\n");
    EXPECT_EQ(read(at("runs")), at("bad1") + ":-Q update f.c\n");
}

TEST_F(CvsBatch, AfterOneSuccessEveryFailureIsCollectedAndTheRestIsTried) {
    std::string continuing =
        "\nContinuing to attempt to update in other directories\nsince some directories "
        "succeeded.\n";
    EXPECT_EQ(batch({"good1", "bad1", "bad2"}),
              block("bad1", "cvs server: cannot do it\ndone\n") + continuing +
                  block("bad2", "cvs server: cannot do it\ndone\n") + continuing);
    EXPECT_EQ(read(at("runs")), at("good1") + ":-Q update f.c\n" + at("bad1") + ":-Q update f.c\n" +
                                    at("bad2") + ":-Q update f.c\n");
}

TEST_F(CvsBatch, RemarksOnTheErrorStreamFailUnlessTheOperationAcceptsThem) {
    EXPECT_EQ(batch({"noisy"}, true), "(absent)");
    EXPECT_TRUE(batch({"noisy"}, false).starts_with(block("noisy", "cvs server: harmless\n")));
}

} // namespace
