#include "diff_engine.h"

#include "diff_source.h"
#include "diff_symbols.h"
#include "indgen.h"

#include <cstring>

namespace {

// ---- Occurrence lists ----

// Takes line `i` of A out of its symbol's list.
void unlinkOccurrence(DiffResult* r, DiffSymbol* symbol, int32_t i) {
    DiffNode* node = &r->nodes[i];
    if (node->next == i) {
        symbol->occurrences = 0;
    } else {
        r->nodes[node->prev].next = node->next;
        r->nodes[node->next].prev = node->prev;
        if (symbol->occurrences == i)
            symbol->occurrences = node->next;
    }
    node->next = node->prev = 0;
}

// Puts line `i` of A into its symbol's list in front of node `before` (0: into an empty list).
void linkBefore(DiffResult* r, DiffSymbol* symbol, int32_t i, int32_t before) {
    DiffNode* node = &r->nodes[i];
    if (before == 0) {
        node->next = node->prev = i;
        symbol->occurrences = i;
        return;
    }
    int32_t after = r->nodes[before].prev;
    node->next = before;
    node->prev = after;
    r->nodes[after].next = i;
    r->nodes[before].prev = i;
}

// Puts line `i` of A back at its place in the descending order.
void insertOccurrence(DiffResult* r, DiffSymbol* symbol, int32_t i) {
    int32_t head = symbol->occurrences;
    if (head == 0) {
        linkBefore(r, symbol, i, 0);
        return;
    }
    int32_t at = head;
    do {
        if (r->nodes[at].line < i) {
            linkBefore(r, symbol, i, at);
            if (at == head)
                symbol->occurrences = i;
            return;
        }
        at = r->nodes[at].next;
    } while (at != head);
    linkBefore(r, symbol, i, head); // the lowest: the end of the circle
}

// ---- Loading ----

// Lines are looked up in batches: the first slots of a whole batch are fetched into the cache
// ahead of the lookups, which then run in the order of the lines as before. On large texts the
// table is far larger than the caches, and the lines' slots lie all over it.
constexpr int kBatch = 16;

void sayFailure(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

// Reads the lines of `text` into `lines` (1-based) and counts them on their symbols; *n is the
// number read. Lines of A also go to the head of their symbol's occurrence list, from line 1
// up, so the lists run from the highest line down: the same lists as a walk over A after
// loading, made while each symbol is in the cache anyway. False with "Out of memory." said when
// a line is too long for the reader.
bool loadText(DiffResult* r, DiffTextStore* store, DiffText* text, DiffLine* lines, bool old,
              int32_t* n) {
    DiffTextLine batch[kBatch];
    int32_t slots[kBatch];
    DiffSlots table = diffSlots(r->tableSize);
    int32_t k = 0;
    for (;;) {
        int got = 0;
        DiffReadResult result = diffNextLines(text, batch, kBatch, &got);
        if (result == DiffReadResult::too_long) {
            sayFailure("Out of memory.");
            return false;
        }
        if (result == DiffReadResult::end)
            break;
        for (int b = 0; b < got; ++b) {
            slots[b] = diffFirstSlot(table, batch[b].hash);
            __builtin_prefetch(&r->symbols[slots[b]]);
        }
        for (int b = 0; b < got; ++b) {
            const DiffLine line = {
                false, 0,
                diffFindSymbol(r, store, batch[b].text, batch[b].length, batch[b].hash, slots[b])};
            DiffSymbol* symbol = &r->symbols[line.symbol];
            lines[++k] = line;
            if (old) {
                ++symbol->oldCount;
                r->nodes[k].line = k;
                linkBefore(r, symbol, k, symbol->occurrences);
                symbol->occurrences = k;
            } else {
                ++symbol->newCount;
            }
        }
    }
    *n = k;
    return true;
}

// ---- Pairing ----

void pairLines(DiffResult* r, int32_t i, int32_t j) {
    DiffLine* a = &r->oldLines[i];
    DiffLine* b = &r->newLines[j];
    a->paired = b->paired = true;
    a->other = j;
    b->other = i;
    DiffSymbol* symbol = &r->symbols[a->symbol];
    --symbol->oldCount;
    --symbol->newCount;
    unlinkOccurrence(r, symbol, i);
}

void dissolvePair(DiffResult* r, int32_t i, int32_t j) {
    r->oldLines[i].paired = r->newLines[j].paired = false;
    r->oldLines[i].other = r->newLines[j].other = 0;
    DiffSymbol* symbol = &r->symbols[r->oldLines[i].symbol];
    ++symbol->oldCount;
    ++symbol->newCount;
    insertOccurrence(r, symbol, i);
}

// The forward step from paired line j of B: pairs j + 1 with the line behind j's partner when
// both are unpaired and have the same text. True when it paired them.
bool stepForward(DiffResult* r, int32_t j) {
    const DiffLine* b = r->newLines;
    const DiffLine* a = r->oldLines;
    int32_t i = b[j].other;
    if (i < r->n_old && !a[i + 1].paired && a[i + 1].symbol == b[j + 1].symbol) {
        pairLines(r, i + 1, j + 1);
        return true;
    }
    return false;
}

void uniqueLines(DiffResult* r) {
    for (int32_t j = 1; j <= r->n_new; ++j) {
        const DiffSymbol* symbol = &r->symbols[r->newLines[j].symbol];
        if (symbol->oldCount == 1 && symbol->newCount == 1)
            pairLines(r, symbol->occurrences, j);
    }
}

void extendForward(DiffResult* r) {
    for (int32_t j = 1; j <= r->n_new - 1; ++j)
        if (r->newLines[j].paired && !r->newLines[j + 1].paired)
            stepForward(r, j);
}

void extendBackward(DiffResult* r) {
    DiffLine* a = r->oldLines;
    DiffLine* b = r->newLines;
    for (int32_t j = r->n_new + 1; j >= 2; --j) {
        if (!b[j].paired || b[j - 1].paired)
            continue;
        int32_t i = b[j].other;
        if (i > 1 && !a[i - 1].paired && a[i - 1].symbol == b[j - 1].symbol)
            pairLines(r, i - 1, j - 1);
    }
}

// Extends forward from paired line j by the forward rule and gives the first line of B that
// stays unpaired, or n_new + 1 at the end of B. A line paired already doesn't end the run: the
// rule goes on from it, as the forward pass would, so the stop is always an unpaired line.
int32_t extendRun(DiffResult* r, int32_t j) {
    for (int32_t k = j; k < r->n_new; ++k)
        if (!r->newLines[k + 1].paired && !stepForward(r, k))
            return k + 1;
    return r->n_new + 1;
}

// The first paired line of B from `from` on, or n_new + 1; the closing entry doesn't count.
int32_t nextPaired(const DiffResult* r, int32_t from) {
    int32_t j = from;
    while (j <= r->n_new && !r->newLines[j].paired)
        ++j;
    return j;
}

// The occurrence of `symbol` to pair with an unpaired line of B whose nearest paired neighbours
// have the partners prev_old (in front) and next_old (behind); 0 when there is none.
int32_t nearestOccurrence(const DiffResult* r, const DiffSymbol* symbol, int32_t prev_old,
                          int32_t next_old) {
    int32_t head = symbol->occurrences;
    if (next_old > prev_old) {
        // The lowest occurrence strictly between the two: walk up from the lowest.
        int32_t at = r->nodes[head].prev;
        do {
            int32_t line = r->nodes[at].line;
            if (line > prev_old)
                return line < next_old ? line : 0;
            at = r->nodes[at].prev;
        } while (at != r->nodes[head].prev);
        return 0;
    }
    // The neighbours are out of order: the occurrence nearest to either anchor, walking down
    // from the highest. Once a line below next_old is no nearer than the best, every lower line
    // is farther from next_old and not above prev_old (>= next_old), so the walk can end.
    int32_t best = r->n_old + 1;
    int32_t chosen = 0;
    int32_t at = head;
    do {
        int32_t line = r->nodes[at].line;
        if (line < next_old && next_old - line < best) {
            chosen = line;
            best = next_old - line;
        } else if (line > prev_old && line - prev_old < best) {
            chosen = line;
            best = line - prev_old;
        } else if (line < next_old) {
            break;
        }
        at = r->nodes[at].next;
    } while (at != head);
    return chosen;
}

void nearestOccurrences(DiffResult* r) {
    const DiffLine* b = r->newLines;
    int32_t n = r->n_new;
    int32_t prev_old = 0;
    int32_t searched = nextPaired(r, 1); // how far the search for next_old got
    int32_t next_old = searched <= n ? b[searched].other : 0;
    int32_t j = 1;
    while (j <= n) {
        if (b[j].paired) {
            while (j <= n && b[j].paired)
                ++j;
            prev_old = b[j - 1].other;
            searched = nextPaired(r, j);
            if (searched <= n)
                next_old = b[searched].other;
            continue;
        }
        const DiffSymbol* symbol = &r->symbols[b[j].symbol];
        if (symbol->oldCount == 0 || symbol->newCount == 0) {
            ++j;
            continue;
        }
        int32_t i = nearestOccurrence(r, symbol, prev_old, next_old);
        if (i == 0) {
            ++j;
            continue;
        }
        pairLines(r, i, j);
        int32_t stop = extendRun(r, j);
        prev_old = b[stop - 1].other;
        if (searched < stop) {
            searched = nextPaired(r, stop);
            if (searched <= n)
                next_old = b[searched].other;
        }
        j = stop + 1; // the line where the extension stopped is not tried again
    }
}

void remainingOccurrences(DiffResult* r) {
    int32_t j = 1;
    while (j <= r->n_new) {
        const DiffSymbol* symbol = &r->symbols[r->newLines[j].symbol];
        if (r->newLines[j].paired || symbol->oldCount == 0 || symbol->newCount == 0) {
            ++j;
            continue;
        }
        int32_t lowest = r->nodes[symbol->occurrences].prev;
        pairLines(r, lowest, j);
        j = extendRun(r, j) + 1;
    }
}

// The number of paired lines from `start` on whose partners rise by exactly 1.
int32_t runLength(const DiffLine* lines, int32_t start, int32_t n) {
    int32_t length = 1;
    while (start + length <= n && lines[start + length].paired &&
           lines[start + length].other == lines[start + length - 1].other + 1)
        ++length;
    return length;
}

// Removes crossings so that the pairing keeps the order of both texts. Each run is measured
// once: dissolving the run on one side never touches the run measured on the other (its
// partners lie behind that run), so a length stays valid until its side moves on.
void uncross(DiffResult* r) {
    DiffLine* a = r->oldLines;
    DiffLine* b = r->newLines;
    int32_t i = 1, j = 1;
    int32_t runAtI = 0, runI = 0, runAtJ = 0, runJ = 0;
    for (;;) {
        while (i <= r->n_old && !a[i].paired)
            ++i;
        while (j <= r->n_new && !b[j].paired)
            ++j;
        if (i > r->n_old)
            return;
        if (a[i].other == j) {
            ++i;
            ++j;
            continue;
        }
        if (runAtI != i) {
            runI = runLength(a, i, r->n_old);
            runAtI = i;
        }
        if (runAtJ != j) {
            runJ = runLength(b, j, r->n_new);
            runAtJ = j;
        }
        if (runI >= runJ) {
            for (int32_t k = j; k < j + runJ; ++k)
                dissolvePair(r, b[k].other, k);
            j += runJ;
        } else {
            for (int32_t k = i; k < i + runI; ++k)
                dissolvePair(r, k, a[k].other);
            i += runI;
        }
    }
}

// ---- The edit script ----

char* copyText(const char* text) {
    size_t length = std::strlen(text);
    char* copy = static_cast<char*>(gen_alloc(length + 1, 1));
    std::memcpy(copy, text, length);
    return copy;
}

// Writes the script in two walks over B: the first counts the strings, the second makes them.
void writeScript(const DiffResult* r, int* scriptLines, char*** script) {
    const DiffLine* b = r->newLines;
    int32_t n = r->n_new;
    for (int pass = 0; pass < 2; ++pass) {
        int count = 0;
        char** out = pass == 1 ? *script : nullptr;
        int32_t j = 1;
        while (j <= n) {
            int32_t k = j;
            if (b[j].paired) {
                while (k < n && b[k + 1].paired && b[k + 1].other == b[k].other + 1)
                    ++k;
                if (out) {
                    char buffer[32];
                    if (k == j)
                        std::snprintf(buffer, sizeof buffer, "m%d\n", b[j].other);
                    else
                        std::snprintf(buffer, sizeof buffer, "m%d,%d\n", b[j].other, b[k].other);
                    out[count] = copyText(buffer);
                }
                ++count;
            } else {
                while (k < n && !b[k + 1].paired)
                    ++k;
                if (out) {
                    char buffer[32];
                    std::snprintf(buffer, sizeof buffer, "a%d\n", k - j + 1);
                    out[count] = copyText(buffer);
                    for (int32_t m = j; m <= k; ++m)
                        out[count + 1 + (m - j)] = copyText(r->symbols[b[m].symbol].text);
                }
                count += 1 + (k - j + 1);
            }
            j = k + 1;
        }
        if (pass == 0) {
            *scriptLines = count;
            *script = static_cast<char**>(gen_alloc(static_cast<size_t>(count), sizeof(char*)));
        }
    }
}

// An array whose every entry the engine writes before it reads it. The large arrays are not
// zeroed first: in a process that keeps large blocks in its heap, zeroing would be a second
// pass over them.
template <typename T> T* uninitialised(int64_t count) {
    return static_cast<T*>(gen_realloc(nullptr, static_cast<size_t>(count) * sizeof(T)));
}

DiffResult* newResult(int32_t tableSize, int64_t oldCount, int64_t newCount) {
    DiffResult* r = static_cast<DiffResult*>(gen_alloc(1, sizeof(DiffResult)));
    r->tableSize = tableSize;
    r->symbols = uninitialised<DiffSymbol>(tableSize);
    for (int32_t s = 0; s < tableSize; ++s)
        r->symbols[s] = DiffSymbol{-1, 0, nullptr, 0, 0};
    r->oldLines = uninitialised<DiffLine>(oldCount + 2);
    r->newLines = uninitialised<DiffLine>(newCount + 2);
    r->oldLines[0] = r->newLines[0] = DiffLine{false, 0, -1};
    r->nodes = uninitialised<DiffNode>(oldCount + 1);
    r->nodes[0] = DiffNode{0, 0, 0};
    return r;
}

// The closing entries, paired with each other.
void closeTexts(DiffResult* r) {
    int32_t endOld = r->n_old + 1, endNew = r->n_new + 1;
    r->oldLines[endOld] = DiffLine{true, endNew, -1};
    r->newLines[endNew] = DiffLine{true, endOld, -1};
}

} // namespace

DiffResult* diffTexts(const DiffSource* oldText, const DiffSource* newText, bool uncrossing,
                      int* scriptLines, char*** script) {
    bool wantScript = scriptLines && script;
    if (wantScript) {
        *scriptLines = 0;
        *script = nullptr;
    }
    DiffText a, b;
    if (!diffOpenText(oldText, &a))
        return nullptr;
    if (!diffOpenText(newText, &b)) {
        diffCloseText(&a);
        return nullptr;
    }
    int32_t tableSize = diffTableSize(a.count + b.count);
    if (tableSize == 0) {
        sayFailure("Out of memory in diff.\n");
        diffCloseText(&a);
        diffCloseText(&b);
        return nullptr;
    }
    DiffResult* r = newResult(tableSize, a.count, b.count);
    DiffTextStore store;
    bool loaded = loadText(r, &store, &a, r->oldLines, true, &r->n_old) &&
                  loadText(r, &store, &b, r->newLines, false, &r->n_new);
    diffCloseText(&a);
    diffCloseText(&b);
    if (!loaded) {
        freeDiffResult(r);
        return nullptr;
    }
    closeTexts(r);

    uniqueLines(r);
    extendForward(r);
    extendBackward(r);
    nearestOccurrences(r);
    remainingOccurrences(r);
    if (uncrossing) {
        uncross(r);
        extendForward(r);
        extendBackward(r);
    }
    if (wantScript)
        writeScript(r, scriptLines, script);
    return r;
}

DiffResult* diffFiles(const char* oldFile, const char* newFile) {
    DiffSource a{DIFF_SOURCE_FILE, nullptr, oldFile, nullptr, 0};
    DiffSource b{DIFF_SOURCE_FILE, nullptr, newFile, nullptr, 0};
    return diffTexts(&a, &b, true, nullptr, nullptr);
}

DiffResult* diffScriptFiles(const char* oldFile, const char* newFile, int* scriptLines,
                            char*** script) {
    DiffSource a{DIFF_SOURCE_FILE, nullptr, oldFile, nullptr, 0};
    DiffSource b{DIFF_SOURCE_FILE, nullptr, newFile, nullptr, 0};
    return diffTexts(&a, &b, false, scriptLines, script);
}

DiffResult* diffScriptStream(const char* oldFile, FILE* newStream, int32_t newCount,
                             int* scriptLines, char*** script) {
    DiffSource a{DIFF_SOURCE_FILE, nullptr, oldFile, nullptr, 0};
    DiffSource b{DIFF_SOURCE_STREAM, nullptr, nullptr, newStream, newCount};
    return diffTexts(&a, &b, false, scriptLines, script);
}

DiffResult* diffScriptStrings(const char* const* oldStrings, int32_t oldCount,
                              const char* const* newStrings, int32_t newCount, int* scriptLines,
                              char*** script) {
    DiffSource a{DIFF_SOURCE_STRINGS, oldStrings, nullptr, nullptr, oldCount};
    DiffSource b{DIFF_SOURCE_STRINGS, newStrings, nullptr, nullptr, newCount};
    return diffTexts(&a, &b, false, scriptLines, script);
}

void freeDiffResult(DiffResult* result) {
    if (!result)
        return;
    diffFreeTexts(result);
    gen_free(result->oldLines);
    gen_free(result->newLines);
    gen_free(result->symbols);
    gen_free(result->nodes);
    gen_free(result);
}

void freeDiffScript(int scriptLines, char** script) {
    if (!script)
        return;
    for (int k = 0; k < scriptLines; ++k)
        gen_free(script[k]);
    gen_free(script);
}
