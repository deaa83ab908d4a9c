// cvsvc end to end: a real repository with two working copies, svc_router and cvsservice as
// processes, and cvsvc run as a user runs it, from a working copy, in both output forms.
#include "command_table.h"
#include "cvs_repo.h"
#include "plat_console.h"
#include "plat_socket.h"
#include "plat_time.h"
#include "service_session.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

constexpr int kRunMs = 60000;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class CvsvcTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!cvsAvailable())
            GTEST_SKIP() << "no cvs client";
        ASSERT_TRUE(repo.init()) << repo.lastError();
        ASSERT_TRUE(repo.importModule(
            "proj", {{"a.txt", "alpha\n"}, {"b.txt", "one\ntwo\nthree\n"}, {"sub/c.txt", "c\n"}}))
            << repo.lastError();
        mine = repo.checkout("proj", "mine");
        theirs = repo.checkout("proj", "theirs");
        ASSERT_FALSE(mine.empty() || theirs.empty()) << repo.lastError();
        ASSERT_TRUE(session.start(folder)) << session.error();
        // The service leaves when its last client has gone: this one keeps it for all runs.
        ASSERT_NE(session.connectVersionControl(folder.root()), nullptr) << session.error();
    }

    // cvsvc with `args` in `cwd`, through the session's router.
    ProgramRun cvsvc(const std::vector<std::string>& args, const std::string& cwd) {
        std::vector<std::string> argv{CVSVC_PATH, "-connect_servicerouter",
                                      std::to_string(session.router().port)};
        argv.insert(argv.end(), args.begin(), args.end());
        return runProgram(argv, kRunMs, cwd);
    }

    ScratchFolder folder;
    CvsRepo repo{folder.root()};
    std::string mine, theirs;
    ServiceSession session;
};

// The states a user meets: a change committed from the other copy, local edits, additions and
// removals, files not under control; each in the table and in the JSON, with real versions.
TEST_F(CvsvcTest, ScanShowsRealStatesGroupedWithVersionsInBothForms) {
    ASSERT_TRUE(repo.commitChange(theirs, "a.txt", "alpha 2\n", "second a")) << repo.lastError();
    writeFile(mine + "/b.txt", "one\nTWO\nthree\n");
    std::filesystem::remove(mine + "/sub/c.txt");
    ASSERT_TRUE(repo.run(mine, {"-Q", "remove", "sub/c.txt"})) << repo.lastError();
    ASSERT_TRUE(repo.addFile(mine, "new.txt", "new\n")) << repo.lastError();
    writeFile(mine + "/stray.txt", "?\n");

    ProgramRun text = cvsvc({"scan"}, mine);
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_TRUE(contains(text.out, "Locally Added (1)\n  new.txt    New File  HEAD\n")) << text.out;
    EXPECT_TRUE(contains(text.out, "Locally Removed (1)\n  sub/c.txt")) << text.out;
    EXPECT_TRUE(contains(text.out, "Locally Modified (1)\n  b.txt      1.1.1.1   HEAD\n"))
        << text.out;
    EXPECT_TRUE(contains(text.out, "Remotely Modified (1)\n  a.txt      1.1.1.1   HEAD\n"))
        << text.out;
    EXPECT_TRUE(contains(text.out, "Not under VC (1)\n  stray.txt  N/A       N/A\n")) << text.out;
    EXPECT_FALSE(contains(text.out, "No changes (")) << text.out;

    // --all shows the rest; the JSON carries numbers, words and absolute directories.
    writeFile(mine + "/stray.txt", "?\n");
    ProgramRun all = cvsvc({"scan", "--all", "--json", "."}, mine);
    ASSERT_EQ(all.exitCode, 0) << all.err;
    EXPECT_TRUE(contains(all.out, "\"directory\":\"" + mine +
                                      "\",\"file\":\"a.txt\","
                                      "\"status_type\":1700,\"state\":\"Remotely Modified\""))
        << all.out;
    EXPECT_TRUE(contains(all.out, "\"state\":\"Locally Added\",\"version\":\"New File\""))
        << all.out;
    EXPECT_TRUE(contains(all.out, "\"error\":null}\n")) << all.out;

    // The disk alone cannot know of the other copy's commit.
    ProgramRun local = cvsvc({"scan", "--local"}, mine);
    ASSERT_EQ(local.exitCode, 0) << local.err;
    EXPECT_FALSE(contains(local.out, "Remotely Modified")) << local.out;
    EXPECT_TRUE(contains(local.out, "Locally Modified (1)")) << local.out;
}

