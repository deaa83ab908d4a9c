// The walk of a checkout's local tree, one directory per step, for the checkout-info jobs. With
// a cvs child (visitKeepEntries) a step only keeps the directory's CVS/Entries image for the
// merge; without one (visitReportItems) a step decides each file's status at once from
// CVS/Entries and the disk.
//
// A directory is a step only when it holds a regular file CVS/Entries; any other directory
// taken from the queue is dropped without a word and nothing below it is seen. Listings skip
// ".", ".." and directories named "CVS". Sub-directories go to the front of the queue in the
// order of the listing, so the walk is depth-first and the last-listed sub-directory goes first.
//
// Nothing here waits or re-enters the event loop. Failures are not errors: an unreadable
// CVS/Entries reads as empty, a directory that can't be listed adds no sub-directories.
#pragma once

#include "checkout_records.h"
#include "cvs_entries.h"
#include "ut_string.h"

#include <deque>
#include <memory>

// The one spelling of a file's path that the walk, the parser of cvs output and the merge
// compare: `dir`, then a `/` unless `dir` already ends in one, then `name` (which may hold
// directories, as cvs prints them). On this platform `/` is the only separator, so nothing is
// rewritten: a `\` or `:` is an ordinary byte of a file name here, and turning it into a
// separator would make two different files one. Both sides of the merge build their paths
// here, so they agree byte for byte. A null side counts as empty.
ut_string localPathOf(const char* dir, const char* name);

// The CVS/Entries image of one visited directory, with that directory as the walk spelled it.
// The merge joins entry names to this text, so that they meet the parser's paths byte for byte;
// the image's directory() derives it back from the Entries path through gen_dirname, which
// also takes `:` and `\` for separators and drops a final `/`.
struct EntriesRead {
    ut_string directory;
    std::unique_ptr<CVSEntriesFile> image; // frozen
};

// The state of one walk, owned by the job: `scan_queue` (visited front first; the job seeds it
// with the root), and the result: `entries_read` for visitKeepEntries, `local_items` for
// visitReportItems. The merge and packLocalItems consume the results.
struct CheckoutWalk {
    std::deque<ut_string> scan_queue;
    std::deque<EntriesRead> entries_read;
    std::deque<CheckoutItem> local_items;

    void clear();
};

// Whether the walk leaves `path`, a directory entry, unentered. Here: a symbolic link (to a
// directory), so that a link back up the tree cannot make the walk go round for ever and a
// tree is never reported twice. Asked before a sub-directory is queued; a root the user named
// is walked even when it is a link. The acceptance test of a queued directory does not ask it
// again: everything queued has passed it.
bool walkLeavesOut(const char* path);

// Puts each sub-directory of `dir` (not left out) at the front of the queue, in the order of
// the listing: the seeding of a walk that begins below `dir` (after a checkout or a
// modification). False when `dir` can't be listed.
bool queueSubdirectories(CheckoutWalk* walk, const char* dir);

// One step with a cvs child: takes directories from the front of the queue until one holds a
// regular CVS/Entries, reads it (frozen) and appends the image to entries_read, and queues the
// directory's sub-directories. False when the queue ran out before a step was found.
bool visitKeepEntries(CheckoutWalk* walk);

// One step without a cvs child: finds the next step as visitKeepEntries does, then appends an
// item to local_items for each file of the listing (a file with an entry by the rules below; a
// file without one as 2000 with "N/A" version and tag) and then for each entry left without a
// file, in name order (1100 if removed, else 200, with its version and tag). A left-out
// sub-directory goes through the file rules as a name. Rules for a file with an entry, first
// match wins: new 1000 "New File"; removed 1100; "Result of merge" 1200; fileNewerThanEntry
// 1200; else 2300 (all with the entry's version and tag). False when the queue ran out.
bool visitReportItems(CheckoutWalk* walk);

// A broken-down time as the walk compares them: calendar fields, no time zone.
struct EntryTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0; // month 1 to 12
};

// Reads an entry's date text such as "Thu Jan 15 13:04:05 2004": blanks and tabs, one of the
// seven three-letter day names, blanks and tabs, one of the twelve three-letter month names,
// blanks and tabs, then day, hour:minute:second and year as by "%d %d:%d:%d %d" (all five
// present). The day of the week plays no part. False when the text doesn't have this form.
bool parseEntryDate(const char* text, EntryTime* out);

// Whether the file at `path` is newer than the entry's date text: both as year, month, day,
// hour, minute and second (the file's modification time broken down in UTC, else in local
// time; the entry's date read as UTC) compared field by field with no time-zone arithmetic.
// False when the entry's time is not earlier, or when either side can't be obtained.
bool fileNewerThanEntry(const char* path, const char* date);
