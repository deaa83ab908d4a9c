// The parser of what `cvs update` and `cvs checkout` print, for the checkout-info jobs: the
// whole output of one child (standard error first, then standard output) read in place, one
// update record per call, with no state between calls but where to go on.
//
// Recognised lines, the first that matches deciding (a "name" runs up to the line's end unless
// said otherwise; the marker of a name is looked for in all the rest of the output):
//
//   "rcsmerge: warning: conflicts during merge", "retrieving revision ",
//   "Merging differences between ", and "conflicts found in " behind the prefix "cvs server: ",
//   "cvs update: " or "cvs checkout: "                            passed over
//   "? "  2000    "M "  1200    "A "  1000    "R "  1100    "C "  700
//   "U "  1700 in a scan; passed over in update mode
//   "cvs update: `NAME' is no longer in the repository", the same behind "cvs checkout: ", and
//   "cvs update: warning: `NAME' is not (any longer) pertinent", the same behind
//   "cvs checkout: " (each a whole line)                 1600 in a scan; passed over in update mode
//   "cvs server: warning: " NAME " is not (any longer) pertinent"   the same
//   "cvs server: " NAME " is no longer in the repository"           the same
//   "cvs update: " NAME " is no longer in the repository"           the same
//   "RCS file: "  a merge: the line behind the next "Merging differences between " line tells
//                 the outcome: "M " 600; "C " 500 in a scan, 700 in update mode; anything else
//                 passes everything up to there over
//   anything else                                                    passed over
//
// The backquoted lines are the wording of cvs 1.12 for local and :fork: repositories; the
// others are the wording of an older cvs. A line that begins "cvs update: " and is none of the
// above is still taken by the older row with its marker searched further on: when none follows,
// the record has an empty name (its path is `dir` with a separator at its end), which no entry
// matches and which the merge reports as 200.
//
// Nothing here allocates but the record's path, waits, or re-enters the event loop.
#pragma once

#include "ut_string.h"

#include <cstdint>

// One file that cvs had something to say about: its full path (localPathOf of the directory
// and the name cvs printed) and its status number.
struct UpdateRecord {
    ut_string path;
    uint32_t _type = 0;
};

// Parses from `text`, the start of a line, to the next line that makes a record. True with
// `*record` filled, false when the rest of the text holds none. `*next` becomes the start of
// the line behind the record's, or null when the text is used up (a record can come with a
// null `next`: it was the last line). A null or empty `text` gives false with a null `next`.
bool parseUpdateOutput(const char* text, const char* dir, bool update_mode, const char** next,
                       UpdateRecord* record);

// The text from behind `prefix` (at the start of `line`) up to the first following occurrence
// of `marker` anywhere in the rest of the text; empty when there is none.
ut_string extractBetween(const char* line, const char* prefix, const char* marker);
