// STPStream: the ASCII form, "name:value " fields in text (the buffer and the binary form are
// in stp_stream.cpp).
#include "stp_stream.h"

#include "indgen.h"
#include "stp_ascii_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

// --- ASCII form: writing -----------------------------------------------------------------------

void STPStream::putRaw(const char* text) {
    if (text)
        writeBytes(text, static_cast<int64_t>(std::strlen(text)));
}

void STPStream::putRaw(const char* text, int32_t count) {
    if (text)
        writeBytes(text, count);
}

void STPStream::asciiPutName(const char* name) {
    putRaw(name);
    writeBytes(":", 1);
}

void STPStream::asciiPutNumber(uint32_t value) {
    char text[16];
    int n = std::snprintf(text, sizeof text, "0x%x ", value);
    writeBytes(text, n);
}

void STPStream::asciiPutNamedNumber(const char* name, uint32_t value) {
    asciiPutName(name);
    asciiPutNumber(value);
}

void STPStream::asciiPutNumber64(uint64_t value) {
    char text[32];
    int n = std::snprintf(text, sizeof text, "0x%x%08x ", static_cast<unsigned>(value >> 32),
                          static_cast<unsigned>(value));
    writeBytes(text, n);
}

void STPStream::asciiPutNamedNumber64(const char* name, uint64_t value) {
    asciiPutName(name);
    asciiPutNumber64(value);
}

void STPStream::asciiPutString(const char* s) {
    if (!s) {
        writeBytes("null ", 5);
        return;
    }
    size_t n = std::strlen(s);
    reserve(static_cast<int64_t>(2 * n + 3)); // every character escaped, quotes and blank
    writeBytes("\"", 1);
    const char* run = s;
    for (const char* p = s;; ++p) {
        char c = *p;
        if (c != '\0' && c != '\\' && c != '"' && c != '\n')
            continue;
        writeBytes(run, p - run);
        if (c == '\0')
            break;
        char escaped[2] = {'\\', c == '\n' ? 'n' : c};
        writeBytes(escaped, 2);
        run = p + 1;
    }
    writeBytes("\" ", 2);
}

void STPStream::asciiPutNamedString(const char* name, const char* s) {
    asciiPutName(name);
    asciiPutString(s);
}

void STPStream::asciiPutWord(const char* word) {
    if (!word || !*word)
        return;
    putRaw(word);
    writeBytes(" ", 1);
}

void STPStream::asciiPutNamedWord(const char* name, const char* word) {
    asciiPutName(name);
    asciiPutWord(word);
}

void STPStream::asciiPutQuoted(const char* word) {
    writeBytes("\"", 1);
    putRaw(word);
    writeBytes("\" ", 2);
}

void STPStream::asciiPutNamedQuoted(const char* name, const char* word) {
    asciiPutName(name);
    asciiPutQuoted(word);
}

void STPStream::asciiBeginStruct() {
    writeBytes("{ ", 2);
}

void STPStream::asciiBeginNamedStruct(const char* name) {
    asciiPutName(name);
    asciiBeginStruct();
}

void STPStream::asciiEndStruct() {
    writeBytes(" } ", 3);
}

void STPStream::asciiBeginArray(int32_t count) {
    if (count >= 0) {
        writeBytes("(", 1);
        asciiPutNumber(static_cast<uint32_t>(count));
        writeBytes(")", 1);
    }
    writeBytes("[ ", 2);
}

void STPStream::asciiBeginNamedArray(const char* name, int32_t count) {
    asciiPutName(name);
    asciiBeginArray(count);
}

void STPStream::asciiEndArray() {
    writeBytes(" ] ", 3);
}

// --- ASCII form: reading -----------------------------------------------------------------------

const char* STPStream::asciiText(int32_t offset) const {
    return base + std::clamp(offset, 0, readEnd);
}

int32_t STPStream::asciiOffset(const char* p) const {
    return static_cast<int32_t>(p - base);
}

// The zero word that ends the text, or the end of the read range when a broken body lacks it.
void STPStream::asciiGoToEnd() {
    const char* p = asciiText(cursor);
    const char* end = base + readEnd;
    const void* nul = p < end ? std::memchr(p, 0, static_cast<size_t>(end - p)) : nullptr;
    cursor = asciiScope = nul ? asciiOffset(static_cast<const char*>(nul)) : readEnd;
}

