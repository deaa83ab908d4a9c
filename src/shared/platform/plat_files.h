// Files and directories: the Linux meaning of the Windows file calls the general file layer
// uses. Every call reports failure as -1 or false with errno set, as the run-time calls do.
#pragma once

#include <cstddef>
#include <cstdint>

// What stat reports of a file, the fields the layers above look at.
struct PlatFileStatus {
    uint32_t mode = 0; // permission bits (07777) and the type bits below
    bool isDirectory = false;
    bool isRegular = false;
    int64_t size = 0;        // bytes
    int64_t modifiedSec = 0; // seconds since 1970
};
// The type bit of a directory in PlatFileStatus::mode, the value the run-time gives it.
inline constexpr uint32_t PLAT_MODE_DIRECTORY = 0x4000;

// Open flags with the run-time's values, which callers test by number (O_WRONLY 1, O_RDWR 2,
// O_APPEND 8); plat_open maps them to the system's.
enum : int {
    PLAT_O_RDONLY = 0,
    PLAT_O_WRONLY = 1,
    PLAT_O_RDWR = 2,
    PLAT_O_APPEND = 8,
    PLAT_O_CREAT = 0x100,
    PLAT_O_TRUNC = 0x200,
    PLAT_O_EXCL = 0x400,
};

// _access: mode 0 existence, 2 write, 4 read, 6 both. Mode 1, which Windows reads as plain
// existence, asks here for execute permission (search permission on a directory: whether it
// can be entered). 0 or -1.
int plat_access(const char* path, int mode);
// _stat / GetFileAttributesA: 0 with *out filled, or -1.
int plat_stat(const char* path, PlatFileStatus* out);
// _open with the flags above; the descriptor is close-on-exec so children never inherit it.
// Retries EINTR. The descriptor, or -1.
int plat_open(const char* path, int flags, int mode);
// _close, _read, _write, _lseek from the start, _chsize. Reads and writes retry EINTR and may
// move fewer bytes than asked; -1 on failure.
int plat_close(int fd);
int64_t plat_read(int fd, void* buffer, size_t size);
int64_t plat_write(int fd, const void* buffer, size_t size);
int64_t plat_seek(int fd, int64_t offset);
int plat_truncate(int fd, int64_t size);

// _chdir, _getcwd (false when the buffer is too small or the directory is gone).
int plat_chdir(const char* path);
bool plat_getcwd(char* out, size_t size);
// CreateDirectoryA with a mode (the umask applies, as it does to _mkdir). 0 or -1.
int plat_mkdir(const char* path, int mode);
// _unlink, _rmdir, _chmod (all twelve permission bits, where Windows knows only read-only).
int plat_unlink(const char* path);
int plat_rmdir(const char* path);
int plat_chmod(const char* path, uint32_t bits);

// GetFullPathNameA: `path` made absolute against the current directory, as text: nothing is
// resolved and the file need not exist. False when the result does not fit.
bool plat_full_path(const char* path, char* out, size_t size);

// FindFirstFileA("dir\\*") / FindNextFileA / FindClose as one directory iterator. Entries come
// in the order of the system, "." and ".." included as on Windows. isDirectory follows symbolic
// links, as the attributes of the target are what Windows reports.
struct PlatFind;
struct PlatFindEntry {
    char name[256];
    bool isDirectory;
};
// Null with errno set when `dir` cannot be listed.
PlatFind* plat_find_open(const char* dir);
// False at the end of the listing.
bool plat_find_next(PlatFind* find, PlatFindEntry* entry);
void plat_find_close(PlatFind* find);
