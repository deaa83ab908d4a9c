// Loading the configuration at start: files, the WhiteBoard group and the order of the layers.
#include "config_loader.h"

#include "gen_config_dirs.h"
#include "gen_file.h"
#include "gen_string.h"
#include "indgen.h"
#include "servicerouter_proxy.h"
#include "versctrl_defaultconfig.h"
#include "whiteboard.h"

#include <cctype>
#include <cstring>
#include <string>

namespace {

bool g_configurationLoaded = false;

// The name that gen_find_config tries when a folder has no "ort.cfg".
constexpr const char* kConfigName = "trellis";

void applyFileOf(const char* dir, WhiteBoard* whiteboard) {
    if (dir == nullptr)
        return;
    char* path = gen_find_config(dir, kConfigName, true, false);
    applyConfigFile(path, whiteboard);
    gen_free(path);
}

// One line of a configuration file.
void applyLine(const char* line, WhiteBoard* whiteboard) {
    if (line[0] == '#')
        return;
    const char* colon = std::strchr(line, ':');
    if (colon == nullptr)
        return;
    std::string key(line, colon);
    const char* value = colon + 1;
    while (*value == ' ' || *value == '\t')
        ++value;
    if (*value == '\0' || findConfigKey(key.c_str()) == nullptr)
        return;
    if (*value == '"') {
        // Only a value that is wholly quoted unquotes: a missing closing quote (or anything
        // behind it) skips the line.
        size_t n = std::strlen(value);
        if (n < 2 || value[n - 1] != '"')
            return;
        char* text = gen_unquote(value);
        if (text == nullptr)
            return;
        whiteboard->setStringValue(CFG_WBD, key.c_str(), text, false);
        gen_free(text);
    } else if (std::isdigit(static_cast<unsigned char>(*value))) {
        int32_t number = static_cast<int32_t>(gen_strtoul(value, nullptr, 0));
        whiteboard->setInt32Value(CFG_WBD, key.c_str(), number, false);
    } else if (std::strcmp(value, "On") == 0) {
        whiteboard->setBoolValue(CFG_WBD, key.c_str(), true, false);
    } else if (std::strcmp(value, "Off") == 0) {
        whiteboard->setBoolValue(CFG_WBD, key.c_str(), false, false);
    }
}

} // namespace

bool applyConfigFile(const char* path, WhiteBoard* whiteboard) {
    if (path == nullptr || *path == '\0' || whiteboard == nullptr)
        return false;
    if (configKeyTableEmpty())
        return true;
    FILE* file = gen_fopen(path, "re");
    if (file == nullptr)
        return false;
    char* buffer = nullptr;
    int capacity = 0;
    while (gen_readline(file, &buffer, &capacity))
        applyLine(buffer, whiteboard);
    gen_free(buffer);
    std::fclose(file);
    return true;
}

namespace {

// The system file, then the user's file, once per process.
bool applyFilesOnce(WhiteBoard* whiteboard) {
    if (g_configurationLoaded)
        return false;
    g_configurationLoaded = true;
    applyFileOf(gen_internal_config_dir(), whiteboard);
    applyFileOf(gen_user_config_dir(false, nullptr), whiteboard);
    return true;
}

} // namespace

bool applyConfigFiles() {
    WhiteBoard* whiteboard = getWhiteBoard();
    if (!applyFilesOnce(whiteboard))
        return true;
    if (!whiteboard->registerGroup(CFG_WBD, true, false, nullptr, true)) {
        gen_warning("Unable to register group GeneralConfiguration");
        return false;
    }
    return true;
}

bool loadDefaultConfig() {
    runDefaultConfigs();
    if (getServiceRouterProxy() == nullptr)
        return false;
    if (connectWhiteBoard(nullptr) == nullptr) {
        gen_warning("Unable to get connection to WhiteBoard.\n");
        // The configuration files still count without the service: a user who sets the cvs
        // client in a file expects it used. They go to the local copy, nothing is registered.
        applyFilesOnce(getWhiteBoard());
        return false;
    }
    if (!applyConfigFiles()) {
        gen_warning("Unable to load initial configuration state.\n");
        return false;
    }
    return true;
}
