// The VersionControl service's server objects: the base with its life-cycle bookkeeping and the
// exit condition that counts live objects, and the object the factory of "VersionControl.CVS"
// makes for each client connection.
#pragma once

#include "stp_retryhandler.h"
#include "svc_eventloop.h"
#include "versioncontrol_server_impl.h"

#include <cstdint>

// The server of one client connection. Made with one reference (the factory's caller holds it)
// and bound to `transport` under the connection's route numbers at once; its default retry
// handler is a VCRetryHandler with a limit of 300000 ms. Adds one to the process-wide live count
// while it exists.
class VersionControl_Server : public virtual VersionControl_server_Impl {
public:
    VersionControl_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    // Refusals of the base, for servers that cannot do these.
    void CommitDirectories(const StringList& directories, const char* comments,
                           char** error_string) override;
    void UnremoveFiles(const StringList& filenames, StringList* new_versions,
                       char** error_string) override;

    // How many objects of this class live in the process.
    static int32_t liveCount();

protected:
    ~VersionControl_Server() override;
};

// Lets the process end once no VersionControl server object is left.
class VersionControl_Server_ExitCondition : public ExitCondition {
public:
    VersionControl_Server_ExitCondition() : ExitCondition(true) {}
    bool canExit() override;
    bool mustExit() override;
};

// The server object of "VersionControl.CVS". This build negotiates the protocol and answers
// every request with an error text: carrying the requests out with cvs is not part of it yet.
class CVS_VersionControl_Server : public virtual VersionControl_Server {
public:
    CVS_VersionControl_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    // The text of every answer of this build.
    static const char* const kNotAvailable;

    void IsVCOptimistic(bool* is_optimistic, char** error_string) override;
    void GetVCUsername(char** vc_username, char** error_string) override;
    void FileIsUnderVC(const char* filename, bool* result, char** error_string) override;
    void GetCommentTemplateForFile(const char* filename, char** comment_template,
                                   char** error_string) override;
    void AddFilesToVC(const StringList& filenames, char** error_string) override;
    void CommitFiles(const StringList& filenames, const char* comments,
                     StringList* new_local_versions, char** error_string) override;
    void CommitDirectories(const StringList& directories, const char* comments,
                           char** error_string) override;
    void CheckOutFiles(const StringList& filenames, char** error_string) override;
    void RemoveFiles(const StringList& filenames, char** error_string) override;
    void UnremoveFiles(const StringList& filenames, StringList* new_versions,
                       char** error_string) override;
    void PlaceFileUnderVC(const char* filename, bool forced, const char* comments,
                          char** error_string) override;
    void CheckInFile(const char* filename, const char* comments, char** new_local_version,
                     char** error_string) override;
    void CheckOutFile(const char* logname, const char* filename, char** error_string) override;
    void CheckOutFileByVersion(const char* filename, const char* version,
                               char** error_string) override;
    void GetFile(const char* filename, char** error_string) override;
    void RestoreFileToDate(const char* sourcename, const char* outname, const char* date_str,
                           bool use_current_time, char** error_string) override;
    void RestoreFileToVersion(const char* sourcename, const char* outname, const char* version_str,
                              bool use_current_time, char** error_string) override;
    void UncheckFile(const char* logname, const char* filename, char** error_string) override;
    void GetUserWhoOwnsFile(const char* filename, char** username, char** error_string) override;
    void GetVersionInfo(const char* filename, const char* version, VersionInfo* info,
                        char** error_string) override;
    void GetStatusInfo(const char* filename, int32_t* status_type, char** status_str,
                       char** local_version, char** remote_version, char** tag, char** locked_by,
                       char** error_string) override;
    void ShowHistory(const char* filename, HistoryInfo* history_info, char** error_string) override;
    void GetPreviousVersionForFile(const char* filename, const char* version,
                                   char** previous_version, char** error_string) override;
    void GetNextVersionForFile(const char* filename, const char* version, char** next_version,
                               char** error_string) override;
    void ExecuteCommandString(const char* command_string, char** output_string,
                              char** error_string) override;
    void ShowLastEdit(const char* filename, int32_t from, int32_t to, const char* theversion,
                      char** version, int32_t* lineno, char** postver, int32_t* postlineno,
                      int32_t* ret_val, char** error_string) override;

protected:
    ~CVS_VersionControl_Server() override = default;
};
