#include "checkout_walk.h"

#include "gen_file.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <unordered_set>

namespace {

using namespace checkout_type;

const char* const kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

const char* skipBlanks(const char* p) {
    while (*p == ' ' || *p == '\t')
        ++p;
    return p;
}

// The index of the three-letter word at `p` in `names`, or -1 (also when the text ends first).
int wordIndex(const char* p, const char* const* names, int count) {
    for (int i = 0; i < count; ++i)
        if (std::strncmp(p, names[i], 3) == 0)
            return i;
    return -1;
}

// Takes the directories at the front of the queue until one holds a regular file CVS/Entries,
// and gives it (removed from the queue); false when the queue runs out.
bool takeNextStep(CheckoutWalk* walk, ut_string* dir) {
    while (!walk->scan_queue.empty()) {
        ut_string candidate = std::move(walk->scan_queue.front());
        walk->scan_queue.pop_front();
        ut_string entries = localPathOf(candidate.c_str(), "CVS/Entries");
        PlatFileStatus status;
        if (gen_stat(entries.c_str(), &status) == 0 && status.isRegular) {
            *dir = std::move(candidate);
            return true;
        }
    }
    return false;
}

std::unique_ptr<CVSEntriesFile> readEntries(const ut_string& dir) {
    ut_string path = localPathOf(dir.c_str(), "CVS/Entries");
    return std::make_unique<CVSEntriesFile>(path.c_str(), true);
}

// Lists `dir` without ".", ".." and "CVS" directories, calling `onEntry(name, path, isDirectory)`
// with isDirectory false for a directory the walk leaves out. False when it can't be listed.
template <typename OnEntry> bool listDirectory(const char* dir, OnEntry onEntry) {
    GenDir listing;
    if (!gen_dir_open(&listing, dir))
        return false;
    gen_dir_options(&listing, false, true, true);
    while (const char* name = gen_dir_next(&listing)) {
        ut_string path = localPathOf(dir, name);
        bool isDirectory = listing.isDirectory && !walkLeavesOut(path.c_str());
        onEntry(name, path, isDirectory);
    }
    gen_dir_close(&listing);
    return true;
}

// The item of a file that has an entry, by the first rule that matches. `head` is a shared
// "HEAD", which most entries' tags are: the items share its text instead of one copy each.
CheckoutItem itemOfEntry(const ut_string& dir, const ut_string& path, const CVSEntry& entry,
                         const ut_string& head) {
    uint32_t type = NoChanges;
    if (entry.new_)
        type = LocallyAdded;
    else if (entry.removed)
        type = LocallyRemoved;
    else if (entry.date.find("Result of merge") >= 0 ||
             fileNewerThanEntry(path.c_str(), entry.date.c_str()))
        type = LocallyModified;
    // A new entry's version already reads "New File".
    return CheckoutItem(type, dir, entry.name, entry.version, entry.tag == head ? head : entry.tag);
}

} // namespace

ut_string localPathOf(const char* dir, const char* name) {
    std::string_view d = dir ? dir : "";
    ut_string path(d.data(), static_cast<int>(d.size()));
    if (d.empty() || d.back() != '/')
        path.append('/');
    path.append(name ? name : "");
    return path;
}

void CheckoutWalk::clear() {
    scan_queue.clear();
    entries_read.clear();
    local_items.clear();
}

bool walkLeavesOut(const char* path) {
    std::error_code error;
    return std::filesystem::is_symlink(std::filesystem::symlink_status(path, error));
}

bool queueSubdirectories(CheckoutWalk* walk, const char* dir) {
    return listDirectory(dir, [&](const char*, const ut_string& path, bool isDirectory) {
        if (isDirectory)
            walk->scan_queue.push_front(path);
    });
}

bool visitKeepEntries(CheckoutWalk* walk) {
    ut_string dir;
    if (!takeNextStep(walk, &dir))
        return false;
    walk->entries_read.push_back(EntriesRead{dir, readEntries(dir)});
    queueSubdirectories(walk, dir.c_str());
    return true;
}

bool visitReportItems(CheckoutWalk* walk) {
    ut_string dir;
    if (!takeNextStep(walk, &dir))
        return false;
    std::unique_ptr<CVSEntriesFile> image = readEntries(dir);
    const CVSEntriesFile::EntryMap& entries = image->entriesMap();
    // Entries whose file the listing showed; the others name files that are not on disk.
    std::unordered_set<const CVSEntry*> onDisk;
    const ut_string notApplicable("N/A");
    const ut_string head("HEAD");
    listDirectory(dir.c_str(), [&](const char* name, const ut_string& path, bool isDirectory) {
        if (isDirectory) {
            walk->scan_queue.push_front(path);
            return;
        }
        auto found = entries.find(std::string_view(name));
        if (found == entries.end()) {
            walk->local_items.emplace_back(NotUnderVC, dir, ut_string(name), notApplicable,
                                           notApplicable);
            return;
        }
        onDisk.insert(found->second.get());
        walk->local_items.push_back(itemOfEntry(dir, path, *found->second, head));
    });
    for (const auto& [name, entry] : entries) {
        if (onDisk.count(entry.get()))
            continue;
        walk->local_items.emplace_back(entry->removed ? LocallyRemoved : Unknown, dir, entry->name,
                                       entry->version, entry->tag == head ? head : entry->tag);
    }
    return true;
}

bool parseEntryDate(const char* text, EntryTime* out) {
    if (!text)
        return false;
    const char* p = skipBlanks(text);
    if (wordIndex(p, kDayNames, 7) < 0)
        return false;
    p = skipBlanks(p + 3);
    int month = wordIndex(p, kMonthNames, 12);
    if (month < 0)
        return false;
    p = skipBlanks(p + 3);
    EntryTime time;
    if (std::sscanf(p, "%d %d:%d:%d %d", &time.day, &time.hour, &time.minute, &time.second,
                    &time.year) != 5)
        return false;
    time.month = month + 1;
    *out = time;
    return true;
}

bool fileNewerThanEntry(const char* path, const char* date) {
    EntryTime entry;
    if (!parseEntryDate(date, &entry))
        return false;
    PlatFileStatus status;
    if (!path || gen_stat(path, &status) != 0)
        return false;
    std::time_t seconds = static_cast<std::time_t>(status.modifiedSec);
    std::tm broken{};
    if (!gmtime_r(&seconds, &broken) && !localtime_r(&seconds, &broken))
        return false;
    const int file[] = {broken.tm_year + 1900, broken.tm_mon + 1, broken.tm_mday,
                        broken.tm_hour,        broken.tm_min,     broken.tm_sec};
    const int kept[] = {entry.year, entry.month, entry.day, entry.hour, entry.minute, entry.second};
    for (int i = 0; i < 6; ++i)
        if (kept[i] != file[i])
            return kept[i] < file[i];
    return false;
}
