#include "mstring.h"

#include "gen_asprintf.h"
#include "indgen.h"

#include <cstring>

namespace {
int appendBytes(MString* ms, const char* text, int n) {
    if (n <= 0)
        return 0;
    MString_ensureCapacity(ms, ms->length + n);
    std::memcpy(ms->text + ms->length, text, static_cast<size_t>(n));
    ms->length += n;
    ms->text[ms->length] = '\0';
    return n;
}
} // namespace

MString* MString_new(int size) {
    if (size < 1)
        size = 1;
    auto* ms = static_cast<MString*>(gen_alloc(1, sizeof(MString)));
    ms->capacity = size;
    ms->length = 0;
    ms->text = static_cast<char*>(gen_alloc(static_cast<size_t>(size), 1));
    return ms;
}

void MString_delete(MString* ms) {
    if (!ms) {
        gen_error("[MString_delete]: cannot operate on NULL MString");
        return;
    }
    gen_free(ms->text);
    gen_free(ms);
}

int MString_append(MString* ms, const char* text) {
    if (!ms || !text) {
        gen_error("[MString_append]: cannot operate on NULL");
        return -1;
    }
    return appendBytes(ms, text, static_cast<int>(std::strlen(text)));
}

int MString_appendn(MString* ms, const char* text, int n) {
    if (!ms || !text) {
        gen_error("[MString_appendn]: cannot operate on NULL");
        return -1;
    }
    if (n <= 0)
        return 0;
    return appendBytes(ms, text, static_cast<int>(strnlen(text, static_cast<size_t>(n))));
}

int MString_appendf(MString* ms, const char* format, ...) {
    if (!ms) {
        gen_error("[MString_appendf]: cannot operate on NULL");
        return -1;
    }
    va_list args;
    va_start(args, format);
    char* text = gen_vasprintf(format, args);
    va_end(args);
    if (!text)
        return -1;
    int added = appendBytes(ms, text, static_cast<int>(std::strlen(text)));
    gen_free(text);
    return added;
}

char* MString_peel(MString* ms) {
    if (!ms) {
        gen_error("[MString_peel]: cannot operate on NULL MString");
        return nullptr;
    }
    char* text = static_cast<char*>(gen_realloc(ms->text, static_cast<size_t>(ms->length) + 1));
    gen_free(ms);
    return text;
}

char* MString_copy(const MString* ms) {
    if (!ms) {
        gen_error("[MString_copy]: cannot operate on NULL MString");
        return nullptr;
    }
    char* text = static_cast<char*>(gen_alloc(static_cast<size_t>(ms->length) + 1, 1));
    std::memcpy(text, ms->text, static_cast<size_t>(ms->length));
    return text;
}

int MString_ensureCapacity(MString* ms, int needed) {
    if (!ms) {
        gen_error("[MString_ensureCapacity]: cannot operate on NULL MString");
        return -1;
    }
    if (ms->capacity <= needed) {
        ms->capacity = needed * 2;
        ms->text = static_cast<char*>(gen_realloc(ms->text, static_cast<size_t>(ms->capacity)));
    }
    return 0;
}

int MString_length(const MString* ms) {
    return ms ? ms->length : -1;
}

int MString_trimRight(MString* ms) {
    if (!ms)
        return -1;
    int before = ms->length;
    while (ms->length > 0 && ms->text[ms->length - 1] != '\0' &&
           std::strchr(" \t\r\n", ms->text[ms->length - 1]))
        --ms->length;
    ms->text[ms->length] = '\0';
    return before - ms->length;
}
