#include "command_table.h"

namespace {
// clang-format off
const std::vector<CommandEntry> kCommands = {
    {"status",   "FILE...",                 "GetStatusInfo",
     "the state, versions and tag of each file", true},
    {"scan",     "[--local] [--all] [DIR...]", "RequestCheckoutInfo",
     "the files of checkouts that differ from the repository (--local: the disk only)", true},
    {"update",   "[DIR...]",                "RequestCheckoutUpdate",
     "brings checkouts up to date and shows what changed", true},
    {"checkout", "ROOT MODULE DIR [-r TAG]", "CreateCheckout",
     "checks MODULE of repository ROOT out into DIR", true},
    {"switch",   "DIR... (-r TAG | -D DATE | -A)", "ModifyCheckout",
     "moves checkouts to a tag, a date, or back to the head", true},
    {"add",      "FILE...",                 "AddFilesToVC",
     "puts files (and their new folders) under version control", true},
    {"remove",   "FILE...",                 "RemoveFiles",
     "removes files from the disk and from version control", true},
    {"commit",   "-m MSG FILE...",          "CommitFiles",
     "commits files with the message MSG and shows their new versions", true},
    {"log",      "FILE",                    "ShowHistory",
     "the revisions of a file with dates, authors, tags and messages", true},
    {"blame",    "FILE FROM[-TO] [-r REV]", "ShowLastEdit",
     "the revision that last changed lines FROM to TO", true},
    {"info",     "FILE REV",                "GetVersionInfo",
     "author, date and message of one revision", true},
    {"exec",     "-- ARG...",               "ExecuteCommandString",
     "runs cvs with ARG... in the service's directory (the current one when cvsvc starts\n"
     "      the service) and shows what it printed", true},
};
// clang-format on
} // namespace

const std::vector<CommandEntry>& commandTable() {
    return kCommands;
}

const CommandEntry* findCommand(const std::string& name) {
    for (const CommandEntry& entry : kCommands)
        if (name == entry.name)
            return &entry;
    return nullptr;
}

std::string helpText() {
    std::string text =
        "usage: cvsvc [-connect_servicerouter PORT] [--json] COMMAND [OPERANDS]\n"
        "A client of the VersionControl.CVS and VC_CheckoutInfo.CVS services. Relative paths\n"
        "are taken against the current directory.\n"
        "  -connect_servicerouter PORT  use the router listening on 127.0.0.1 PORT; without it\n"
        "                               cvsvc starts svc_router and cvsservice for the command\n"
        "                               and stops them afterwards\n"
        "  --json                       machine-readable output on standard output\n"
        "  --help                       this text\n"
        "Commands:\n";
    for (const CommandEntry& entry : kCommands) {
        if (!entry.landed)
            continue;
        std::string head = std::string("  ") + entry.name + " " + entry.synopsis;
        text += head + "\n      " + entry.summary + "\n";
    }
    text += "Exit codes: 0 success; 1 the service reported an error (on standard error);\n"
            "2 usage error; 3 no router or service could be reached; 130 a job halted by "
            "Ctrl-C.\n";
    return text;
}
