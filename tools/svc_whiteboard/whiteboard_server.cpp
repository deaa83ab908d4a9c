// One WhiteBoard connection at the service, and its factory.
#include "whiteboard_server.h"

#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "servicerouter_proxy.h"
#include "ut_retryhandler.h"
#include "whiteboard_files.h"

#include <vector>

namespace {

int g_liveServers = 0;

// A wait that gives up at once: what is known now, or nothing.
class NoWait : public RetryHandler {
public:
    bool canContinue() override { return false; }
    void wait() override {}
};

char* text(const char* s) {
    return const_cast<char*>(s ? s : "");
}

WBStringList listOf(const WhiteBoardStringListInfo& info) {
    WBStringList list;
    for (int32_t i = 0; i < stp_count(info._value, info._value_count); ++i)
        list.push_back(ut_string(info._value[i] ? info._value[i] : ""));
    return list;
}

// The char* views of a list, for a record that is only read while the list lives.
std::vector<char*> viewsOf(const WBStringList& list) {
    std::vector<char*> views;
    for (const ut_string& s : list)
        views.push_back(const_cast<char*>(s.c_str()));
    return views;
}

} // namespace

WhiteBoardServer::WhiteBoardServer(WhiteBoardStore* groupStore, STPTransport* transport,
                                   uint32_t localRN, uint32_t remoteRN)
    : store(groupStore) {
    attachTransport(transport, localRN, remoteRN);
    ++g_liveServers;
}

WhiteBoardServer::~WhiteBoardServer() {
    store->forget(this);
    --g_liveServers;
}

int WhiteBoardServer::liveCount() {
    return g_liveServers;
}

void WhiteBoardServer::virtualConnectionDown() {
    store->forget(this);
}

std::string WhiteBoardServer::resolve(const char* file) {
    if (file == nullptr || *file == '\0')
        return std::string();
    if (gen_is_absolute(file))
        return file;
    // The client's "cwd" as it came with the connection, without asking for it: a wait here
    // would let this client's later messages run before this one is done. Clients of the
    // router client send it with every connection request.
    NoWait noWait;
    ServiceRouter_Proxy* proxy = getServiceRouterProxy();
    char* full = proxy ? proxy->fullPathForConnection(this, file, &noWait) : nullptr;
    std::string result = full ? full : file;
    gen_free(full);
    if (gen_is_absolute(result.c_str()))
        return result;
    // No "cwd" known: the WhiteBoard folder.
    char* joined = gen_path_join(whiteBoardDirectory(), file);
    result = joined ? joined : file;
    gen_free(joined);
    return result;
}

// ---- Requests of the client

void WhiteBoardServer::ChangeBoolValue(const WhiteBoardNumberInfo& info) {
    store->changeBool(this, info._group, info._name, info._value != 0);
}

void WhiteBoardServer::ChangeInt32Value(const WhiteBoardNumberInfo& info) {
    store->changeInt32(this, info._group, info._name, info._value);
}

void WhiteBoardServer::ChangeStringListValue(const WhiteBoardStringListInfo& info) {
    store->changeStringList(this, info._group, info._name, listOf(info));
}

void WhiteBoardServer::ChangeStringValue(const WhiteBoardStringInfo& info) {
    store->changeString(this, info._group, info._name, info._value);
}

void WhiteBoardServer::DeleteName(const char* group, const char* name, int32_t type) {
    store->deleteName(this, group, name, type);
}

void WhiteBoardServer::RegisterGroup(const char* groupname, bool broadcast_changes, bool use_disk,
                                     const char* use_filename) {
    STPSpecClassRef hold(this); // resolving may wait, and other handlers run meanwhile
    std::string file = resolve(use_filename);
    store->registerGroup(this, groupname, broadcast_changes, use_disk,
                         file.empty() ? nullptr : file.c_str());
}

void WhiteBoardServer::RequestAllChanges() {
    sendChanges(store->allGroups());
}

void WhiteBoardServer::RequestChangesInGroup(const char* groupname) {
    std::vector<const Group*> groups;
    if (const Group* group = store->findGroup(groupname))
        groups.push_back(group);
    sendChanges(groups);
}

void WhiteBoardServer::SaveGroupChangesToFile(const char* groupname, const char* filename) {
    STPSpecClassRef hold(this);
    std::string file = resolve(filename);
    store->saveGroup(groupname, file.empty() ? nullptr : file.c_str());
}

void WhiteBoardServer::sendChanges(const std::vector<const Group*>& groups) {
    std::vector<WhiteBoardNumberInfo> bools, int32s;
    std::vector<WhiteBoardStringInfo> strings;
    std::vector<WhiteBoardStringListInfo> lists;
    // The elements of the lists, alive until the send; an inner vector keeps its buffer when
    // the outer one grows.
    std::vector<std::vector<char*>> views;
    for (const Group* group : groups) {
        char* g = text(group->getName());
        for (const auto& [name, value] : group->bools())
            bools.push_back({g, text(name.c_str()), value ? 1 : 0});
        for (const auto& [name, value] : group->int32s())
            int32s.push_back({g, text(name.c_str()), value});
        for (const auto& [name, value] : group->strings())
            strings.push_back({g, text(name.c_str()), text(value.c_str())});
        for (const auto& [name, value] : group->stringLists()) {
            views.push_back(viewsOf(value));
            std::vector<char*>& v = views.back();
            lists.push_back({g, text(name.c_str()), static_cast<int32_t>(v.size()),
                             v.empty() ? nullptr : v.data()});
        }
    }
    auto size = [](size_t n) { return static_cast<int32_t>(n); };
    Changes(false, WhiteBoardNumberInfoArray{size(bools.size()), bools.data()},
            WhiteBoardNumberInfoArray{size(int32s.size()), int32s.data()},
            WhiteBoardStringInfoArray{size(strings.size()), strings.data()},
            WhiteBoardStringListInfoArray{size(lists.size()), lists.data()});
}

// ---- Changes of others

void WhiteBoardServer::tellBool(const char* group, const char* name, bool value) {
    SetBoolValue(false, WhiteBoardNumberInfo{text(group), text(name), value ? 1 : 0});
}

void WhiteBoardServer::tellInt32(const char* group, const char* name, int32_t value) {
    SetInt32Value(false, WhiteBoardNumberInfo{text(group), text(name), value});
}

void WhiteBoardServer::tellString(const char* group, const char* name, const char* value) {
    SetStringValue(false, WhiteBoardStringInfo{text(group), text(name), text(value)});
}

void WhiteBoardServer::tellStringList(const char* group, const char* name,
                                      const WBStringList& value) {
    std::vector<char*> v = viewsOf(value);
    SetStringListValue(false, WhiteBoardStringListInfo{text(group), text(name),
                                                       static_cast<int32_t>(v.size()),
                                                       v.empty() ? nullptr : v.data()});
}

void WhiteBoardServer::tellDelete(const char* group, const char* name, int32_t type) {
    DeleteEvent(false, text(group), text(name), type);
}

// ---- Factory

WhiteBoardServiceFactory::WhiteBoardServiceFactory(WhiteBoardStore* groupStore)
    : ServiceFactory("WhiteBoard", -1, true), store(groupStore) {}

STPSpecClass* WhiteBoardServiceFactory::createService(STPTransport* transport, uint32_t serviceRN,
                                                      uint32_t remoteRN) {
    return new WhiteBoardServer(store, transport, serviceRN, remoteRN);
}
