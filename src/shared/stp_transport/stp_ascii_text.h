// Bounded scanning of the ASCII body form: blanks, values, quoted strings and numbers.
//
// Every function takes the text as a position `p` and a bound `end`. The text ends at `end` or at
// the first NUL, whichever comes first; nothing at or after `end` is ever read. Positions
// returned lie in [p, end]. None of them allocates, waits or reports.
#pragma once

#include <cstdint>

// The character at `p`, or 0 at the end of the text.
inline char stp_ascii_at(const char* p, const char* end) {
    return p < end ? *p : '\0';
}

// Blanks separate values: the writer puts one space; tabs and line ends from a hand-made text
// count as blanks too.
inline bool stp_ascii_is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Where a bare token ends: at a NUL, `}`, `]` or a blank.
inline bool stp_ascii_ends_token(char c) {
    return c == '\0' || c == '}' || c == ']' || stp_ascii_is_blank(c);
}

const char* stp_ascii_skip_blanks(const char* p, const char* end);

// `p` on a `"`: returns the position behind the closing quote, stepping over a backslash and the
// character after it as a pair. Without a closing quote: the end of the text.
const char* stp_ascii_skip_quoted(const char* p, const char* end);

// `p` on a `(`: returns the position behind the matching `)` and the blanks after it, or the end
// of the text.
const char* stp_ascii_skip_count(const char* p, const char* end);

// Skips one value and the blanks behind it: an optional `(count)` prefix, then a quoted string, a
// `{...}` struct (whose contents count as plain characters apart from quotes and brackets), a
// `[...]` array of values, or a bare token. Brackets nested deeper than STP_ASCII_MAX_NESTING
// count as broken text: the value then runs to the end. Returns `p` itself only when `p` is at
// the end of the text or on a `}` or `]`, where no value starts.
inline constexpr int STP_ASCII_MAX_NESTING = 256;
const char* stp_ascii_skip_value(const char* p, const char* end);

// Parses an unsigned 32-bit number as strtoul does with base 0: optional blanks and sign, then
// `0x` hex, leading-0 octal or decimal. A negative number is negated modulo 2^32; an overflow
// gives 0xffffffff. `*stop` receives the position behind the digits, or `p` when there are none.
uint32_t stp_ascii_parse_u32(const char* p, const char* end, const char** stop);

// The 64-bit reader: optional sign, then `0x` hex or decimal, into 64 bits; overflow gives all
// ones, as above.
uint64_t stp_ascii_parse_u64(const char* p, const char* end, const char** stop);

// Walks the rest of an opened struct or array up to its closer (`}` or `]`): quoted strings and
// nested brackets are skipped whole, everything else character by character. Returns the
// position of the closer, or the end of the text when there is none.
const char* stp_ascii_find_closer(const char* p, const char* end, char closer);
