#include "run_program.h"

#include "plat_files.h"
#include "plat_process.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {
// The child writes into files, not pipes, so that any amount of output can come while this
// process only waits.
struct OutputFile {
    std::string path;
    int fd = -1;

    bool create(const char* suffix) {
        static int counter = 0;
        std::string base = (std::filesystem::temp_directory_path() /
                            ("cvss_run_" + std::to_string(plat_current_process_id()) + "_"))
                               .string();
        for (int tries = 0; tries < 1000 && fd < 0; ++tries) {
            path = base + std::to_string(++counter) + suffix;
            fd = plat_open(path.c_str(), PLAT_O_RDWR | PLAT_O_CREAT | PLAT_O_EXCL, 0600);
        }
        return fd >= 0;
    }
    std::string take() {
        if (fd >= 0)
            plat_close(fd);
        fd = -1;
        std::ifstream in(path, std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        plat_unlink(path.c_str());
        return text;
    }
    ~OutputFile() {
        if (fd >= 0) {
            plat_close(fd);
            plat_unlink(path.c_str());
        }
    }
};
} // namespace

ProgramRun runProgram(const std::vector<std::string>& argv, int timeoutMs,
                      const std::string& workingDir) {
    ProgramRun run;
    OutputFile out, err;
    if (!out.create(".out") || !err.create(".err"))
        return run;
    std::vector<const char*> args;
    for (const std::string& a : argv)
        args.push_back(a.c_str());
    args.push_back(nullptr);
    // Nothing to read: a child that asks (an editor, a password prompt) sees the end at once.
    int nullFd = plat_open("/dev/null", PLAT_O_RDONLY, 0);
    PlatSpawnOptions options;
    options.stdinFd = nullFd;
    options.stdoutFd = out.fd;
    options.stderrFd = err.fd;
    if (!workingDir.empty())
        options.workingDir = workingDir.c_str();
    PlatError error = PlatError::none;
    PlatProcess* child = plat_spawn(args.data(), &options, &error);
    if (nullFd >= 0)
        plat_close(nullFd);
    if (child) {
        run.started = true;
        run.finished = plat_wait_process(child, timeoutMs) == PlatWait::exited;
        if (!run.finished)
            plat_terminate_process(child, -1);
        plat_process_exit_code(child, &run.exitCode);
        plat_close_process(child);
    }
    run.out = out.take();
    run.err = err.take();
    return run;
}
