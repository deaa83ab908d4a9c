// WhiteBoard groups, and the process-wide tables of defaults and callbacks.
#include "whiteboard_group.h"

#include "whiteboard_defaults.h"

namespace {

template <class T> WBDefaultTable<T>& table() {
    static WBDefaultTable<T>* made = new WBDefaultTable<T>; // lives to the end of the process
    return *made;
}

std::map<std::pair<ut_string, ut_string>, WBNameCallback>& callbackTable() {
    static auto* made = new std::map<std::pair<ut_string, ut_string>, WBNameCallback>;
    return *made;
}

ut_string key(const char* name) {
    return ut_string(name ? name : "");
}

// Sets `name` in `map` to `value` unless it has it already; true when it changed.
template <class T> bool put(std::map<ut_string, T>& map, const char* name, const T& value) {
    auto [it, added] = map.try_emplace(key(name), value);
    if (added)
        return true;
    if (it->second == value)
        return false;
    it->second = value;
    return true;
}

template <class T> bool get(const std::map<ut_string, T>& map, const char* name, T* out) {
    auto it = map.find(key(name));
    if (it == map.end())
        return false;
    if (out)
        *out = it->second;
    return true;
}

} // namespace

// ---- Process-wide tables

void registerBoolDefault(const char* group, const char* name, bool value) {
    table<bool>()[key(group)][key(name)] = value;
}
void registerInt32Default(const char* group, const char* name, int32_t value) {
    table<int32_t>()[key(group)][key(name)] = value;
}
void registerStringDefault(const char* group, const char* name, const char* value) {
    table<ut_string>()[key(group)][key(name)] = key(value);
}
void registerStringListDefault(const char* group, const char* name, const WBStringList& value) {
    table<WBStringList>()[key(group)][key(name)] = value;
}
void registerNameCallback(const char* group, const char* name, WBNameCallback callback) {
    if (callback)
        callbackTable()[{key(group), key(name)}] = callback;
}

const WBDefaultTable<bool>& boolDefaults() {
    return table<bool>();
}
const WBDefaultTable<int32_t>& int32Defaults() {
    return table<int32_t>();
}
const WBDefaultTable<ut_string>& stringDefaults() {
    return table<ut_string>();
}
const WBDefaultTable<WBStringList>& stringListDefaults() {
    return table<WBStringList>();
}
const std::map<std::pair<ut_string, ut_string>, WBNameCallback>& nameCallbacks() {
    return callbackTable();
}

// ---- Group

Group::Group(const char* groupName) : name(key(groupName)) {}

Group::~Group() = default;

bool Group::setBool(const char* item, bool value, bool) {
    return put(boolMap, item, value);
}
bool Group::setInt32(const char* item, int32_t value, bool) {
    return put(int32Map, item, value);
}
bool Group::setString(const char* item, const char* value, bool) {
    return put(stringMap, item, key(value));
}
bool Group::setStringList(const char* item, const WBStringList& value, bool) {
    return put(stringListMap, item, value);
}

bool Group::deleteName(const char* item, int32_t type, bool) {
    if (type < WB_TYPE_ANY || type > WB_TYPE_STRINGLIST)
        return false;
    bool any = type == WB_TYPE_ANY;
    bool removed = false;
    if (any || type == WB_TYPE_BOOL)
        removed |= boolMap.erase(key(item)) > 0;
    if (any || type == WB_TYPE_INT32)
        removed |= int32Map.erase(key(item)) > 0;
    if (any || type == WB_TYPE_STRING)
        removed |= stringMap.erase(key(item)) > 0;
    if (any || type == WB_TYPE_STRINGLIST)
        removed |= stringListMap.erase(key(item)) > 0;
    return removed;
}

bool Group::getBool(const char* item, bool* out) const {
    return get(boolMap, item, out);
}
bool Group::getInt32(const char* item, int32_t* out) const {
    return get(int32Map, item, out);
}
bool Group::getString(const char* item, ut_string* out) const {
    return get(stringMap, item, out);
}
bool Group::getStringList(const char* item, WBStringList* out) const {
    return get(stringListMap, item, out);
}

// ---- GroupClient

GroupClient::GroupClient(const char* groupName, WhiteBoard* owner)
    : Group(groupName), whiteboard(owner) {
    for (const auto& [pair, callback] : callbackTable())
        if (pair.first == name)
            nameListeners.emplace(pair.second, callback);
}

void GroupClient::addNameListener(const char* item, WBNameListener listener) {
    if (item == nullptr)
        everyNameListeners.push_back(std::move(listener));
    else
        nameListeners.emplace(key(item), std::move(listener));
}

template <class Listener, class... Args>
void GroupClient::fire(const std::vector<Listener>& list, const Args&... args) {
    std::vector<Listener> copy = list;
    for (const Listener& listener : copy)
        listener(args...);
}

void GroupClient::fireNames(const char* item) {
    std::vector<WBNameListener> named;
    auto [begin, end] = nameListeners.equal_range(key(item));
    for (auto it = begin; it != end; ++it)
        named.push_back(it->second);
    fire(named, getName(), item);
    fire(everyNameListeners, getName(), item);
}

bool GroupClient::setBool(const char* item, bool value, bool quiet) {
    if (!Group::setBool(item, value, quiet))
        return false;
    fire(boolListeners, getName(), item, value);
    if (!quiet)
        fireNames(item);
    return true;
}

bool GroupClient::setInt32(const char* item, int32_t value, bool quiet) {
    if (!Group::setInt32(item, value, quiet))
        return false;
    fire(int32Listeners, getName(), item, value);
    if (!quiet)
        fireNames(item);
    return true;
}

bool GroupClient::setString(const char* item, const char* value, bool quiet) {
    if (!Group::setString(item, value, quiet))
        return false;
    fire(stringListeners, getName(), item, value ? value : "");
    if (!quiet)
        fireNames(item);
    return true;
}

bool GroupClient::setStringList(const char* item, const WBStringList& value, bool quiet) {
    if (!Group::setStringList(item, value, quiet))
        return false;
    fire(stringListListeners, getName(), item, value);
    if (!quiet)
        fireNames(item);
    return true;
}

bool GroupClient::deleteName(const char* item, int32_t type, bool quiet) {
    if (!Group::deleteName(item, type, quiet))
        return false;
    fire(deleteListeners, getName(), item, type);
    if (!quiet)
        fireNames(item);
    return true;
}
