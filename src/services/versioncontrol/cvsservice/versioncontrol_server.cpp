#include "versioncontrol_server.h"

#include "gen_string.h"

namespace {
int32_t g_liveServers = 0;
VersionControl_Server_ExitCondition g_exitCondition;
} // namespace

VersionControl_Server::VersionControl_Server(STPTransport* transport, uint32_t localRN,
                                             uint32_t remoteRN) {
    ++g_liveServers;
    attachTransport(transport, localRN, remoteRN);
    setRetryHandler(new VCRetryHandler(this, transport, VCRetryHandler::kDefaultLimitMs));
}

VersionControl_Server::~VersionControl_Server() {
    --g_liveServers;
}

int32_t VersionControl_Server::liveCount() {
    return g_liveServers;
}

void VersionControl_Server::CommitDirectories(const StringList&, const char*, char** error_string) {
    *error_string =
        gen_strdup("Commit directories is not supported in this version control server.\n");
}

void VersionControl_Server::UnremoveFiles(const StringList&, StringList* new_versions,
                                          char** error_string) {
    *new_versions = StringList{};
    *error_string = gen_strdup("Unremove files is not supported in this version control server.\n");
}

bool VersionControl_Server_ExitCondition::canExit() {
    return VersionControl_Server::liveCount() == 0;
}

bool VersionControl_Server_ExitCondition::mustExit() {
    return false;
}
