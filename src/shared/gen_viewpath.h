// The viewpathing wrappers: every file operation of the general library goes through these
// names. Viewpathing (overlaying a work area on read-only base trees) is not built yet, so each
// wrapper is the plain system call; the names exist so no caller changes when it comes.
// Each wrapper reports like the call it stands for: a result, and errno on failure.
#pragma once

#include "plat_files.h"

#include <cstddef>
#include <cstdio>

// access: mode 0 existence, 2 write, 4 read. 0 or -1.
int V_access(const char* path, int mode);
// stat. 0 or -1.
int V_stat(const char* path, PlatFileStatus* buffer);
// open with the PLAT_O_ flags. The descriptor or -1.
int V_open(const char* path, int flags, int mode);
// fopen / freopen. A mode with `w` or `a` but neither `c` nor `n` gets `c` (commit on flush)
// appended first, which the C library here accepts and ignores. Every stream is close-on-exec
// (`e`), so that a child never holds the process's files. Null for a null path.
FILE* V_fopen(const char* path, const char* mode);
FILE* V_freopen(const char* path, const char* mode, FILE* stream);
// chdir; the empty or null path fails with -1.
int V_chdir(const char* path);
// mkdir with a mode. 0 or -1.
int V_mkdir(const char* path, int mode);
// unlink. 0 or -1.
int V_unlink(const char* path);
