// The report of one checkout root: the merge of what cvs printed with the CVS/Entries images the
// walk kept, or, for a local-only job, the items the walk made. The job sends the result as
// DisplayCheckoutInfo.
//
// Items stand, by construction, directory by directory in the order of the walk, each
// directory's entries in byte order of the name, followed by the paths known only to cvs in
// byte order of the path. Nothing here sends, waits or re-enters the event loop: the one
// message the merge causes goes through the caller's callback.
#pragma once

#include "checkout_records.h"
#include "checkout_walk.h"
#include "cvs_entries.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>

struct MString;

// What cvs said of each path, for one merge: full path (byte order) to status number; of two
// records for one path the later one counts.
using RemoteMap = std::map<MStringKey, uint32_t, MStringByteOrder>;

// The StatusUpdate text the merge asks its caller to send once the entries are merged.
extern const char* const kMergeFinishedMessage;

// Merges the output of one cvs child (standard error then standard output, parsed with
// `update_mode`) with `entries_read`, which it consumes in order, into the report of `dir`:
// every entry of every image as mergeEntry makes it, then what is left of the remote map,
// each path split at its last `/` into _directory and _filename with "N/A" version and tag:
// 1700 as 1500; 2000 as 2050 when the path is a directory, else 2000; anything else as 200
// with a warning. Between the two, `statusUpdate` (if set) is called with
// kMergeFinishedMessage; the caller sends it, not waiting. Warnings are appended to
// `warnings` (none when it is null).
CheckoutInfo mergeCheckoutInfo(MString* warnings, const char* dir, const char* cvs_output,
                               bool update_mode, std::deque<EntriesRead>* entries_read,
                               const std::function<void(const char* message)>& statusUpdate);

// The item of one entry of the directory `entry_dir`: 2300 with the entry's version when cvs
// said nothing of its path; otherwise by cvs's number, whose record leaves the map: 500, 600,
// 700, 1100, 1600, 1700 as they are; 1000 with "New File"; 1200 as 1100 when the entry is
// removed, else 1200. Any other number (in practice 2000: cvs calls unknown a file that
// CVS/Entries knows) gives no item and a warning. The tag is the entry's.
std::optional<CheckoutItem> mergeEntry(MString* warnings, const ut_string& entry_dir,
                                       const CVSEntry& entry, RemoteMap* remote);

// The report of `dir` from the walk's items, in order, in an array of exactly their number;
// `local_items` is left empty.
CheckoutInfo packLocalItems(const char* dir, std::deque<CheckoutItem>* local_items);
