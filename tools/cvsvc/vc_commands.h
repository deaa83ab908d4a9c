// The commands served by requests of "VersionControl.CVS": status, add, remove, commit, log,
// blame, info and exec. Each sends its requests, waits for the replies (serving the router
// connection meanwhile) and prints the result.
#pragma once

#include "cvsvc_options.h"
#include "service_link.h"

#include <string>

// Where and how results go: JSON or text on standard output; error texts of the service on
// standard error as they came.
struct OutputMode {
    bool json = false;
    bool terminal = false; // standard output is a terminal
    std::string cwd;       // the client's working directory
};

// Runs `invocation` (one of the commands above) over `link`, which has reached a router.
// Returns the exit code (CvsvcExit).
int runVersionControlCommand(ServiceLink* link, const Invocation& invocation,
                             const OutputMode& mode);
