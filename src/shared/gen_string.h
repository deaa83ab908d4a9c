// Small string helpers of the plain-function library. A returned string is a new allocation
// owned by the caller (release with gen_free) unless said otherwise; a null argument never
// crashes.
#pragma once

#include <cstddef>

// A copy; null for null.
char* gen_strdup(const char* s);
// A copy of at most `n` bytes, terminated; null for null or a negative `n`.
char* gen_strndup(const char* s, int n);

// The arguments joined; a null argument counts as empty, and all null gives null.
char* gen_concat2(const char* a, const char* b);
char* gen_concat3(const char* a, const char* b, const char* c);
char* gen_concat4(const char* a, const char* b, const char* c, const char* d);
char* gen_concat5(const char* a, const char* b, const char* c, const char* d, const char* e);
// The same, freeing the first argument: `s = gen_append2(s, more)` appends in place.
char* gen_append2(char* a, const char* b);
char* gen_append3(char* a, const char* b, const char* c);
char* gen_append4(char* a, const char* b, const char* c, const char* d);
char* gen_append5(char* a, const char* b, const char* c, const char* d, const char* e);

// The first occurrence of `part` in `text` (a pointer into `text`); null when either is null.
const char* gen_strstr(const char* text, const char* part);
// True when equal ignoring the case of ASCII letters; two nulls are equal, one null is not.
bool gen_strcasecmp_eq(const char* a, const char* b);

// strtoul with the library's rules: skips blanks and the bytes 8 to 13, takes an optional sign
// (a '-' negates the result as unsigned), base 0 follows the prefix ("0x"/"0X" 16, "0" 8,
// otherwise 10), base 16 skips a "0x". Overflow sets errno to ERANGE and gives (unsigned
// long)-1; a base outside 0 and 2..36 gives 0. `end` (may be null) receives the position
// behind the number, or `text` when there is none.
unsigned long gen_strtoul(const char* text, const char** end, int base);

// A quoted copy: `quote` (if not 0) at both ends, a backslash before each `\`, `"` and `'`;
// with `escape_controls` newline, return and tab become \n, \r, \t and the bytes 1 to 3 become
// \1, \2, \3. Null for null.
char* gen_quote(const char* text, char quote, bool escape_controls);
// gen_quote(text, '"', false).
char* gen_quote(const char* text);
// The form for command lines: gen_quote(text, '\'', false) when the text holds a blank or a
// double quote, a plain copy otherwise.
char* gen_shell_quote(const char* text);
// The reverse: a text in single quotes loses them and nothing else; a text in double quotes
// loses them and its backslash escapes are read (\n \t \r \a \b \f \v \? , octal up to three
// digits, \x with up to two hex digits, any other byte stands for itself); any other text is
// copied. Null for null.
char* gen_unquote(const char* text);
