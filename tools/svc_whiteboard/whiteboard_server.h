// The service end of one WhiteBoard connection, and the factory that makes one per client.
#pragma once

#include "service_factory.h"
#include "whiteboard_server_impl.h"
#include "whiteboard_store.h"

// Made by the factory on the router transport with the connection's route numbers; lives as
// long as the proxy's record of the connection. Every handler works on the shared store and
// answers with one-way messages that are only queued: nothing here waits, so a client's
// messages are taken in the order they came.
class WhiteBoardServer : public WhiteBoard_server_Impl, public WhiteBoardPeer {
public:
    // `store` is not owned and outlives every server.
    WhiteBoardServer(WhiteBoardStore* store, STPTransport* transport, uint32_t localRN,
                     uint32_t remoteRN);

    // How many server objects exist now.
    static int liveCount();

    void ChangeBoolValue(const WhiteBoardNumberInfo& info) override;
    void ChangeInt32Value(const WhiteBoardNumberInfo& info) override;
    void ChangeStringListValue(const WhiteBoardStringListInfo& info) override;
    void ChangeStringValue(const WhiteBoardStringInfo& info) override;
    void DeleteName(const char* group, const char* name, int32_t type) override;
    void RegisterGroup(const char* groupname, bool broadcast_changes, bool use_disk,
                       const char* use_filename) override;
    // Each answered with one Changes holding every value concerned (an unknown group: none).
    void RequestAllChanges() override;
    void RequestChangesInGroup(const char* groupname) override;
    void SaveGroupChangesToFile(const char* groupname, const char* filename) override;

    // The connection went: no change is told here any more.
    void virtualConnectionDown() override;

    void tellBool(const char* group, const char* name, bool value) override;
    void tellInt32(const char* group, const char* name, int32_t value) override;
    void tellString(const char* group, const char* name, const char* value) override;
    void tellStringList(const char* group, const char* name, const WBStringList& value) override;
    void tellDelete(const char* group, const char* name, int32_t type) override;

protected:
    ~WhiteBoardServer() override;

private:
    void sendChanges(const std::vector<const Group*>& groups);
    // A file name of the client as a path of this process: a relative one is taken against
    // the client's "cwd" when it came with the connection, else against the WhiteBoard folder.
    // Empty for none.
    std::string resolve(const char* file);

    WhiteBoardStore* store;
};

// The factory of "WhiteBoard": self-registering, no instance limit.
class WhiteBoardServiceFactory : public ServiceFactory {
public:
    explicit WhiteBoardServiceFactory(WhiteBoardStore* store);
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override;

private:
    WhiteBoardStore* store;
};
