#include "diff_source.h"

#include "diff_symbols.h"
#include "gen_file.h"
#include "indgen.h"

#include <cstring>

namespace {

constexpr int32_t kLineStart = 512;
constexpr size_t kBlockSize = 65536;

// The number of newline bytes in `size` bytes, eight at a time: a byte of `word ^ newlines` is
// zero exactly where a newline stood.
int64_t countNewlines(const char* bytes, size_t size) {
    constexpr uint64_t kOnes = 0x0101010101010101ull, kLow7 = 0x7f7f7f7f7f7f7f7full;
    int64_t lines = 0;
    size_t k = 0;
    for (; k + 8 <= size; k += 8) {
        uint64_t word;
        std::memcpy(&word, bytes + k, 8);
        uint64_t x = word ^ (kOnes * '\n');
        uint64_t zero = ~(((x & kLow7) + kLow7) | x | kLow7); // the high bit of each zero byte
        lines += static_cast<int64_t>(((zero >> 7) * kOnes) >> 56);
    }
    for (; k < size; ++k)
        lines += bytes[k] == '\n';
    return lines;
}

// Lines of the file up to its end: its newlines, and one more for a last line without one.
int64_t countLines(DiffText* text) {
    int64_t lines = 0;
    char last = '\n';
    size_t got;
    while ((got = std::fread(text->block, 1, kBlockSize, text->file)) > 0) {
        lines += countNewlines(text->block, got);
        last = text->block[got - 1];
    }
    return last == '\n' ? lines : lines + 1;
}

// Makes room for `size` bytes in the line buffer, doubling it; false when it can't grow more.
bool reserveLine(DiffText* text, size_t size) {
    if (!text->line) {
        text->lineCapacity = kLineStart;
        text->line = static_cast<char*>(gen_alloc(static_cast<size_t>(kLineStart), 1));
    }
    while (size > static_cast<size_t>(text->lineCapacity)) {
        if (text->lineCapacity > INT32_MAX / 2)
            return false;
        text->lineCapacity *= 2;
        text->line =
            static_cast<char*>(gen_realloc(text->line, static_cast<size_t>(text->lineCapacity)));
    }
    return true;
}

// Removes the NUL bytes of a line in place; gives its new length.
size_t dropNuls(char* bytes, size_t length) {
    size_t kept = 0;
    for (size_t k = 0; k < length; ++k)
        if (bytes[k] != '\0')
            bytes[kept++] = bytes[k];
    return kept;
}

bool refillBlock(DiffText* text) {
    size_t got = std::fread(text->block, 1, kBlockSize, text->file);
    text->blockStart = 0;
    text->blockEnd = got;
    text->blockHasNul = got > 0 && std::memchr(text->block, '\0', got) != nullptr;
    return got > 0;
}

// Puts together in the line buffer a line that runs past the block, reading blocks until its
// newline or the end of the file. *length is 0 when the file had nothing more.
DiffReadResult assembleLine(DiffText* text, size_t* length) {
    size_t n = 0;
    for (;;) {
        const char* start = text->block + text->blockStart;
        size_t left = text->blockEnd - text->blockStart;
        const char* newline = static_cast<const char*>(std::memchr(start, '\n', left));
        size_t take = newline ? static_cast<size_t>(newline - start) + 1 : left;
        if (take > 0) {
            if (!reserveLine(text, n + take))
                return DiffReadResult::too_long;
            std::memcpy(text->line + n, start, take);
            n += take;
            text->blockStart += take;
        }
        if (newline || !refillBlock(text))
            break;
    }
    *length = dropNuls(text->line, n);
    return DiffReadResult::lines;
}

// The next line where it lies in the block, hashed on the way to its newline; false when the
// block holds no whole line more.
bool lineInBlock(DiffText* text, DiffTextLine* line) {
    char* start = text->block + text->blockStart;
    size_t left = text->blockEnd - text->blockStart;
    if (text->blockHasNul) {
        char* newline = static_cast<char*>(std::memchr(start, '\n', left));
        if (!newline)
            return false;
        size_t length = static_cast<size_t>(newline - start) + 1;
        text->blockStart += length;
        length = dropNuls(start, length);
        *line = DiffTextLine{start, length, diffHash(start, length)};
        return true;
    }
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(start);
    uint32_t h = 0;
    for (size_t k = 0; k < left; ++k) {
        unsigned char c = bytes[k];
        h = diffHashStep(h, c);
        if (c == '\n') {
            text->blockStart += k + 1;
            *line = DiffTextLine{start, k + 1, diffHashFinish(h)};
            return true;
        }
    }
    return false;
}

DiffReadResult nextFileLines(DiffText* text, DiffTextLine* out, int max, int* got) {
    while (*got < max && text->given < text->count) {
        if (!lineInBlock(text, &out[*got])) {
            // The lines handed out so far lie in the block: they go first, before a new
            // block overwrites them.
            if (*got > 0)
                break;
            size_t length = 0;
            DiffReadResult result = assembleLine(text, &length);
            if (result != DiffReadResult::lines)
                return result;
            if (length == 0)
                break;
            out[*got] = DiffTextLine{text->line, length, diffHash(text->line, length)};
        }
        ++*got;
        ++text->given;
    }
    return *got > 0 ? DiffReadResult::lines : DiffReadResult::end;
}

// One line of a stream into the line buffer, byte by byte, so that the stream stays right
// behind it.
DiffReadResult nextStreamLine(DiffText* text, DiffTextLine* out, int* got) {
    if (text->given >= text->count || !reserveLine(text, 1))
        return DiffReadResult::end;
    size_t n = 0;
    uint32_t h = 0;
    int c;
    while ((c = getc_unlocked(text->file)) != EOF) {
        if (c == 0)
            continue;
        if (n + 1 > static_cast<size_t>(text->lineCapacity) && !reserveLine(text, n + 1))
            return DiffReadResult::too_long;
        text->line[n++] = static_cast<char>(c);
        h = diffHashStep(h, static_cast<unsigned char>(c));
        if (c == '\n')
            break;
    }
    if (n == 0)
        return DiffReadResult::end;
    out[0] = DiffTextLine{text->line, n, diffHashFinish(h)};
    *got = 1;
    ++text->given;
    return DiffReadResult::lines;
}

} // namespace