// add, commit, remove and exec, including a file whose name has blanks and quotes, checked
// against what cvs itself says afterwards.
TEST_F(CvsvcTest, FileCommandsChangeTheRepositoryInBothForms) {
    const std::string odd = "my \"odd\" file's name.txt";
    writeFile(mine + "/" + odd, "odd\n");
    ProgramRun add = cvsvc({"add", odd}, mine);
    ASSERT_EQ(add.exitCode, 0) << add.err;
    EXPECT_EQ(add.out, "added  " + odd + "\n");

    writeFile(mine + "/sub/d.txt", "d\n");
    ProgramRun addJson = cvsvc({"--json", "add", "sub/d.txt"}, mine);
    ASSERT_EQ(addJson.exitCode, 0) << addJson.err;
    EXPECT_EQ(addJson.out, "{\"command\":\"add\",\"files\":[\"sub/d.txt\"],\"error\":null}\n");
    EXPECT_TRUE(contains(readFile(mine + "/sub/CVS/Entries"), "/d.txt/0/")) << "not added";

    ProgramRun commit = cvsvc({"--json", "commit", "-m", "an odd file", odd}, mine);
    ASSERT_EQ(commit.exitCode, 0) << commit.err;
    // The new version comes from the file's status, where the service can tell it.
    EXPECT_EQ(commit.out, "{\"command\":\"commit\",\"files\":[{\"file\":\"my \\\"odd\\\" file's "
                          "name.txt\",\"version\":\"1.1\"}],\"error\":null}\n");
    ProgramRun log = repo.cvs(theirs, {"-Q", "update"});
    EXPECT_EQ(readFile(theirs + "/" + odd), "odd\n") << log.err;

    ProgramRun remove = cvsvc({"remove", "a.txt"}, mine);
    ASSERT_EQ(remove.exitCode, 0) << remove.err;
    EXPECT_EQ(remove.out, "removed  a.txt\n");
    ProgramRun removeJson = cvsvc({"--json", "remove", "sub/c.txt"}, mine);
    ASSERT_EQ(removeJson.exitCode, 0) << removeJson.err;
    EXPECT_EQ(removeJson.out,
              "{\"command\":\"remove\",\"files\":[\"sub/c.txt\"],\"error\":null}\n");
    ProgramRun removed = cvsvc({"commit", "-m", "a and c go", "a.txt", "sub/c.txt"}, mine);
    ASSERT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_TRUE(contains(removed.out, "committed  a.txt")) << removed.out;
    EXPECT_TRUE(contains(removed.out, "committed  sub/c.txt")) << removed.out;
    EXPECT_FALSE(std::filesystem::exists(mine + "/a.txt"));
    ProgramRun status = repo.cvs(theirs, {"-Q", "update"});
    EXPECT_FALSE(std::filesystem::exists(theirs + "/a.txt")) << status.out << status.err;
    EXPECT_FALSE(std::filesystem::exists(theirs + "/sub/c.txt")) << status.out << status.err;

    // exec hands the words to cvs one by one, blanks and quotes kept. cvs runs where the
    // service runs: a service that cvsvc starts itself runs in the client's directory.
    ProgramRun exec = runProgram({CVSVC_PATH, "exec", "--", "-n", "status", odd}, kRunMs, mine);
    ASSERT_EQ(exec.exitCode, 0) << exec.err;
    EXPECT_TRUE(contains(exec.out, "Status: Up-to-date")) << exec.out;
    EXPECT_TRUE(contains(exec.out, "Working revision:\t1.1")) << exec.out;
    ProgramRun execJson =
        runProgram({CVSVC_PATH, "--json", "exec", "--", "-n", "status", "b.txt"}, kRunMs, mine);
    ASSERT_EQ(execJson.exitCode, 0) << execJson.err;
    EXPECT_TRUE(contains(execJson.out, "\"command\":\"exec\",\"output\":\"===")) << execJson.out;
    EXPECT_TRUE(contains(execJson.out, "Status: Up-to-date\\n")) << execJson.out;
}

