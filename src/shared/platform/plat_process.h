// Child processes as handles: start, wait with a time-out, exit codes, terminate; and the
// program's own path. A handle is a pid plus what the layer has learnt of it.
#pragma once

#include "plat_error.h"

#include <cstddef>
#include <cstdint>

struct PlatProcess;

// A standard descriptor of PlatSpawnOptions that the child gets from /dev/null: the Linux
// meaning of a child that is given no handle for that stream.
inline constexpr int PLAT_SPAWN_NULL_DEVICE = -2;

struct PlatSpawnOptions {
    const char* workingDir = nullptr; // null: the current directory
    int stdinFd = -1;                 // -1: inherited; PLAT_SPAWN_NULL_DEVICE: /dev/null
    int stdoutFd = -1;
    int stderrFd = -1;
    // DETACHED_PROCESS: the child starts a new session, so it has no controlling terminal (a
    // prompt that opens /dev/tty fails at once) and leads a process group of its own, which
    // plat_terminate_process_group kills as a whole.
    bool newSession = false;
};

// CreateProcessA from an argument vector (null-terminated), never through a shell. argv[0] is
// searched in PATH. A program named "x.exe" that does not exist runs as "x", and then argv[0]
// is "x" too: the child sees the name that actually runs. Every step of the spawn is checked:
// a working directory that cannot be entered, a descriptor that cannot be handed over, or a
// missing program makes it fail. Returns the handle, or null with *error set (not_found when
// the program or the working directory is missing).
PlatProcess* plat_spawn(const char* const argv[], const PlatSpawnOptions* options,
                        PlatError* error);

enum class PlatWait { exited, timed_out, failed };
// WaitForSingleObject: waits up to `timeoutMs` (0 = just look, negative = for ever) for the
// child to end, and reaps it.
PlatWait plat_wait_process(PlatProcess* process, int32_t timeoutMs);
// GetExitCodeProcess: true with the code once the child has ended and was reaped by a wait.
// A child ended by a signal reports 128 + the signal, as a shell would.
bool plat_process_exit_code(const PlatProcess* process, int* code);
// TerminateProcess: kills the child (SIGKILL) and reaps it; its exit code then reads as
// `exitCode`, the code Windows would give it.
bool plat_terminate_process(PlatProcess* process, int exitCode);
// TerminateProcess of the child and of every process it started: for a child spawned with
// newSession, SIGKILL to its whole process group (grandchildren that stayed in it die too),
// otherwise to the child alone. Reaps the child; its exit code reads as `exitCode`.
bool plat_terminate_process_group(PlatProcess* process, int exitCode);
// TerminateProcess without the wait that Linux needs to reap: SIGKILL to the child's whole
// process group (a child spawned with newSession; otherwise to the child alone), and nothing
// more, so the caller's thread never blocks. The child stays a zombie, holding its number, until
// plat_wait_process reaps it; a reaped child is not signalled again. False when the signal could
// not be sent.
bool plat_kill_process_group(PlatProcess* process);
// CloseHandle: forgets the handle. A child that still runs goes on running.
void plat_close_process(PlatProcess* process);
// The child's process id, used where a label shows the handle.
int plat_process_id(const PlatProcess* process);

// GetCurrentProcessId.
int plat_current_process_id();

// GetModuleFileNameA(null): the program's own file, from /proc/self/exe. False if unknown.
bool plat_self_path(char* out, size_t size);

// Windows gives a child detached from any console a hidden console window of its own when this
// is set. Linux children share the parent's terminal, so there is nothing to hide; kept so the
// start-up sequence reads as it does everywhere.
void plat_hide_child_consoles(bool hide);
