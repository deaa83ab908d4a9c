// The merge of cvs output with the CVS/Entries images of a real checkout: the captured outputs
// of a whole scan and a whole update over the working copy they were captured in (built again
// here, in local and :fork: form), the same merge with cvs run live, the rules one by one on
// hand-written output, and the report of a local-only walk.
#include "checkout_report.h"

#include "cvs_repo.h"
#include "golden_files.h"
#include "mstring.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string kData = CVSS_TEST_DATA_DIR;

// The report as text: one item a line, `root` written as <wc>; then the warnings and the
// status messages the merge asked for. The walk's order of sibling directories is the file
// system's, which differs between machines: the items of entries (whose tag is never "N/A")
// are checked to stand directory by directory in `walkOrder`, and then listed by directory.
std::string describeReport(const CheckoutInfo& info, const std::string& root,
                           const std::vector<std::string>& walkOrder, const std::string& warnings,
                           const std::vector<std::string>& status) {
    auto shorten = [&](std::string text) {
        for (size_t at = text.find(root); at != std::string::npos; at = text.find(root, at))
            text.replace(at, root.size(), "<wc>");
        return text;
    };
    std::vector<const CheckoutItem*> entries;
    std::vector<const CheckoutItem*> leftovers;
    size_t rank = 0;
    for (const CheckoutItem& item : info) {
        if (item._tag == "N/A") {
            leftovers.push_back(&item);
            continue;
        }
        EXPECT_TRUE(leftovers.empty()) << "an entry behind the paths only cvs knows";
        while (rank < walkOrder.size() && walkOrder[rank] != item._directory.c_str())
            ++rank;
        EXPECT_LT(rank, walkOrder.size()) << "out of walk order: " << item.shownPath().c_str();
        entries.push_back(&item);
    }
    std::stable_sort(entries.begin(), entries.end(), [](auto* a, auto* b) {
        return std::string(a->_directory.c_str()) < b->_directory.c_str();
    });
    entries.insert(entries.end(), leftovers.begin(), leftovers.end());
    std::string out = "checkout_dir " + shorten(info._checkout_dir.c_str()) + "\n";
    for (const CheckoutItem* item : entries)
        out += std::to_string(item->_type) + " " + shorten(item->_directory.c_str()) + " " +
               goldenText(item->_filename.c_str()) + " " + item->_local_version.c_str() + " " +
               item->_tag.c_str() + "\n";
    out += "warnings " + goldenText(shorten(warnings).c_str()) + "\n";
    for (const std::string& s : status)
        out += "status " + s + "\n";
    return out;
}

// Walks `root` keeping the entries and merges `output` into the report, as a job does.
std::string walkAndMerge(const std::string& root, const std::string& output, bool update_mode) {
    CheckoutWalk walk;
    walk.scan_queue.push_back(root.c_str());
    while (visitKeepEntries(&walk)) {
    }
    std::vector<std::string> walkOrder;
    for (const EntriesRead& read : walk.entries_read)
        walkOrder.push_back(read.directory.c_str());
    MString* warnings = MString_new(64);
    std::vector<std::string> status;
    CheckoutInfo info =
        mergeCheckoutInfo(warnings, root.c_str(), output.c_str(), update_mode, &walk.entries_read,
                          [&](const char* message) { status.push_back(message); });
    EXPECT_TRUE(walk.entries_read.empty());
    std::string text = describeReport(info, root, walkOrder, warnings->text, status);
    MString_delete(warnings);
    return text;
}

// The working copy "wc" of tests/data/capture_cvs_update_outputs.sh, in the same states.
class CapturedStates : public ScratchTest, public testing::WithParamInterface<CvsRootKind> {
protected:
    std::string kind() const { return GetParam() == CvsRootKind::fork ? "fork" : "local"; }

    // A file's content and a time of its own in 2001, so that cvs sees every edit.
    void edit(const std::string& path, const std::string& content) {
        write(path, content);
        auto when = std::chrono::sys_seconds(std::chrono::seconds(1000000000 + ++stamp));
        fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
    }

