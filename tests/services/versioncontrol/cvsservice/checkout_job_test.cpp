// The life of a checkout-info job at its edges, end to end: a halt in the middle of a large scan,
// the service serving others while a scan runs, a client that drops mid-scan, and cvs children
// that hang or would prompt (a stand-in "cvs" found first in PATH). The service's own children
// are watched through /proc.
#include "checkout_session.h"
#include "cvs_repo.h"
#include "plat_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// One process as /proc/PID/stat tells it.
struct ProcInfo {
    long pid = 0, parent = 0, group = 0;
    std::string name;
    char state = '?';
};

std::vector<ProcInfo> processes() {
    std::vector<ProcInfo> all;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        ProcInfo p;
        p.pid = std::atol(entry.path().filename().c_str());
        if (p.pid <= 0)
            continue;
        std::string stat = readFile(entry.path().string() + "/stat");
        size_t open = stat.find('('), close = stat.rfind(')');
        if (open == std::string::npos || close == std::string::npos)
            continue;
        p.name = stat.substr(open + 1, close - open - 1);
        std::istringstream rest(stat.substr(close + 2));
        if (rest >> p.state >> p.parent >> p.group)
            all.push_back(p);
    }
    return all;
}

// The cvsservice that the router `routerPid` started, or 0.
long servicePid(long routerPid) {
    for (const ProcInfo& p : processes())
        if (p.parent == routerPid && p.name == "cvsservice")
            return p.pid;
    return 0;
}

// Processes (zombies too) whose parent is `pid`, or that are in the process group `group`.
size_t childrenOf(long pid, long group = -1) {
    size_t n = 0;
    for (const ProcInfo& p : processes())
        n += p.parent == pid || p.group == group;
    return n;
}

// Waits until `pid` has no children and the group `group` has no members.
bool noChildrenLeft(long pid, long group, int32_t timeoutMs = 10000) {
    int32_t start = plat_tick_count();
    while (childrenOf(pid, group) > 0) {
        if (plat_tick_diff(plat_tick_count(), start) > timeoutMs)
            return false;
        plat_sleep_ms(20);
    }
    return true;
}

bool isFinished(const CheckoutEvent& e) {
    return e.kind == CheckoutEvent::finished;
}

// A checkout of 5000 files in 200 directories, with a ":fork:" root.
class LargeScan : public ScratchTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(cvsAvailable());
        ASSERT_TRUE(repo.init()) << repo.lastError();
        CvsFiles files;
        for (int d = 0; d < 200; ++d)
            for (int f = 0; f < 25; ++f)
                files["d" + std::to_string(d) + "/f" + std::to_string(f) + ".c"] = "text\n";
        ASSERT_TRUE(repo.importModule("big", files)) << repo.lastError();
        wc = repo.checkout("big", "wc", CvsRootKind::fork);
        ASSERT_NE(wc, "") << repo.lastError();
        ASSERT_TRUE(service.start(folder, wc)) << service.session.error();
    }
    // Starts the scan and waits until its walk is under way.
    std::string startScan() {
        CheckoutReply reply = service.requestInfo({wc}, false);
        EXPECT_EQ(reply.error, "(absent)");
        EXPECT_TRUE(service.awaitEvent(statusIs("Scanned 25 directories so far...")));
        EXPECT_EQ(service.client->count(CheckoutEvent::finished), 0u) << "the scan is too quick";
        return reply.cookie;
    }

    ScratchFolder folder;
    CvsRepo repo{folder.root()};
    std::string wc;
    CheckoutSession service;
};

