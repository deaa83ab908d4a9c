#include "versioncontrol_server.h"

#include "gen_string.h"

namespace {
int32_t g_liveServers = 0;
VersionControl_Server_ExitCondition g_exitCondition;

void refuse(char** error_string) {
    *error_string = gen_strdup(CVS_VersionControl_Server::kNotAvailable);
}
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

const char* const CVS_VersionControl_Server::kNotAvailable =
    "This build of the VersionControl service does not carry out requests yet.\n";

CVS_VersionControl_Server::CVS_VersionControl_Server(STPTransport* transport, uint32_t localRN,
                                                     uint32_t remoteRN)
    : VersionControl_Server(transport, localRN, remoteRN) {}

void CVS_VersionControl_Server::IsVCOptimistic(bool*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetVCUsername(char**, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::FileIsUnderVC(const char*, bool*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetCommentTemplateForFile(const char*, char**,
                                                          char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::AddFilesToVC(const StringList&, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CommitFiles(const StringList&, const char*, StringList*,
                                            char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CommitDirectories(const StringList&, const char*,
                                                  char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CheckOutFiles(const StringList&, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::RemoveFiles(const StringList&, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::UnremoveFiles(const StringList&, StringList*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::PlaceFileUnderVC(const char*, bool, const char*,
                                                 char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CheckInFile(const char*, const char*, char**, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CheckOutFile(const char*, const char*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::CheckOutFileByVersion(const char*, const char*,
                                                      char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetFile(const char*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::RestoreFileToDate(const char*, const char*, const char*, bool,
                                                  char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::RestoreFileToVersion(const char*, const char*, const char*, bool,
                                                     char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::UncheckFile(const char*, const char*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetUserWhoOwnsFile(const char*, char**, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetVersionInfo(const char*, const char*, VersionInfo*,
                                               char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetStatusInfo(const char*, int32_t*, char**, char**, char**, char**,
                                              char**, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::ShowHistory(const char*, HistoryInfo*, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetPreviousVersionForFile(const char*, const char*, char**,
                                                          char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::GetNextVersionForFile(const char*, const char*, char**,
                                                      char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::ExecuteCommandString(const char*, char**, char** error_string) {
    refuse(error_string);
}

void CVS_VersionControl_Server::ShowLastEdit(const char*, int32_t, int32_t, const char*, char**,
                                             int32_t*, char**, int32_t*, int32_t*,
                                             char** error_string) {
    refuse(error_string);
}
