// The WhiteBoard client: the local copy, the sends, the handlers and the global object.
#include "whiteboard.h"

#include "stp_wait.h"

#include "gen_string.h"
#include "servicerouter_proxy.h"
#include "stp_transport.h"
#include "whiteboard_defaults.h"
#include "whiteboard_files.h"

#include <cstring>

namespace {

WhiteBoard* g_whiteBoard = nullptr;

// The 4000 ms slices of a wait for changes that has no retry handler.
constexpr int32_t kChangesSliceMs = 4000;

ut_string key(const char* name) {
    return ut_string(name ? name : "");
}

WBStringList listOf(const WhiteBoardStringListInfo& info) {
    WBStringList list;
    for (int32_t i = 0; i < stp_count(info._value, info._value_count); ++i)
        list.push_back(key(info._value[i]));
    return list;
}

} // namespace

WhiteBoard::WhiteBoard() {
    for (const auto& [group, items] : boolDefaults())
        for (const auto& [item, value] : items)
            groupFor(group.c_str())->setBool(item.c_str(), value, true);
    for (const auto& [group, items] : int32Defaults())
        for (const auto& [item, value] : items)
            groupFor(group.c_str())->setInt32(item.c_str(), value, true);
    for (const auto& [group, items] : stringDefaults())
        for (const auto& [item, value] : items)
            groupFor(group.c_str())->setString(item.c_str(), value.c_str(), true);
    for (const auto& [group, items] : stringListDefaults())
        for (const auto& [item, value] : items)
            groupFor(group.c_str())->setStringList(item.c_str(), value, true);
}

WhiteBoard::~WhiteBoard() {
    for (auto& [name, group] : groups)
        delete group;
    groups.clear();
    if (g_whiteBoard == this)
        g_whiteBoard = nullptr;
}

GroupClient* WhiteBoard::findGroup(const char* group) const {
    auto it = groups.find(key(group));
    return it == groups.end() ? nullptr : it->second;
}

GroupClient* WhiteBoard::groupFor(const char* group) {
    if (GroupClient* found = findGroup(group))
        return found;
    GroupClient* made = new GroupClient(group, this);
    groups[key(group)] = made;
    return made;
}

// ---- Groups and files

bool WhiteBoard::registerGroup(const char* group, bool broadcast, bool use_disk,
                               const char* use_filename, bool wait) {
    STPSpecClassRef hold(this);
    GroupClient* found = findGroup(group);
    GroupClient* target = found ? found : new GroupClient(group, this);
    RegisterGroup(false, group, broadcast, use_disk, use_filename, nullptr, nullptr);
    if (use_disk || use_filename) {
        char* path = use_filename ? gen_strdup(use_filename) : defaultGroupFile(group);
        bool read = readGroupFile(target, path);
        gen_free(path);
        if (!read) {
            if (found)
                groups.erase(key(group));
            delete target;
            return false;
        }
    }
    groups[key(group)] = target;
    if (!wait)
        return true;
    return requestChangesInGroup(group, nullptr);
}

bool WhiteBoard::saveGroupToFile(const char* group, const char* file) {
    if (!findGroup(group))
        return true;
    SaveGroupChangesToFile(false, group, file, nullptr, nullptr);
    return true;
}

bool WhiteBoard::mergeGroupFromFile(const char* group, const char* file) {
    GroupClient* target = groupFor(group);
    Group read(group);
    if (!readGroupFile(&read, file))
        return false;
    for (const auto& [name, value] : read.bools())
        target->setBool(name.c_str(), value, false);
    for (const auto& [name, value] : read.int32s())
        target->setInt32(name.c_str(), value, false);
    for (const auto& [name, value] : read.strings())
        target->setString(name.c_str(), value.c_str(), false);
    for (const auto& [name, value] : read.stringLists())
        target->setStringList(name.c_str(), value, false);
    return true;
}

bool WhiteBoard::replaceGroupFromFile(const char* group, const char* file) {
    auto it = groups.find(key(group));
    if (it != groups.end()) {
        delete it->second;
        groups.erase(it);
    }
    GroupClient* fresh = new GroupClient(group, this);
    if (!readGroupFile(fresh, file)) {
        delete fresh;
        return false;
    }
    groups[key(group)] = fresh;
    return true;
}

// ---- Values

