// Restores: the content of a version or a date of a file, written to a file of the client's.
#include "cvs_versioncontrol_server.h"

void CVS_VersionControl_Server::CheckOutFileByVersion(const char*, const char*,
                                                      char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::RestoreFileToDate(const char*, const char*, const char*, bool,
                                                  char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::RestoreFileToVersion(const char*, const char*, const char*, bool,
                                                     char** error_string) {
    notBuiltYet(error_string);
}
