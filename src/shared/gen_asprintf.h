// Formatted allocation with the process's own printf engine, so that every report and message
// text is formatted the same way whatever the run-time's printf does.
#pragma once

#include <cstdarg>

// The engine's output sink: receives `length` bytes (not terminated) at a time.
using gen_format_sink = void (*)(void* context, const char* bytes, int length);

// Formats `format` with `args` into `sink` and returns the number of bytes produced. A null
// format is formatted as the text "(null)". Conversions: flags "-+0 #", width (digits or `*`,
// negative `*` meaning `-`), precision (`.` then digits, `*`, or nothing for 0; a negative `*`
// meaning none), blanks, one length letter `l`, `L` or `h`, and one of "diuxXoPpcseEfgG".
// Where it differs from the C library's printf:
// - `h` cuts integers to 16 bits; `l` reads a `long`; there is no `ll`: the second `l` is an
//   unknown conversion and prints as "l".
// - An unknown conversion character prints as itself, with the width applied (so "%%" is "%").
// - `%s` of a null pointer is "(null)", cut to the precision like any text; `0` pads texts
//   with zeros too.
// - `%p` is `%x` of the pointer (`%#p` adds "0x"); `%P` is `%X`.
// - Floats: NaN is "nan" and infinity "inf", never signed, never upper case, precision ignored.
//   Only 56 significant digits are produced, the rest are zeros. Negative zero has no sign.
//   `%g` takes the fixed form when the decimal exponent lies in -3 .. precision-1.
// - `%n` is not supported (prints "n").
int gen_format(gen_format_sink sink, void* context, const char* format, va_list args);

// A new NUL-terminated allocation (release with gen_free) holding the formatted text. A null
// format reports "[gen_asprintf]: Format was NULL (illegal)." through gen_error and gives null.
// Short texts cost one allocation.
char* gen_asprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
char* gen_vasprintf(const char* format, va_list args);

// The two-stage buffer behind gen_vasprintf: the first 1024 bytes go to `local`, the rest to a
// heap overflow area that doubles (needed size times 2) whenever it is too small.
struct GenFormatBuffer {
    char local[1024];
    int localLength = 0;
    char* overflow = nullptr;
    int overflowLength = 0;
    int overflowCapacity = 0;
};
// A gen_format_sink over a GenFormatBuffer.
void gen_format_buffer_sink(void* buffer, const char* bytes, int length);
// Joins both parts into one exact allocation (owned by the caller), frees the overflow area and
// empties the buffer.
char* gen_format_buffer_finish(GenFormatBuffer* buffer);
