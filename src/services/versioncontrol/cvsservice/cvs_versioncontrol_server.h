// The server object of "VersionControl.CVS", which carries out the VersionControl requests of
// one client connection with the cvs client, and the factory that makes one per connection.
//
// The handlers live in one source per family: vc_queries.cpp (questions and the pass-through
// to cvs), vc_batch_ops.cpp (lists of files), vc_file_ops.cpp (single files),
// vc_restore_ops.cpp (versions and dates written to a file), vc_last_edit.cpp (annotate). Every
// handler runs on the event-loop thread and blocks it while cvs runs; a failure is a text in
// error_string, never a closed connection. Strings put into reply values belong to the caller (the
// generated dispatcher frees them).
#pragma once

#include "cvs_entries.h"
#include "service_factory.h"
#include "versioncontrol_server.h"

class CVS_VersionControl_Server : public virtual VersionControl_Server {
public:
    CVS_VersionControl_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

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

    // RestoreFileToVersion of `path` into `outname`, a file of the calling operation; what the
    // restore says (if anything) is added to *error_string.
    void restoreForComparison(const char* path, const char* outname, const char* revision,
                              char** error_string);

    // Marks every cached image of a CVS/Entries file of this server as stale, for a command
    // that may have changed any of them.
    void markAllEntriesStale() { entries.markAllStale(); }

    // This client's images of CVS/Entries files; they live and die with the object, so two
    // clients never share them.
    EntriesCache entries;
};

// "VersionControl.CVS", no instance limit, self-registering; makes a CVS_VersionControl_Server
// for each client connection.
class CVS_VersionControl_ServiceFactory : public ServiceFactory {
public:
    CVS_VersionControl_ServiceFactory();
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override;
};
