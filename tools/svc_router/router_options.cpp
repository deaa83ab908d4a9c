// The command line of svc_router.
#include "router_options.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// An unsigned number with automatic base that fits in `max`; false for anything else.
bool parseNumber(const char* text, uint64_t max, uint64_t* out) {
    if (text == nullptr || *text == '\0' || *text == '-' || *text == '+')
        return false;
    errno = 0;
    char* end = nullptr;
    unsigned long long value = std::strtoull(text, &end, 0);
    if (errno != 0 || end == text || *end != '\0' || value > max)
        return false;
    *out = value;
    return true;
}

} // namespace

bool parseRouterOptions(int argc, const char* const* argv, RouterOptions* options,
                        std::string* error) {
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        auto needValue = [&]() {
            if (value == nullptr) {
                *error = word + " needs a value";
                return false;
            }
            ++i;
            return true;
        };
        auto needNumber = [&](uint64_t max, uint64_t* out) {
            if (!needValue())
                return false;
            if (!parseNumber(value, max, out)) {
                *error = word + " takes a number, not \"" + value + "\"";
                return false;
            }
            return true;
        };
        uint64_t number = 0;
        if (word == "-help" || word == "--help" || word == "-h") {
            options->help = true;
        } else if (word == "-port") {
            if (!needNumber(65535, &number))
                return false;
            options->port = static_cast<uint16_t>(number);
        } else if (word == "-port_file") {
            if (!needValue())
                return false;
            options->portFile = value;
        } else if (word == "-connect_servicerouter") {
            if (!needNumber(65535, &number))
                return false;
            if (number == 0) {
                *error = "-connect_servicerouter needs a port other than 0";
                return false;
            }
            options->connectBackPort = static_cast<uint16_t>(number);
        } else if (word == "-plugin") {
            if (!needValue())
                return false;
            options->plugins.push_back(RouterPluginCommand{value, {}, {}});
        } else if (word == "-plugin_arg") {
            if (!needValue())
                return false;
            if (options->plugins.empty()) {
                *error = "-plugin_arg before any -plugin";
                return false;
            }
            options->plugins.back().args.push_back(value);
        } else if (word == "-plugin_dir") {
            if (!needValue())
                return false;
            if (options->plugins.empty()) {
                *error = "-plugin_dir before any -plugin";
                return false;
            }
            options->plugins.back().workingDir = value;
        } else if (word == "-log") {
            if (!needValue())
                return false;
            options->logFile = value;
        } else if (word == "-stay") {
            options->stay = true;
        } else if (word == "-idle_exit") {
            if (!needNumber(INT32_MAX, &number))
                return false;
            options->idleExitMs = static_cast<int32_t>(number);
        } else if (word == "-sr_log_internal" || word == "-sr_zone") {
            if (!needValue())
                return false;
        } else if (word == "-not_shared") {
            // A router of its own for the launcher: every svc_router is one.
        } else {
            *error = "unknown option " + word;
            return false;
        }
    }
    return true;
}

const char* routerUsage() {
    return "usage: svc_router [options]\n"
           "Routes the messages of plug-in processes: hands out plug-in ids and route numbers,\n"
           "keeps the names of their services, connects clients to services and relays their\n"
           "packets.\n"
           "\n"
           "  -port N                 listen on 127.0.0.1 port N (default 0: the system picks\n"
           "                          one); the port is printed as \"svc_router: listening on\n"
           "                          port N\"\n"
           "  -port_file FILE         also write the port to FILE\n"
           "  -connect_servicerouter PORT\n"
           "                          connect back to the plug-in that launched this router,\n"
           "                          on 127.0.0.1 PORT, and serve it as a plug-in\n"
           "  -plugin PROGRAM         launch PROGRAM as a plug-in, with\n"
           "                          \"-connect_servicerouter PORT\" behind its name; may repeat\n"
           "  -plugin_arg WORD        one more word for the last -plugin's command line\n"
           "  -plugin_dir DIR         start the last -plugin in DIR\n"
           "  -log FILE               time-stamped log of every message and event\n"
           "  -stay                   keep running when the last plug-in has gone\n"
           "  -idle_exit MS           end after MS milliseconds with no plug-in connected or\n"
           "                          running, also before the first one came\n"
           "  -help                   this text\n"
           "\n"
           "The router ends once it has served a plug-in and none is left: every connection\n"
           "has closed and every launched plug-in has ended (unless -stay). Exit code 0, 1 when\n"
           "it could not start, 2 when a launched plug-in ended with a code other than 0.\n"
           "Numbers take 0x for hexadecimal and a leading 0 for octal.\n";
}
