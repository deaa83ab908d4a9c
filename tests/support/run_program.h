// Runs a program as a child with both output streams captured, for tests of whole processes.
#pragma once

#include <string>
#include <vector>

struct ProgramRun {
    bool started = false;
    bool finished = false; // false: killed after the time limit
    int exitCode = -1;
    std::string out, err;
};

// Starts argv[0] (searched in PATH) in `workingDir` (empty: this process's) and waits up to
// `timeoutMs` for it to end; a child still running then is killed. Its output goes through
// files, so it may be of any size.
ProgramRun runProgram(const std::vector<std::string>& argv, int timeoutMs = 20000,
                      const std::string& workingDir = std::string());
