// The version-control settings of the configuration group "GeneralConfiguration": the table of
// keys with their compiled defaults, the mirror variables through which the rest of the process
// reads them, and the change callback that keeps the mirrors following the group.
//
// The mirrors hold the compiled defaults from static initialisation on and follow the group
// whenever configuration changes them: from the configuration files at start, from the
// WhiteBoard service at start and whenever it broadcasts a change later.
#pragma once

#include "defaultconfig.h"

#include <cstdint>

// The group of all these keys.
#define CFG_WBD "GeneralConfiguration"

// The type of a key's row, which decides how the change callback reads it.
enum : int32_t {
    CFG_BOOL = 0,
    CFG_INT = 1,
    CFG_ENUM = 2, // a string with a code (versioncontroltype)
    CFG_STRING = 4,
};

// One row of the key table. Strings and enums mirror into a `char*` (owned by the table),
// Bools into a `bool`, Int32s into an `int32_t`.
struct ConfigKeyRow {
    const char* name;
    int32_t type;
    void* mirror;
    bool hasDefault;           // false: settable from a file, no value in the group until then
    const char* stringDefault; // strings and enums
    int32_t numberDefault;     // Bools (0 or 1) and Int32s
    bool exeRule;              // the default is a program path that gets the ".exe" extension
    bool callback;             // configChanged follows the key
};

// The frame of these keys: at construction (static initialisation) it fills the key table,
// registers each default with the WhiteBoard's default tables and the change callback, and sets
// the mirrors to the defaults.
class Versctrl_DefaultConfig : public DefaultConfig {
public:
    Versctrl_DefaultConfig();
};

// The row of `key`, or null when the table has no such key.
const ConfigKeyRow* findConfigKey(const char* key);
// Whether the key table is empty.
bool configKeyTableEmpty();

// A program path as a compiled default is entered: the extension of the base name replaced by
// ".exe", or ".exe" added ("cvs" gives "cvs.exe", "" gives ".exe"). A new string (gen_free).
char* applyExeRule(const char* path);
// The code of a value of versioncontroltype ("TVC" 0 ... "Disable" 9), or -1 for none.
int32_t versionControlTypeCode(const char* value);

// The change callback of every key that has one. Asserts that `group` is "GeneralConfiguration".
// versioncontroltype is only checked (an unknown value is warned about); any other key's value
// is copied to its mirror.
void configChanged(const char* group, const char* key);

// The value of `key` in "GeneralConfiguration" of the WhiteBoard (made unconnected if there is
// none). False when the key has no value of that type. getConfigString gives a new string
// (gen_free).
bool getConfigBool(const char* key, bool* value);
bool getConfigInt32(const char* key, int32_t* value);
bool getConfigString(const char* key, char** value);

// The configured `cvs` client, "cvs.exe" by default (key Versctrl_CVSPath). Read at every run,
// so a change takes effect at the next command. The text stays valid until the next change.
const char* versctrlCVSPath();
// Replaces the mirror of Versctrl_CVSPath with a copy of `path` (null: back to the default).
void setVersctrlCVSPath(const char* path);

// The longest one `cvs` run may take, in seconds, 300 by default (key Versctrl_CVSTimeLimit, an
// Int32). A value of 0 or below means no limit.
int32_t versctrlCVSTimeLimitSeconds();
void setVersctrlCVSTimeLimitSeconds(int32_t seconds);