    void buildStates() {
        ASSERT_TRUE(repo.init()) << repo.lastError();
        CvsFiles files;
        for (const char* f :
             {"up.c", "mod.c", "rem.c", "patch.c", "merge.c", "conf.c", "gone.c", "gonelost.c",
              "lost.c", "sub/s1.c", "sub/s2.c", "sub/deep/d1.c", "sub/deep/d2.c"})
            files[f] = "1\n2\n3\n4\n5\n";
        ASSERT_TRUE(repo.importModule("mod", files)) << repo.lastError();
        wc = repo.checkout("mod", "wc", GetParam());
        std::string other = repo.checkout("mod", "other");
        ASSERT_FALSE(wc.empty() || other.empty()) << repo.lastError();

        edit(other + "/patch.c", "1\n2\n3\n4\nfive\n");
        edit(other + "/merge.c", "one\n2\n3\n4\n5\n");
        edit(other + "/conf.c", "1\n2\nthree from other\n4\n5\n");
        edit(other + "/sub/deep/d1.c", "1\n2\n3\n4\nfive\n");
        edit(other + "/sub/deep/d2.c", "1\n2\nthree from other\n4\n5\n");
        ASSERT_TRUE(repo.addFile(other, "newremote.c", "new in the repository\n"));
        ASSERT_TRUE(repo.addFile(other, "sub/newsub/n.c", "new directory\n"));
        ASSERT_TRUE(repo.run(other, {"-Q", "remove", "-f", "gone.c", "gonelost.c"}));
        ASSERT_TRUE(repo.run(other, {"-Q", "commit", "-m", "other"})) << repo.lastError();

        edit(wc + "/mod.c", "1\n2\n3\n4\nfive here\n");
        edit(wc + "/sub/s1.c", "1\n2\n3\n4\nfive here\n");
        edit(wc + "/add.c", "new\n");
        ASSERT_TRUE(repo.run(wc, {"-Q", "add", "add.c"}));
        fs::remove(wc + "/rem.c");
        ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "rem.c"}));
        edit(wc + "/merge.c", "1\n2\n3\n4\nfive here\n");
        edit(wc + "/conf.c", "1\n2\nthree here\n4\n5\n");
        edit(wc + "/sub/deep/d2.c", "1\n2\nthree here\n4\n5\n");
        fs::remove(wc + "/gonelost.c");
        fs::remove(wc + "/lost.c");
        edit(wc + "/unknown.c", "not added\n");
        edit(wc + "/unknowndir/u.c", "not added\n");
        edit(wc + "/sub/unknownsub/u.c", "not added\n");
    }

    // The captured output `name`, its report over this working copy (checked against the
    // golden report), and the report of the same command run live now, which must not differ.
    void checkCaptured(const std::string& name, const std::vector<std::string>& command,
                       bool update_mode) {
        std::string captured = readFile(kData + "/cvs_update_parser/" + name + ".txt");
        ASSERT_FALSE(captured.empty()) << name;
        ProgramRun live = repo.cvs(wc, command);
        ASSERT_TRUE(live.finished);
        std::string report = walkAndMerge(wc, captured, update_mode);
        EXPECT_TRUE(GoldenFolder(kData + "/checkout_report").matches(name, report));
        EXPECT_EQ(walkAndMerge(wc, live.err + live.out, update_mode), report)
            << "the captured output no longer matches the states built here:\n"
            << live.err + live.out;
    }

    CvsRepo repo{root()};
    std::string wc;
    int stamp = 0;
};

TEST_P(CapturedStates, ScanThenUpdateOfEveryState) {
    if (!cvsAvailable())
        GTEST_SKIP() << "no cvs client";
    buildStates();
    if (HasFatalFailure())
        return;
    checkCaptured(kind() + "_scan_whole", {"-nq", "update"}, false);
    checkCaptured(kind() + "_update_whole", {"-q", "update", "-dP"}, true);
}

INSTANTIATE_TEST_SUITE_P(Roots, CapturedStates,
                         testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const auto& info) {
                             return info.param == CvsRootKind::fork ? "fork" : "local";
                         });

class MergeRules : public ScratchTest {
protected:
    void SetUp() override {
        if (!cvsAvailable())
            GTEST_SKIP() << "no cvs client";
        ASSERT_TRUE(repo.init()) << repo.lastError();
        ASSERT_TRUE(repo.importModule(
            "mod", {{"a.c", "a\n"}, {"b.c", "b\n"}, {"rem.c", "r\n"}, {"sub/c.c", "c\n"}}))
            << repo.lastError();
        wc = repo.checkout("mod", "wc");
        ASSERT_FALSE(wc.empty()) << repo.lastError();
        fs::remove(wc + "/rem.c");
        ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "rem.c"}));
        fs::create_directories(wc + "/plain");
    }
    CvsRepo repo{root()};
    std::string wc;
};

