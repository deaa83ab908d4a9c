// The VC_CheckoutInfo.CVS server as a client meets it: svc_router launches cvsservice, requests
// travel through the router, and each job runs the real cvs client on real repositories (local
// and ":fork:" roots) and reports through its events.
#include "checkout_session.h"
#include "cvs_repo.h"
#include "plat_time.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

const std::string kThreeLines = "line1\nline2\nline3\n";

// A module "m" of 7 files at the top, a file in each of 25 sub-directories (26 directories
// with the top), checked out as `wc`, and a second checkout `other` to make changes in the
// repository with.
class CheckoutJobs : public ScratchTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(cvsAvailable());
        ASSERT_TRUE(repo.init()) << repo.lastError();
        CvsFiles files;
        for (const char* name : {"a.c", "b.c", "c.c", "d.c", "e.c", "g.c", "h.c"})
            files[name] = kThreeLines;
        for (int i = 0; i < 25; ++i)
            files["d" + std::string(i < 10 ? "0" : "") + std::to_string(i) + "/f.c"] = "f\n";
        ASSERT_TRUE(repo.importModule("m", files)) << repo.lastError();
    }
    // Checks `m` out as `dir` with a root of `kind`.
    std::string checkout(const std::string& dir, CvsRootKind kind = CvsRootKind::local,
                         const std::vector<std::string>& extra = {}) {
        std::string path = repo.checkout("m", dir, kind, extra);
        EXPECT_NE(path, "") << repo.lastError();
        return path;
    }
    void startService(const std::string& cwd) {
        ASSERT_TRUE(service.start(folder, cwd)) << service.session.error();
    }
    bool commit(const std::string& wc, const std::string& file, const std::string& content) {
        return repo.commitChange(wc, file, content, "change " + file);
    }
    const std::vector<CheckoutEvent>& events() const { return service.client->events; }
    // Writes a local change whose time is clearly after the checkout's, so that cvs sees it
    // even within the second of the checkout.
    static void edit(const std::string& path, const std::string& content) {
        writeFile(path, content);
        fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(2));
    }

    ScratchFolder folder;
    CvsRepo repo{folder.root()};
    CheckoutSession service;
};

// Every status a scan reports, on a checkout with a root of each kind.
class ScanOfEveryState : public CheckoutJobs, public testing::WithParamInterface<CvsRootKind> {};

