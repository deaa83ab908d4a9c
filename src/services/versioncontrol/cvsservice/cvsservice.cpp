// Entry of the cvsservice process: start-up in its fixed order, the event loop, the end.
#include "cvsservice.h"

#include "gen_path.h"
#include "indgen.h"
#include "plat_process.h"
#include "servicerouter_proxy.h"
#include "svc_eventloop.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace {
// The assertions of main report this file and these lines. The tools that read the service's
// reports match a failure by its file and line, so these stay fixed when the code moves.
constexpr const char* kSourceFile = "../src/services/versioncontrol/cvsservice/cvsservice.cpp";
constexpr int kSetupAssertLine = 60;
constexpr int kExitFuncAssertLine = 67;
} // namespace

bool hasRouterConnectOption(int argc, char** argv) {
    // The last word is not looked at: each option needs a value behind it.
    for (int i = 0; i < argc - 1; ++i) {
        if (std::strcmp(argv[i], "-connect_servicerouter") == 0 ||
            std::strcmp(argv[i], "-sr_connect_servicerouter_host") == 0 ||
            std::strcmp(argv[i], "-sr_connect_servicerouter_port") == 0)
            return true;
    }
    return false;
}

int cvsservice_main(int argc, char** argv) {
    gen_init(argv[0]);
    // Clients on this system send paths of this system: a backslash or a colon in a path is a
    // byte of a file name, not a separator.
    gen_set_posix_paths(true);
    plat_hide_child_consoles(true);
    tzset();

    if (!hasRouterConnectOption(argc, argv)) {
        std::fputs("The cvsservice may not be run as a standalone program.\n", stderr);
        return 1;
    }
    if (!createGlobalServiceRouterProxy(false, &argc, argv, nullptr, false, nullptr, false, true))
        return 1;

    loadDefaultConfig();
    gen_assert(setupCVSServer() == true, "setupCVSServer() == true", kSourceFile, kSetupAssertLine,
               0);

    Svc_EventLoop event_loop(globalServiceRouterLink());
    gen_assert(event_loop.installExitConditionFunc(serviceCreatedExitFunc()),
               "event_loop.installExitConditionFunc(ServiceFactory::createdAService)", kSourceFile,
               kExitFuncAssertLine, 0);
    event_loop.run();
    destroyGlobalServiceRouterProxy(false);
    return 0;
}