// update brings the other copy's commit in and meets a conflict; checkout and switch make and
// move a working copy.
TEST_F(CvsvcTest, JobsUpdateCheckoutAndSwitchInBothForms) {
    ASSERT_TRUE(repo.commitChange(theirs, "b.txt", "one\nTHEIRS\nthree\n", "theirs")) << "";
    ASSERT_TRUE(repo.commitChange(theirs, "a.txt", "alpha 2\n", "a again")) << "";
    writeFile(mine + "/b.txt", "one\nMINE\nthree\n");
    ProgramRun update = cvsvc({"update"}, mine);
    ASSERT_EQ(update.exitCode, 0) << update.err;
    EXPECT_TRUE(contains(update.out, "Has Conflict (1)\n  b.txt")) << update.out;
    EXPECT_EQ(readFile(mine + "/a.txt"), "alpha 2\n");
    EXPECT_TRUE(contains(readFile(mine + "/b.txt"), "<<<<<<< b.txt")) << readFile(mine + "/b.txt");

    ProgramRun again = cvsvc({"--json", "update", "."}, mine);
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_TRUE(contains(again.out, "\"file\":\"b.txt\",\"status_type\":700,\"state\":\"Has "
                                    "Conflict\",\"version\":\"1.2\""))
        << again.out;

    ASSERT_TRUE(repo.run(theirs, {"-Q", "tag", "T1"})) << repo.lastError();
    ASSERT_TRUE(repo.commitChange(theirs, "a.txt", "alpha 3\n", "after the tag")) << "";
    ProgramRun tagged = cvsvc({"checkout", "../repo", "proj", "old", "-r", "T1", "--all"}, mine);
    ASSERT_EQ(tagged.exitCode, 0) << tagged.err;
    EXPECT_TRUE(contains(tagged.out, "No changes (3)\n  old/proj/a.txt")) << tagged.out;
    EXPECT_EQ(readFile(mine + "/old/proj/a.txt"), "alpha 2\n");
    ProgramRun checkout = cvsvc({"--json", "checkout", repo.root(), "proj", "copy"}, mine);
    ASSERT_EQ(checkout.exitCode, 0) << checkout.err;
    EXPECT_TRUE(contains(checkout.out, "\"file\":\"a.txt\",\"status_type\":2300")) << checkout.out;
    EXPECT_EQ(readFile(mine + "/copy/proj/a.txt"), "alpha 3\n");

    ProgramRun toTag = cvsvc({"switch", "copy/proj", "-r", "T1", "--all"}, mine);
    ASSERT_EQ(toTag.exitCode, 0) << toTag.err;
    EXPECT_TRUE(contains(toTag.out, "copy/proj/sub/c.txt  1.1.1.1  T1")) << toTag.out;
    ProgramRun toHead = cvsvc({"--json", "switch", "-A", "copy/proj"}, mine);
    ASSERT_EQ(toHead.exitCode, 0) << toHead.err;
    EXPECT_TRUE(contains(toHead.out, "\"file\":\"c.txt\",\"status_type\":2300,\"state\":\"No "
                                     "changes\",\"version\":\"1.1.1.1\",\"tag\":\"HEAD\""))
        << toHead.out;
    EXPECT_FALSE(contains(toHead.out, "T1")) << toHead.out;
}