TEST_P(ScanOfEveryState, ReportsEachFileAndSendsTheEventsInTheirOrder) {
    std::string wc = checkout("wc", GetParam());
    std::string other = checkout("other");
    // In the repository: a change to c.c, clean and clashing changes to d.c and e.c, h.c
    // changed for a conflict made below, a new file, a removed one.
    ASSERT_TRUE(commit(other, "c.c", "line1\nline2\nline3 remote\n"));
    ASSERT_TRUE(commit(other, "d.c", "line1 remote\nline2\nline3\n"));
    ASSERT_TRUE(commit(other, "e.c", "line1\nline2 remote\nline3\n"));
    ASSERT_TRUE(commit(other, "h.c", "line1\nline2\nline3 remote\n"));
    ASSERT_TRUE(repo.addFile(other, "new.c", "new\n", "new file"));
    ASSERT_TRUE(repo.run(other, {"-Q", "remove", "-f", "g.c"}));
    ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "gone", "g.c"}));
    // In the checkout: a conflict left by an update, local changes, an added and a removed
    // file, a stray file and a plain directory.
    edit(wc + "/h.c", "line1\nline2\nline3 local\n");
    ASSERT_TRUE(repo.cvs(wc, {"-q", "update", "h.c"}).finished);
    edit(wc + "/a.c", "line1 local\nline2\nline3\n");
    edit(wc + "/d.c", "line1\nline2\nline3 local\n");
    edit(wc + "/e.c", "line1\nline2 local\nline3\n");
    ASSERT_TRUE(repo.addFile(wc, "added.c", "added\n"));
    fs::remove(wc + "/b.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "b.c"}));
    write(wc + "/stray.txt", "stray\n");
    write(wc + "/plain/p.txt", "plain\n");

    startService(wc);
    CheckoutReply reply = service.requestInfo({wc}, false);
    ASSERT_TRUE(reply.answered) << service.status.message;
    EXPECT_EQ(reply.cookie, "CheckoutScan-1");
    EXPECT_EQ(reply.error, "(absent)");
    ASSERT_TRUE(service.awaitFinished());

    const auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 1u);
    const CheckoutReport& report = *reports[0];
    EXPECT_EQ(report.checkout_dir, wc);
    EXPECT_EQ(report.num_items, static_cast<int32_t>(report.items.size()));
    struct Expected {
        const char* file;
        uint32_t type;
        const char* version;
    };
    for (const Expected& e :
         {Expected{"a.c", 1200, "1.1.1.1"}, Expected{"added.c", 1000, "New File"},
          Expected{"b.c", 1100, "1.1.1.1"}, Expected{"c.c", 1700, "1.1.1.1"},
          Expected{"d.c", 600, "1.1.1.1"}, Expected{"e.c", 500, "1.1.1.1"},
          Expected{"g.c", 1600, "1.1.1.1"}, Expected{"h.c", 700, "1.2"},
          Expected{"new.c", 1500, "N/A"}, Expected{"plain", 2050, "N/A"},
          Expected{"stray.txt", 2000, "N/A"}}) {
        const CheckoutReportItem* item = report.find(wc, e.file);
        ASSERT_NE(item, nullptr) << e.file;
        EXPECT_EQ(item->type, e.type) << e.file;
        EXPECT_EQ(item->local_version, e.version) << e.file;
        EXPECT_EQ(item->tag, std::string(e.type == 1500 || e.type >= 2000 ? "N/A" : "HEAD"))
            << e.file;
        EXPECT_EQ(item->locked_by, "") << e.file;
    }
    const CheckoutReportItem* unchanged = report.find(wc + "/d07", "f.c");
    ASSERT_NE(unchanged, nullptr);
    EXPECT_EQ(unchanged->type, 2300u);
    // Every entry of every directory, and the three paths only cvs knew of.
    EXPECT_EQ(report.items.size(), 8u + 25u + 3u);

    // The events of a one-root scan, in order.
    std::vector<std::string> statuses = service.client->statuses();
    ASSERT_GE(statuses.size(), 5u);
    EXPECT_EQ(statuses.front(), "Starting scan of directory: " + wc);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), "Scanned 25 directories so far..."), 1);
    std::string walked = "Finished scanning 26 directories, ";
    std::string cvsDone = "Finished cvs scan of " + wc + ".";
    auto walkEnd = std::find_if(statuses.begin(), statuses.end(),
                                [&](const std::string& s) { return s.rfind(walked, 0) == 0; });
    auto cvsEnd = std::find(statuses.begin(), statuses.end(), cvsDone);
    ASSERT_NE(walkEnd, statuses.end());
    ASSERT_NE(cvsEnd, statuses.end());
    // The second of the two says what comes next.
    EXPECT_EQ(*walkEnd, walked + (walkEnd < cvsEnd ? "waiting for cvs scan to complete."
                                                   : "merging checkout information."));
    EXPECT_EQ(statuses.back(), "Finished merging data from CVS and local filesystem.");
    ASSERT_GE(events().size(), 2u);
    EXPECT_EQ(events().back().kind, CheckoutEvent::finished);
    EXPECT_EQ(events().back().text, "");
    EXPECT_EQ(events()[events().size() - 2].kind, CheckoutEvent::display);
    // What cvs printed reached the client as it was, each stream on its side.
    ProgramRun direct = repo.cvs(wc, {"-nq", "update"});
    EXPECT_EQ(service.client->output(false), direct.out);
    EXPECT_EQ(service.client->output(true), direct.err);
}

