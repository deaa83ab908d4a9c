// svc_router: the service router program. Listens for plug-ins (or connects back to the one
// that launched it), launches the plug-ins it is told about, and routes between them until
// the last one has gone.
#include "gen_file.h"
#include "indgen.h"
#include "listen_socket.h"
#include "plat_time.h"
#include "plugin_launcher.h"
#include "router.h"
#include "router_log.h"
#include "router_options.h"
#include "stp_log.h"
#include "ut_idle.h"

#include <cstdio>
#include <memory>
#include <vector>

namespace {

enum ExitCode { kExitOk = 0, kExitCannotStart = 1, kExitPluginFailed = 2 };

// The longest wait of one turn: short while children run or an idle limit counts, so that
// their ends are noticed soon.
constexpr int32_t kTurnMs = 1000;
constexpr int32_t kShortTurnMs = 100;

bool writePortFile(const std::string& path, uint16_t port) {
    FILE* file = gen_fopen(path.c_str(), "we");
    if (file == nullptr)
        return false;
    std::fprintf(file, "%u\n", port);
    return std::fclose(file) == 0;
}

int runRouter(const RouterOptions& options) {
    std::unique_ptr<STPLog> log;
    if (!options.logFile.empty()) {
        FILE* file = gen_fopen(options.logFile.c_str(), "ae");
        if (file == nullptr) {
            gen_error("cannot open the log file %s", options.logFile.c_str());
            return kExitCannotStart;
        }
        // Whole lines reach the file at once, so that it can be read while the router runs.
        std::setvbuf(file, nullptr, _IOLBF, 0);
        log = std::make_unique<RouterLog>(file, true);
    }
    // The router serves every plug-in that calls, not the handful a plug-in serves.
    IdleNotifier::get()->setSocketLimit(0);
    Router router(log.get());
    ListenSocket listener(&router);
    const char* error = nullptr;
    if (!listener.open(options.port, &error)) {
        gen_error("cannot listen on 127.0.0.1 port %u: %s", options.port, error);
        return kExitCannotStart;
    }
    uint16_t port = listener.getPort();
    router.setListenPort(port);
    router.logEvent("svc_router listening on 127.0.0.1 port %u", port);
    std::printf("svc_router: listening on port %u\n", port);
    std::fflush(stdout);
    if (!options.portFile.empty() && !writePortFile(options.portFile, port)) {
        gen_error("cannot write the port file %s", options.portFile.c_str());
        return kExitCannotStart;
    }

    if (options.connectBackPort != 0) {
        STPTransport* transport = new STPTransport;
        STPStatus status;
        if (!transport->connect("127.0.0.1", options.connectBackPort, &status)) {
            gen_error("cannot connect to the launching plug-in on port %u: %s",
                      options.connectBackPort, status.message);
            transport->unref();
            return kExitCannotStart;
        }
        router.adopt(transport, "the launching plug-in");
    }

    int code = kExitOk;
    PluginLauncher launcher;
    for (const RouterPluginCommand& plugin : options.plugins) {
        std::string launchError;
        if (launcher.launch(plugin, port, &launchError)) {
            router.logEvent("launched %s", plugin.program.c_str());
        } else {
            gen_error("%s", launchError.c_str());
            router.logEvent("%s", launchError.c_str());
            code = kExitPluginFailed;
        }
    }

    router.setLaunchedRunning(launcher.runningCount());
    IdleNotifier* notifier = IdleNotifier::get();
    int32_t idleSince = plat_tick_count();
    int32_t childrenSeen = idleSince;
    for (;;) {
        bool shortTurn = launcher.runningCount() > 0 || options.idleExitMs >= 0;
        notifier->runIdlers(false);
        notifier->runTimers();
        notifier->pollSockets(shortTurn ? kShortTurnMs : kTurnMs, true);
        router.sweep();
        // Children are looked at once per short turn, not on every relayed packet.
        std::vector<PluginLauncher::Ended> ended;
        if (plat_tick_diff(plat_tick_count(), childrenSeen) >= kShortTurnMs) {
            childrenSeen = plat_tick_count();
            ended = launcher.poll();
        }
        for (const PluginLauncher::Ended& end : ended) {
            gen_info("plug-in %s (pid %d) exited with code %d", end.name.c_str(), end.pid,
                     end.exitCode);
            router.logEvent("plug-in %s (pid %d) exited with code %d", end.name.c_str(), end.pid,
                            end.exitCode);
            if (end.exitCode != 0)
                code = kExitPluginFailed;
        }
        router.setLaunchedRunning(launcher.runningCount());
        int32_t now = plat_tick_count();
        bool idle = router.pluginCount() == 0 && launcher.runningCount() == 0;
        if (!idle)
            idleSince = now;
        else if (!options.stay && (router.hasServed() || launcher.launchedAny()))
            break;
        else if (options.idleExitMs >= 0 && plat_tick_diff(now, idleSince) >= options.idleExitMs)
            break;
    }
    router.logEvent("svc_router ends with code %d", code);
    return code;
}

} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    RouterOptions options;
    std::string error;
    if (!parseRouterOptions(argc, argv, &options, &error)) {
        gen_error("%s (see svc_router -help)", error.c_str());
        return kExitCannotStart;
    }
    if (options.help) {
        std::fputs(routerUsage(), stdout);
        return kExitOk;
    }
    return runRouter(options);
}
