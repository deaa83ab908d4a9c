#include "run_program.h"

#include "plat_pipe.h"
#include "plat_process.h"

namespace {
std::string drain(int fd) {
    std::string text;
    char buf[4096];
    long n;
    while ((n = plat_read_fd(fd, buf, sizeof buf)) > 0)
        text.append(buf, static_cast<size_t>(n));
    plat_close_fd(fd);
    return text;
}
} // namespace

ProgramRun runProgram(const std::vector<std::string>& argv, int timeoutMs) {
    ProgramRun run;
    int out[2], err[2];
    if (!plat_pipe(out))
        return run;
    if (!plat_pipe(err)) {
        plat_close_fd(out[0]);
        plat_close_fd(out[1]);
        return run;
    }
    std::vector<const char*> args;
    for (const std::string& a : argv)
        args.push_back(a.c_str());
    args.push_back(nullptr);
    PlatSpawnOptions options;
    options.stdoutFd = out[1];
    options.stderrFd = err[1];
    PlatError error = PlatError::none;
    PlatProcess* child = plat_spawn(args.data(), &options, &error);
    plat_close_fd(out[1]);
    plat_close_fd(err[1]);
    if (child) {
        run.started = true;
        run.finished = plat_wait_process(child, timeoutMs) == PlatWait::exited;
        if (!run.finished)
            plat_terminate_process(child, -1);
        plat_process_exit_code(child, &run.exitCode);
        plat_close_process(child);
    }
    run.out = drain(out[0]);
    run.err = drain(err[0]);
    return run;
}