INSTANTIATE_TEST_SUITE_P(RootKinds, ScanOfEveryState,
                         testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

TEST_F(CheckoutJobs, ALocalScanRunsNoCvsAndJudgesByTheDiskAlone) {
    std::string wc = checkout("wc");
    edit(wc + "/a.c", "changed\n");
    ASSERT_TRUE(repo.addFile(wc, "added.c", "added\n"));
    fs::remove(wc + "/b.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "b.c"}));
    fs::remove(wc + "/c.c"); // deleted without cvs remove
    write(wc + "/stray.txt", "stray\n");
    write(wc + "/plain/p.txt", "plain\n");

    startService(wc);
    // A relative root is taken against the client's working directory.
    CheckoutReply reply = service.requestInfo({"."}, true);
    ASSERT_TRUE(reply.answered);
    ASSERT_TRUE(service.awaitFinished());
    EXPECT_EQ(service.client->output(false), "") << "no cvs ran";
    const auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 1u);
    const CheckoutReport& report = *reports[0];
    EXPECT_EQ(report.checkout_dir, wc);
    for (auto [file, type] : std::vector<std::pair<const char*, uint32_t>>{{"a.c", 1200},
                                                                           {"added.c", 1000},
                                                                           {"b.c", 1100},
                                                                           {"c.c", 200},
                                                                           {"d.c", 2300},
                                                                           {"stray.txt", 2000}}) {
        const CheckoutReportItem* item = report.find(wc, file);
        ASSERT_NE(item, nullptr) << file;
        EXPECT_EQ(item->type, type) << file;
    }
    EXPECT_EQ(report.find(wc, "c.c")->local_version, "1.1.1.1");
    // A directory without CVS/Entries is not entered and not reported.
    EXPECT_EQ(report.find(wc, "plain"), nullptr);
    EXPECT_EQ(service.client->statuses(),
              (std::vector<std::string>{"Scanned 25 directories so far...",
                                        "Finished scanning 26 directories, merging checkout "
                                        "information."}));
}

TEST_F(CheckoutJobs, RootsThatAreNoCheckoutsAndAParentOfCheckouts) {
    // Checked out beside, then moved below a plain directory (a checkout made into a nested
    // path would make the parent a checkout too).
    std::string parent = at("parent");
    std::string first = parent + "/first", second = parent + "/second";
    fs::create_directories(parent);
    fs::rename(checkout("first"), first);
    fs::rename(checkout("second"), second);
    write(parent + "/notes/readme.txt", "plain\n");
    write(at("lonely/x.txt"), "x\n");
    write(at("file.txt"), "x\n");
    startService(root());

    // The parent: one report of its plain sub-directory first, then one scan per checkout.
    ASSERT_TRUE(service.requestInfo({parent}, false).answered);
    ASSERT_TRUE(service.awaitFinished(1));
    auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0]->checkout_dir, parent);
    ASSERT_EQ(reports[0]->items.size(), 1u);
    EXPECT_EQ(reports[0]->items[0].type, 2050u);
    EXPECT_EQ(reports[0]->items[0].filename, "notes");
    EXPECT_EQ(reports[0]->items[0].directory, parent);
    std::vector<std::string> scanned{reports[1]->checkout_dir, reports[2]->checkout_dir};
    std::sort(scanned.begin(), scanned.end());
    EXPECT_EQ(scanned, (std::vector<std::string>{first, second}));

    // A plain directory, a file and a missing path: each is said to be no checkout, and the
    // job ends without a report and without a failure.
    service.client->events.clear();
    std::string missing = at("missing");
    ASSERT_TRUE(service.requestInfo({at("lonely"), at("file.txt"), missing}, true).answered);
    ASSERT_TRUE(service.awaitFinished(1));
    EXPECT_EQ(service.client->output(true),
              "Directory " + at("lonely") + " is not under CVS.\nDirectory " + at("file.txt") +
                  " is not under CVS.\nDirectory " + missing + " is not under CVS.\n");
    EXPECT_TRUE(service.client->reports().empty());
    EXPECT_EQ(events().back().text, "");

    // An empty list: a cookie, and at once the end, with an empty message and no report.
    service.client->events.clear();
    CheckoutReply empty = service.requestInfo({}, false);
    EXPECT_EQ(empty.cookie, "CheckoutScan-3");
    EXPECT_EQ(empty.error, "(absent)");
    ASSERT_TRUE(service.awaitFinished(1));
    ASSERT_EQ(events().size(), 1u);
    EXPECT_EQ(events()[0].text, "");

    // An unknown cookie, and one whose job has ended.
    for (const char* cookie : {"CheckoutScan-99", "CheckoutScan-1", ""}) {
        CheckoutReply halted = service.halt(cookie);
        ASSERT_TRUE(halted.answered);
        EXPECT_EQ(halted.error, "Attempt to halt an unknown job. This is probably caused\nby "
                                "attempting to halt a job just as it was finishing.");
    }
    EXPECT_EQ(service.client->count(CheckoutEvent::output), 0u) << "no \"Halted scan.\"";
}

