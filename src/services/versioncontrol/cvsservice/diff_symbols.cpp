#include "diff_symbols.h"

#include "indgen.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int32_t kTableSizes[] = {1039,  3301,   6091,   9679,   13451,   19069,   33577,
                                   65535, 131071, 262143, 524287, 1048575, 2097151, 16777215};

// Texts are packed into blocks, so that a text costs no allocation of its own: 64 KiB at first,
// each block twice the one before up to 4 MiB, so that large texts need few of them; a longer
// text gets a block to itself.
constexpr size_t kFirstTextBlock = 65536, kLargestTextBlock = 4194304;

char* storeText(DiffResult* result, DiffTextStore* store, const char* text, size_t length) {
    size_t need = length + 1;
    if (need > store->left) {
        store->blockSize = store->blockSize == 0
                               ? kFirstTextBlock
                               : std::min(2 * store->blockSize, kLargestTextBlock);
        size_t size = std::max(store->blockSize, need + sizeof(char*));
        char* block = static_cast<char*>(gen_alloc(size, 1));
        std::memcpy(block, &result->textBlocks, sizeof(char*));
        result->textBlocks = block;
        store->cursor = block + sizeof(char*);
        store->left = size - sizeof(char*);
    }
    char* copy = store->cursor;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    store->cursor += need;
    store->left -= need;
    return copy;
}

} // namespace

int32_t diffTableSize(int64_t lines) {
    for (int32_t size : kTableSizes)
        if (size > lines)
            return size;
    return 0;
}

int32_t diffHash(const char* text, size_t length) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
    uint32_t h = 0;
    for (size_t k = 0; k < length; ++k)
        h = diffHashStep(h, bytes[k]);
    return diffHashFinish(h);
}

int32_t diffFindSymbol(DiffResult* result, DiffTextStore* store, const char* text, size_t length,
                       int32_t hash, int32_t slot) {
    int32_t size = result->tableSize;
    for (;;) {
        DiffSymbol* symbol = &result->symbols[slot];
        if (symbol->hash == -1) {
            symbol->hash = hash;
            symbol->text = storeText(result, store, text, length);
            return slot;
        }
        if (symbol->hash == hash && std::strncmp(symbol->text, text, length) == 0 &&
            symbol->text[length] == '\0')
            return slot;
        if (++slot == size)
            slot = 0;
    }
}

void diffFreeTexts(DiffResult* result) {
    char* block = result->textBlocks;
    while (block) {
        char* next;
        std::memcpy(&next, block, sizeof(char*));
        gen_free(block);
        block = next;
    }
    result->textBlocks = nullptr;
}
