// MString: the growable string of plain-function code, a text that is always NUL-terminated
// and grows by doubling.
#pragma once

#include <cstdint>

struct MString {
    int32_t capacity; // size of `text` in bytes
    int32_t length;   // bytes of text, without the NUL
    char* text;
};

// Every function below that gets a null MString (or a null text to add) reports
// "[<function>]: cannot operate on NULL..." through gen_error and returns -1, 0 or null; it
// never stops the process. Allocation never fails (the allocation layer ends the process).

// A new empty string with room for `size` bytes (at least 1). Owned by the caller.
MString* MString_new(int size);
void MString_delete(MString* ms);
// Add `text`; returns the number of bytes added.
int MString_append(MString* ms, const char* text);
// Adds at most `n` bytes of `text`, stopping at a NUL; returns how many.
int MString_appendn(MString* ms, const char* text, int n);
// Adds the text of gen_asprintf(format, ...); returns the number of bytes added.
int MString_appendf(MString* ms, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Gives the text as a plain allocation of exactly length + 1 bytes (release with gen_free) and
// deletes `ms`.
char* MString_peel(MString* ms);
// A new allocation with a copy of the text.
char* MString_copy(const MString* ms);
// If capacity <= needed, the text is reallocated to needed * 2 bytes. 0, or -1 for null.
int MString_ensureCapacity(MString* ms, int needed);
// The length, or -1 for null.
int MString_length(const MString* ms);
// Removes trailing blanks, tabs, returns and newlines; returns how many bytes went.
int MString_trimRight(MString* ms);