TEST_F(CheckoutJobs, AnUpdateBringsTheCheckoutUpToDateAndReportsWhatIsLeft) {
    std::string wc = checkout("wc", CvsRootKind::fork);
    std::string other = checkout("other");
    ASSERT_TRUE(commit(other, "c.c", "line1\nline2\nline3 remote\n"));
    ASSERT_TRUE(commit(other, "d.c", "line1 remote\nline2\nline3\n"));
    ASSERT_TRUE(commit(other, "e.c", "line1\nline2 remote\nline3\n"));
    ASSERT_TRUE(repo.addFile(other, "d03/new.c", "new\n", "new file"));
    edit(wc + "/a.c", "line1 local\nline2\nline3\n");
    edit(wc + "/d.c", "line1\nline2\nline3 local\n");
    edit(wc + "/e.c", "line1\nline2 local\nline3\n");

    startService(wc);
    ASSERT_TRUE(service.requestUpdate({wc}).answered);
    ASSERT_TRUE(service.awaitFinished());
    EXPECT_EQ(service.client->statuses().front(), "Starting update of directory: " + wc);
    EXPECT_EQ(read(wc + "/c.c"), "line1\nline2\nline3 remote\n");
    EXPECT_EQ(read(wc + "/d03/new.c"), "new\n");
    // Through a server cvs sends a patch ("P") where it would copy the file ("U").
    EXPECT_NE(service.client->output(false).find(" c.c\n"), std::string::npos);
    const auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 1u);
    const CheckoutReport& report = *reports[0];
    // What an update has done needs no showing: the files it brought are unchanged entries.
    ASSERT_NE(report.find(wc, "c.c"), nullptr);
    EXPECT_EQ(report.find(wc, "c.c")->type, 2300u);
    EXPECT_EQ(report.find(wc, "a.c")->type, 1200u);
    EXPECT_EQ(report.find(wc, "d.c")->type, 600u);
    EXPECT_EQ(report.find(wc, "e.c")->type, 700u);
    EXPECT_EQ(events().back().text, "");
}

