#include "plat_process.h"

#include "plat_time.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

extern char** environ;

struct PlatProcess {
    pid_t pid = -1;
    bool ended = false;
    bool ownGroup = false; // spawned with newSession: leads a process group of its own
    int exitCode = 0;
};

namespace {
bool endsWithExe(const char* name) {
    size_t n = std::strlen(name);
    return n > 4 && std::strcmp(name + n - 4, ".exe") == 0;
}

// Hands `fd` to the child as its descriptor `target`; 0 or an error number.
int addStream(posix_spawn_file_actions_t* actions, int fd, int target) {
    if (fd == PLAT_SPAWN_NULL_DEVICE)
        return posix_spawn_file_actions_addopen(actions, target, "/dev/null",
                                                target == 0 ? O_RDONLY : O_WRONLY, 0);
    if (fd >= 0)
        return posix_spawn_file_actions_adddup2(actions, fd, target);
    return 0;
}

// What the options ask of the child, as file actions and attributes; 0 or an error number.
int prepare(posix_spawn_file_actions_t* actions, posix_spawnattr_t* attr,
            const PlatSpawnOptions* options) {
    if (options == nullptr)
        return 0;
    int rc = addStream(actions, options->stdinFd, 0);
    if (rc == 0)
        rc = addStream(actions, options->stdoutFd, 1);
    if (rc == 0)
        rc = addStream(actions, options->stderrFd, 2);
    if (rc == 0 && options->workingDir)
        rc = posix_spawn_file_actions_addchdir_np(actions, options->workingDir);
    if (rc != 0 || !options->newSession)
        return rc;
    // A detached child also starts with no signal blocked and SIGPIPE at its default, whatever
    // this process did with them.
    sigset_t none, pipe;
    sigemptyset(&none);
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    rc = posix_spawnattr_setsigmask(attr, &none);
    if (rc == 0)
        rc = posix_spawnattr_setsigdefault(attr, &pipe);
    if (rc == 0)
        rc = posix_spawnattr_setflags(attr, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK |
                                                POSIX_SPAWN_SETSIGDEF);
    return rc;
}

int spawnOnce(pid_t* pid, const char* const argv[], const PlatSpawnOptions* options) {
    posix_spawn_file_actions_t actions;
    int rc = posix_spawn_file_actions_init(&actions);
    if (rc != 0)
        return rc;
    posix_spawnattr_t attr;
    rc = posix_spawnattr_init(&attr);
    if (rc != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return rc;
    }
    rc = prepare(&actions, &attr, options);
    if (rc == 0)
        rc = posix_spawnp(pid, argv[0], &actions, &attr, const_cast<char* const*>(argv), environ);
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    return rc;
}

void recordStatus(PlatProcess* p, int status) {
    p->ended = true;
    if (WIFEXITED(status))
        p->exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        p->exitCode = 128 + WTERMSIG(status);
}

// Reaps the child if it has ended; true when it has.
bool reapNoHang(PlatProcess* p) {
    if (p->ended)
        return true;
    int status = 0;
    pid_t rc = plat_retry_eintr([&] { return waitpid(p->pid, &status, WNOHANG); });
    if (rc == p->pid) {
        recordStatus(p, status);
        return true;
    }
    return false;
}
} // namespace

PlatProcess* plat_spawn(const char* const argv[], const PlatSpawnOptions* options,
                        PlatError* error) {
    if (argv == nullptr || argv[0] == nullptr) {
        if (error)
            *error = PlatError::not_found;
        return nullptr;
    }
    pid_t pid = -1;
    int rc = spawnOnce(&pid, argv, options);
    if ((rc == ENOENT || rc == EACCES) && endsWithExe(argv[0])) {
        std::string plain(argv[0], std::strlen(argv[0]) - 4);
        std::vector<const char*> args(argv, argv + 1);
        for (const char* const* a = argv + 1; *a; ++a)
            args.push_back(*a);
        args.push_back(nullptr);
        args[0] = plain.c_str();
        rc = spawnOnce(&pid, args.data(), options);
    }
    if (rc != 0) {
        if (error)
            *error = plat_map_errno(rc);
        return nullptr;
    }
    if (error)
        *error = PlatError::none;
    PlatProcess* p = new (std::nothrow) PlatProcess;
    if (p == nullptr) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        if (error)
            *error = PlatError::no_memory;
        return nullptr;
    }
    p->pid = pid;
    p->ownGroup = options && options->newSession;
    return p;
}