bool diffOpenText(const DiffSource* source, DiffText* text) {
    *text = DiffText();
    text->kind = source ? source->kind : 0;
    switch (text->kind) {
    case DIFF_SOURCE_STRINGS:
        text->strings = source->strings;
        text->count = source->strings && source->count > 0 ? source->count : 0;
        return true;
    case DIFF_SOURCE_FILE: {
        const char* name = source->fileName ? source->fileName : "";
        text->file = gen_fopen(name, "re");
        if (!text->file) {
            std::printf("Error opening file - %s\n", name);
            std::fflush(stdout);
            return false;
        }
        text->ownsFile = true;
        text->block = static_cast<char*>(gen_alloc(kBlockSize, 1));
        text->count = countLines(text);
        std::rewind(text->file);
        return true;
    }
    case DIFF_SOURCE_STREAM:
        text->file = source->stream;
        text->count = source->stream && source->count > 0 ? source->count : 0;
        return true;
    default:
        std::printf("Error - unknown file type %i\n", text->kind);
        std::fflush(stdout);
        *text = DiffText();
        return false;
    }
}

void diffCloseText(DiffText* text) {
    if (text->ownsFile && text->file)
        std::fclose(text->file);
    gen_free(text->block);
    gen_free(text->line);
    *text = DiffText();
}

DiffReadResult diffNextLines(DiffText* text, DiffTextLine* out, int max, int* got) {
    *got = 0;
    switch (text->kind) {
    case DIFF_SOURCE_STRINGS:
        while (*got < max && text->given < text->count) {
            const char* line = text->strings[text->given++];
            line = line ? line : "";
            uint32_t h = 0;
            size_t length = 0;
            for (; line[length]; ++length)
                h = diffHashStep(h, static_cast<unsigned char>(line[length]));
            out[(*got)++] = DiffTextLine{line, length, diffHashFinish(h)};
        }
        return *got > 0 ? DiffReadResult::lines : DiffReadResult::end;
    case DIFF_SOURCE_FILE:
        return nextFileLines(text, out, max, got);
    case DIFF_SOURCE_STREAM:
        return nextStreamLine(text, out, got);
    default:
        return DiffReadResult::end;
    }
}