// The queries: status, log and info.
TEST_F(CvsvcTest, QueriesShowRealVersionsInBothForms) {
    ASSERT_TRUE(repo.commitChange(mine, "b.txt", "one\ntwo 2\nthree\n", "line two")) << "";
    ASSERT_TRUE(repo.commitChange(theirs, "a.txt", "alpha 2\n", "other side")) << "";

    ProgramRun status = cvsvc({"status", "a.txt", "b.txt"}, mine);
    ASSERT_EQ(status.exitCode, 0) << status.err;
    EXPECT_TRUE(contains(status.out, "a.txt  Remotely Modified")) << status.out;
    EXPECT_TRUE(contains(status.out, "1.1.1.1  1.2")) << status.out;
    ProgramRun statusJson = cvsvc({"--json", "status", "b.txt"}, mine);
    EXPECT_TRUE(contains(statusJson.out, "\"status_type\":2300,\"state\":\"No changes\""))
        << statusJson.out;

    ProgramRun log = cvsvc({"log", "b.txt"}, mine);
    ASSERT_EQ(log.exitCode, 0) << log.err;
    EXPECT_TRUE(contains(log.out, "revision 1.2")) << log.out;
    EXPECT_TRUE(contains(log.out, "    line two\n")) << log.out;
    ProgramRun logJson = cvsvc({"--json", "log", "b.txt"}, mine);
    EXPECT_TRUE(contains(logJson.out, "\"version\":\"1.2\"")) << logJson.out;

    ProgramRun info = cvsvc({"info", "b.txt", "1.2"}, mine);
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_TRUE(contains(info.out, "line two")) << info.out;
    ProgramRun infoJson = cvsvc({"--json", "info", "b.txt", "1.2"}, mine);
    EXPECT_TRUE(contains(infoJson.out, "\"comments\":\"line two\\n\"")) << infoJson.out;
}

// blame names the revision that last changed a range of lines, of the working file or of a
// named revision.
TEST_F(CvsvcTest, BlameNamesTheLastEditInBothForms) {
    ASSERT_TRUE(repo.commitChange(mine, "b.txt", "one\ntwo 2\nthree\n", "line two")) << "";
    ASSERT_TRUE(repo.commitChange(mine, "b.txt", "zero\none\ntwo 2\nthree\n", "line zero")) << "";

    ProgramRun blame = cvsvc({"blame", "b.txt", "3"}, mine);
    ASSERT_EQ(blame.exitCode, 0) << blame.err;
    EXPECT_EQ(blame.out, "Line 3 of b.txt was last changed in revision 1.2 (the revision before it "
                         "is 1.1).\nLine 3 is line 2 of revision 1.2.\n");
    ProgramRun old = cvsvc({"--json", "blame", "-r", "1.2", "b.txt", "1-2"}, mine);
    ASSERT_EQ(old.exitCode, 0) << old.err;
    EXPECT_EQ(old.out, "{\"command\":\"blame\",\"file\":\"b.txt\",\"from\":1,\"to\":2,"
                       "\"ret_val\":0,\"changed_in\":\"1.2\",\"previous\":\"1.1\","
                       "\"line_in_changed\":1,\"error\":null}\n");
    ProgramRun first = cvsvc({"blame", "b.txt", "2"}, mine);
    EXPECT_EQ(first.out, "Line 2 of b.txt has not changed since the first revision.\n");
    ProgramRun beyond = cvsvc({"blame", "b.txt", "3-40"}, mine);
    EXPECT_EQ(beyond.exitCode, 1);
    EXPECT_EQ(beyond.err, "Lines 3-40 of b.txt could not be read to the end.\n");
}

