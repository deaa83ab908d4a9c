// The groups the WhiteBoard service keeps for its clients: their values, who hears of their
// changes, and the files of those kept on disk.
#pragma once

#include "whiteboard_group.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

// One client connection as the store sees it: where the changes of others go. Telling only
// queues one-way messages; nothing waits.
class WhiteBoardPeer {
public:
    virtual ~WhiteBoardPeer();
    virtual void tellBool(const char* group, const char* name, bool value) = 0;
    virtual void tellInt32(const char* group, const char* name, int32_t value) = 0;
    virtual void tellString(const char* group, const char* name, const char* value) = 0;
    virtual void tellStringList(const char* group, const char* name, const WBStringList& value) = 0;
    virtual void tellDelete(const char* group, const char* name, int32_t type) = 0;
};

// A group comes to be at its first mention (a registration or a change). A change that alters
// a value is written to the group's file first, when the group is kept on disk, and then told
// to every other peer that registered the group with broadcast on. A group file that does not
// parse is reported once and never written in this run, so that nothing in it is lost; the
// group goes on in memory. Failures are reported through the general reporter and never stop
// the service. Peers are not owned; a peer that goes must be forgotten.
class WhiteBoardStore {
public:
    WhiteBoardStore();
    ~WhiteBoardStore();
    WhiteBoardStore(const WhiteBoardStore&) = delete;
    WhiteBoardStore& operator=(const WhiteBoardStore&) = delete;

    // With `broadcast`, `from` hears of others' changes to the group. With `useDisk` or a `file`
    // (a full path; null for none), the group is kept in that file (the group's default file
    // without one): read now, written after each change. The first file given stays the
    // group's file.
    void registerGroup(WhiteBoardPeer* from, const char* group, bool broadcast, bool useDisk,
                       const char* file);
    void changeBool(WhiteBoardPeer* from, const char* group, const char* name, bool value);
    void changeInt32(WhiteBoardPeer* from, const char* group, const char* name, int32_t value);
    void changeString(WhiteBoardPeer* from, const char* group, const char* name, const char* value);
    void changeStringList(WhiteBoardPeer* from, const char* group, const char* name,
                          const WBStringList& value);
    void deleteName(WhiteBoardPeer* from, const char* group, const char* name, int32_t type);
    // Writes the group to `file` (a full path), or to its own or default file when null. False
    // for an unknown group, a file known to be broken, or a failed write (reported).
    bool saveGroup(const char* group, const char* file);

    // Every "<group>.wbd" in `dir` becomes a group kept in that file, read now: the groups a
    // user keeps in the WhiteBoard folder are there before any client asks.
    void loadDirectory(const char* dir);

    // Null when there is no such group.
    const Group* findGroup(const char* group) const;
    std::vector<const Group*> allGroups() const;
    // The file a group is kept in, or "" when it is not kept on disk.
    std::string fileOf(const char* group) const;
    void forget(WhiteBoardPeer* peer);

private:
    struct Kept {
        std::unique_ptr<Group> values;
        std::string file; // "" unless kept on disk
        std::set<WhiteBoardPeer*> listeners;
    };
    Kept& keep(const char* group);
    // After a change of `kept`: the file, then the other listeners.
    template <class Tell> void changed(Kept& kept, WhiteBoardPeer* from, Tell tell);
    bool write(const Group& group, const std::string& file);

    std::map<ut_string, Kept> groups;
    std::set<std::string> brokenFiles; // files that did not parse: never written in this run
};