TEST_F(LargeScan, HaltScanEndsTheJobAtOnceWithItsLastTwoEvents) {
    std::string cookie = startScan();
    long pid = servicePid(service.session.router().pid());
    ASSERT_NE(pid, 0);
    CheckoutReply halted = service.halt(cookie);
    ASSERT_TRUE(halted.answered);
    EXPECT_EQ(halted.error, "(absent)");
    ASSERT_TRUE(service.awaitEvent([](const CheckoutEvent& e) {
        return e.kind == CheckoutEvent::output && e.text == "Halted scan.\n";
    }));
    const auto& events = service.client->events;
    ASSERT_GE(events.size(), 2u);
    EXPECT_TRUE(events.back().is_stderr);
    EXPECT_TRUE(isFinished(events[events.size() - 2]));
    EXPECT_EQ(events[events.size() - 2].text, "");
    EXPECT_EQ(service.client->count(CheckoutEvent::display), 0u);
    // The child is gone, reaped, and nothing of the job comes later.
    EXPECT_TRUE(noChildrenLeft(pid, -1));
    size_t seen = events.size();
    EXPECT_EQ(service.halt(cookie).error,
              "Attempt to halt an unknown job. This is probably caused\nby attempting to halt a "
              "job just as it was finishing.");
    EXPECT_EQ(events.size(), seen);
}

TEST_F(LargeScan, TheServiceAnswersOthersWhileAScanRuns) {
    VcClient* vc = service.session.connectVersionControl(wc);
    ASSERT_NE(vc, nullptr) << service.session.error();
    startScan();

    // Another connection, another service.
    char* output = nullptr;
    char* error = nullptr;
    ASSERT_TRUE(vc->ExecuteCommandString("version", &output, &error, service.session.waiter().get(),
                                         nullptr));
    EXPECT_NE(std::string(output ? output : "").find("Concurrent Versions System"),
              std::string::npos);
    gen_free(output);
    gen_free(error);
    bool under = false;
    error = nullptr;
    EXPECT_TRUE(vc->FileIsUnderVC((wc + "/d7/f3.c").c_str(), &under, &error,
                                  service.session.waiter().get(), nullptr));
    gen_free(error);
    // A second scan on the same connection starts beside the first.
    CheckoutReply second = service.requestInfo({wc + "/d42"}, true);
    EXPECT_EQ(second.cookie, "CheckoutScan-2");
    EXPECT_EQ(service.client->count(CheckoutEvent::finished), 0u)
        << "every answer came while the first scan ran";

    ASSERT_TRUE(service.awaitFinished(2));
    auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 2u);
    for (const CheckoutReport* report : reports)
        EXPECT_EQ(report->items.size(), report->checkout_dir == wc ? 5000u : 25u)
            << report->checkout_dir;
}

// A stand-in "cvs" found first in PATH, whose behaviour the test chooses by writing its mode,
// and a checkout made by hand for it (nothing but CVS/Entries is needed to be one).
class StandInCvs : public ScratchTest {
protected:
    void SetUp() override {
        writeExecutable(
            at("bin/cvs"),
            "#!/bin/sh\n"
            "echo $$ > '" +
                at("child.pid") +
                "'\n"
                "case $(cat '" +
                at("mode") +
                "') in\n"
                "hang) echo 'cvs update: Updating .' >&2; sleep 600 & wait ;;\n"
                "prompt) if read -r answer < /dev/tty; then echo \"read $answer\";\n"
                "        else echo 'cvs [update aborted]: no terminal for a password' >&2;\n"
                "        exit 1; fi ;;\n"
                "slow) sleep 2; touch '" +
                at("ran-to-end") +
                "'; echo 'M a.c' ;;\n"
                "esac\n");
        write(at("wc/CVS/Entries"), "/a.c/1.1/Thu Jan 15 13:04:05 2004//\nD\n");
        write(at("wc/a.c"), "a\n");
        write(at("ORT/ort.cfg"), "Versctrl_CVSTimeLimit: 2\n");
        setenv("PATH", (at("bin") + ":" + saved.path).c_str(), 1);
        setenv("XDG_CONFIG_HOME", root().c_str(), 1);
    }
    void setMode(const std::string& mode) { write(at("mode"), mode); }
    void startService(bool stay = true) {
        ASSERT_TRUE(service.start(folder, at("wc"), stay)) << service.session.error();
        // The service has the environment now; this process gets its own back.
        restore.reset();
    }
    long childPid() const { return std::atol(read(at("child.pid")).c_str()); }

