#include "indgen.h"

#include "plat_pipe.h"
#include "plat_process.h"
#include "plat_socket.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
// The library's process-wide state: the program's identity, the counts and the reporter.
char* g_programPath = nullptr;
char* g_programName = nullptr;
int g_socketStartup = -1;
bool g_socketsStarted = false;
bool g_exiting = false;
int g_counts[7] = {};
int g_total = 0;
gen_report_func g_reportFunc = gen_default_report;

const char* const kPrefixes[7] = {nullptr,   "disaster", "fatal", "error",
                                  "warning", "info",     nullptr};

char* copyString(const char* s) {
    size_t n = std::strlen(s) + 1;
    char* copy = static_cast<char*>(gen_alloc(n, 1));
    std::memcpy(copy, s, n);
    return copy;
}

// Base name without extension; both separators count, since paths may come from Windows peers.
char* baseNameWithoutExtension(const char* path) {
    const char* base = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\')
            base = p + 1;
    char* name = copyString(base);
    if (char* dot = std::strrchr(name, '.'); dot && dot != name)
        *dot = '\0';
    return name;
}

void cleanup() {
    if (g_socketsStarted)
        plat_sockets_cleanup();
    g_socketsStarted = false;
    gen_free(g_programPath);
    gen_free(g_programName);
    g_programPath = g_programName = nullptr;
}

bool hostIsLittleOrBigEndian() {
    const uint32_t probe = 0x01020304u;
    unsigned char bytes[4];
    std::memcpy(bytes, &probe, 4);
    return (bytes[0] == 4 && bytes[3] == 1) || (bytes[0] == 1 && bytes[3] == 4);
}

void writeAllToStderr(const char* text) {
    size_t left = std::strlen(text);
    while (left > 0) {
        long n = plat_write_fd(2, text, left);
        if (n <= 0)
            return;
        text += n;
        left -= static_cast<size_t>(n);
    }
}
} // namespace

void gen_init(const char* argv0) {
    static bool registered = false;
    char self[4096];
    const char* path = plat_self_path(self, sizeof self) ? self : argv0;
    gen_free(g_programPath);
    gen_free(g_programName);
    g_programPath = path ? copyString(path) : nullptr;
    g_programName = path ? baseNameWithoutExtension(path) : nullptr;
    if (!hostIsLittleOrBigEndian())
        gen_fatal(1, "Could not determine host endianness");
    g_socketStartup = plat_sockets_startup(1, 1);
    g_socketsStarted = g_socketStartup == 0;
    if (!registered) {
        registered = true;
        std::atexit(cleanup);
    }
}

void gen_exit(int code) {
    if (g_exiting)
        std::_Exit(code);
    g_exiting = true;
    std::exit(code);
}

const char* gen_program_name() {
    return g_programName;
}
const char* gen_program_path() {
    return g_programPath;
}
int gen_socket_startup_result() {
    return g_socketStartup;
}

void gen_default_report(int level, const char* format, va_list args) {
    int base = level > 100 ? level - 100 : level;
    if (base >= 0 && base <= 6) {
        ++g_counts[base];
        if (base < 4)
            ++g_total;
    }
    int savedErrno = errno;
    std::fflush(stdout);
    if (g_programName && base != GEN_MESSAGE)
        std::fprintf(stderr, "%s: ", g_programName);
    if (base >= 0 && base <= 6 && kPrefixes[base])
        std::fprintf(stderr, "%s: ", kPrefixes[base]);
    std::vfprintf(stderr, format, args);
    size_t len = std::strlen(format);
    if (level > 100 && savedErrno != 0) {
        std::fprintf(stderr, ": %s\n", std::strerror(savedErrno));
        savedErrno = 0;
    } else if (len == 0 || format[len - 1] != '\n') {
        std::fputc('\n', stderr);
    }
    std::fflush(stderr);
    errno = savedErrno;
}

void gen_report(int level, const char* format, va_list args) {
    g_reportFunc(level, format, args);
}

gen_report_func gen_set_report_func(gen_report_func func) {
    gen_report_func previous = g_reportFunc;
    g_reportFunc = func ? func : gen_default_report;
    return previous;
}

int gen_report_count(int level) {
    return level >= 0 && level <= 6 ? g_counts[level] : 0;
}
int gen_report_total() {
    return g_total;
}

#define GEN_REPORT_AT(level)                                                                       \
    do {                                                                                           \
        va_list args;                                                                              \
        va_start(args, format);                                                                    \
        gen_report(level, format, args);                                                           \
        va_end(args);                                                                              \
    } while (0)

void gen_warning(const char* format, ...) {
    GEN_REPORT_AT(GEN_WARNING);
}
void gen_info(const char* format, ...) {
    GEN_REPORT_AT(GEN_INFO);
}
void gen_error(const char* format, ...) {
    GEN_REPORT_AT(GEN_ERROR);
}
void gen_message(const char* format, ...) {
    GEN_REPORT_AT(GEN_MESSAGE);
}
void gen_syserror(const char* format, ...) {
    GEN_REPORT_AT(GEN_SYSERROR);
}

void gen_fatal(int exit_code, const char* format, ...) {
    GEN_REPORT_AT(exit_code != 0 ? GEN_FATAL : GEN_PLAIN);
    gen_exit(exit_code);
}

void gen_assert(bool condition, const char* text, const char* file, int line, int code) {
    if (condition)
        return;
    std::fflush(stdout);
    std::fputs("Assertion ", stderr);
    if (text && std::strcmp(text, "x") != 0)
        std::fprintf(stderr, "(%s) ", text);
    if (code != 0)
        std::fprintf(stderr, "[%d] ", code);
    std::fprintf(stderr, "failed in '%s' on line %d", file ? file : "", line);
    if (g_programName)
        std::fprintf(stderr, " in %s", g_programName);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    gen_exit(1);
}

void gen_out_of_memory() {
    // No stdio and no allocation here: straight to descriptor 2.
    if (g_programName) {
        writeAllToStderr(g_programName);
        writeAllToStderr(": ");
    }
    writeAllToStderr("fatal: Out of memory\n");
    std::_Exit(3);
}

void* gen_alloc(size_t count, size_t size) {
    if (count == 0)
        return nullptr;
    void* p = std::calloc(count, size == 0 ? 1 : size);
    if (p == nullptr)
        gen_out_of_memory();
    return p;
}

void* gen_realloc(void* pointer, size_t size) {
    if (size < 1) {
        std::free(pointer);
        return nullptr;
    }
    void* p = std::realloc(pointer, size);
    if (p == nullptr)
        gen_out_of_memory();
    return p;
}

void gen_free(void* pointer) {
    std::free(pointer);
}
