// The plug-ins the router starts.
#include "plugin_launcher.h"

#include "plat_files.h"
#include "plat_process.h"

#include <string>

PluginLauncher::~PluginLauncher() {
    for (Child& child : running)
        plat_close_process(child.process);
}

std::vector<std::string> PluginLauncher::commandLine(const RouterPluginCommand& command,
                                                     uint16_t routerPort) {
    std::vector<std::string> words{command.program, "-connect_servicerouter",
                                   std::to_string(routerPort)};
    words.insert(words.end(), command.args.begin(), command.args.end());
    return words;
}

bool PluginLauncher::launch(const RouterPluginCommand& command, uint16_t routerPort,
                            std::string* error) {
    std::vector<std::string> words = commandLine(command, routerPort);
    std::vector<const char*> argv;
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    argv.push_back(nullptr);
    PlatSpawnOptions options;
    if (!command.workingDir.empty())
        options.workingDir = command.workingDir.c_str();
    PlatError failure{};
    PlatProcess* process = plat_spawn(argv.data(), &options, &failure);
    launched = true;
    if (process == nullptr) {
        *error = "could not start " + command.program;
        PlatFileStatus status;
        if (options.workingDir && (plat_stat(options.workingDir, &status) != 0 ||
                                   !status.isDirectory || plat_access(options.workingDir, 1) != 0))
            *error += ": cannot enter the working directory " + command.workingDir;
        return false;
    }
    running.push_back(Child{command.program, process});
    return true;
}

std::vector<PluginLauncher::Ended> PluginLauncher::poll() {
    std::vector<Ended> ended;
    for (auto it = running.begin(); it != running.end();) {
        if (plat_wait_process(it->process, 0) != PlatWait::exited) {
            ++it;
            continue;
        }
        Ended end;
        end.name = it->name;
        end.pid = plat_process_id(it->process);
        if (!plat_process_exit_code(it->process, &end.exitCode))
            end.exitCode = -1;
        ended.push_back(end);
        plat_close_process(it->process);
        it = running.erase(it);
    }
    return ended;
}
