#include "servicerouter_proxy.h"

#include "indgen.h"
#include "plat_process.h"

#include <cstdio>

// The router client (options, connection, negotiation, plug-in id) is not built yet. Until it is,
// creating the proxy fails honestly, so the process stops with exit code 1 instead of pretending
// to serve.
bool createGlobalServiceRouterProxy(bool, int*, char**, const char*, bool, RetryHandler*, bool,
                                    bool) {
    gen_error("cannot connect to the service router: this build has no router client yet");
    return false;
}

void destroyGlobalServiceRouterProxy(bool) {}

Svc_RouterLink* globalServiceRouterLink() {
    return nullptr;
}

bool waitForChildExit(PlatProcess* process, const char* label, bool terminate, int timeoutMs) {
    PlatWait result = plat_wait_process(process, timeoutMs);
    if (result == PlatWait::timed_out && terminate) {
        std::fprintf(stderr,
                     "trellis: %s (handle=%d) took more than %d seconds (%d msecs) to shut down, "
                     "terminating process.\n",
                     label, plat_process_id(process), timeoutMs / 1000, timeoutMs);
        return plat_terminate_process(process, 0);
    }
    return result == PlatWait::exited;
}
