// cvsvc: a command-line client of the services "VersionControl.CVS" and "VC_CheckoutInfo.CVS".
// It reaches them through a service router, as a plug-in of its own, and maps each command to
// the requests that serve it.
#include "checkout_jobs.h"
#include "command_table.h"
#include "cvsvc_options.h"
#include "indgen.h"
#include "plat_console.h"
#include "plat_files.h"
#include "service_link.h"
#include "vc_commands.h"

#include <cstdio>
#include <string>

namespace {
bool isJob(const std::string& name) {
    return name == "scan" || name == "update" || name == "checkout" || name == "switch";
}
} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    Invocation invocation;
    std::string error;
    if (!parseInvocation(argc, argv, &invocation, &error)) {
        std::fprintf(stderr, "cvsvc: %s\n%s", error.c_str(), helpText().c_str());
        return kExitUsage;
    }
    if (invocation.help) {
        std::fputs(helpText().c_str(), stdout);
        return kExitOk;
    }
    char cwd[4096] = "";
    if (!plat_getcwd(cwd, sizeof cwd)) {
        std::fputs("cvsvc: the current directory cannot be read.\n", stderr);
        return kExitUsage;
    }
    OutputMode mode;
    mode.json = invocation.json;
    mode.terminal = plat_is_terminal(1);
    mode.cwd = cwd;
    int code = kExitUnreachable;
    {
        ServiceLink link;
        if (!link.open(invocation.routerPort, cwd))
            std::fprintf(stderr, "cvsvc: %s\n", link.error().c_str());
        else if (isJob(invocation.command->name))
            code = runCheckoutJob(&link, invocation, mode);
        else
            code = runVersionControlCommand(&link, invocation, mode);
    }
    std::fflush(stdout);
    return code;
}