    struct Path {
        std::string path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
    } saved;
    std::unique_ptr<SavedEnvironment> restore = std::make_unique<SavedEnvironment>(
        std::initializer_list<const char*>{"PATH", "XDG_CONFIG_HOME"}, false);
    ScratchFolder folder;
    CheckoutSession service;
};

TEST_F(StandInCvs, AHangingCvsIsStoppedByTheTimeLimitAndTheJobSaysSo) {
    setMode("hang");
    startService();
    ASSERT_TRUE(service.requestInfo({at("wc")}, false).answered);
    ASSERT_TRUE(service.awaitFinished(1, 30000));
    const auto& events = service.client->events;
    EXPECT_EQ(events.back().text, "Error: The cvs command was stopped after 2 seconds because it "
                                  "had not finished within the time limit: \"cvs.exe\" -nq update");
    EXPECT_EQ(service.client->output(true), "cvs update: Updating .\n") << "what it said came";
    EXPECT_EQ(service.client->count(CheckoutEvent::display), 0u);
    // The shell and the sleep it started are gone.
    long servicePid = ::servicePid(service.session.router().pid());
    EXPECT_TRUE(noChildrenLeft(servicePid, childPid()));
}

TEST_F(StandInCvs, HaltScanKillsTheChildsProcessGroupAtOnce) {
    setMode("hang");
    write(at("ORT/ort.cfg"), "Versctrl_CVSTimeLimit: 600\n");
    startService();
    CheckoutReply reply = service.requestInfo({at("wc")}, false);
    ASSERT_TRUE(service.awaitEvent([](const CheckoutEvent& e) { return e.is_stderr; }));
    long servicePid = ::servicePid(service.session.router().pid());
    long child = childPid();
    ASSERT_GT(childrenOf(servicePid, child), 0u);
    EXPECT_EQ(service.halt(reply.cookie).error, "(absent)");
    EXPECT_TRUE(noChildrenLeft(servicePid, child, 5000));
    ASSERT_TRUE(service.awaitFinished());
    EXPECT_EQ(service.client->events.back().text, "Halted scan.\n");
}

TEST_F(StandInCvs, ACvsThatWouldPromptForAPasswordFailsAtOnce) {
    setMode("prompt");
    write(at("ORT/ort.cfg"), "Versctrl_CVSTimeLimit: 600\n");
    startService();
    ASSERT_TRUE(service.requestInfo({at("wc")}, false).answered);
    // No terminal and nothing on standard input: the read fails instead of waiting.
    ASSERT_TRUE(service.awaitFinished(1, 30000));
    std::string said = service.client->output(true);
    EXPECT_NE(said.find("/dev/tty"), std::string::npos) << said;
    EXPECT_NE(said.find("cvs [update aborted]: no terminal for a password\n"), std::string::npos)
        << said;
    EXPECT_EQ(service.client->output(false), "");
    EXPECT_EQ(service.client->events.back().text, "") << "a failing cvs is not a failed job";
    EXPECT_EQ(service.client->count(CheckoutEvent::display), 1u);
}

TEST_F(StandInCvs, AClientThatDropsMidScanLeavesTheJobToFinishAndTheServiceThenEnds) {
    setMode("slow");
    write(at("ORT/ort.cfg"), "Versctrl_CVSTimeLimit: 600\n");
    startService(false);
    ASSERT_TRUE(service.requestInfo({at("wc")}, false).answered);
    ASSERT_TRUE(service.awaitEvent(statusIs("Starting scan of directory: " + at("wc"))));
    service.session.plugin()->vanish();
    // The service waits for its job, which outlives the connection, and then leaves; without
    // "-stay" the router follows it.
    EXPECT_EQ(service.session.router().wait(30000), 0) << service.session.router().errors();
    EXPECT_TRUE(fs::exists(at("ran-to-end"))) << "the service ended before its job";
    EXPECT_NE(service.session.router().errors().find("exited with code 0"), std::string::npos)
        << service.session.router().errors();
}

} // namespace
