// The diff engine: pairs the lines of an old text A with those of a new text B through a table
// of distinct line texts, in a few linear passes that also recognise moved blocks, and writes an
// edit script that rebuilds B from ranges of A and added lines. It stands alone: it knows nothing
// of cvs or of the service.
#pragma once

#include <cstdint>
#include <cstdio>

// One distinct line text. A slot of the open-addressing table is free while `hash` is -1.
struct DiffSymbol {
    int32_t hash;        // the hash of `text`, or -1 for a free slot
    int32_t occurrences; // the first node of the list of still unpaired lines of A with this
                         // text, highest line first; 0 when the list is empty
    char* text;          // the line with its newline if it has one; owned by the result
    int32_t oldCount;    // unpaired lines of A with this text
    int32_t newCount;    // unpaired lines of B with this text
};

// One node of an occurrence list. The node of line i of A is nodes[i]. The list is circular
// in both directions, so the lowest line (the last of the list) is the `prev` of the first.
struct DiffNode {
    int32_t line;
    int32_t next;
    int32_t prev;
};

// One line of a text. Line numbers are 1-based; entry n + 1 closes the text and is paired with
// the closing entry of the other text, so the ends of the texts count as a matching line.
struct DiffLine {
    bool paired;
    int32_t other;  // the partner's line number in the other text, when paired
    int32_t symbol; // index of the line's DiffSymbol; -1 for the closing entry
};

// Everything the engine leaves behind; owned by the caller and released with freeDiffResult.
struct DiffResult {
    int32_t n_old;       // lines of A
    int32_t n_new;       // lines of B
    int32_t tableSize;   // slots of `symbols`
    DiffLine* oldLines;  // n_old + 2 entries; [0] unused
    DiffLine* newLines;  // n_new + 2 entries; [0] unused
    DiffSymbol* symbols; // tableSize slots
    DiffNode* nodes;     // n_old + 1 nodes; [0] unused
    char* textBlocks;    // the blocks that hold the symbols' texts, chained by their first bytes
};

// Where a text comes from. Kinds: 2 an array of `count` strings (one line each, with its
// newline if it has one; a null string reads as an empty line); 3 a file named `fileName`,
// whose lines are counted by a first reading; 4 an open stream `stream` from which `count`
// lines are read (fewer if it ends first; it stays open and is left behind the last line read).
// A line of a file or stream is read whole, with its newline; NUL bytes cannot stand in a line's
// string and are left out. A negative count reads as 0, a null stream as an empty text.
struct DiffSource {
    int kind;
    const char* const* strings;
    const char* fileName;
    FILE* stream;
    int32_t count;
};

enum : int {
    DIFF_SOURCE_STRINGS = 2,
    DIFF_SOURCE_FILE = 3,
    DIFF_SOURCE_STREAM = 4,
};

// The engine's general entry: pairs the lines of `oldText` with those of `newText`, removes
// crossings when `uncross` is true, and writes the edit script when `scriptLines` and `script`
// are both given. The script is an array of *scriptLines strings, owned by the caller (release
// with freeDiffScript): "m%d,%d\n" or "m%d\n" copies a range of A, "a%d\n" is followed by that
// many added lines. On failure: null, *scriptLines 0 and *script null, a message on standard
// output ("Error opening file - %s\n", "Error - unknown file type %i\n", "Out of memory in
// diff.\n" when the two texts have 16777215 lines or more between them, "Out of memory." when a
// line is too long for the reader), and nothing left allocated. Running out of memory otherwise
// ends the process through the allocator.
DiffResult* diffTexts(const DiffSource* oldText, const DiffSource* newText, bool uncross,
                      int* scriptLines, char*** script);

// Two files, crossings removed, no script.
DiffResult* diffFiles(const char* oldFile, const char* newFile);
// Two files, with the script, crossings kept.
DiffResult* diffScriptFiles(const char* oldFile, const char* newFile, int* scriptLines,
                            char*** script);
// A file and `newCount` lines of an open stream, with the script, crossings kept.
DiffResult* diffScriptStream(const char* oldFile, FILE* newStream, int32_t newCount,
                             int* scriptLines, char*** script);
// Two arrays of strings, with the script, crossings kept.
DiffResult* diffScriptStrings(const char* const* oldStrings, int32_t oldCount,
                              const char* const* newStrings, int32_t newCount, int* scriptLines,
                              char*** script);

// Releases a result; null is allowed.
void freeDiffResult(DiffResult* result);
// Releases an edit script and its strings; null is allowed.
void freeDiffScript(int scriptLines, char** script);
