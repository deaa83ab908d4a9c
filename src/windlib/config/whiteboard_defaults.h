// The process-wide tables through which code registers WhiteBoard defaults and name callbacks
// during static initialisation, before any WhiteBoard exists. Made at first use, kept to the end
// of the process, and not cleared when a WhiteBoard goes, so that a later one starts the same.
#pragma once

#include "whiteboard_group.h"

#include <map>
#include <utility>

// A callback of a (group, item) pair; it fires when the item's value changes (not quietly).
using WBNameCallback = void (*)(const char* group, const char* name);

// The later value for one name overwrites the earlier.
void registerBoolDefault(const char* group, const char* name, bool value);
void registerInt32Default(const char* group, const char* name, int32_t value);
void registerStringDefault(const char* group, const char* name, const char* value);
void registerStringListDefault(const char* group, const char* name, const WBStringList& value);
// A null function does nothing; a later function for the same pair replaces the earlier.
void registerNameCallback(const char* group, const char* name, WBNameCallback callback);

// The tables, group name to item name to value.
template <class T> using WBDefaultTable = std::map<ut_string, std::map<ut_string, T>>;
const WBDefaultTable<bool>& boolDefaults();
const WBDefaultTable<int32_t>& int32Defaults();
const WBDefaultTable<ut_string>& stringDefaults();
const WBDefaultTable<WBStringList>& stringListDefaults();
const std::map<std::pair<ut_string, ut_string>, WBNameCallback>& nameCallbacks();
