// The plug-ins the router starts: their processes, and what became of them.
#pragma once

#include "router_options.h"

#include <cstdint>
#include <string>
#include <vector>

struct PlatProcess;

// Starts programs from an argument vector, never through a shell, and polls them without
// waiting. Children that still run when the launcher goes keep running.
class PluginLauncher {
public:
    // What became of one plug-in process.
    struct Ended {
        std::string name; // the program as given
        int pid = 0;
        int exitCode = 0; // 128 + signal for a child that a signal ended
    };

    PluginLauncher() = default;
    ~PluginLauncher();
    PluginLauncher(const PluginLauncher&) = delete;
    PluginLauncher& operator=(const PluginLauncher&) = delete;

    // The command line of a plug-in: the program, "-connect_servicerouter", the router's port,
    // then the plug-in's own words.
    static std::vector<std::string> commandLine(const RouterPluginCommand& command,
                                                uint16_t routerPort);
    // Starts one plug-in, in its working directory when it has one (the router's own stays).
    // False with *error set when it could not be started.
    bool launch(const RouterPluginCommand& command, uint16_t routerPort, std::string* error);
    // Looks at every running plug-in without waiting; those that have ended are returned (and
    // forgotten).
    std::vector<Ended> poll();
    size_t runningCount() const { return running.size(); }
    bool launchedAny() const { return launched; }

private:
    struct Child {
        std::string name;
        PlatProcess* process;
    };
    std::vector<Child> running;
    bool launched = false;
};
