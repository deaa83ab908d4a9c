// Anonymous pipes and plain descriptors: CreatePipe, ReadFile, WriteFile, CloseHandle on the
// pipe ends that connect this process with its children.
#pragma once

#include <cstddef>

// CreatePipe: fds[0] reads, fds[1] writes; both close-on-exec, so a child gets an end only
// when it is handed over explicitly (PlatSpawnOptions).
bool plat_pipe(int fds[2]);
// ReadFile, retrying EINTR: bytes read, 0 at the end, -1 on error.
long plat_read_fd(int fd, void* data, size_t length);
// WriteFile, retrying EINTR: bytes written or -1.
long plat_write_fd(int fd, const void* data, size_t length);
// CloseHandle on a descriptor.
bool plat_close_fd(int fd);
