// svc_whiteboard: the WhiteBoard service, a plug-in that svc_router launches like any other. It
// offers "WhiteBoard", keeps the groups of name/value pairs its clients register, tells each
// client the changes of the others, and keeps the groups that ask for it in .wbd files.
#include "indgen.h"
#include "servicerouter_proxy.h"
#include "svc_eventloop.h"
#include "whiteboard_files.h"
#include "whiteboard_server.h"
#include "whiteboard_store.h"

#include <cstdio>
#include <cstring>

namespace {

const char* kUsage =
    "usage: svc_whiteboard -connect_servicerouter PORT [-stay] [router options]\n"
    "The WhiteBoard service, started by svc_router (svc_router -plugin svc_whiteboard).\n"
    "  -stay   keep serving when the last client has gone, until the router goes; without it\n"
    "          the service leaves once it has served a client and none is left\n"
    "  -sr_log FILE   log every message of every connection\n"
    "The WhiteBoard folder is $XDG_CONFIG_HOME/ORT/WhiteBoard ($HOME/.config without\n"
    "XDG_CONFIG_HOME). Every <group>.wbd there is read at start and kept up to date; a group\n"
    "that a client registers with use_disk and no file name gets its file there.\n";

// The exit test without -stay: it has served, and nobody is connected now.
bool servedAndAlone() {
    return ServiceFactory::createdAService() && WhiteBoardServer::liveCount() == 0;
}
bool never() {
    return false;
}

bool hasRouterOption(int argc, char** argv) {
    for (int i = 1; i < argc - 1; ++i)
        if (std::strcmp(argv[i], "-connect_servicerouter") == 0 ||
            std::strcmp(argv[i], "-sr_connect_servicerouter_port") == 0 ||
            std::strcmp(argv[i], "-sr_connect_servicerouter_host") == 0)
            return true;
    return false;
}

// Takes this program's own words out of argv; false for -help.
bool takeOwnOptions(int* argc, char** argv, bool* stay) {
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strcmp(argv[i], "-stay") == 0)
            *stay = true;
        else if (std::strcmp(argv[i], "-help") == 0 || std::strcmp(argv[i], "--help") == 0)
            return false;
        else
            argv[kept++] = argv[i];
    }
    argv[kept] = nullptr;
    *argc = kept;
    return true;
}

} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    bool stay = false;
    if (!takeOwnOptions(&argc, argv, &stay)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (!hasRouterOption(argc, argv)) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    WhiteBoardStore store;
    store.loadDirectory(whiteBoardDirectory());
    // Made before the router connection so that "WhiteBoard" is in the opening list of names;
    // it outlives the proxy, which ends below.
    WhiteBoardServiceFactory factory(&store);
    if (!createGlobalServiceRouterProxy(stay, &argc, argv, nullptr, false, nullptr, false, false))
        return 1;
    {
        Svc_EventLoop loop(globalServiceRouterLink());
        loop.installExitConditionFunc(stay ? never : servedAndAlone);
        loop.run();
        destroyGlobalServiceRouterProxy(false);
    }
    return 0;
}
