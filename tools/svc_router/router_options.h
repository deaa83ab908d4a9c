// The command line of svc_router: what to listen on, whom to connect back to, which plug-ins to
// launch, where to log and when to end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One plug-in to launch: the program (searched in PATH when it has no slash), the words that
// follow "-connect_servicerouter PORT" on its command line, and the directory it starts in
// (empty: the router's).
struct RouterPluginCommand {
    std::string program;
    std::vector<std::string> args;
    std::string workingDir;
};

struct RouterOptions {
    uint16_t port = 0;            // -port: listening port on 127.0.0.1; 0 lets the system pick
    std::string portFile;         // -port_file: the chosen port is written there
    uint16_t connectBackPort = 0; // -connect_servicerouter: the launcher's port, 0 for none
    std::vector<RouterPluginCommand> plugins; // -plugin, -plugin_arg, -plugin_dir
    std::string logFile;                      // -log: time-stamped log of messages and events
    bool stay = false;                        // -stay: keep running when the last plug-in has gone
    int32_t idleExitMs = -1; // -idle_exit: end after this long without plug-ins; -1 never
    bool help = false;       // -help
};

// Parses argv[1..argc-1] into *options. Numbers take an automatic base (0x hexadecimal, a
// leading 0 octal). Options that a launching plug-in passes to a router it starts
// ("-sr_log_internal FILE", "-sr_zone NAME", "-not_shared") are accepted and have no effect.
// Returns false with *error set ("unknown option -x", "-port needs a value", ...) on the first
// word it cannot take; *options then holds what was parsed before it.
bool parseRouterOptions(int argc, const char* const* argv, RouterOptions* options,
                        std::string* error);

// The text of "svc_router -help".
const char* routerUsage();
