// The annotate query: which version and line last changed a range of lines.
#include "cvs_versioncontrol_server.h"

void CVS_VersionControl_Server::ShowLastEdit(const char*, int32_t, int32_t, const char*, char**,
                                             int32_t*, char**, int32_t*, int32_t*,
                                             char** error_string) {
    notBuiltYet(error_string);
}