bool WhiteBoard::getBoolValue(const char* group, const char* name, bool* value) const {
    const GroupClient* g = findGroup(group);
    return g && g->getBool(name, value);
}
bool WhiteBoard::getInt32Value(const char* group, const char* name, int32_t* value) const {
    const GroupClient* g = findGroup(group);
    return g && g->getInt32(name, value);
}
bool WhiteBoard::getStringValue(const char* group, const char* name, ut_string* value) const {
    const GroupClient* g = findGroup(group);
    return g && g->getString(name, value);
}
bool WhiteBoard::getStringListValue(const char* group, const char* name,
                                    WBStringList* value) const {
    const GroupClient* g = findGroup(group);
    return g && g->getStringList(name, value);
}

bool WhiteBoard::setBoolValue(const char* group, const char* name, bool value, bool send) {
    bool present = false;
    if (getBoolValue(group, name, &present) && present == value)
        return true;
    STPSpecClassRef hold(this);
    groupFor(group)->setBool(name, value, false);
    if (!send)
        return true;
    STPStatus status;
    WhiteBoardNumberInfo info{const_cast<char*>(group), const_cast<char*>(name), value ? 1 : 0};
    ChangeBoolValue(false, info, nullptr, &status);
    return status.ok();
}

bool WhiteBoard::setInt32Value(const char* group, const char* name, int32_t value, bool send) {
    int32_t present = 0;
    if (getInt32Value(group, name, &present) && present == value)
        return true;
    STPSpecClassRef hold(this);
    groupFor(group)->setInt32(name, value, false);
    if (!send)
        return true;
    STPStatus status;
    WhiteBoardNumberInfo info{const_cast<char*>(group), const_cast<char*>(name), value};
    ChangeInt32Value(false, info, nullptr, &status);
    return status.ok();
}

bool WhiteBoard::setStringValue(const char* group, const char* name, const char* value, bool send) {
    ut_string present;
    if (getStringValue(group, name, &present) && present == key(value))
        return true;
    STPSpecClassRef hold(this);
    groupFor(group)->setString(name, value, false);
    if (!send)
        return true;
    STPStatus status;
    WhiteBoardStringInfo info{const_cast<char*>(group), const_cast<char*>(name),
                              const_cast<char*>(value ? value : "")};
    ChangeStringValue(false, info, nullptr, &status);
    return status.ok();
}

bool WhiteBoard::setStringListValue(const char* group, const char* name, const WBStringList& value,
                                    bool send) {
    WBStringList present;
    if (getStringListValue(group, name, &present) && present == value)
        return true;
    STPSpecClassRef hold(this);
    groupFor(group)->setStringList(name, value, false);
    if (!send)
        return true;
    std::vector<char*> texts;
    for (const ut_string& s : value)
        texts.push_back(const_cast<char*>(s.c_str()));
    STPStatus status;
    WhiteBoardStringListInfo info{const_cast<char*>(group), const_cast<char*>(name),
                                  static_cast<int32_t>(texts.size()),
                                  texts.empty() ? nullptr : texts.data()};
    ChangeStringListValue(false, info, nullptr, &status);
    return status.ok();
}

bool WhiteBoard::deleteName(const char* group, const char* name, int32_t type, bool send) {
    const GroupClient* g = findGroup(group);
    bool any = type == WB_TYPE_ANY;
    bool exists = g && (((any || type == WB_TYPE_BOOL) && g->getBool(name, nullptr)) ||
                        ((any || type == WB_TYPE_INT32) && g->getInt32(name, nullptr)) ||
                        ((any || type == WB_TYPE_STRING) && g->getString(name, nullptr)) ||
                        ((any || type == WB_TYPE_STRINGLIST) && g->getStringList(name, nullptr)));
    if (!exists)
        return true;
    STPSpecClassRef hold(this);
    groupFor(group)->deleteName(name, type, false);
    if (!send)
        return true;
    STPStatus status;
    DeleteName(false, group, name, type, nullptr, &status);
    return status.ok();
}

// ---- Asking the service

bool WhiteBoard::requestAllChanges(RetryHandler* retry) {
    STPStatus status;
    if (!RequestAllChanges(false, nullptr, &status) || !status.ok())
        return false;
    return waitForChanges(retry);
}

bool WhiteBoard::requestChangesInGroup(const char* group, RetryHandler* retry) {
    STPStatus status;
    if (!RequestChangesInGroup(false, group, nullptr, &status) || !status.ok())
        return false;
    return waitForChanges(retry);
}

