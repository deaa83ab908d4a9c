// The version-control keys, their mirrors and the change callback.
#include "versctrl_defaultconfig.h"

#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_string.h"
#include "whiteboard.h"
#include "whiteboard_defaults.h"

#include <cstring>
#include <map>

namespace {

// The assertion of the change callback names this file and line, as the process always has.
constexpr const char* kSourceFile = "../src/windlib/config/versctrl_defaultconfig.cpp";
constexpr int kGroupAssertLine = 173;

constexpr const char* kDefaultCVSPath = "cvs.exe";
constexpr int32_t kDefaultTimeLimitSeconds = 300;

// ---- The mirror variables
bool g_dontusevc = false;
char* g_versioncontroltype = nullptr;
char* g_cvsPath = nullptr; // null: the default
int32_t g_timeLimitSeconds = kDefaultTimeLimitSeconds;
bool g_tvcAutoCheckout = false;
char* g_rcsPath = nullptr;
bool g_rcsAutoCheckout = false;
char* g_clearCasePath = nullptr;
bool g_clearCaseAutoCheckout = false;
char* g_sourceSafePath = nullptr;
char* g_sourceSafeUsername = nullptr;
char* g_sourceSafeDatabase = nullptr;
char* g_sourceSafeRoot = nullptr;
bool g_sourceSafeAutoCheckout = false;
bool g_pvcsAutoCheckout = false;
char* g_pvcsDatabase = nullptr;
char* g_pvcsRoot = nullptr;
char* g_customPath = nullptr;
bool g_customAutoCheckout = false;
char* g_vc_undervc = nullptr;
char* g_vc_co = nullptr;
char* g_vc_get = nullptr;
char* g_vc_unco = nullptr;
char* g_vc_ci = nullptr;
char* g_vc_create = nullptr;
char* g_vc_show = nullptr;
char* g_vc_who = nullptr;
char* g_vc_prevver = nullptr;
char* g_vc_command = nullptr;
char* g_vc_diff = nullptr;
char* g_vc_when = nullptr;
char* g_vc_cinocomments = nullptr;

// The code of the version-control type; nothing in this process depends on it.
int32_t g_versionControlTypeCode = 5;

// The keys in their order, up to the row with no name. Versctrl_CVSTimeLimit is this build's
// own key: the time limit of one cvs run.
const ConfigKeyRow kKeyRows[] = {
    {"dontusevc", CFG_BOOL, &g_dontusevc, true, nullptr, 0, false, false},
    {"versioncontroltype", CFG_ENUM, &g_versioncontroltype, true, "Auto Detect", 0, false, true},
    {"Versctrl_CVSPath", CFG_STRING, &g_cvsPath, true, "cvs.exe", 0, true, true},
    {"Versctrl_CVSTimeLimit", CFG_INT, &g_timeLimitSeconds, true, nullptr, kDefaultTimeLimitSeconds,
     false, true},
    {"Versctrl_TVCAutoCheckout", CFG_BOOL, &g_tvcAutoCheckout, true, nullptr, 0, false, true},
    {"Versctrl_RCSPath", CFG_STRING, &g_rcsPath, true, "rcs.exe", 0, true, true},
    {"Versctrl_RCSAutoCheckout", CFG_BOOL, &g_rcsAutoCheckout, true, nullptr, 0, false, true},
    {"Versctrl_ClearCasePath", CFG_STRING, &g_clearCasePath, true, "cleartool.exe", 0, true, true},
    {"Versctrl_ClearCaseAutoCheckout", CFG_BOOL, &g_clearCaseAutoCheckout, true, nullptr, 0, false,
     true},
    {"Versctrl_SourceSafePath", CFG_STRING, &g_sourceSafePath, true, "ss.exe", 0, true, true},
    {"Versctrl_SourceSafeUsername", CFG_STRING, &g_sourceSafeUsername, true, "", 0, false, true},
    {"Versctrl_SourceSafeDatabase", CFG_STRING, &g_sourceSafeDatabase, true, "", 0, false, true},
    {"Versctrl_SourceSafeRoot", CFG_STRING, &g_sourceSafeRoot, true, "", 0, false, true},
    {"Versctrl_SourceSafeAutoCheckout", CFG_BOOL, &g_sourceSafeAutoCheckout, true, nullptr, 0,
     false, true},
    {"Versctrl_PVCSAutoCheckout", CFG_BOOL, &g_pvcsAutoCheckout, true, nullptr, 0, false, true},
    {"Versctrl_PVCSDatabase", CFG_STRING, &g_pvcsDatabase, true, "", 0, false, true},
    {"Versctrl_PVCSRoot", CFG_STRING, &g_pvcsRoot, true, "", 0, false, true},
    {"Versctrl_CustomPath", CFG_STRING, &g_customPath, true, "", 0, true, true},
    {"Versctrl_CustomAutoCheckout", CFG_BOOL, &g_customAutoCheckout, true, nullptr, 0, false, true},
    {"vc_undervc", CFG_STRING, &g_vc_undervc, true, "", 0, false, true},
    {"vc_co", CFG_STRING, &g_vc_co, true, "", 0, false, true},
    {"vc_get", CFG_STRING, &g_vc_get, true, "", 0, false, true},
    {"vc_unco", CFG_STRING, &g_vc_unco, true, "", 0, false, true},
    {"vc_ci", CFG_STRING, &g_vc_ci, true, "", 0, false, true},
    {"vc_create", CFG_STRING, &g_vc_create, true, "", 0, false, true},
    {"vc_show", CFG_STRING, &g_vc_show, true, "", 0, false, true},
    {"vc_who", CFG_STRING, &g_vc_who, true, "", 0, false, true},
    {"vc_prevver", CFG_STRING, &g_vc_prevver, true, "", 0, false, true},
    {"vc_command", CFG_STRING, &g_vc_command, false, nullptr, 0, false, false},
    {"vc_diff", CFG_STRING, &g_vc_diff, false, nullptr, 0, false, false},
    {"vc_when", CFG_STRING, &g_vc_when, false, nullptr, 0, false, false},
    {"vc_cinocomments", CFG_STRING, &g_vc_cinocomments, false, nullptr, 0, false, false},
    {nullptr, 0, nullptr, false, nullptr, 0, false, false},
};

// The key table, made at first use; its rows are the static array's.
std::map<ut_string, const ConfigKeyRow*>& keyTable() {
    static auto* table = new std::map<ut_string, const ConfigKeyRow*>;
    return *table;
}

struct TypeCode {
    const char* value;
    int32_t code;
};
constexpr TypeCode kTypeCodes[] = {{"TVC", 0},    {"CVS", 1},        {"ClearCase", 2},
                                   {"PVCS", 3},   {"RCS", 4},        {"AutoDetect", 5},
                                   {"Custom", 7}, {"SourceSafe", 8}, {"Disable", 9}};

void setMirrorString(const ConfigKeyRow& row, char* value) {
    char** mirror = static_cast<char**>(row.mirror);
    gen_free(*mirror);
    *mirror = value;
}

// The one instance, made during static initialisation.
Versctrl_DefaultConfig g_versctrlDefaultConfig;

} // namespace

