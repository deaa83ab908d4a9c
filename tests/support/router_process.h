// Test helpers for whole processes: programs started with their output in files of a scratch
// folder, and svc_router started on a port of the system's choosing.
#pragma once

#include "plat_files.h"
#include "plat_process.h"
#include "plat_time.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The paths of the programs under test, given by the build.
#ifndef SVC_ROUTER_PATH
#error "SVC_ROUTER_PATH must name the svc_router program"
#endif

// A child process whose standard output and error go to files; killed at the end of the test
// if it still runs.
class ChildProcess {
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { kill(); }

    bool start(const std::vector<std::string>& words, const std::string& outPath,
               const std::string& errPath) {
        out = outPath;
        err = errPath;
        std::vector<const char*> argv;
        for (const std::string& w : words)
            argv.push_back(w.c_str());
        argv.push_back(nullptr);
        int outFd = plat_open(out.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_TRUNC, 0644);
        int errFd = plat_open(err.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_TRUNC, 0644);
        PlatSpawnOptions options;
        options.stdoutFd = outFd;
        options.stderrFd = errFd;
        PlatError error{};
        process = plat_spawn(argv.data(), &options, &error);
        plat_close(outFd);
        plat_close(errFd);
        return process != nullptr;
    }
    // The exit code, or -1 when the child still runs after `timeoutMs` (it is then killed).
    int wait(int32_t timeoutMs) {
        if (process == nullptr)
            return -1;
        if (plat_wait_process(process, timeoutMs) != PlatWait::exited) {
            kill();
            return -1;
        }
        int code = -1;
        plat_process_exit_code(process, &code);
        plat_close_process(process);
        process = nullptr;
        return code;
    }
    bool running() { return process && plat_wait_process(process, 0) != PlatWait::exited; }
    // The process id while the child is known, else -1.
    int pid() const { return process ? plat_process_id(process) : -1; }
    void kill() {
        if (process) {
            plat_terminate_process(process, 9);
            plat_close_process(process);
            process = nullptr;
        }
    }
    std::string output() const { return readFile(out); }
    std::string errors() const { return readFile(err); }

private:
    PlatProcess* process = nullptr;
    std::string out, err;
};

// svc_router on a port the system picks, with its log, port file and output in `folder`.
class RouterProcess : public ChildProcess {
public:
    // Starts it and waits (up to 10 s) for its port.
    bool start(const ScratchFolder& folder, const std::vector<std::string>& extra) {
        portFile = folder.at("router.port");
        logFile = folder.at("router.log");
        std::vector<std::string> words{SVC_ROUTER_PATH, "-port", "0",    "-port_file",
                                       portFile,        "-log",  logFile};
        words.insert(words.end(), extra.begin(), extra.end());
        if (!ChildProcess::start(words, folder.at("router.out"), folder.at("router.err")))
            return false;
        int32_t start = plat_tick_count();
        while (plat_tick_diff(plat_tick_count(), start) < 10000) {
            std::string text = readFile(portFile);
            if (!text.empty() && text.back() == '\n') {
                port = static_cast<uint16_t>(std::stoi(text));
                return true;
            }
            if (!running())
                return false;
            plat_sleep_ms(10);
        }
        return false;
    }
    std::string log() const { return readFile(logFile); }
    uint16_t port = 0;

private:
    std::string portFile, logFile;
};
