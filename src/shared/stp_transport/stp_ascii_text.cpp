// Bounded scanning of the ASCII body form.
#include "stp_ascii_text.h"

namespace {

int digitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return 99;
}

// The common number reader; `maxValue` is the all-ones value of the result's width.
uint64_t parseUnsigned(const char* p, const char* end, const char** stop, uint64_t maxValue,
                       bool octal) {
    const char* start = p;
    p = stp_ascii_skip_blanks(p, end);
    bool negative = false;
    char c = stp_ascii_at(p, end);
    if (c == '+' || c == '-') {
        negative = c == '-';
        ++p;
    }
    int base = 10;
    if (stp_ascii_at(p, end) == '0') {
        char x = stp_ascii_at(p + 1, end);
        if ((x == 'x' || x == 'X') && digitValue(stp_ascii_at(p + 2, end)) < 16) {
            base = 16;
            p += 2;
        } else if (octal) {
            base = 8;
        }
    }
    const char* digits = p;
    uint64_t value = 0;
    bool overflow = false;
    for (;;) {
        int d = digitValue(stp_ascii_at(p, end));
        if (d >= base)
            break;
        if (!overflow) {
            if (value > (maxValue - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base))
                overflow = true;
            else
                value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
        }
        ++p;
    }
    if (p == digits) {
        *stop = start;
        return 0;
    }
    *stop = p;
    if (overflow)
        return maxValue;
    return negative ? (0 - value) & maxValue : value;
}

} // namespace

const char* stp_ascii_skip_blanks(const char* p, const char* end) {
    while (p < end && stp_ascii_is_blank(*p))
        ++p;
    return p;
}

const char* stp_ascii_skip_quoted(const char* p, const char* end) {
    ++p; // the opening quote
    for (;;) {
        char c = stp_ascii_at(p, end);
        if (c == '\0')
            return p;
        if (c == '"')
            return p + 1;
        if (c == '\\' && stp_ascii_at(p + 1, end) != '\0')
            ++p;
        ++p;
    }
}

const char* stp_ascii_skip_count(const char* p, const char* end) {
    int depth = 0;
    for (;;) {
        char c = stp_ascii_at(p, end);
        if (c == '\0')
            return p;
        ++p;
        if (c == '(')
            ++depth;
        else if (c == ')' && --depth == 0)
            return stp_ascii_skip_blanks(p, end);
    }
}

// Iterative rather than recursive, so that hostile nesting cannot exhaust the stack: `closers`
// holds, per open bracket, the character that closes it, which also tells how its contents are
// walked (a struct character by character, an array value by value).
const char* stp_ascii_skip_value(const char* p, const char* end) {
    char closers[STP_ASCII_MAX_NESTING];
    int depth = 0;
    for (;;) {
        char c = stp_ascii_at(p, end);
        if (c == '\0')
            return p;
        bool inStruct = depth > 0 && closers[depth - 1] == '}';
        if (depth > 0 && c == closers[depth - 1]) {
            --depth;
            p = stp_ascii_skip_blanks(p + 1, end);
        } else if (c == '{' || c == '[') {
            if (depth == STP_ASCII_MAX_NESTING)
                return end;
            closers[depth++] = c == '{' ? '}' : ']';
            p = stp_ascii_skip_blanks(p + 1, end);
            continue;
        } else if (c == '"') {
            p = stp_ascii_skip_blanks(stp_ascii_skip_quoted(p, end), end);
        } else if (inStruct) {
            ++p;
        } else if (c == '(') {
            // An array's count; the value proper follows.
            p = stp_ascii_skip_count(p, end);
            continue;
        } else {
            const char* token = p;
            while (!stp_ascii_ends_token(stp_ascii_at(p, end)))
                ++p;
            // A stray `}` or blank inside an array would stall the walk: step over it.
            if (p == token && depth > 0)
                ++p;
            p = stp_ascii_skip_blanks(p, end);
        }
        if (depth == 0)
            return p;
    }
}

const char* stp_ascii_find_closer(const char* p, const char* end, char closer) {
    for (;;) {
        char c = stp_ascii_at(p, end);
        if (c == '\0' || c == closer)
            return p;
        if (c == '"')
            p = stp_ascii_skip_quoted(p, end);
        else if (c == '{' || c == '[')
            p = stp_ascii_skip_value(p, end);
        else
            ++p;
    }
}

uint32_t stp_ascii_parse_u32(const char* p, const char* end, const char** stop) {
    return static_cast<uint32_t>(parseUnsigned(p, end, stop, UINT32_MAX, true));
}

uint64_t stp_ascii_parse_u64(const char* p, const char* end, const char** stop) {
    return parseUnsigned(p, end, stop, UINT64_MAX, false);
}
