// The groups of the WhiteBoard service.
#include "whiteboard_store.h"

#include "durable_file.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "group_files.h"
#include "indgen.h"
#include "whiteboard_files.h"

WhiteBoardPeer::~WhiteBoardPeer() = default;

WhiteBoardStore::WhiteBoardStore() = default;
WhiteBoardStore::~WhiteBoardStore() = default;

WhiteBoardStore::Kept& WhiteBoardStore::keep(const char* group) {
    ut_string key(group ? group : "");
    auto it = groups.find(key);
    if (it == groups.end()) {
        it = groups.emplace(key, Kept()).first;
        it->second.values = std::make_unique<Group>(key.c_str());
    }
    return it->second;
}

const Group* WhiteBoardStore::findGroup(const char* group) const {
    auto it = groups.find(ut_string(group ? group : ""));
    return it == groups.end() ? nullptr : it->second.values.get();
}

std::vector<const Group*> WhiteBoardStore::allGroups() const {
    std::vector<const Group*> all;
    for (const auto& [name, kept] : groups)
        all.push_back(kept.values.get());
    return all;
}

std::string WhiteBoardStore::fileOf(const char* group) const {
    auto it = groups.find(ut_string(group ? group : ""));
    return it == groups.end() ? std::string() : it->second.file;
}

void WhiteBoardStore::forget(WhiteBoardPeer* peer) {
    for (auto& [name, kept] : groups)
        kept.listeners.erase(peer);
}

void WhiteBoardStore::registerGroup(WhiteBoardPeer* from, const char* group, bool broadcast,
                                    bool useDisk, const char* file) {
    Kept& kept = keep(group);
    if (broadcast && from)
        kept.listeners.insert(from);
    if ((!useDisk && !file) || !kept.file.empty())
        return;
    if (file && *file) {
        kept.file = file;
    } else {
        char* path = defaultGroupFile(kept.values->getName());
        kept.file = path;
        gen_free(path);
    }
    removeStaleTemporaries(kept.file.c_str());
    if (loadGroupFile(kept.values.get(), kept.file.c_str()) == GroupFileRead::broken) {
        brokenFiles.insert(kept.file);
        gen_error("group \"%s\": the file %s cannot be read; it is left as it is and the "
                  "group's changes are not written to it",
                  kept.values->getName(), kept.file.c_str());
    }
}

void WhiteBoardStore::loadDirectory(const char* dir) {
    GenDir listing;
    if (dir == nullptr || !gen_dir_open(&listing, dir))
        return;
    gen_dir_options(&listing, true, true, false);
    std::vector<std::string> files;
    while (const char* name = gen_dir_next(&listing))
        if (name[0] != '.' && gen_has_extension(name, "wbd"))
            files.push_back(listing.entryPath);
    gen_dir_close(&listing);
    for (const std::string& file : files) {
        char* group = gen_set_extension(gen_basename(file.c_str()), nullptr);
        registerGroup(nullptr, group, false, true, file.c_str());
        gen_free(group);
    }
}

bool WhiteBoardStore::write(const Group& group, const std::string& file) {
    if (brokenFiles.count(file)) {
        gen_error("group \"%s\": not written, %s could not be read at start", group.getName(),
                  file.c_str());
        return false;
    }
    std::string error;
    if (replaceFileDurably(file.c_str(), groupFileText(group), &error))
        return true;
    gen_error("group \"%s\": %s", group.getName(), error.c_str());
    return false;
}

template <class Tell> void WhiteBoardStore::changed(Kept& kept, WhiteBoardPeer* from, Tell tell) {
    // On disk first: a peer that hears of a change may count on it being kept.
    if (!kept.file.empty() && !brokenFiles.count(kept.file))
        write(*kept.values, kept.file);
    std::vector<WhiteBoardPeer*> listeners(kept.listeners.begin(), kept.listeners.end());
    for (WhiteBoardPeer* peer : listeners)
        if (peer != from)
            tell(peer);
}

void WhiteBoardStore::changeBool(WhiteBoardPeer* from, const char* group, const char* name,
                                 bool value) {
    Kept& kept = keep(group);
    if (kept.values->setBool(name, value, false))
        changed(kept, from, [&](WhiteBoardPeer* p) { p->tellBool(group, name, value); });
}

void WhiteBoardStore::changeInt32(WhiteBoardPeer* from, const char* group, const char* name,
                                  int32_t value) {
    Kept& kept = keep(group);
    if (kept.values->setInt32(name, value, false))
        changed(kept, from, [&](WhiteBoardPeer* p) { p->tellInt32(group, name, value); });
}

void WhiteBoardStore::changeString(WhiteBoardPeer* from, const char* group, const char* name,
                                   const char* value) {
    Kept& kept = keep(group);
    if (kept.values->setString(name, value, false))
        changed(kept, from,
                [&](WhiteBoardPeer* p) { p->tellString(group, name, value ? value : ""); });
}

void WhiteBoardStore::changeStringList(WhiteBoardPeer* from, const char* group, const char* name,
                                       const WBStringList& value) {
    Kept& kept = keep(group);
    if (kept.values->setStringList(name, value, false))
        changed(kept, from, [&](WhiteBoardPeer* p) { p->tellStringList(group, name, value); });
}

void WhiteBoardStore::deleteName(WhiteBoardPeer* from, const char* group, const char* name,
                                 int32_t type) {
    auto it = groups.find(ut_string(group ? group : ""));
    if (it == groups.end())
        return;
    if (it->second.values->deleteName(name, type, false))
        changed(it->second, from, [&](WhiteBoardPeer* p) { p->tellDelete(group, name, type); });
}

bool WhiteBoardStore::saveGroup(const char* group, const char* file) {
    auto it = groups.find(ut_string(group ? group : ""));
    if (it == groups.end()) {
        gen_warning("SaveGroupChangesToFile: there is no group \"%s\"", group ? group : "");
        return false;
    }
    std::string path;
    if (file && *file) {
        path = file;
    } else if (!it->second.file.empty()) {
        path = it->second.file;
    } else {
        char* fallback = defaultGroupFile(it->second.values->getName());
        path = fallback;
        gen_free(fallback);
    }
    return write(*it->second.values, path);
}
