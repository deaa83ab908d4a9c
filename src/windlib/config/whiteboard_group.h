// WhiteBoard groups: a named set of typed name/value pairs (Group), and the group of a WhiteBoard
// client with the listeners through which the process hears of changes (GroupClient).
#pragma once

#include "ut_string.h"

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

class WhiteBoard;

// Type codes of values, on the wire and in deleteName.
enum : int32_t {
    WB_TYPE_ANY = 0, // only for deleting: every type
    WB_TYPE_BOOL = 1,
    WB_TYPE_INT32 = 2,
    WB_TYPE_STRING = 3,
    WB_TYPE_STRINGLIST = 4,
};

using WBStringList = std::vector<ut_string>;

// The plain store. The four maps are separate: one name may exist once in each type. They are
// ordered by byte comparison of the names. Setting a value that a name already has changes
// nothing and gives false; the quiet flag means nothing here.
class Group {
public:
    explicit Group(const char* name);
    virtual ~Group();
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    virtual bool setBool(const char* name, bool value, bool quiet);
    virtual bool setInt32(const char* name, int32_t value, bool quiet);
    // A null value counts as empty.
    virtual bool setString(const char* name, const char* value, bool quiet);
    virtual bool setStringList(const char* name, const WBStringList& value, bool quiet);
    // Removes the name from the map of `type` (WB_TYPE_ANY: from all four). True if anything
    // went; a type above 4 removes nothing.
    virtual bool deleteName(const char* name, int32_t type, bool quiet);

    // False when this type's map has no such name; *out is then untouched.
    bool getBool(const char* name, bool* out) const;
    bool getInt32(const char* name, int32_t* out) const;
    bool getString(const char* name, ut_string* out) const;
    bool getStringList(const char* name, WBStringList* out) const;

    const char* getName() const { return name.c_str(); }
    const std::map<ut_string, bool>& bools() const { return boolMap; }
    const std::map<ut_string, int32_t>& int32s() const { return int32Map; }
    const std::map<ut_string, ut_string>& strings() const { return stringMap; }
    const std::map<ut_string, WBStringList>& stringLists() const { return stringListMap; }

protected:
    ut_string name;
    std::map<ut_string, bool> boolMap;
    std::map<ut_string, int32_t> int32Map;
    std::map<ut_string, ut_string> stringMap;
    std::map<ut_string, WBStringList> stringListMap;
};

using WBNameListener = std::function<void(const char* group, const char* name)>;
using WBBoolListener = std::function<void(const char* group, const char* name, bool value)>;
using WBInt32Listener = std::function<void(const char* group, const char* name, int32_t value)>;
using WBStringListener =
    std::function<void(const char* group, const char* name, const char* value)>;
using WBStringListListener =
    std::function<void(const char* group, const char* name, const WBStringList& value)>;
using WBDeleteListener = std::function<void(const char* group, const char* name, int32_t type)>;

// A group with listeners. A change that took place calls the listeners of its type in order
// (also when quiet), then, unless quiet, the name listeners of exactly this name and then those
// registered for every name. Listeners run on the caller's stack and may add listeners; they
// must not destroy the group. At construction the group takes in the process-wide callbacks
// registered for its name (whiteboard_defaults.h); later registrations do not reach it.
class GroupClient : public Group {
public:
    // `whiteboard` is the owner, not owned; may be null for a group on its own.
    GroupClient(const char* name, WhiteBoard* whiteboard);

    bool setBool(const char* name, bool value, bool quiet) override;
    bool setInt32(const char* name, int32_t value, bool quiet) override;
    bool setString(const char* name, const char* value, bool quiet) override;
    bool setStringList(const char* name, const WBStringList& value, bool quiet) override;
    bool deleteName(const char* name, int32_t type, bool quiet) override;

    // A null key means every name.
    void addNameListener(const char* key, WBNameListener listener);
    void addBoolListener(WBBoolListener listener) { boolListeners.push_back(std::move(listener)); }
    void addInt32Listener(WBInt32Listener listener) {
        int32Listeners.push_back(std::move(listener));
    }
    void addStringListener(WBStringListener listener) {
        stringListeners.push_back(std::move(listener));
    }
    void addStringListListener(WBStringListListener listener) {
        stringListListeners.push_back(std::move(listener));
    }
    void addDeleteListener(WBDeleteListener listener) {
        deleteListeners.push_back(std::move(listener));
    }

    WhiteBoard* getWhiteBoard() const { return whiteboard; }

private:
    // The name listeners of `item`, then those of every name; over copies, so that a listener
    // may add more.
    void fireNames(const char* item);
    template <class Listener, class... Args>
    void fire(const std::vector<Listener>& list, const Args&... args);

    WhiteBoard* whiteboard;
    std::multimap<ut_string, WBNameListener> nameListeners;
    std::vector<WBNameListener> everyNameListeners;
    std::vector<WBBoolListener> boolListeners;
    std::vector<WBInt32Listener> int32Listeners;
    std::vector<WBStringListener> stringListeners;
    std::vector<WBStringListListener> stringListListeners;
    std::vector<WBDeleteListener> deleteListeners;
};