TEST_F(MergeRules, EachRuleOnHandWrittenOutput) {
    const std::string entries = "2300 <wc> \"a.c\" 1.1.1.1 HEAD\n"
                                "2300 <wc> \"b.c\" 1.1.1.1 HEAD\n"
                                "2300 <wc> \"rem.c\" 1.1.1.1 HEAD\n"
                                "2300 <wc>/sub \"c.c\" 1.1.1.1 HEAD\n";
    const std::string tail = "warnings \"\"\nstatus " + std::string(kMergeFinishedMessage) + "\n";
    struct Case {
        const char* name;
        const char* output;
        bool update_mode;
        std::string expected; // the report's lines after "checkout_dir <wc>"
    } cases[] = {
        {"no output: every entry unchanged", "", false, entries + tail},
        {"modified and removed entry; added; a later record wins", "M rem.c\nA b.c\nM a.c\nC a.c\n",
         false,
         "700 <wc> \"a.c\" 1.1.1.1 HEAD\n1000 <wc> \"b.c\" New File HEAD\n"
         "1100 <wc> \"rem.c\" 1.1.1.1 HEAD\n2300 <wc>/sub \"c.c\" 1.1.1.1 HEAD\n" +
             tail},
        {"paths only cvs knows", "? plain\n? stray.c\nU new.c\nU sub/n.c\n", false,
         entries +
             "1500 <wc> \"new.c\" N/A N/A\n2050 <wc> \"plain\" N/A N/A\n"
             "2000 <wc> \"stray.c\" N/A N/A\n1500 <wc>/sub \"n.c\" N/A N/A\n" +
             tail},
        {"an entry that cvs calls unknown is left out", "? a.c\n", false,
         "2300 <wc> \"b.c\" 1.1.1.1 HEAD\n2300 <wc> \"rem.c\" 1.1.1.1 HEAD\n"
         "2300 <wc>/sub \"c.c\" 1.1.1.1 HEAD\n"
         "warnings \"Warning: Unable to determine how to handle file \\\"a.c\\\"\\n"
         "Ignoring file.\\n\"\nstatus " +
             std::string(kMergeFinishedMessage) + "\n"},
        {"a record in a directory the walk didn't see", "A plain/x.c\n", true,
         entries +
             "200 <wc>/plain \"x.c\" N/A N/A\n"
             "warnings \"Warning: File listed in update and not found in local repo was not "
             "marked as remotely added.\\nMarking file \\\"<wc>/plain/x.c\\\" as unknown.\\n\"\n"
             "status " +
             kMergeFinishedMessage + "\n"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(walkAndMerge(wc, c.output, c.update_mode), "checkout_dir <wc>\n" + c.expected)
            << c.name;
}

TEST_F(MergeRules, AReportGrowsPastItsFirstArrayInOneRoot) {
    std::string entries;
    for (int i = 0; i < 8193; ++i)
        entries += "/f" + std::to_string(i) + ".c/1.1/Mon Jan  1 10:00:00 2001//\n";
    write(at("big/CVS/Entries"), entries);
    CheckoutWalk walk;
    walk.scan_queue.push_back(at("big").c_str());
    ASSERT_TRUE(visitKeepEntries(&walk));
    CheckoutInfo info = mergeCheckoutInfo(nullptr, at("big").c_str(), "M f999.c\n", false,
                                          &walk.entries_read, nullptr);
    EXPECT_EQ(info.count(), 8193);
    EXPECT_EQ(info.capacity(), 16384);
    EXPECT_STREQ(info[0]._filename.c_str(), "f0.c");
    EXPECT_EQ(info[8192]._type, 1200u); // f999.c, last in byte order

    // The local-only walk of the same directory: every file is gone from the disk.
    walk.scan_queue.push_back(at("big").c_str());
    ASSERT_TRUE(visitReportItems(&walk));
    CheckoutInfo local = packLocalItems(at("big").c_str(), &walk.local_items);
    EXPECT_TRUE(walk.local_items.empty());
    EXPECT_EQ(local.count(), 8193);
    EXPECT_EQ(local.capacity(), 8193);
    EXPECT_EQ(local[0]._type, 200u);
    EXPECT_STREQ(local._checkout_dir.c_str(), at("big").c_str());
}

} // namespace
