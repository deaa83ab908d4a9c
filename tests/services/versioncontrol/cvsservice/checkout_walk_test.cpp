// The walk of a real checkout: which directories are steps and in what order, links that would
// make it go round, the per-file rules of the local-only variant on files in every state, and
// the times of CVS/Entries against the disk.
#include "checkout_walk.h"

#include "cvs_repo.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace checkout_type;

// Sets the file's modification time to `seconds` after 1970.
void setModified(const std::string& path, int64_t seconds) {
    auto when = std::chrono::sys_seconds(std::chrono::seconds(seconds));
    fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
}

void moveModified(const std::string& path, int seconds) {
    fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(seconds));
}

class CheckoutWalkTest : public ScratchTest {
protected:
    void SetUp() override {
        if (!cvsAvailable())
            GTEST_SKIP() << "no cvs client";
        ASSERT_TRUE(repo.init()) << repo.lastError();
        ASSERT_TRUE(repo.importModule("mod", {{"a.c", "a\n"},
                                              {"b.c", "b\n"},
                                              {"old.c", "o\n"},
                                              {"rem.c", "r\n"},
                                              {"remkept.c", "k\n"},
                                              {"lost.c", "l\n"},
                                              {"merged.c", "1\n2\n3\n4\n5\n"},
                                              {"sub/s.c", "s\n"},
                                              {"sub/deep/d.c", "d\n"},
                                              {"other/o.c", "o\n"}}))
            << repo.lastError();
        wc = repo.checkout("mod", "wc");
        ASSERT_FALSE(wc.empty()) << repo.lastError();
    }

    std::vector<std::string> walkKeepingEntries() {
        CheckoutWalk walk;
        walk.scan_queue.push_back(wc.c_str());
        int steps = 0;
        while (visitKeepEntries(&walk))
            ++steps;
        std::vector<std::string> dirs;
        for (const EntriesRead& read : walk.entries_read)
            dirs.push_back(read.directory.c_str());
        EXPECT_EQ(steps, static_cast<int>(dirs.size()));
        EXPECT_TRUE(walk.scan_queue.empty());
        return dirs;
    }

    CvsRepo repo{root()};
    std::string wc;
};

TEST_F(CheckoutWalkTest, StepsOnlyWhereEntriesAreDepthFirstLastListedFirst) {
    // Not steps: a plain directory (with a checkout-like one below it, never seen), a
    // directory whose CVS/Entries is no regular file, and links back up the tree.
    fs::create_directories(wc + "/plain/inner/CVS");
    fs::copy_file(wc + "/CVS/Entries", wc + "/plain/inner/CVS/Entries");
    fs::create_directories(wc + "/odd/CVS/Entries");
    fs::create_directory_symlink(wc, wc + "/loop");
    fs::create_directory_symlink(wc + "/sub", wc + "/sub/deep/up");

    std::vector<std::string> dirs = walkKeepingEntries();
    // "sub" and "other" are siblings: the one listed last is walked first, each with all of
    // its tree before the other.
    std::vector<std::string> listed;
    for (const auto& entry : fs::directory_iterator(wc))
        if (entry.path().filename() == "sub" || entry.path().filename() == "other")
            listed.push_back(entry.path().filename());
    ASSERT_EQ(listed.size(), 2u);
    std::vector<std::string> expected{wc};
    for (auto it = listed.rbegin(); it != listed.rend(); ++it) {
        expected.push_back(wc + "/" + *it);
        if (*it == "sub")
            expected.push_back(wc + "/sub/deep");
    }
    EXPECT_EQ(dirs, expected);

    // The seeding after a checkout queues the sub-directories without the links, and nothing
    // for a path that is no directory.
    CheckoutWalk walk;
    EXPECT_TRUE(queueSubdirectories(&walk, wc.c_str()));
    EXPECT_EQ(walk.scan_queue.size(), 4u); // sub, other, plain, odd
    EXPECT_FALSE(queueSubdirectories(&walk, (wc + "/a.c").c_str()));
    // A root named through a link is walked.
    fs::create_directory_symlink(wc, root() + "/wclink");
    walk = CheckoutWalk();
    walk.scan_queue.push_back((root() + "/wclink").c_str());
    EXPECT_TRUE(visitKeepEntries(&walk));
}

