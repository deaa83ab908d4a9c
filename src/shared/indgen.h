// The general library's start and end, its reporter, assertions and allocation: what every
// other unit of the process stands on from the first moment.
#pragma once

#include <cstdarg>
#include <cstddef>

// Starts the library: keeps the program's own path (from the system, else `argv0`) and its base
// name without extension, checks the host's byte order (fatal "Could not determine host
// endianness" if neither little nor big), starts the sockets layer at version 1.1 and registers
// the clean-up that undoes all this at exit. Binary file mode is the only mode on Linux, so there
// is no default to set.
void gen_init(const char* argv0);

// The exit function: the first call runs a normal exit with its registered clean-ups; a call
// made during that exit leaves at once. Never returns.
[[noreturn]] void gen_exit(int code);

// The program name (prefix of every report), null before gen_init or when unknown.
const char* gen_program_name();
// The full path of the program's file, null when unknown.
const char* gen_program_path();
// The result of starting the sockets layer (0 = started).
int gen_socket_startup_result();

// Report levels. A level above 100 is that level minus 100, with the system's error text added.
enum {
    GEN_PLAIN = 0,
    GEN_DISASTER = 1,
    GEN_FATAL = 2,
    GEN_ERROR = 3,
    GEN_WARNING = 4,
    GEN_INFO = 5,
    GEN_MESSAGE = 6,
    GEN_SYSERROR = 102,
};

// The one reporter behind every report function, reached through a replaceable pointer.
// It counts the report, writes "<program>: <prefix>: <text>" to standard error (after flushing
// standard output), adds the system's error text for levels above 100 and a final newline if the
// text has none, then flushes.
using gen_report_func = void (*)(int level, const char* format, va_list args);
void gen_report(int level, const char* format, va_list args);
// Replaces the reporter; null restores the default. Returns the previous one.
gen_report_func gen_set_report_func(gen_report_func func);
// The default reporter, for a replacement that wants to pass reports on.
void gen_default_report(int level, const char* format, va_list args);

// How many reports were made at `level` (0..6), and how many below level 4 in all.
int gen_report_count(int level);
int gen_report_total();

void gen_warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void gen_info(const char* format, ...) __attribute__((format(printf, 1, 2)));
void gen_error(const char* format, ...) __attribute__((format(printf, 1, 2)));
void gen_message(const char* format, ...) __attribute__((format(printf, 1, 2)));
void gen_syserror(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Reports at level 2 (level 0 when exit_code is 0) and calls the exit function.
[[noreturn]] void gen_fatal(int exit_code, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Does nothing when `condition` holds. Otherwise writes
// "Assertion (text) [code] failed in 'file' on line N in program" to standard error (the text
// part left out when absent or "x", the code part when 0) and exits with code 1.
void gen_assert(bool condition, const char* text, const char* file, int line, int code);
#define GEN_ASSERT(expr) gen_assert(static_cast<bool>(expr), #expr, __FILE__, __LINE__, 0)

// Zeroed memory for `count` items of `size` bytes; null when count is 0. Never fails: when
// memory runs out the process writes "<program>: fatal: Out of memory" to descriptor 2 and
// exits with code 3.
void* gen_alloc(size_t count, size_t size);
// Resizes; a null pointer allocates, a size below 1 frees and gives null.
void* gen_realloc(void* pointer, size_t size);
// Frees; null is ignored.
void gen_free(void* pointer);
// The out-of-memory exit, for other allocators of the process (e.g. a failing operator new).
[[noreturn]] void gen_out_of_memory();