TEST_F(CheckoutJobs, CreateChecksOutAtTheHeadOrATagAndReportsTheNewCheckout) {
    std::string other = checkout("other");
    ASSERT_TRUE(repo.run(other, {"-Q", "tag", "T1"}));
    ASSERT_TRUE(commit(other, "a.c", "line1 newer\nline2\nline3\n"));
    write(at("occupied"), "a file where the checkout should go\n");
    startService(root());

    struct Case {
        const char* dest;
        const char* tag;
        const char* version;
        const char* stickyTag;
    };
    size_t finished = 0;
    for (const Case& c :
         {Case{"head", "", "1.2", "HEAD"}, Case{"named/head", "HEAD", "1.2", "HEAD"},
          Case{"tagged", "T1", "1.1.1.1", "T1"}}) {
        service.client->events.clear();
        std::string dest = at(c.dest);
        CheckoutReply reply = service.create(dest, "m", c.tag, repo.root(CvsRootKind::fork));
        ASSERT_TRUE(reply.answered);
        EXPECT_EQ(reply.cookie, "CheckoutScan-" + std::to_string(++finished));
        EXPECT_EQ(reply.error, "(absent)");
        ASSERT_TRUE(service.awaitFinished()) << c.dest;
        EXPECT_EQ(read(dest + "/m/a.c"),
                  c.version == std::string("1.2") ? "line1 newer\nline2\nline3\n" : kThreeLines);
        EXPECT_EQ(service.client->statuses().front(),
                  "Finished creating checkout, starting local scan.");
        const auto reports = service.client->reports();
        ASSERT_EQ(reports.size(), 1u) << c.dest;
        EXPECT_EQ(reports[0]->checkout_dir, dest);
        const CheckoutReportItem* item = reports[0]->find(dest + "/m", "a.c");
        ASSERT_NE(item, nullptr) << c.dest;
        EXPECT_EQ(item->type, 2300u);
        EXPECT_EQ(item->local_version, c.version);
        EXPECT_EQ(item->tag, c.stickyTag);
        EXPECT_NE(reports[0]->find(dest + "/m/d24", "f.c"), nullptr);
        EXPECT_EQ(events().back().text, "");
    }

    // A destination that cannot be made: still a cookie and no error; the failure ends the job.
    service.client->events.clear();
    CheckoutReply refused = service.create(at("occupied"), "m", nullptr, repo.root());
    EXPECT_EQ(refused.cookie, "CheckoutScan-4");
    EXPECT_EQ(refused.error, "(absent)");
    ASSERT_TRUE(service.awaitFinished());
    ASSERT_EQ(events().size(), 1u);
    EXPECT_EQ(events()[0].text, "Error: Unable to create directory " + at("occupied") +
                                    ", checkout creation aborted.");
}

// The date of now in the form cvs reads, in UTC.
std::string utcNow() {
    std::time_t now = std::time(nullptr);
    std::tm broken{};
    gmtime_r(&now, &broken);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S GMT", &broken);
    return text;
}

TEST_F(CheckoutJobs, ModifyMovesCheckoutsToATagADateAndBackToTheHead) {
    std::string wc = checkout("wc");
    std::string second = checkout("second");
    std::string other = checkout("other");
    ASSERT_TRUE(repo.run(other, {"-Q", "tag", "T1"}));
    plat_sleep_ms(1100);
    std::string before = utcNow();
    plat_sleep_ms(1100);
    ASSERT_TRUE(commit(other, "d05/f.c", "f newer\n"));
    // A change of a file directly in a checkout that is modified: its CVS/Entries is not read
    // (the walk begins below), so what cvs says of it has no place.
    edit(wc + "/a.c", "local change\n");
    startService(root());

    auto entriesOf = [&](const std::string& dir) { return read(dir + "/d05/CVS/Entries"); };
    // A tag, for two checkouts: one cvs run in each.
    ASSERT_TRUE(service.modify({wc, second}, true, "T1", false, nullptr, false).answered);
    ASSERT_TRUE(service.awaitFinished());
    for (const std::string& dir : {wc, second}) {
        EXPECT_NE(std::find(service.client->statuses().begin(), service.client->statuses().end(),
                            "Starting modification of directory: " + dir),
                  service.client->statuses().end());
        EXPECT_EQ(read(dir + "/d05/f.c"), "f\n");
        EXPECT_NE(entriesOf(dir).find("//TT1"), std::string::npos) << entriesOf(dir);
    }
    auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0]->checkout_dir, wc);
    const CheckoutReportItem* moved = reports[0]->find(wc + "/d05", "f.c");
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(moved->tag, "T1");
    const CheckoutReportItem* top = reports[0]->find(wc, "a.c");
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(top->type, 200u);
    EXPECT_NE(service.client->output(true).find("Warning: File listed in update and not found in "
                                                "local repo was not marked as remotely added.\n"),
              std::string::npos)
        << "the merge's warnings reach the client";

    // A date (with blanks: it reaches cvs as one word), then the head.
    service.client->events.clear();
    ASSERT_TRUE(service.modify({second}, false, nullptr, true, before.c_str(), false).answered);
    ASSERT_TRUE(service.awaitFinished());
    EXPECT_EQ(read(second + "/d05/f.c"), "f\n");
    EXPECT_NE(entriesOf(second).find("//D"), std::string::npos) << entriesOf(second);
    service.client->events.clear();
    ASSERT_TRUE(service.modify({second}, false, nullptr, false, nullptr, true).answered);
    ASSERT_TRUE(service.awaitFinished());
    EXPECT_EQ(read(second + "/d05/f.c"), "f newer\n");
    EXPECT_EQ(entriesOf(second).find("//T"), std::string::npos) << entriesOf(second);
    EXPECT_EQ(entriesOf(second).find("//D"), std::string::npos) << entriesOf(second);

    // Options that make no sense: a cookie, no cvs run, and the reason as the job's end.
    struct Bad {
        bool do_tag;
        const char* tag;
        bool do_date;
        const char* date;
        bool do_head;
        const char* text;
    };
    for (const Bad& b :
         {Bad{true, "T1", true, "now", true, "Cannot revert to HEAD with a tag or a date."},
          Bad{false, "T1", false, "now", false, "No revert option specified."},
          Bad{true, "", false, nullptr, false, "Revert to tag selected, but no tag specified."},
          Bad{false, nullptr, true, nullptr, false,
              "Revert to date selected, but no date specified."}}) {
        service.client->events.clear();
        CheckoutReply reply =
            service.modify({second}, b.do_tag, b.tag, b.do_date, b.date, b.do_head);
        EXPECT_NE(reply.cookie, "(absent)");
        EXPECT_EQ(reply.error, "(absent)");
        ASSERT_TRUE(service.awaitFinished());
        ASSERT_EQ(events().size(), 1u) << b.text;
        EXPECT_EQ(events()[0].text, b.text);
    }
}

