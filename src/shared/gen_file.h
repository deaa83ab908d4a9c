// Files and directory listings of the general library. Every call that takes a path goes
// through the viewpathing wrappers (gen_viewpath.h). Failures are return values with errno set
// by the system call that failed; nothing here reports or stops the process.
#pragma once

#include "plat_files.h"

#include <cstdio>

// fopen through V_fopen: a write or append mode without `c` or `n` gets `c` (commit on flush).
FILE* gen_fopen(const char* path, const char* mode);
// Reads one line into `*buffer` (grown by 250 bytes as needed, owned by the caller and
// released with gen_free; start with null and 0). A line ends at `\n` or `\r`, which are not
// kept; the `\n` of a `\r\n` pair is consumed with it (a lone `\r` keeps the next line whole).
// Returns `*buffer`, or null at the end of the stream with nothing read.
char* gen_readline(FILE* stream, char** buffer, int* capacity);

// stat through V_stat. 0 or -1.
int gen_stat(const char* path, PlatFileStatus* status);
// Whether stat works; errno is left as it was.
bool gen_exists(const char* path);
// 1 when `path` is a directory, else 0. A root ("c:", "//server/share") gets a missing
// separator added and other paths lose a trailing one before the test; errno is kept.
int gen_is_directory(const char* path);
// Deletes a file. 0 or -1.
int gen_unlink(const char* path);
// -1 for a directory. Otherwise a plain delete; if that fails, gen_make_writable(path, 0660), a
// second delete, and the old permission bits put back if that fails too. 0 or -1.
int gen_force_unlink(const char* path);
// Adds `bits` to the permission bits and gives the old ones (0664 for a missing file).
unsigned gen_make_writable(const char* path, unsigned bits);
// Sets the permission bits. 0 or -1.
int gen_chmod(const char* path, unsigned bits);
// Gives the file the current modification time: a non-empty file gets its first byte written
// back, an empty one a byte written and cut off again, a missing one is created (exclusive,
// mode 0666 before the umask). 0 or -1.
int gen_touch(const char* path);
// 0 when the directory exists or was made; -1 when the path is something else, or on failure.
int gen_mkdir(const char* path, int mode);
// gen_mkdir of every missing parent first, then of `path`.
int gen_mkdir_parents(const char* path, int mode);

// A directory listing. Open it, optionally set what to skip, then call gen_dir_next until it
// gives null; close it in every case after a successful open.
struct GenDir {
    PlatFind* find = nullptr;
    char* path = nullptr;      // the directory, as given
    char* entryPath = nullptr; // full path of the current entry (owned by the GenDir)
    bool isDirectory = false;  // whether the current entry is a directory
    bool skipDirectories = false;
    bool skipDots = true; // "." and ".."
    bool skipCvs = false; // a directory named "CVS"
    char name[256] = {};
};
// False when `path` is no directory or cannot be listed.
bool gen_dir_open(GenDir* dir, const char* path);
// What gen_dir_next skips among directories: all of them, or "." and "..", or "CVS". The
// default skips only "." and "..".
void gen_dir_options(GenDir* dir, bool skip_directories, bool skip_dots, bool skip_cvs);
// The next name in the order of the system (valid until the next call), or null at the end.
// Beside it, dir->entryPath and dir->isDirectory describe the entry.
const char* gen_dir_next(GenDir* dir);
void gen_dir_close(GenDir* dir);
