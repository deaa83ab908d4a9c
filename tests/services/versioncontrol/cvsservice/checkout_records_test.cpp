// The report records as a type: state changes, orderings, display roots, and updates from a
// newer report. (The growing array is tested with the merge, the wire form over a connection.)
#include "checkout_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace checkout_type;

CheckoutItem item(uint32_t type, const char* dir = "/co", const char* name = "a.c",
                  const char* version = "1.1", const char* tag = "HEAD") {
    return CheckoutItem(type, dir, name, version, tag);
}

TEST(CheckoutItemStateChanges, EachEventOnEveryStartingType) {
    using Event = bool (CheckoutItem::*)();
    struct Case {
        const char* event;
        Event change;
        // start type -> type after; types not listed must stay as they are.
        std::vector<std::pair<uint32_t, uint32_t>> moves;
        int markedAfter; // -1: as before
    } cases[] = {
        {"added", &CheckoutItem::placedUnderVCAdded, {{2000, 1000}}, 0},
        {"committed at once", &CheckoutItem::placedUnderVCCommitted, {{2000, 2300}}, 0},
        {"local change committed",
         &CheckoutItem::localChangeCommitted,
         {{1000, 2300}, {1100, 2300}, {1200, 2300}},
         -1},
        {"update done",
         &CheckoutItem::updateDone,
         {{1500, 2300}, {1600, 2300}, {1700, 2300}, {500, 700}, {600, 1200}},
         -1},
        {"local change reverted",
         &CheckoutItem::localChangeReverted,
         {{1000, 2300}, {1100, 2300}, {1200, 2300}, {500, 1700}, {600, 1700}, {700, 2300}},
         -1},
        {"edited", &CheckoutItem::fileEdited, {{2300, 1200}}, -1},
        {"removed by hand", &CheckoutItem::fileRemovedByHand, {{2000, 2600}, {1100, 2600}}, 1},
        {"removed from version control", &CheckoutItem::removedFromVC, {{2300, 1100}}, -1},
    };
    const uint32_t all[] = {200,  500,  600,  700,  1000, 1100, 1200,
                            1500, 1600, 1700, 2000, 2050, 2300, 2600};
    for (const Case& c : cases) {
        for (uint32_t start : all) {
            for (bool markedBefore : {false, true}) {
                CheckoutItem it = item(start);
                it.marked = markedBefore;
                auto move = std::find_if(c.moves.begin(), c.moves.end(),
                                         [&](const auto& m) { return m.first == start; });
                bool moves = move != c.moves.end();
                SCOPED_TRACE(std::string(c.event) + " from " + std::to_string(start));
                EXPECT_EQ((it.*c.change)(), moves);
                EXPECT_EQ(it._type, moves ? move->second : start);
                bool markedAfter = moves && c.markedAfter >= 0 ? c.markedAfter == 1 : markedBefore;
                EXPECT_EQ(it.marked, markedAfter);
            }
        }
    }
}

// Sorts items made from `types` (or paths, versions) and gives them back in the new order.
template <typename Compare>
std::vector<std::string> sorted(std::vector<CheckoutItem> items, Compare compare, bool ascending) {
    std::stable_sort(items.begin(), items.end(), [&](const CheckoutItem& a, const CheckoutItem& b) {
        return compare(a, b, ascending) < 0;
    });
    std::vector<std::string> out;
    for (const CheckoutItem& it : items)
        out.push_back(std::to_string(it._type) + ":" + it.shownPath().c_str());
    return out;
}

TEST(CheckoutItemOrderings, TypeBandsAndTheUnchangedBandLast) {
    std::vector<CheckoutItem> items;
    for (uint32_t t : {2300u, 1200u, 200u, 1000u, 2050u, 700u, 1700u, 2000u, 1500u})
        items.push_back(item(t, "/co", std::to_string(t).c_str()));
    // Within a band the input order stays (equal items).
    EXPECT_EQ(sorted(items, compareItemsByType, true),
              (std::vector<std::string>{"200:/co/200", "700:/co/700", "1200:/co/1200",
                                        "1000:/co/1000", "1700:/co/1700", "1500:/co/1500",
                                        "2050:/co/2050", "2000:/co/2000", "2300:/co/2300"}));
    EXPECT_EQ(sorted(items, compareItemsByType, false),
              (std::vector<std::string>{"2050:/co/2050", "2000:/co/2000", "1700:/co/1700",
                                        "1500:/co/1500", "1200:/co/1200", "1000:/co/1000",
                                        "700:/co/700", "200:/co/200", "2300:/co/2300"}));
}

