// Operations on one file, run in the file's own directory.
#include "cvs_versioncontrol_server.h"

void CVS_VersionControl_Server::UnremoveFiles(const StringList&, StringList*, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::PlaceFileUnderVC(const char*, bool, const char*,
                                                 char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::CheckInFile(const char*, const char*, char**, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::CheckOutFile(const char*, const char*, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::GetFile(const char*, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::UncheckFile(const char*, const char*, char** error_string) {
    notBuiltYet(error_string);
}
