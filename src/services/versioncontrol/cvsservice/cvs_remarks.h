// The remarks that cvs prints on its standard error stream beside a run that went through, as
// the operations on files tell them from failures, and the version that `cvs add` names when it
// brings back a file that was scheduled for removal.
//
// Every test takes the whole output of one run as runCommandCapture gives it (the standard error
// text, then the standard output text) and knows each remark in two wordings: the older one of a
// client of a server ("cvs server: ", 'cvs commit') and that of cvs 1.12 (the prefix of the
// command, "cvs add: ", "cvs update: ", and `cvs commit' in a backquote and a quote). Null is no
// remark. Nothing here waits or re-enters the event loop.
#pragma once

// `cvs add` scheduled files and said how to make that permanent: "add: use 'cvs commit' to add "
// or "server: use 'cvs commit' to add ", together with "'cvs commit' to add these files
// permanently" or "... this file permanently".
bool addRemarksOnly(const char* output);

// The same for `cvs remove`, with "remove" in place of "add".
bool removeRemarksOnly(const char* output);

// A commit that waited for a repository lock and then went through. In the older wording the
// output holds "waiting for", "lock in", "obtained lock in", "Checking in", "new revision:" and
// "done", and neither "Up-to-date check failed for" nor "server aborted". cvs 1.12 reports the
// check-in as "FILE,v  <--  NAME" and "new revision: ..." (only with -q; with -Q nothing): its
// output passes when it holds the three lock texts and neither failure text, and every line is a
// lock remark ("... waiting for USER's lock in DIR", "... obtained lock in DIR") or a line of
// that report ("  <--  ", "new revision: ", "initial revision: ", "Checking in ", "done").
bool commitRemarksOnly(const char* output);

// An update whose every line up to the first empty one (or the end) is one of:
//   - "cvs server: warning: " or "cvs update: warning: " with " is not (any longer) pertinent";
//   - "rcsmerge: warning: conflicts during merge";
//   - "cvs server: conflicts found in " or "cvs update: conflicts found in ";
//   - a line of the report that cvs prints on its standard output while it merges a change into
//     a file: "RCS file: ", "retrieving revision ", "Merging differences between ".
// So a conflict does not fail an update: the file's status shows it. The last kind is this
// service's own: cvs prints the merge report beside every conflict remark, and without it an
// update that met a conflict would always count as failed.
bool updateRemarksOnly(const char* output);

// The version of `baseName` that `cvs add` brought back: the output begins with "cvs server: "
// or "cvs add: ", then stands `baseName` (cvs 1.12: in a backquote and a quote) and ", version ";
// the version runs to the next ", resurrected". A new string (gen_free), or null for any other
// output.
char* resurrectedVersion(const char* output, const char* baseName);

// What `cvs annotate` wrote on its standard error stream beside its output: nothing, or a text
// that holds its header "Annotations for" (and the file's name), which cvs writes there as a
// matter of course (cvs 1.12 even under -Q, between an empty line and a row of stars).
bool annotateRemarksOnly(const char* errorText);