PlatWait plat_wait_process(PlatProcess* process, int32_t timeoutMs) {
    if (process == nullptr)
        return PlatWait::failed;
    if (reapNoHang(process))
        return PlatWait::exited;
    if (timeoutMs == 0)
        return PlatWait::timed_out;
    if (timeoutMs < 0) {
        int status = 0;
        if (plat_retry_eintr([&] { return waitpid(process->pid, &status, 0); }) != process->pid)
            return PlatWait::failed;
        recordStatus(process, status);
        return PlatWait::exited;
    }
    // A pidfd turns readable when the child ends; without one (old kernels), look every 5 ms.
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, process->pid, 0));
    int32_t start = plat_tick_count();
    for (;;) {
        int32_t left = timeoutMs - plat_tick_diff(plat_tick_count(), start);
        if (left <= 0)
            break;
        if (pidfd >= 0) {
            pollfd pfd{pidfd, POLLIN, 0};
            poll(&pfd, 1, left);
        } else {
            plat_sleep_ms(left < 5 ? left : 5);
        }
        if (reapNoHang(process)) {
            if (pidfd >= 0)
                close(pidfd);
            return PlatWait::exited;
        }
    }
    if (pidfd >= 0)
        close(pidfd);
    return reapNoHang(process) ? PlatWait::exited : PlatWait::timed_out;
}

bool plat_process_exit_code(const PlatProcess* process, int* code) {
    if (process == nullptr || !process->ended)
        return false;
    *code = process->exitCode;
    return true;
}

bool plat_terminate_process(PlatProcess* process, int exitCode) {
    if (process == nullptr)
        return false;
    if (reapNoHang(process))
        return true;
    if (kill(process->pid, SIGKILL) != 0)
        return false;
    int status = 0;
    plat_retry_eintr([&] { return waitpid(process->pid, &status, 0); });
    process->ended = true;
    process->exitCode = exitCode;
    return true;
}

bool plat_terminate_process_group(PlatProcess* process, int exitCode) {
    if (process == nullptr)
        return false;
    if (!process->ownGroup)
        return plat_terminate_process(process, exitCode);
    // Once the leader has been reaped its number may be reused, so the group is only killed
    // while the child is unreaped (a zombie still holds the number).
    if (process->ended)
        return true;
    if (kill(-process->pid, SIGKILL) != 0 && kill(process->pid, SIGKILL) != 0)
        return false;
    int status = 0;
    plat_retry_eintr([&] { return waitpid(process->pid, &status, 0); });
    process->ended = true;
    process->exitCode = exitCode;
    return true;
}

bool plat_kill_process_group(PlatProcess* process) {
    if (process == nullptr)
        return false;
    // A reaped child's number may belong to another process by now; an unreaped one (even a
    // zombie) still holds it and its group's, so the group's stragglers die too.
    if (process->ended)
        return true;
    if (process->ownGroup && kill(-process->pid, SIGKILL) == 0)
        return true;
    return kill(process->pid, SIGKILL) == 0;
}

void plat_close_process(PlatProcess* process) {
    if (process == nullptr)
        return;
    reapNoHang(process);
    delete process;
}

int plat_process_id(const PlatProcess* process) {
    return process ? process->pid : -1;
}

int plat_current_process_id() {
    return static_cast<int>(getpid());
}

bool plat_self_path(char* out, size_t size) {
    if (size == 0)
        return false;
    ssize_t n = readlink("/proc/self/exe", out, size - 1);
    if (n <= 0)
        return false;
    out[n] = '\0';
    return static_cast<size_t>(n) < size - 1;
}

void plat_hide_child_consoles(bool) {}