// Waits for the service's Changes; a connection that goes down ends the wait as well.
bool WhiteBoard::waitForChanges(RetryHandler* retry) {
    STPSpecClassRef hold(this);
    STPTransport* link = getTransport();
    if (link == nullptr)
        return false;
    changes_received = false;
    MessageDepthGuard depth(link);
    stp_wait_until(
        link, retry,
        [&] { return changes_received || link->isDisconnected() || isVirtualConnectionDown(); },
        kChangesSliceMs);
    return changes_received;
}

// ---- Listeners

bool WhiteBoard::addBoolListener(const char* group, WBBoolListener listener) {
    groupFor(group)->addBoolListener(std::move(listener));
    return true;
}
bool WhiteBoard::addInt32Listener(const char* group, WBInt32Listener listener) {
    groupFor(group)->addInt32Listener(std::move(listener));
    return true;
}
bool WhiteBoard::addStringListener(const char* group, WBStringListener listener) {
    groupFor(group)->addStringListener(std::move(listener));
    return true;
}
bool WhiteBoard::addStringListListener(const char* group, WBStringListListener listener) {
    groupFor(group)->addStringListListener(std::move(listener));
    return true;
}
bool WhiteBoard::addDeleteListener(const char* group, WBDeleteListener listener) {
    groupFor(group)->addDeleteListener(std::move(listener));
    return true;
}

// ---- Handlers

void WhiteBoard::SetBoolValue(const WhiteBoardNumberInfo& info) {
    groupFor(info._group)->setBool(info._name, info._value != 0, false);
}

void WhiteBoard::SetInt32Value(const WhiteBoardNumberInfo& info) {
    groupFor(info._group)->setInt32(info._name, info._value, false);
}

void WhiteBoard::SetStringValue(const WhiteBoardStringInfo& info) {
    groupFor(info._group)->setString(info._name, info._value, false);
}

void WhiteBoard::SetStringListValue(const WhiteBoardStringListInfo& info) {
    groupFor(info._group)->setStringList(info._name, listOf(info), false);
}

void WhiteBoard::DeleteEvent(const char* group, const char* name, int32_t type) {
    if (type < WB_TYPE_ANY || type > WB_TYPE_STRINGLIST)
        return;
    if (GroupClient* g = findGroup(group))
        g->deleteName(name, type, false);
}

void WhiteBoard::Changes(const WhiteBoardNumberInfoArray& bool_info_array,
                         const WhiteBoardNumberInfoArray& int32_info_array,
                         const WhiteBoardStringInfoArray& string_info_array,
                         const WhiteBoardStringListInfoArray& stringlist_info_array) {
    STPSpecClassRef hold(this);
    for (int32_t i = 0; i < stp_count(bool_info_array._info, bool_info_array._count); ++i)
        SetBoolValue(bool_info_array._info[i]);
    for (int32_t i = 0; i < stp_count(int32_info_array._info, int32_info_array._count); ++i)
        SetInt32Value(int32_info_array._info[i]);
    for (int32_t i = 0; i < stp_count(string_info_array._info, string_info_array._count); ++i)
        SetStringValue(string_info_array._info[i]);
    for (int32_t i = 0; i < stp_count(stringlist_info_array._info, stringlist_info_array._count);
         ++i)
        SetStringListValue(stringlist_info_array._info[i]);
    changes_received = true;
}

// ---- The global object

WhiteBoard* getWhiteBoard() {
    if (g_whiteBoard == nullptr)
        g_whiteBoard = new WhiteBoard;
    return g_whiteBoard;
}

WhiteBoard* connectWhiteBoard(RetryHandler* retry) {
    if (g_whiteBoard && g_whiteBoard->connected)
        return g_whiteBoard;
    ServiceRouter_Proxy* proxy = getServiceRouterProxy();
    if (proxy == nullptr)
        return nullptr;
    WhiteBoard* whiteboard = getWhiteBoard();
    if (proxy->connectToService("WhiteBoard", whiteboard, nullptr, nullptr, retry, nullptr, false,
                                false, false)) {
        whiteboard->connected = true;
        return whiteboard;
    }
    whiteboard->unref(); // clears the global pointer with it
    g_whiteBoard = nullptr;
    return nullptr;
}

void disconnectWhiteBoard() {
    WhiteBoard* whiteboard = g_whiteBoard;
    if (whiteboard == nullptr)
        return;
    STPSpecClassRef hold(whiteboard);
    if (ServiceRouter_Proxy* proxy = getServiceRouterProxy())
        proxy->dropServiceConnection(whiteboard, nullptr, true);
    g_whiteBoard = nullptr;
    whiteboard->unref();
}
