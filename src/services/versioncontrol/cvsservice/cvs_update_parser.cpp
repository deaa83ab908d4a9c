#include "cvs_update_parser.h"

#include "checkout_records.h"
#include "checkout_walk.h"

#include <cstring>
#include <iterator>

namespace {

using namespace checkout_type;

// A line that makes a record (in a scan; `inUpdate` says whether also in update mode) with the
// name up to `marker`, or, with a null marker, a line that is passed over.
struct Row {
    const char* prefix;
    const char* marker;
    uint32_t type;
    bool inUpdate;
};

constexpr const char* kPassOver = nullptr;

// Rows before the remarks of cvs 1.12 (which need a whole-line test) and before "RCS file: ".
const Row kLeadingRows[] = {
    {"rcsmerge: warning: conflicts during merge", kPassOver, 0, false},
    {"cvs server: conflicts found in ", kPassOver, 0, false},
    {"cvs update: conflicts found in ", kPassOver, 0, false},
    {"cvs checkout: conflicts found in ", kPassOver, 0, false},
    {"retrieving revision ", kPassOver, 0, false},
    {"Merging differences between ", kPassOver, 0, false},
    {"? ", "\n", NotUnderVC, true},
    {"M ", "\n", LocallyModified, true},
    {"A ", "\n", LocallyAdded, true},
    {"R ", "\n", LocallyRemoved, true},
    {"C ", "\n", HasConflict, true},
    {"U ", "\n", RemotelyModified, false},
};

// A remark of cvs 1.12: `prefix`, the name, and `tail` as the rest of the line.
struct QuotedRemark {
    const char* prefix;
    const char* tail;
};

const QuotedRemark kQuotedRemarks[] = {
    {"cvs update: `", "' is no longer in the repository"},
    {"cvs checkout: `", "' is no longer in the repository"},
    {"cvs update: warning: `", "' is not (any longer) pertinent"},
    {"cvs checkout: warning: `", "' is not (any longer) pertinent"},
};

// The remarks of an older cvs, behind the quoted ones.
const Row kTrailingRows[] = {
    {"cvs server: warning: ", " is not (any longer) pertinent\n", RemotelyRemoved, false},
    {"cvs server: ", " is no longer in the repository\n", RemotelyRemoved, false},
    {"cvs update: ", " is no longer in the repository\n", RemotelyRemoved, false},
};

constexpr const char kRcsFile[] = "RCS file: ";
constexpr const char kMerging[] = "Merging differences between ";

// The searches below read only as far as what they look for. A checking run-time's strchr and
// strstr may measure all the rest of the output first, which makes every line cost the whole
// output.

bool beginsWith(const char* line, const char* text) {
    while (*text && *line == *text)
        ++line, ++text;
    return *text == '\0';
}

// The first occurrence of `text` (not empty) at or after `from`, or null.
const char* findText(const char* from, const char* text) {
    for (; *from; ++from)
        if (*from == *text && beginsWith(from, text))
            return from;
    return nullptr;
}

// The newline that ends the line at `line`, or null.
const char* lineEnd(const char* line) {
    while (*line && *line != '\n')
        ++line;
    return *line ? line : nullptr;
}

// The start of the line behind `line`, or null when `line` has no newline.
const char* lineAfter(const char* line) {
    const char* newline = lineEnd(line);
    return newline ? newline + 1 : nullptr;
}

// Fills the record of the line at `line` and sets `*next` behind it.
bool makeRecord(const char* line, const char* dir, ut_string name, uint32_t type, const char** next,
                UpdateRecord* record) {
    record->path = localPathOf(dir, name.c_str());
    record->_type = type;
    *next = lineAfter(line);
    return true;
}

// The name of a quoted remark that `line` is, whole, or false.
bool matchQuotedRemark(const char* line, const QuotedRemark& remark, ut_string* name) {
    if (!beginsWith(line, remark.prefix))
        return false;
    const char* start = line + std::strlen(remark.prefix);
    const char* newline = lineEnd(start);
    size_t tailLength = std::strlen(remark.tail);
    if (!newline || static_cast<size_t>(newline - start) < tailLength ||
        std::strncmp(newline - tailLength, remark.tail, tailLength) != 0)
        return false;
    *name = ut_string(start, static_cast<int>(newline - tailLength - start));
    return true;
}

const Row* findRow(const char* line, const Row* rows, size_t count) {
    for (size_t i = 0; i < count; ++i)
        if (beginsWith(line, rows[i].prefix))
            return &rows[i];
    return nullptr;
}

} // namespace

ut_string extractBetween(const char* line, const char* prefix, const char* marker) {
    const char* start = line + std::strlen(prefix);
    const char* end = *marker ? findText(start, marker) : start;
    if (!end)
        return ut_string("");
    return ut_string(start, static_cast<int>(end - start));
}

bool parseUpdateOutput(const char* text, const char* dir, bool update_mode, const char** next,
                       UpdateRecord* record) {
    *next = nullptr;
    if (!text || !*text)
        return false;
    const char* line = text;
    // Every turn either makes a record or moves `line` forward: no recursion, no stack.
    for (;;) {
        if (update_mode) {
            while (beginsWith(line, "U ")) {
                line = lineAfter(line);
                if (!line)
                    return false;
            }
        }

        const Row* row = findRow(line, kLeadingRows, std::size(kLeadingRows));
        bool quoted = false;
        ut_string quotedName;
        if (!row) {
            for (const QuotedRemark& remark : kQuotedRemarks)
                if (matchQuotedRemark(line, remark, &quotedName)) {
                    quoted = true;
                    break;
                }
        }
        if (quoted) {
            if (!update_mode)
                return makeRecord(line, dir, quotedName, RemotelyRemoved, next, record);
        } else if (!row && beginsWith(line, kRcsFile)) {
            // A merge: its outcome is the line right behind the next "Merging differences".
            const char* merging = findText(line, kMerging);
            if (merging) {
                const char* outcome = lineAfter(merging);
                if (!outcome || !*outcome)
                    return false;
                if (beginsWith(outcome, "M "))
                    return makeRecord(outcome, dir, extractBetween(outcome, "M ", "\n"), NeedsMerge,
                                      next, record);
                if (beginsWith(outcome, "C "))
                    return makeRecord(outcome, dir, extractBetween(outcome, "C ", "\n"),
                                      update_mode ? HasConflict : WillConflict, next, record);
                // Not a merge after all: everything up to here is passed over.
                line = outcome;
                continue;
            }
        } else {
            if (!row)
                row = findRow(line, kTrailingRows, std::size(kTrailingRows));
            if (row && row->marker && (row->inUpdate || !update_mode))
                return makeRecord(line, dir, extractBetween(line, row->prefix, row->marker),
                                  row->type, next, record);
        }
        line = lineAfter(line);
        if (!line)
            return false;
    }
}
