// The process's one client of the service router: its creation from the command line and its
// destruction at the end of the process.
#pragma once

#include "svc_routerlink.h"

struct PlatProcess;
class RetryHandler;

// Creates the global proxy, parses and removes the router options from *argc/argv, connects to
// the router, negotiates and waits for the plug-in id. False when any of that fails; the reason
// has been reported.
bool createGlobalServiceRouterProxy(bool persistent, int* argc, char** argv, const char* programTag,
                                    bool privateRouter, RetryHandler* retry, bool connectNow,
                                    bool mayLaunch);

// Asks the router to disconnect, releases the global proxy and waits for (or, with
// terminateChildren, stops after 4000 ms) a private router and the plug-ins this process started.
void destroyGlobalServiceRouterProxy(bool terminateChildren);

// The global proxy as the event loop sees it; null when there is none.
Svc_RouterLink* globalServiceRouterLink();

// Waits up to timeoutMs for `process` to end. On a time-out with `terminate`, writes
// "trellis: <label> (handle=<pid>) took more than <s> seconds (<ms> msecs) to shut down,
// terminating process." to standard error and terminates it with exit code 0.
// Returns true when the process has ended (by itself or terminated).
bool waitForChildExit(PlatProcess* process, const char* label, bool terminate, int timeoutMs);
