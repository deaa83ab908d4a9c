// The diff engine's table of distinct line texts: its sizes, the hash, open addressing, and the
// blocks that hold the texts. Used by diff_engine.cpp only.
#pragma once

#include "diff_engine.h"

#include <cstddef>
#include <cstdint>

// The table size for two texts of `lines` lines in all: the first size of the list that is
// greater, so the table is never full. 0 when there is none (16777215 lines or more).
int32_t diffTableSize(int64_t lines);

// The hash of a line text: for each byte, unsigned, t = h + c in 32 bits and h = (t << 7) +
// (t >> 23) with a logical shift; the result is h & 0x3fffffff.
inline uint32_t diffHashStep(uint32_t h, unsigned char c) {
    uint32_t t = h + c;
    return (t << 7) + (t >> 23);
}
inline int32_t diffHashFinish(uint32_t h) {
    return static_cast<int32_t>(h & 0x3fffffffu);
}
int32_t diffHash(const char* text, size_t length);

// The first slot of a hash, the hash modulo the table size. Every line needs one, and a division
// costs tens of cycles, so it is a multiplication by a fixed-point inverse of the size, exact for
// every 32-bit value.
struct DiffSlots {
    uint64_t inverse;
    uint32_t size;
};
inline DiffSlots diffSlots(int32_t size) {
    uint32_t d = static_cast<uint32_t>(size);
    return DiffSlots{UINT64_MAX / d + 1, d};
}
inline int32_t diffFirstSlot(DiffSlots slots, int32_t hash) {
    uint64_t fraction = slots.inverse * static_cast<uint32_t>(hash);
    return static_cast<int32_t>((static_cast<unsigned __int128>(fraction) * slots.size) >> 64);
}

// Where the next text goes: the free part of the newest block of result->textBlocks.
struct DiffTextStore {
    char* cursor = nullptr;
    size_t left = 0;
    size_t blockSize = 0; // of the newest block
};

// The index of the symbol of `text` (`length` bytes without NUL, not NUL-terminated; `hash` from
// diffHash, `slot` its first slot): from that slot upwards, wrapping at the end, to a free slot,
// which takes a copy of the text, or to a slot with the same hash and text.
int32_t diffFindSymbol(DiffResult* result, DiffTextStore* store, const char* text, size_t length,
                       int32_t hash, int32_t slot);

// Releases the text blocks of `result`.
void diffFreeTexts(DiffResult* result);
