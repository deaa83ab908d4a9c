// The texts of the diff engine: opening a source, counting its lines, and handing its lines out
// in small batches. Used by diff_engine.cpp only.
#pragma once

#include "diff_engine.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

// One line: `length` bytes at `text`, its newline included if it has one, no NUL among them
// (the text is not NUL-terminated), and its hash (diffHash). Valid until the next diffNextLines
// on the same text.
struct DiffTextLine {
    const char* text;
    size_t length;
    int32_t hash;
};

// A source opened for reading. Files are read in blocks; a line is handed out where it lies in
// the block, and one that runs past the end of a block is put together in the line buffer (512
// bytes at first, doubled whenever a line doesn't fit, up to 1 GiB: its size is a 32-bit count
// like the line numbers), as are the lines of a stream.
struct DiffText {
    int kind = 0;
    const char* const* strings = nullptr; // kind 2
    FILE* file = nullptr;                 // kinds 3 and 4
    bool ownsFile = false;                // opened here (kind 3)
    int64_t count = 0;                    // lines to hand out at most
    int64_t given = 0;                    // lines handed out
    char* block = nullptr;                // kind 3: the block read last
    size_t blockStart = 0, blockEnd = 0;  // its part not yet handed out
    bool blockHasNul = false;
    char* line = nullptr; // the line buffer
    int32_t lineCapacity = 0;
};

// Opens `source` and finds its number of lines: given for kinds 2 and 4, counted by reading the
// file for kind 3. False on failure, after saying "Error opening file - %s\n" or "Error -
// unknown file type %i\n" on standard output; the text then holds nothing.
bool diffOpenText(const DiffSource* source, DiffText* text);
// Closes a file opened here and releases the buffers.
void diffCloseText(DiffText* text);

enum class DiffReadResult { lines, end, too_long };
// Hands out up to `max` next lines into `out` (*got of them), never more than the count, each
// hashed as it is read: finding a line's end and hashing it is one walk over its bytes. `end`
// when there are none left; `too_long` when a line does not fit the largest line buffer (1 GiB).
DiffReadResult diffNextLines(DiffText* text, DiffTextLine* out, int max, int* got);