const char* STPStream::asciiFindField(const char* name) {
    if (!name)
        return nullptr;
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(asciiScope), end);
    bool sequential = p == stp_ascii_skip_blanks(asciiText(cursor), end);
    cursor = asciiOffset(p);
    size_t n = std::strlen(name);
    for (;;) {
        char c = stp_ascii_at(p, end);
        if (c == '\0' || c == '}' || c == ']')
            return nullptr;
        if (static_cast<size_t>(end - p) > n && std::memcmp(p, name, n) == 0 && p[n] == ':')
            break;
        sequential = false;
        // To the next colon, but never out of the scope: a closer ends the search too.
        while ((c = stp_ascii_at(p, end)) != ':') {
            if (c == '\0' || c == '}' || c == ']')
                return nullptr;
            ++p;
        }
        p = stp_ascii_skip_value(stp_ascii_skip_blanks(p + 1, end), end);
    }
    p = stp_ascii_skip_blanks(p + n + 1, end);
    cursor = asciiOffset(p);
    if (sequential)
        asciiScope = asciiOffset(stp_ascii_skip_value(p, end));
    return p;
}

const char* STPStream::asciiNextField(const char** name, int32_t* nameLength) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    *name = nullptr;
    *nameLength = 0;
    cursor = asciiOffset(p);
    char c = stp_ascii_at(p, end);
    if (c == '\0' || c == '}' || c == ']')
        return nullptr;
    const char* q = p;
    while ((c = stp_ascii_at(q, end)) != ':' && !stp_ascii_ends_token(c) && c != '"' && c != '{' &&
           c != '[' && c != '(')
        ++q;
    if (c == ':' && q > p) {
        *name = p;
        *nameLength = static_cast<int32_t>(q - p);
        p = stp_ascii_skip_blanks(q + 1, end);
        cursor = asciiOffset(p);
    }
    return p;
}

const char* STPStream::asciiNextValue() {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    char c = stp_ascii_at(p, end);
    if (c == '\0' || c == '}' || c == ']') {
        cursor = asciiOffset(p);
        return nullptr;
    }
    cursor = asciiOffset(stp_ascii_skip_value(p, end));
    return p;
}

uint32_t STPStream::asciiGetNumber() {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    const char* stop;
    uint32_t value = stp_ascii_parse_u32(p, end, &stop);
    cursor = asciiOffset(stop);
    return value;
}

uint32_t STPStream::asciiGetNamedNumber(const char* name) {
    return asciiFindField(name) ? asciiGetNumber() : 0;
}

uint64_t STPStream::asciiGetNumber64() {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    const char* stop;
    uint64_t value = stp_ascii_parse_u64(p, end, &stop);
    cursor = asciiOffset(stop);
    return value;
}

uint64_t STPStream::asciiGetNamedNumber64(const char* name) {
    return asciiFindField(name) ? asciiGetNumber64() : 0;
}

char* STPStream::asciiGetString() {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    if (stp_ascii_at(p, end) != '"') {
        if (end - p >= 5 && std::memcmp(p, "null", 4) == 0 && stp_ascii_is_blank(p[4]))
            cursor = asciiOffset(p + 5);
        return nullptr;
    }
    const char* text = p + 1;
    const char* q = text;
    bool escaped = false;
    char c;
    while ((c = stp_ascii_at(q, end)) != '\0' && c != '"') {
        if (c == '\\') {
            escaped = true;
            if (stp_ascii_at(q + 1, end) == '\0')
                break; // a backslash that ends the text stops the scan
            ++q;
        }
        ++q;
    }
    size_t n = static_cast<size_t>(q - text);
    char* copy = static_cast<char*>(gen_alloc(n + 1, 1));
    if (!escaped) {
        std::memcpy(copy, text, n);
    } else {
        char* out = copy;
        for (const char* r = text; r < q; ++r) {
            if (*r == '\\' && r + 1 < q) {
                ++r;
                *out++ = *r == 'n' ? '\n' : *r;
            } else if (*r != '\\') {
                *out++ = *r;
            }
        }
    }
    // Behind the closing quote; without one, at the end of the text (behind a last backslash).
    cursor = asciiOffset(c == '\0' ? q : q + 1);
    return copy;
}

char* STPStream::asciiGetNamedString(const char* name) {
    return asciiFindField(name) ? asciiGetString() : nullptr;
}

const char* STPStream::asciiPeekWord(int32_t* wordLength) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    const char* q = p;
    while (!stp_ascii_ends_token(stp_ascii_at(q, end)))
        ++q;
    *wordLength = static_cast<int32_t>(q - p);
    return q > p ? p : nullptr;
}