TEST_F(CheckoutWalkTest, LocalItemsFollowTheRulesForEveryState) {
    // merged.c: a clean merge of a change from another working copy.
    std::string other = repo.checkout("mod", "other");
    ASSERT_TRUE(repo.commitChange(other, "merged.c", "one\n2\n3\n4\n5\n", "theirs"));
    write(wc + "/merged.c", "1\n2\n3\n4\nfive\n");
    moveModified(wc + "/merged.c", -10);
    ASSERT_TRUE(repo.run(wc, {"-Q", "update", "merged.c"})) << repo.lastError();
    setModified(wc + "/merged.c", 1000000000); // older than anything: still modified

    moveModified(wc + "/b.c", 10);
    setModified(wc + "/old.c", 1000000000);
    write(wc + "/new.c", "n\n");
    ASSERT_TRUE(repo.run(wc, {"-Q", "add", "new.c"}));
    setModified(wc + "/new.c", 1000000000);
    fs::remove(wc + "/rem.c");
    fs::remove(wc + "/remkept.c");
    ASSERT_TRUE(repo.run(wc, {"-Q", "remove", "rem.c", "remkept.c"}));
    write(wc + "/remkept.c", "k\n");
    fs::remove(wc + "/lost.c");
    write(wc + "/unknown.c", "u\n");
    fs::create_directory_symlink(wc, wc + "/loop");

    CheckoutWalk walk;
    walk.scan_queue.push_back(wc.c_str());
    ASSERT_TRUE(visitReportItems(&walk));
    std::map<std::string, std::string> items;
    std::vector<std::string> order;
    for (const CheckoutItem& item : walk.local_items) {
        EXPECT_STREQ(item._directory.c_str(), wc.c_str());
        order.push_back(item._filename.c_str());
        items[item._filename.c_str()] = std::to_string(item._type) + " " +
                                        item._local_version.c_str() + " " + item._tag.c_str();
    }
    EXPECT_EQ(items, (std::map<std::string, std::string>{
                         {"a.c", "2300 1.1.1.1 HEAD"},
                         {"b.c", "1200 1.1.1.1 HEAD"},
                         {"old.c", "2300 1.1.1.1 HEAD"},
                         {"new.c", "1000 New File HEAD"},
                         {"rem.c", "1100 1.1.1.1 HEAD"},
                         {"remkept.c", "1100 1.1.1.1 HEAD"},
                         {"lost.c", "200 1.1.1.1 HEAD"},
                         {"merged.c", "1200 1.2 HEAD"},
                         {"unknown.c", "2000 N/A N/A"},
                         {"loop", "2000 N/A N/A"},
                         {".#merged.c.1.1.1.1", "2000 N/A N/A"}, // cvs's copy from before the merge
                     }));
    // Entries without a file come last, in name order.
    ASSERT_GE(order.size(), 2u);
    EXPECT_EQ(std::vector<std::string>(order.end() - 2, order.end()),
              (std::vector<std::string>{"lost.c", "rem.c"}));
    // Sub-directories were queued, not reported; their files come in later steps.
    EXPECT_EQ(walk.scan_queue.size(), 2u);
    while (visitReportItems(&walk)) {
    }
    EXPECT_EQ(walk.local_items.size(), items.size() + 3); // sub/s.c, sub/deep/d.c, other/o.c
    EXPECT_STREQ(walk.local_items.back()._local_version.c_str(), "1.1.1.1");
}

TEST(CheckoutWalkDates, EntryDatesAndFileTimesFieldByField) {
    struct DateCase {
        const char* text;
        bool ok;
        EntryTime time;
    } dates[] = {
        {"Thu Jan 15 13:04:05 2004", true, {2004, 1, 15, 13, 4, 5}},
        {" \tSun  Dec\t 1 0:0:0 1999 and more", true, {1999, 12, 1, 0, 0, 0}},
        {"Mon Sep  9 01:46:39 2001", true, {2001, 9, 9, 1, 46, 39}},
        {"Xyz Jan 15 13:04:05 2004", false, {}},
        {"Thu Jax 15 13:04:05 2004", false, {}},
        {"thu Jan 15 13:04:05 2004", false, {}},
        {"Thu Jan 15 13:04 2004", false, {}},
        {"Result of merge+Thu Jan 15 13:04:05 2004", false, {}},
        {"Thu Jan", false, {}},
        {"Th", false, {}},
        {"", false, {}},
        {"dummy timestamp", false, {}},
    };
    for (const DateCase& d : dates) {
        EntryTime time;
        EXPECT_EQ(parseEntryDate(d.text, &time), d.ok) << d.text;
        if (d.ok) {
            EXPECT_TRUE(time.year == d.time.year && time.month == d.time.month &&
                        time.day == d.time.day && time.hour == d.time.hour &&
                        time.minute == d.time.minute && time.second == d.time.second)
                << d.text;
        }
    }
    EXPECT_FALSE(parseEntryDate(nullptr, nullptr));

    ScratchFolder folder;
    std::string file = folder.at("f.c");
    writeFile(file, "x");
    setModified(file, 1000000000); // Sun Sep  9 01:46:40 2001 UTC
    struct NewerCase {
        const char* entry;
        bool newer;
    } newer[] = {
        {"Sun Sep  9 01:46:40 2001", false}, {"Sun Sep  9 01:46:39 2001", true},
        {"Sun Sep  9 01:46:41 2001", false}, {"Fri Dec 31 23:59:59 2000", true},
        {"Sat Sep  8 23:59:59 2001", true},  {"Mon Sep  9 01:46:39 2001", true},
        {"Sun Sep  9 02:00:00 2001", false}, {"not a date", false},
    };
    for (const NewerCase& n : newer)
        EXPECT_EQ(fileNewerThanEntry(file.c_str(), n.entry), n.newer) << n.entry;
    EXPECT_FALSE(fileNewerThanEntry(folder.at("missing.c").c_str(), "Thu Jan  1 00:00:00 1970"));
}

} // namespace
