#include "gen_string.h"

#include "indgen.h"

#include <cerrno>
#include <climits>
#include <cstring>

namespace {
char* concat(const char* const* parts, int count) {
    size_t total = 0;
    bool any = false;
    for (int i = 0; i < count; ++i) {
        if (parts[i]) {
            any = true;
            total += std::strlen(parts[i]);
        }
    }
    if (!any)
        return nullptr;
    char* result = static_cast<char*>(gen_alloc(total + 1, 1));
    char* p = result;
    for (int i = 0; i < count; ++i) {
        if (parts[i]) {
            size_t n = std::strlen(parts[i]);
            std::memcpy(p, parts[i], n);
            p += n;
        }
    }
    return result;
}

char* appendAndFree(char* first, const char* const* rest, int count) {
    const char* parts[5] = {first};
    for (int i = 0; i < count; ++i)
        parts[i + 1] = rest[i];
    char* result = concat(parts, count + 1);
    gen_free(first);
    return result;
}

int digitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return 99;
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
} // namespace

char* gen_strdup(const char* s) {
    return s ? gen_strndup(s, INT_MAX) : nullptr;
}

char* gen_strndup(const char* s, int n) {
    if (!s || n < 0)
        return nullptr;
    size_t length = strnlen(s, static_cast<size_t>(n));
    char* copy = static_cast<char*>(gen_alloc(length + 1, 1));
    std::memcpy(copy, s, length);
    return copy;
}

char* gen_concat2(const char* a, const char* b) {
    const char* parts[] = {a, b};
    return concat(parts, 2);
}
char* gen_concat3(const char* a, const char* b, const char* c) {
    const char* parts[] = {a, b, c};
    return concat(parts, 3);
}
char* gen_concat4(const char* a, const char* b, const char* c, const char* d) {
    const char* parts[] = {a, b, c, d};
    return concat(parts, 4);
}
char* gen_concat5(const char* a, const char* b, const char* c, const char* d, const char* e) {
    const char* parts[] = {a, b, c, d, e};
    return concat(parts, 5);
}

char* gen_append2(char* a, const char* b) {
    const char* rest[] = {b};
    return appendAndFree(a, rest, 1);
}
char* gen_append3(char* a, const char* b, const char* c) {
    const char* rest[] = {b, c};
    return appendAndFree(a, rest, 2);
}
char* gen_append4(char* a, const char* b, const char* c, const char* d) {
    const char* rest[] = {b, c, d};
    return appendAndFree(a, rest, 3);
}
char* gen_append5(char* a, const char* b, const char* c, const char* d, const char* e) {
    const char* rest[] = {b, c, d, e};
    return appendAndFree(a, rest, 4);
}

const char* gen_strstr(const char* text, const char* part) {
    return text && part ? std::strstr(text, part) : nullptr;
}

bool gen_strcasecmp_eq(const char* a, const char* b) {
    if (!a || !b)
        return a == b;
    for (; *a && lower(*a) == lower(*b); ++a, ++b) {
    }
    return lower(*a) == lower(*b);
}

unsigned long gen_strtoul(const char* text, const char** end, int base) {
    if (end)
        *end = text;
    if (!text || base < 0 || base == 1 || base > 36)
        return 0;
    const char* p = text;
    while (*p == ' ' || (*p >= 8 && *p <= 13))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    bool hexPrefix = p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && digitValue(p[2]) < 16;
    if (base == 0)
        base = hexPrefix ? 16 : p[0] == '0' ? 8 : 10;
    if (base == 16 && hexPrefix)
        p += 2;
    const char* digits = p;
    unsigned long value = 0;
    bool overflow = false;
    for (int d; (d = digitValue(*p)) < base; ++p) {
        unsigned long ubase = static_cast<unsigned long>(base);
        if (value > (ULONG_MAX - static_cast<unsigned long>(d)) / ubase)
            overflow = true;
        value = value * ubase + static_cast<unsigned long>(d);
    }
    if (p == digits)
        return 0;
    if (end)
        *end = p;
    if (overflow) {
        errno = ERANGE;
        return static_cast<unsigned long>(-1);
    }
    return negative ? 0 - value : value;
}

char* gen_quote(const char* text, char quote, bool escape_controls) {
    if (!text)
        return nullptr;
    // Each byte becomes at most two.
    char* result = static_cast<char*>(gen_alloc(std::strlen(text) * 2 + 3, 1));
    char* out = result;
    if (quote)
        *out++ = quote;
    for (const char* p = text; *p; ++p) {
        char c = *p;
        if (c == '\\' || c == '"' || c == '\'') {
            *out++ = '\\';
            *out++ = c;
        } else if (escape_controls && (c == '\n' || c == '\r' || c == '\t')) {
            *out++ = '\\';
            *out++ = c == '\n' ? 'n' : c == '\r' ? 'r' : 't';
        } else if (escape_controls && c >= 1 && c <= 3) {
            *out++ = '\\';
            *out++ = static_cast<char>('0' + c);
        } else {
            *out++ = c;
        }
    }
    if (quote)
        *out++ = quote;
    *out = '\0';
    return result;
}

char* gen_quote(const char* text) {
    return gen_quote(text, '"', false);
}

char* gen_shell_quote(const char* text) {
    if (!text)
        return nullptr;
    if (std::strpbrk(text, " \""))
        return gen_quote(text, '\'', false);
    return gen_strdup(text);
}

char* gen_unquote(const char* text) {
    if (!text)
        return nullptr;
    size_t n = std::strlen(text);
    if (n < 2 || (text[0] != '"' && text[0] != '\'') || text[n - 1] != text[0])
        return gen_strdup(text);
    if (text[0] == '\'')
        return gen_strndup(text + 1, static_cast<int>(n - 2));
    char* result = static_cast<char*>(gen_alloc(n, 1));
    char* out = result;
    const char* end = text + n - 1;
    for (const char* p = text + 1; p < end; ++p) {
        if (*p != '\\' || p + 1 >= end) {
            *out++ = *p;
            continue;
        }
        char c = *++p;
        switch (c) {
        case 'n':
            *out++ = '\n';
            break;
        case 't':
            *out++ = '\t';
            break;
        case 'r':
            *out++ = '\r';
            break;
        case 'a':
            *out++ = '\a';
            break;
        case 'b':
            *out++ = '\b';
            break;
        case 'f':
            *out++ = '\f';
            break;
        case 'v':
            *out++ = '\v';
            break;
        case '?':
            *out++ = '?';
            break;
        case 'x': {
            int value = 0, digits = 0;
            while (digits < 2 && p + 1 < end && digitValue(p[1]) < 16) {
                value = value * 16 + digitValue(*++p);
                ++digits;
            }
            *out++ = digits ? static_cast<char>(value) : 'x';
            break;
        }
        default:
            if (c >= '0' && c <= '7') {
                int value = c - '0';
                for (int digits = 1; digits < 3 && p + 1 < end && p[1] >= '0' && p[1] <= '7';
                     ++digits)
                    value = value * 8 + (*++p - '0');
                *out++ = static_cast<char>(value);
            } else {
                *out++ = c;
            }
            break;
        }
    }
    *out = '\0';
    return result;
}
