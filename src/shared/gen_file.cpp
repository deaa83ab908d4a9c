#include "gen_file.h"

#include "gen_path.h"
#include "gen_string.h"
#include "gen_viewpath.h"
#include "indgen.h"

#include <cerrno>
#include <cstring>

namespace {
constexpr int kLineGrowth = 250;

// Whether `path` (separators as gen_is_path_separator tells) names a root that needs its
// separator: "c:" (not with POSIX paths) or "//server/share" without anything behind.
bool isBareRoot(const char* path) {
    size_t n = std::strlen(path);
    if (n == 2 && path[1] == ':' && !gen_posix_paths())
        return true;
    auto sep = gen_is_path_separator;
    if (n < 3 || !sep(path[0]) || !sep(path[1]) || sep(path[2]))
        return false;
    int separators = 0;
    for (size_t i = 2; i < n; ++i)
        if (sep(path[i]))
            ++separators;
    return separators == 1 && !sep(path[n - 1]);
}
} // namespace

FILE* gen_fopen(const char* path, const char* mode) {
    return V_fopen(path, mode);
}

char* gen_readline(FILE* stream, char** buffer, int* capacity) {
    if (!stream || !buffer || !capacity)
        return nullptr;
    int length = 0;
    int c;
    bool any = false;
    while ((c = std::fgetc(stream)) != EOF) {
        any = true;
        if (c == '\n')
            break;
        if (c == '\r') {
            int next = std::fgetc(stream);
            if (next != '\n' && next != EOF)
                std::ungetc(next, stream);
            break;
        }
        if (length + 1 >= *capacity) {
            *capacity += kLineGrowth;
            *buffer = static_cast<char*>(gen_realloc(*buffer, static_cast<size_t>(*capacity)));
        }
        (*buffer)[length++] = static_cast<char>(c);
    }
    if (!any)
        return nullptr;
    if (*capacity < 1) {
        *capacity = kLineGrowth;
        *buffer = static_cast<char*>(gen_realloc(*buffer, static_cast<size_t>(*capacity)));
    }
    (*buffer)[length] = '\0';
    return *buffer;
}

int gen_stat(const char* path, PlatFileStatus* status) {
    return V_stat(path, status);
}

bool gen_exists(const char* path) {
    int saved = errno;
    PlatFileStatus status;
    bool exists = V_stat(path, &status) == 0;
    errno = saved;
    return exists;
}

int gen_is_directory(const char* path) {
    if (!path || !*path)
        return 0;
    int saved = errno;
    char* probe;
    if (isBareRoot(path)) {
        probe = gen_concat2(path, "/");
    } else {
        probe = gen_strdup(path);
        size_t n = std::strlen(probe);
        while (n > 1 && gen_is_path_separator(probe[n - 1]) &&
               (probe[n - 2] != ':' || gen_posix_paths()))
            probe[--n] = '\0';
    }
    PlatFileStatus status;
    int result = V_stat(probe, &status) == 0 && status.isDirectory ? 1 : 0;
    gen_free(probe);
    errno = saved;
    return result;
}

int gen_unlink(const char* path) {
    return V_unlink(path) == 0 ? 0 : -1;
}

int gen_force_unlink(const char* path) {
    if (gen_is_directory(path))
        return -1;
    if (V_unlink(path) == 0)
        return 0;
    unsigned old = gen_make_writable(path, 0660);
    if (V_unlink(path) == 0)
        return 0;
    int saved = errno;
    gen_chmod(path, old);
    errno = saved;
    return -1;
}

unsigned gen_make_writable(const char* path, unsigned bits) {
    PlatFileStatus status;
    unsigned old = V_stat(path, &status) == 0 ? (status.mode & 07777) : 0664;
    gen_chmod(path, old | bits);
    return old;
}

int gen_chmod(const char* path, unsigned bits) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return plat_chmod(path, bits);
}

int gen_touch(const char* path) {
    PlatFileStatus status;
    if (V_stat(path, &status) != 0) {
        int fd = V_open(path, PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_EXCL, 0666);
        if (fd < 0)
            return -1;
        return plat_close(fd);
    }
    int fd = V_open(path, PLAT_O_RDWR, 0);
    if (fd < 0)
        return -1;
    bool ok;
    char byte = 0;
    if (status.size > 0) {
        ok = plat_read(fd, &byte, 1) == 1 && plat_seek(fd, 0) == 0 && plat_write(fd, &byte, 1) == 1;
    } else {
        ok = plat_write(fd, &byte, 1) == 1 && plat_truncate(fd, 0) == 0;
    }
    int saved = errno;
    plat_close(fd);
    errno = saved;
    return ok ? 0 : -1;
}

int gen_mkdir(const char* path, int mode) {
    if (!path || !*path)
        return -1;
    if (gen_is_directory(path))
        return 0;
    if (gen_exists(path))
        return -1;
    if (V_mkdir(path, mode) == 0)
        return 0;
    // Another process may have made it in between.
    return gen_is_directory(path) ? 0 : -1;
}

int gen_mkdir_parents(const char* path, int mode) {
    if (!path || !*path)
        return -1;
    if (gen_is_directory(path))
        return 0;
    char* copy = gen_strdup(path);
    size_t n = std::strlen(copy);
    while (n > 1 && gen_is_path_separator(copy[n - 1]))
        copy[--n] = '\0';
    char* parent = gen_dirname(copy);
    int result = 0;
    if (parent && std::strcmp(parent, copy) != 0 && !gen_is_directory(parent))
        result = gen_mkdir_parents(parent, mode);
    gen_free(parent);
    if (result == 0)
        result = gen_mkdir(copy, mode);
    gen_free(copy);
    return result;
}

bool gen_dir_open(GenDir* dir, const char* path) {
    if (!dir || !path || !gen_is_directory(path))
        return false;
    PlatFind* find = plat_find_open(path);
    if (!find)
        return false;
    *dir = GenDir{};
    dir->find = find;
    dir->path = gen_strdup(path);
    return true;
}

void gen_dir_options(GenDir* dir, bool skip_directories, bool skip_dots, bool skip_cvs) {
    dir->skipDirectories = skip_directories;
    dir->skipDots = skip_dots;
    dir->skipCvs = skip_cvs;
}

const char* gen_dir_next(GenDir* dir) {
    if (!dir || !dir->find)
        return nullptr;
    PlatFindEntry entry;
    while (plat_find_next(dir->find, &entry)) {
        if (entry.isDirectory) {
            bool dots = std::strcmp(entry.name, ".") == 0 || std::strcmp(entry.name, "..") == 0;
            if (dir->skipDirectories || (dir->skipDots && dots) ||
                (dir->skipCvs && std::strcmp(entry.name, "CVS") == 0))
                continue;
        }
        std::memcpy(dir->name, entry.name, sizeof dir->name);
        dir->isDirectory = entry.isDirectory;
        gen_free(dir->entryPath);
        dir->entryPath = gen_path_join(dir->path, entry.name);
        return dir->name;
    }
    return nullptr;
}

void gen_dir_close(GenDir* dir) {
    if (!dir)
        return;
    plat_find_close(dir->find);
    gen_free(dir->path);
    gen_free(dir->entryPath);
    *dir = GenDir{};
}
