// Operations on lists of files, cut into groups with one cvs command each.
#include "cvs_versioncontrol_server.h"

void CVS_VersionControl_Server::AddFilesToVC(const StringList&, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::CommitFiles(const StringList&, const char*, StringList*,
                                            char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::CommitDirectories(const StringList&, const char*,
                                                  char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::CheckOutFiles(const StringList&, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::RemoveFiles(const StringList&, char** error_string) {
    notBuiltYet(error_string);
}