TEST_F(CheckoutJobs, TwoJobsOnOneConnectionInterleaveAndCookiesCountAcrossConnections) {
    std::string first = checkout("first", CvsRootKind::fork);
    std::string second = checkout("second");
    startService(root());
    RecordingCheckoutClient* another =
        service.session.connect(new RecordingCheckoutClient, "VC_CheckoutInfo.CVS", root());
    ASSERT_NE(another, nullptr) << service.session.error();

    EXPECT_EQ(service.requestInfo({first}, false).cookie, "CheckoutScan-1");
    char* cookie = nullptr;
    char* error = nullptr;
    ASSERT_TRUE(another->RequestCheckoutInfo(0, nullptr, true, &cookie, &error,
                                             service.session.waiter().get(), nullptr));
    EXPECT_STREQ(cookie, "CheckoutScan-2");
    gen_free(cookie);
    EXPECT_EQ(service.requestInfo({second}, false).cookie, "CheckoutScan-3");
    ASSERT_TRUE(service.awaitFinished(2));

    // The second job started before the first had ended, and each reported its own root.
    auto startOfSecond = std::find_if(events().begin(), events().end(),
                                      statusIs("Starting scan of directory: " + second));
    auto firstEnd = std::find_if(events().begin(), events().end(), [](const CheckoutEvent& e) {
        return e.kind == CheckoutEvent::finished;
    });
    EXPECT_LT(startOfSecond, firstEnd);
    auto reports = service.client->reports();
    ASSERT_EQ(reports.size(), 2u);
    std::vector<std::string> dirs{reports[0]->checkout_dir, reports[1]->checkout_dir};
    std::sort(dirs.begin(), dirs.end());
    EXPECT_EQ(dirs, (std::vector<std::string>{first, second}));
    for (const CheckoutReport* report : reports)
        EXPECT_EQ(report->items.size(), 7u + 25u);
    ASSERT_TRUE(service.session.pumpUntil(
        [&] { return another->count(CheckoutEvent::finished) == 1; }, 20000));
    EXPECT_EQ(another->reports().size(), 0u);
}

} // namespace
