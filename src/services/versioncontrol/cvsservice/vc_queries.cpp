// Questions about files and the cvs client, and the pass-through of a command to cvs.
#include "cvs_versioncontrol_server.h"

#include "cvs_command.h"
#include "gen_process.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_folders.h"
#include "versctrl_defaultconfig.h"

namespace {
// The login name of the user that runs this process, once known; kept for the process's life.
char g_loginName[64];
} // namespace

void CVS_VersionControl_Server::IsVCOptimistic(bool* is_optimistic, char**) {
    *is_optimistic = true;
}

void CVS_VersionControl_Server::GetVCUsername(char**, char** error_string) {
    *error_string = gen_strdup("GetVCUsername is not implemented.\n");
}

void CVS_VersionControl_Server::FileIsUnderVC(const char*, bool*, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::GetCommentTemplateForFile(const char*, char**,
                                                          char** error_string) {
    notBuiltYet(error_string);
}

// The answer does not depend on the file, so its name is not resolved.
void CVS_VersionControl_Server::GetUserWhoOwnsFile(const char*, char** username, char**) {
    if (g_loginName[0] == '\0' && !plat_user_name(g_loginName, sizeof g_loginName))
        g_loginName[0] = '\0';
    *username = g_loginName[0] ? gen_strdup(g_loginName) : nullptr;
}

void CVS_VersionControl_Server::GetVersionInfo(const char*, const char*, VersionInfo*,
                                               char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::GetStatusInfo(const char*, int32_t*, char**, char**, char**, char**,
                                              char**, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::ShowHistory(const char*, HistoryInfo*, char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::GetPreviousVersionForFile(const char*, const char*, char**,
                                                          char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::GetNextVersionForFile(const char*, const char*, char**,
                                                      char** error_string) {
    notBuiltYet(error_string);
}

void CVS_VersionControl_Server::ExecuteCommandString(const char* command_string,
                                                     char** output_string, char** error_string) {
    // The command may change anything in any working copy.
    markAllEntriesStale();
    // Runs in the current directory of the process, as the client wrote it: nothing is
    // resolved, checked or quoted.
    char* line = gen_concat3(cvsCommand(), " ", command_string);
    char* out = nullptr;
    char* err = nullptr;
    bool ok = captureCommand(line, &out, &err, nullptr, nullptr, versctrlCVSTimeLimitSeconds());
    gen_free(line);
    if (ok) {
        *output_string = out;
        *error_string = err;
        return;
    }
    gen_free(out);
    *error_string =
        gen_concat2("Error: Unable to execute command string. Command reported:\n", err);
    gen_free(err);
}