char* applyExeRule(const char* path) {
    return gen_set_extension(path ? path : "", "exe");
}

int32_t versionControlTypeCode(const char* value) {
    for (const TypeCode& t : kTypeCodes)
        if (value && std::strcmp(value, t.value) == 0)
            return t.code;
    return -1;
}

Versctrl_DefaultConfig::Versctrl_DefaultConfig() : DefaultConfig(CFG_WBD) {
    for (const ConfigKeyRow* row = kKeyRows; row->name; ++row)
        keyTable()[ut_string(row->name)] = row;
    for (const ConfigKeyRow* row = kKeyRows; row->name; ++row) {
        if (!row->hasDefault)
            continue;
        switch (row->type) {
        case CFG_BOOL:
            registerBoolDefault(group, row->name, row->numberDefault != 0);
            *static_cast<bool*>(row->mirror) = row->numberDefault != 0;
            break;
        case CFG_INT:
            registerInt32Default(group, row->name, row->numberDefault);
            *static_cast<int32_t*>(row->mirror) = row->numberDefault;
            break;
        default: {
            char* value =
                row->exeRule ? applyExeRule(row->stringDefault) : gen_strdup(row->stringDefault);
            registerStringDefault(group, row->name, value);
            setMirrorString(*row, value);
        }
        }
        if (row->callback)
            registerNameCallback(group, row->name, configChanged);
    }
    g_versionControlTypeCode = 5;
}

const ConfigKeyRow* findConfigKey(const char* key) {
    auto it = keyTable().find(ut_string(key ? key : ""));
    return it == keyTable().end() ? nullptr : it->second;
}

bool configKeyTableEmpty() {
    return keyTable().empty();
}

void configChanged(const char* group, const char* key) {
    gen_assert(group && !std::strcmp(group, CFG_WBD), "!strcmp(group, CFG_WBD)", kSourceFile,
               kGroupAssertLine, 0);
    if (std::strcmp(key, "versioncontroltype") == 0) {
        char* value = nullptr;
        if (!getConfigString(key, &value))
            return;
        // The type only gets checked: nothing in this process depends on it.
        if (std::strcmp(value, "Disable") != 0 && versionControlTypeCode(value) < 0)
            gen_warning("Unknown version control type: %s.\n", value);
        gen_free(value);
        return;
    }
    const ConfigKeyRow* row = findConfigKey(key);
    if (row == nullptr)
        return;
    switch (row->type) {
    case CFG_BOOL: {
        bool value = false;
        if (getConfigBool(key, &value))
            *static_cast<bool*>(row->mirror) = value;
        break;
    }
    case CFG_INT: {
        int32_t value = 0;
        if (getConfigInt32(key, &value))
            *static_cast<int32_t*>(row->mirror) = value;
        break;
    }
    case CFG_STRING: {
        char* value = nullptr;
        if (getConfigString(key, &value))
            setMirrorString(*row, value);
        break;
    }
    default:
        gen_warning("Unsupported/unknown type for configuration option.\n");
    }
}

bool getConfigBool(const char* key, bool* value) {
    WhiteBoard* whiteboard = getWhiteBoard();
    return whiteboard && whiteboard->getBoolValue(CFG_WBD, key, value);
}

bool getConfigInt32(const char* key, int32_t* value) {
    WhiteBoard* whiteboard = getWhiteBoard();
    return whiteboard && whiteboard->getInt32Value(CFG_WBD, key, value);
}

bool getConfigString(const char* key, char** value) {
    WhiteBoard* whiteboard = getWhiteBoard();
    ut_string text;
    if (!whiteboard || !whiteboard->getStringValue(CFG_WBD, key, &text))
        return false;
    *value = gen_strdup(text.c_str());
    return true;
}

const char* versctrlCVSPath() {
    return g_cvsPath ? g_cvsPath : kDefaultCVSPath;
}

void setVersctrlCVSPath(const char* path) {
    char* copy = path ? gen_strdup(path) : nullptr;
    gen_free(g_cvsPath);
    g_cvsPath = copy;
}

int32_t versctrlCVSTimeLimitSeconds() {
    return g_timeLimitSeconds;
}

void setVersctrlCVSTimeLimitSeconds(int32_t seconds) {
    g_timeLimitSeconds = seconds;
}