const char* STPStream::asciiGetWord(int32_t* wordLength) {
    const char* end = base + readEnd;
    bool atScope = stp_ascii_skip_blanks(asciiText(asciiScope), end) ==
                   stp_ascii_skip_blanks(asciiText(cursor), end);
    const char* word = asciiPeekWord(wordLength);
    if (!word)
        return nullptr;
    cursor = asciiOffset(word) + *wordLength;
    if (atScope)
        asciiScope = cursor;
    return word;
}

const char* STPStream::asciiGetNamedWord(const char* name, int32_t* wordLength) {
    *wordLength = 0;
    return asciiFindField(name) ? asciiGetWord(wordLength) : nullptr;
}

const char* STPStream::asciiGetQuoted(int32_t* wordLength) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    *wordLength = 0;
    if (stp_ascii_at(p, end) != '"')
        return nullptr;
    const char* q = p + 1;
    char c;
    while ((c = stp_ascii_at(q, end)) != '\0' && c != '"')
        ++q;
    *wordLength = static_cast<int32_t>(q - (p + 1));
    cursor = asciiOffset(c == '"' ? q + 1 : q);
    return p + 1;
}

const char* STPStream::asciiGetNamedQuoted(const char* name, int32_t* wordLength) {
    *wordLength = 0;
    return asciiFindField(name) ? asciiGetQuoted(wordLength) : nullptr;
}

// Opens the struct or array at the cursor; without its opener the scope becomes empty.
bool STPStream::asciiEnter(STPAsciiScope* saved, char opener) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    saved->asciiScope = asciiScope;
    if (stp_ascii_at(p, end) != opener) {
        asciiGoToEnd();
        return false;
    }
    cursor = asciiScope = asciiOffset(p + 1);
    return true;
}

// Steps over the closer. When the reader left fields or elements unread (a newer peer's
// additions, or an array without a count), they are skipped up to the matching closer rather
// than the whole rest of the message, so that the elements behind still read; only a text without
// that closer goes to the end.
void STPStream::asciiLeave(const STPAsciiScope& saved, char closer) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    if (stp_ascii_at(p, end) != closer)
        p = stp_ascii_find_closer(p, end, closer);
    if (stp_ascii_at(p, end) == closer) {
        cursor = asciiOffset(p + 1);
    } else {
        cursor = asciiOffset(p);
        asciiGoToEnd();
    }
    asciiScope = saved.asciiScope;
}

bool STPStream::asciiEnterStruct(STPAsciiScope* saved) {
    return asciiEnter(saved, '{');
}

bool STPStream::asciiEnterNamedStruct(STPAsciiScope* saved, const char* name) {
    if (!asciiFindField(name)) {
        saved->asciiScope = asciiScope;
        asciiGoToEnd();
        return false;
    }
    return asciiEnterStruct(saved);
}

void STPStream::asciiLeaveStruct(const STPAsciiScope& saved) {
    asciiLeave(saved, '}');
}

int32_t STPStream::asciiEnterArray(STPAsciiScope* saved) {
    const char* end = base + readEnd;
    const char* p = stp_ascii_skip_blanks(asciiText(cursor), end);
    int64_t count = 0;
    bool counted = stp_ascii_at(p, end) == '(';
    if (counted) {
        const char* stop;
        count = static_cast<int32_t>(stp_ascii_parse_u32(p + 1, end, &stop));
        p = stp_ascii_skip_blanks(stop, end);
        if (stp_ascii_at(p, end) == ')')
            p = stp_ascii_skip_blanks(p + 1, end);
    }
    cursor = asciiOffset(p);
    if (!asciiEnter(saved, '['))
        return 0;
    if (!counted && stp_ascii_at(stp_ascii_skip_blanks(asciiText(cursor), end), end) != ']')
        gen_error("unspecified stp ascii array size");
    // Every element but an empty word takes at least one byte of text, so a larger count cannot
    // be true.
    return static_cast<int32_t>(std::clamp<int64_t>(count, 0, end - asciiText(cursor)));
}

int32_t STPStream::asciiEnterNamedArray(STPAsciiScope* saved, const char* name) {
    if (!asciiFindField(name)) {
        saved->asciiScope = asciiScope;
        asciiGoToEnd();
        return 0;
    }
    return asciiEnterArray(saved);
}

void STPStream::asciiLeaveArray(const STPAsciiScope& saved) {
    asciiLeave(saved, ']');
}