TEST(CheckoutItemOrderings, PathsFilesBeforeDirectoriesAndBytes) {
    std::vector<CheckoutItem> items;
    for (const char* p : {"b/x.c", "a.c", "b/a/z.c", "B.c", "b", "a/b/c.c", "\xe4.c", "a\\y.c"})
        items.push_back(item(2300, "", p));
    EXPECT_EQ(
        sorted(items, compareItemsByPath, true),
        (std::vector<std::string>{"2300:B.c", "2300:a.c", "2300:b", "2300:\xe4.c", "2300:a\\y.c",
                                  "2300:a/b/c.c", "2300:b/x.c", "2300:b/a/z.c"}));
    std::vector<std::string> descending = sorted(items, compareItemsByPath, false);
    std::reverse(descending.begin(), descending.end());
    EXPECT_EQ(descending, sorted(items, compareItemsByPath, true));
}

TEST(CheckoutItemOrderings, VersionsAndTagsInByteOrder) {
    std::vector<CheckoutItem> items{item(1, "", "x", "1.10", "b"), item(2, "", "x", "1.9", "\xe4"),
                                    item(3, "", "x", "N/A", "HEAD"), item(4, "", "x", "1.1", "A")};
    auto types = [](const std::vector<std::string>& s) {
        std::string out;
        for (const std::string& e : s)
            out += e.substr(0, e.find(':'));
        return out;
    };
    EXPECT_EQ(types(sorted(items, compareItemsByLocalVersion, true)), "4123");
    EXPECT_EQ(types(sorted(items, compareItemsByLocalVersion, false)), "3214");
    EXPECT_EQ(types(sorted(items, compareItemsByTag, true)), "4312");
}

TEST(CheckoutItemRoot, ShownDirectoryBelowARoot) {
    struct Case {
        const char* directory;
        const char* root;
        const char* shownDirectory;
        const char* shownPath;
    } cases[] = {
        {"/co/sub/deep", "/co", "sub/deep", "sub/deep/a.c"},
        {"/co/sub", "/co/", "sub", "sub/a.c"},
        {"/co", "/co", "", "a.c"},
        {"C:\\co\\sub", "C:\\co", "sub", "sub/a.c"},
        {"/co/sub", "", "/co/sub", "/co/sub/a.c"},
        {"/co/sub", "/", "/co/sub", "/co/sub/a.c"},
        {"\\co", "\\", "\\co", "\\co/a.c"},
        {"C:\\co", "C:\\", "C:\\co", "C:\\co/a.c"},
        {"/other", "/co", "/other", "/other/a.c"},
        {"/cobalt/x", "/co", "balt/x", "balt/x/a.c"},
    };
    for (const Case& c : cases) {
        CheckoutItem it = item(2300, c.directory);
        EXPECT_TRUE(it.shown_directory.isNull());
        it.setRoot(c.root);
        EXPECT_STREQ(it.shown_directory.c_str(), c.shownDirectory) << c.directory << " " << c.root;
        EXPECT_STREQ(it.shownPath().c_str(), c.shownPath) << c.directory << " " << c.root;
    }
}

std::vector<std::string> describe(const CheckoutInfo& info) {
    std::vector<std::string> out;
    for (const CheckoutItem& it : info)
        out.push_back(std::to_string(it._type) + " " + it._directory.c_str() + "/" +
                      it._filename.c_str() + " " + it._local_version.c_str() + " " +
                      it._tag.c_str());
    return out;
}

TEST(CheckoutInfoUpdates, PartialAndComplete) {
    auto old = [] {
        CheckoutInfo info("/co", 2);
        info.add(item(1200, "/co", "a.c", "1.2"));
        CheckoutItem gone = item(2600, "/co", "b.c");
        gone.marked = true;
        info.add(gone);
        info.add(item(2300, "/co/sub", "c.c"));
        info.add(item(2300, "/cobalt", "d.c"));
        return info;
    };
    CheckoutInfo newer("/co/sub");
    newer.add(item(2300, "/co", "a.c", "1.3", "rel"));
    newer.add(item(1500, "/co/sub", "n.c", "N/A", "N/A"));

    CheckoutInfo partial = old();
    partial.updatePartial(newer);
    EXPECT_EQ(describe(partial),
              (std::vector<std::string>{"2300 /co/a.c 1.3 rel", "2300 /co/sub/c.c 1.1 HEAD",
                                        "2300 /cobalt/d.c 1.1 HEAD", "1500 /co/sub/n.c N/A N/A"}));

    // Everything at or below /co/sub goes: c.c, not /cobalt.
    CheckoutInfo complete = old();
    complete.updateComplete(newer);
    EXPECT_EQ(describe(complete),
              (std::vector<std::string>{"1200 /co/a.c 1.2 HEAD", "2600 /co/b.c 1.1 HEAD",
                                        "2300 /cobalt/d.c 1.1 HEAD", "2300 /co/a.c 1.3 rel",
                                        "1500 /co/sub/n.c N/A N/A"}));
}

} // namespace
