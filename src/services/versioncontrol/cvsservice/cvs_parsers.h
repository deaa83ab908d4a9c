// What the service knows of the texts cvs prints: the output of `cvs status` and `cvs log` for
// one file, dotted version numbers, conflict markers in a working file, and the remarks the
// queries look for. The parsers search the text and never depend on line numbers.
//
// Every text here is taken as cvs prints it, old or new: a remark keeps its older wording and
// is also known in the wording of cvs 1.12 (the local prefix "cvs update: " beside the server's
// "cvs server: ", the status word "Unresolved Conflict", the "Commit Identifier:" line and the
// "commitid:" field, which the parsers pass over). Lines may end in "\n" or "\r\n" with the
// same results.
//
// Strings handed out are new allocations owned by the caller (release with gen_free); absent is
// null. Nothing here waits or re-enters the event loop; failure is a return value.
#pragma once

#include "versioncontrol_server_impl.h"

#include <cstdint>

// The output of `cvs status` for one file. On true, the five values are set (the strings as
// new allocations); on false (a null text, or a text without "Status:" or, for a known file,
// without "Working revision:" or "Repository revision:") the strings are null and
// `status_type` is 0. The previous values of the outputs are overwritten, not freed.
//
// - A file that doesn't exist ("Status: Unknown" with "File: no file ") gives 2600 with the
//   status text "File does not exist" and "N/A" versions and tag.
// - "Unknown" gives 2000 with "N/A" versions and tag.
// - Otherwise the working revision (a leading `-` dropped), the repository revision (or "No
//   revision control file") and the sticky tag ("(none)" as "HEAD"; "N/A" when there is no
//   "Sticky Tag:" line) are read, and the status word gives the number: "Locally Modified"
//   1200, "Locally Removed" 1100, "Locally Added" 1000 (versions "New file" and "N/A"), "Needs
//   Checkout" 1500 (working version "N/A"), "Entry Invalid" 1600 (working version cut at its
//   first byte that is neither a digit nor `.`), "Needs Merge" 600, "Up-to-date" 2300, "Needs
//   Patch" 1700, "File had conflicts on merge" and "Unresolved Conflict" 700, anything else
//   200.
bool parseStatusOutput(const char* text, char** local_version, char** remote_version,
                       char** status_str, int32_t* status_type, char** tag);

// The output of `cvs log` for one file, as a new array of `HistoryItem`s (release each with
// HistoryItem_free and the array with gen_free; null when the count is 0). Returns the count.
//
// The array holds the revisions in the order of the log, each with its version, date, author
// and comment (every comment but the last ends in a newline; a "branches:" line belongs to
// the comment), then one item for each branch that a "branches:" line names, in the order of
// the text, with `_is_branch` true. The symbolic names are then given to the items whose
// version equals their revision (a magic branch number such as 1.2.0.4 standing for the
// branch 1.2.4); a name whose revision has no item is dropped. Each branch item takes the
// date, author and comment of the last revision on its branch, and keeps null strings when
// there is none. A text without any revision gives 0.
int32_t parseLogOutput(const char* text, HistoryItem** items);

// Compares two dotted version numbers component by component as decimal numbers (of any
// length): -1, 0 or 1. A null value is below any other, two nulls are equal; where one runs
// out first it is the smaller. A component ends at any byte that is not a digit, and only a
// `.` is skipped; the text counts as ended where a component doesn't begin with a digit. So
// 1.10 is above 1.9, and 1.2 below 1.2.1.
int compareVersions(const char* a, const char* b);

// Non-empty, only digits and `.`, never two `.` in a row.
bool isVersionNumber(const char* s);

// The version before `s`: the last component less one when it is 2 or more (1.4 gives 1.3);
// otherwise, with 3 or more components, `s` without its last two (1.4.2.1 gives 1.4). Null
// when there is none (1.1) or `s` is no version number. A new string.
char* previousVersion(const char* s);

// `s` with its last component raised by one (1.9 gives 1.10); null when `s` is no version
// number. A new string.
char* nextVersion(const char* s);

// The output of `cvs annotate`, whose every line begins with the revision that last changed it
// and a blank: the newest revision of lines `from` to `to` (1-based, both included; lines end at
// "\n"), by compareVersions of the whole lines, as the head of its line up to the first blank or
// tab. *newest is a new string, or null when no line was looked at (`from` above `to`). False,
// with *newest null, when the text ends before line `to`.
bool newestAnnotatedVersion(const char* text, int32_t from, int32_t to, char** newest);

// Whether the file at `path` holds, in this order, a line "<<<<<<< " followed by the last
// component of `path`, a line "=======" and a line beginning with ">>>>>>> ". False when it
// can't be opened. Lines end at `\n`, `\r` or `\r\n`.
bool fileHasConflictMarkers(const char* path);

// Remarks of cvs that the queries act on, one function each.

// A `cvs status` run that failed or wrote to the error stream still says something about the
// file: its output holds "Status: Unknown" or "is no longer in the repository" (old cvs: "cvs
// server: a.c is no longer in the repository"; cvs 1.12: "cvs status: `a.c' is no longer in the
// repository").
bool statusFailureIsExpected(const char* output);

// The output of a dry `cvs -nq update` of `baseName` predicts a conflict: a line "cvs server:
// conflicts found in " (a client of a server) or "cvs update: conflicts found in " (a local
// repository, and the servers of cvs 1.12), followed by exactly `baseName` and the line's end.
bool updateReportsConflict(const char* output, const char* baseName);

// The status word says the file came out of a merge with conflicts that may still be in it:
// "File had conflicts on merge", or cvs 1.12's "Unresolved Conflict" (whose file has its
// markers, or is modified while its file is gone from the repository).
bool statusHadConflicts(const char* status_str);