// Usage errors, errors of the service and of a job, and a router that is not there.
TEST_F(CvsvcTest, ExitCodesTellWhatWentWrong) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"frobnicate"},
                                               {"commit", "a.txt"},
                                               {"switch", "."},
                                               {"blame", "a.txt", "5-2"},
                                               {"exec", "status"},
                                               {"scan", "--bogus"}}) {
        ProgramRun run = cvsvc(words, mine);
        EXPECT_EQ(run.exitCode, 2) << words[0] << ": " << run.err;
        EXPECT_TRUE(contains(run.err, "usage: cvsvc")) << run.err;
    }
    ProgramRun help = runProgram({CVSVC_PATH, "--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const CommandEntry& entry : commandTable())
        EXPECT_EQ(contains(help.out, std::string("\n  ") + entry.name + " "), entry.landed)
            << entry.name;

    // The service's own words, on standard error as they came.
    ProgramRun missing = cvsvc({"add", "no-such-file.txt"}, mine);
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(contains(missing.err, "no-such-file.txt")) << missing.err;
    writeFile(folder.at("plain"), "not a folder\n");
    ProgramRun job = cvsvc({"--json", "checkout", repo.root(), "proj", folder.at("plain")}, mine);
    EXPECT_EQ(job.exitCode, 1);
    EXPECT_EQ(job.err, "Error: Unable to create directory " + folder.at("plain") +
                           ", checkout creation aborted.\n");
    EXPECT_TRUE(contains(job.out, "\"error\":\"Error: Unable to create directory")) << job.out;

    // A port where nobody listens.
    plat_socket probe = plat_tcp_socket();
    uint16_t port = 0;
    ASSERT_TRUE(plat_bind(probe, plat_loopback_address(), 0));
    uint32_t address = 0;
    ASSERT_TRUE(plat_local_address(probe, &address, &port));
    plat_close_socket(probe);
    ProgramRun nobody = runProgram(
        {CVSVC_PATH, "-connect_servicerouter", std::to_string(port), "scan"}, kRunMs, mine);
    EXPECT_EQ(nobody.exitCode, 3);
    EXPECT_TRUE(
        contains(nobody.err, "No service router can be reached on port " + std::to_string(port)))
        << nobody.err;
}

// Without a router option cvsvc brings its own, and Ctrl-C during a scan halts the job in the
// service: the command ends long before the slow cvs would, and the service lets it go.
TEST_F(CvsvcTest, CtrlCHaltsTheScanOfAnEmbeddedService) {
    // A repository reached through a server that takes its time to answer: the scan's cvs waits.
    std::string slow = folder.at("slow-server");
    std::string started = folder.at("server-started");
    writeExecutable(slow, "#!/bin/sh\ntouch '" + started + "'\nsleep 30\nexec cvs \"$@\"\n");
    std::string remote = repo.checkout("proj", "remote", CvsRootKind::fork);
    ASSERT_FALSE(remote.empty()) << repo.lastError();

    // The embedded default first: a plain command with no router set up.
    ProgramRun plain = runProgram({CVSVC_PATH, "scan", "--json"}, kRunMs, mine);
    ASSERT_EQ(plain.exitCode, 0) << plain.err;
    EXPECT_TRUE(contains(plain.out, "\"command\":\"scan\"")) << plain.out;

    setenv("CVS_SERVER", slow.c_str(), 1);
    ChildProcess scan;
    bool spawned =
        scan.start({CVSVC_PATH, "scan", remote}, folder.at("scan.out"), folder.at("scan.err"));
    unsetenv("CVS_SERVER");
    ASSERT_TRUE(spawned);
    int32_t begin = plat_tick_count();
    while (!std::filesystem::exists(started) && plat_tick_diff(plat_tick_count(), begin) < 20000)
        plat_sleep_ms(20);
    ASSERT_TRUE(std::filesystem::exists(started)) << scan.errors();
    ASSERT_TRUE(plat_interrupt_process(scan.pid()));
    int32_t halting = plat_tick_count();
    EXPECT_EQ(scan.wait(20000), 130) << scan.errors();
    EXPECT_LT(plat_tick_diff(plat_tick_count(), halting), 15000);
    EXPECT_TRUE(contains(scan.errors(), "Halted scan.\n")) << scan.errors();
    EXPECT_EQ(scan.output(), "") << "off a terminal nothing but the report goes to stdout";
}

} // namespace
