// Anonymous pipes and plain descriptors: CreatePipe, ReadFile, WriteFile, CloseHandle on the
// pipe ends that connect this process with its children.
#pragma once

#include <cstddef>
#include <cstdint>

// CreatePipe: fds[0] reads, fds[1] writes; both close-on-exec, so a child gets an end only
// when it is handed over explicitly (PlatSpawnOptions).
bool plat_pipe(int fds[2]);
// ReadFile, retrying EINTR: bytes read, 0 at the end, -1 on error.
long plat_read_fd(int fd, void* data, size_t length);
// WriteFile, retrying EINTR: bytes written or -1.
long plat_write_fd(int fd, const void* data, size_t length);
// CloseHandle on a descriptor.
bool plat_close_fd(int fd);

// PeekNamedPipe: how many bytes wait in the pipe behind the reading end `fd`, without reading
// and without blocking; 0 when none wait yet. -1 when none wait and the writing end has been
// closed, or on error: Windows fails the peek of a pipe whose writer has gone, and callers take
// that failure as the pipe's end.
long plat_pipe_peek(int fd);

// WaitForMultipleObjects on reading ends: waits up to `timeoutMs` (negative: for ever) until at
// least one of the `count` descriptors can be read without blocking (data waits, or the writer
// has gone); `ready[i]` tells which. Resumes after signals with the time that is left. Returns
// how many are ready, 0 on time-out, -1 on error.
int plat_wait_readable(const int* fds, int count, int32_t timeoutMs, bool* ready);
