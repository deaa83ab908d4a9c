#include "gen_tempname.h"

#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "gen_viewpath.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_folders.h"
#include "plat_process.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {
char* g_tempDir = nullptr;
unsigned g_tempCounter = 0; // one count for all temporary names of the process

constexpr unsigned kLastCounter = 0xFFFFF;

bool accessibleDirectory(const char* path) {
    return path && *path && V_access(path, 0) == 0 && gen_is_directory(path);
}

// `value` in base 32, most significant digit first, without leading zeros.
void base32(unsigned value, char* out) {
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
    char reversed[16];
    int n = 0;
    do {
        reversed[n++] = kDigits[value % 32];
        value /= 32;
    } while (value != 0);
    while (n > 0)
        *out++ = reversed[--n];
    *out = '\0';
}

// Creates `path` as a new empty file of mode 0600. False with errno set; EEXIST when something,
// a dangling link included, is there already.
bool createExclusive(const char* path) {
    int fd = V_open(path, PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_EXCL, 0600);
    if (fd < 0)
        return false;
    plat_close(fd);
    return true;
}

char* withExtension(char* name, const char* extension) {
    if (extension && *extension == '.')
        ++extension;
    if (!extension || !*extension) {
        // A final dot does not survive on every file system a peer may use (it is dropped
        // there), so the name handed out has none and stays the file's name everywhere.
        size_t n = std::strlen(name);
        if (n > 0 && name[n - 1] == '.')
            name[n - 1] = '\0';
        return name;
    }
    return gen_append2(name, extension);
}
} // namespace

const char* gen_temp_dir(const char* preferred) {
    if (g_tempDir && !preferred)
        return g_tempDir;
    const char* candidates[] = {std::getenv("TMP"), std::getenv("TEMP"), preferred,
                                plat_default_temp_dir()};
    const char* found = ".";
    for (const char* candidate : candidates) {
        if (accessibleDirectory(candidate)) {
            found = candidate;
            break;
        }
    }
    char* copy = gen_strdup(found);
    gen_free(g_tempDir);
    g_tempDir = copy;
    return g_tempDir;
}

char* gen_temp_name(const char* preferred, const char* extension) {
    const char* dir = gen_temp_dir(preferred);
    const char* fixed = std::getenv("BUILDER_TEMPORARY_NAME");
    if (fixed && *fixed) {
        size_t n = std::strlen(fixed);
        char* name = gen_concat2(fixed, fixed[n - 1] == '.' ? "" : ".");
        name = withExtension(name, extension);
        char* path = gen_path_join(dir, name);
        gen_free(name);
        // unlink removes a link itself, never its target; a name planted again in between
        // makes the exclusive create fail.
        V_unlink(path);
        if (createExclusive(path))
            return path;
        gen_free(path);
        return nullptr;
    }
    char pid[16];
    base32(static_cast<unsigned>(plat_current_process_id()), pid);
    while (g_tempCounter < kLastCounter) {
        ++g_tempCounter;
        char counter[16];
        base32(g_tempCounter, counter);
        char* name = withExtension(gen_concat4("tq_", pid, counter, "."), extension);
        char* path = gen_path_join(dir, name);
        gen_free(name);
        if (createExclusive(path))
            return path;
        gen_free(path);
        if (errno != EEXIST)
            return nullptr;
    }
    errno = EEXIST;
    return nullptr;
}

int gen_make_temp(char* template_) {
    size_t n = template_ ? std::strlen(template_) : 0;
    if (n < 6 || std::strcmp(template_ + n - 6, "XXXXXX") != 0) {
        errno = EINVAL;
        return -1;
    }
    char* tail = template_ + n - 6;
    unsigned id = static_cast<unsigned>(plat_current_thread_id());
    for (int i = 5; i >= 1; --i) {
        tail[i] = static_cast<char>('0' + id % 10);
        id /= 10;
    }
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        tail[0] = letter;
        int fd = V_open(template_, PLAT_O_RDWR | PLAT_O_CREAT | PLAT_O_EXCL, 0600);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}
