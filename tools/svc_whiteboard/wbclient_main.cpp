// svc_wbclient: reads and changes WhiteBoard values from the command line. It connects to the
// router as a plug-in, asks for "WhiteBoard", does one thing and leaves.
#include "gen_string.h"
#include "group_files.h"
#include "indgen.h"
#include "servicerouter_proxy.h"
#include "stp_retryhandler.h"
#include "whiteboard.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

enum ExitCode { kOk = 0, kNoService = 1, kUsage = 2, kNotDone = 3 };

const char* kUsageText =
    "usage: svc_wbclient -connect_servicerouter PORT [-timeout MS] [-disk] COMMAND\n"
    "Commands:\n"
    "  -get GROUP                     print the group's values (as a .wbd group file)\n"
    "  -set GROUP NAME TEXT           set a string value\n"
    "  -set_int32 GROUP NAME NUMBER   set an Int32 value (0x for hexadecimal)\n"
    "  -set_bool GROUP NAME on|off    set a Bool value\n"
    "  -delete GROUP NAME             delete the name, every type of it\n"
    "  -save GROUP FILE               have the service write the group to FILE\n"
    "  -disk                          the service keeps the group in its .wbd file from now on\n"
    "  -timeout MS                    limit of each wait (default 20000)\n"
    "Exit codes: 0 done, 1 no router or no WhiteBoard service, 2 usage, 3 not done.\n";

struct Command {
    std::string what; // "get", "set", "set_int32", "set_bool", "delete", "save"
    std::vector<std::string> args;
    bool disk = false;
    int32_t timeoutMs = 20000;
};

size_t argumentsOf(const std::string& what) {
    if (what == "get")
        return 1;
    if (what == "delete" || what == "save")
        return 2;
    return 3;
}

// Takes this program's words out of argv, leaving the router options.
bool parse(int* argc, char** argv, Command* command) {
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        std::string word = argv[i];
        if (word == "-disk") {
            command->disk = true;
        } else if (word == "-timeout" && i + 1 < *argc) {
            command->timeoutMs = static_cast<int32_t>(std::strtol(argv[++i], nullptr, 0));
        } else if (word == "-get" || word == "-set" || word == "-set_int32" ||
                   word == "-set_bool" || word == "-delete" || word == "-save") {
            if (!command->what.empty())
                return false;
            command->what = word.substr(1);
            size_t n = argumentsOf(command->what);
            if (i + static_cast<int>(n) >= *argc)
                return false;
            for (size_t k = 0; k < n; ++k)
                command->args.push_back(argv[++i]);
        } else {
            argv[kept++] = argv[i];
        }
    }
    argv[kept] = nullptr;
    *argc = kept;
    return !command->what.empty() && command->timeoutMs > 0;
}

int run(const Command& c) {
    ServiceRouter_Proxy* proxy = getServiceRouterProxy();
    TimeoutSTPRetryHandler wait(c.timeoutMs, proxy->getTransport());
    WhiteBoard* board = connectWhiteBoard(&wait);
    if (board == nullptr) {
        gen_error("Unable to get connection to WhiteBoard.");
        return kNoService;
    }
    const char* group = c.args[0].c_str();
    board->registerGroup(group, false, c.disk, nullptr, false);
    if (!board->requestChangesInGroup(group, &wait)) {
        gen_error("no answer from the WhiteBoard service");
        return kNoService;
    }
    bool sent = true;
    if (c.what == "set") {
        sent = board->setStringValue(group, c.args[1].c_str(), c.args[2].c_str(), true);
    } else if (c.what == "set_int32") {
        int32_t n = static_cast<int32_t>(gen_strtoul(c.args[2].c_str(), nullptr, 0));
        sent = board->setInt32Value(group, c.args[1].c_str(), n, true);
    } else if (c.what == "set_bool") {
        bool on = gen_strcasecmp_eq(c.args[2].c_str(), "on") || c.args[2] == "1";
        sent = board->setBoolValue(group, c.args[1].c_str(), on, true);
    } else if (c.what == "delete") {
        sent = board->deleteName(group, c.args[1].c_str(), 0, true);
    } else if (c.what == "save") {
        sent = board->saveGroupToFile(group, c.args[1].c_str());
    }
    // Messages are taken in order: once this answer is here, the change has been made.
    if (!sent || !board->requestChangesInGroup(group, &wait)) {
        gen_error("the WhiteBoard service did not take the change");
        return kNotDone;
    }
    if (const GroupClient* values = board->findGroup(group))
        std::fputs(groupFileText(*values).c_str(), stdout);
    return kOk;
}

} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    Command command;
    if (!parse(&argc, argv, &command)) {
        std::fputs(kUsageText, stderr);
        return kUsage;
    }
    if (!createGlobalServiceRouterProxy(false, &argc, argv, nullptr, false, nullptr, true, false))
        return kNoService;
    int code = run(command);
    disconnectWhiteBoard();
    destroyGlobalServiceRouterProxy(false);
    std::fflush(stdout);
    return code;
}
