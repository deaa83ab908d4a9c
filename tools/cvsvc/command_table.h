// The commands of cvsvc: one table that names each command, its operands, the request of the
// service that serves it, and whether the service carries that request out yet.
#pragma once

#include <string>
#include <vector>

struct CommandEntry {
    const char* name;
    const char* synopsis; // operands and options, as the usage text shows them
    const char* request;  // the service request that serves it
    const char* summary;  // one line for the help text
    // The service carries the request out. A command whose request is still answered with
    // "not built yet" is left out of the help text, but it can be run.
    bool landed;
};

// Every command, in the order of the help text.
const std::vector<CommandEntry>& commandTable();
// The command called `name`, or null.
const CommandEntry* findCommand(const std::string& name);
// The text of "cvsvc --help": the options and every landed command.
std::string helpText();

// How cvsvc ends.
enum CvsvcExit {
    kExitOk = 0,
    kExitServiceError = 1, // the service reported an error; its text is on standard error
    kExitUsage = 2,
    kExitUnreachable = 3, // no router or service could be reached, or it stopped answering
    kExitHalted = 130,    // a job halted by Ctrl-C, as a shell counts an interrupt
};
