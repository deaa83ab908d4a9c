// Questions about files and the cvs client, and the pass-through of a command to cvs.
#include "cvs_versioncontrol_server.h"

#include "client_path.h"
#include "cvs_command.h"
#include "cvs_parsers.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_process.h"
#include "gen_string.h"
#include "gen_tempname.h"
#include "indgen.h"
#include "plat_folders.h"
#include "ut_stringpool.h"
#include "versctrl_defaultconfig.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {
// The login name of the user that runs this process, once known; kept for the process's life.
char g_loginName[64];

// Behind an operation's failure lead when the request named no file at all.
const char* const kNoFileName = "No file name was given.\n";

// The file of a query: the client's name resolved against its "cwd", the directory in which
// cvs runs for it (null when the name has none: the current one) and the name cvs is given.
// Nothing is marked stale, since a query changes nothing.
struct FileForQuery {
    FileForQuery(STPSpecClass* connection, const char* filename)
        : path(ClientPath(connection, filename)), dir(gen_dirname(path)),
          base(path ? gen_basename(path) : nullptr) {}
    ~FileForQuery() {
        gen_free(dir);
        gen_free(path);
    }
    FileForQuery(const FileForQuery&) = delete;
    FileForQuery& operator=(const FileForQuery&) = delete;

    // The directory whose CVS/ files describe the file.
    const char* adminDir() const { return dir ? dir : "."; }

    char* const path; // null when the request named no file
    char* const dir;
    const char* const base;
};

// The version that CVS/Entries gives the file (a new file's is "New File"), or null when it
// has no entry there.
char* versionInEntries(EntriesCache* entries, STPSpecClass* connection, const char* filename) {
    FileForQuery file(connection, filename);
    if (file.path == nullptr)
        return nullptr;
    ut_string version = entries->entriesFor(file.adminDir())->version(file.base);
    return version.isNull() ? nullptr : gen_strdup(version.c_str());
}

// What the log of one revision says of it.
struct VersionLogEntry {
    char* date = nullptr;
    char* author = nullptr;
    char* comments = nullptr; // null when the revision has no message lines
};

// The text from `from` to the next `;`, or null when there is none.
char* upToSemicolon(const char* from) {
    const char* end = std::strchr(from, ';');
    return end ? gen_strndup(from, static_cast<int>(end - from)) : nullptr;
}

// Reads the log of one revision that cvs wrote to `logFile`: the date and author from the first
// line that begins with "date: ", then every further line up to the closing line of equal
// signs as the message. False with *error_string set when the log has no such line or the line
// lacks its parts. A file that can't be opened gives an empty entry and true.
bool readVersionLog(const char* logFile, VersionLogEntry* entry, char** error_string) {
    FILE* in = gen_fopen(logFile, "re");
    if (in == nullptr)
        return true;
    char* line = nullptr;
    int capacity = 0;
    bool found = false;
    while (gen_readline(in, &line, &capacity))
        if (std::strncmp(line, "date: ", 6) == 0) {
            found = true;
            break;
        }
    bool ok = false;
    if (!found) {
        *error_string = gen_strdup(
            "Error: Unexpected log output from CVS. Unable to get version information.\n");
    } else {
        char* date = upToSemicolon(line + 6);
        const char* authorAt = std::strstr(line + 6, "author: ");
        char* author = date && authorAt ? upToSemicolon(authorAt + 8) : nullptr;
        if (author == nullptr) {
            gen_free(date);
            *error_string = gen_concat2("Error: Unexpected log output from CVS. Line is:\n", line);
        } else {
            entry->date = date;
            entry->author = author;
            const char* closing =
                "=============================================================================";
            std::string comments;
            bool any = false;
            while (gen_readline(in, &line, &capacity) && !std::strstr(line, closing)) {
                comments.append(line).append("\n");
                any = true;
            }
            entry->comments = any ? gen_strdup(comments.c_str()) : nullptr;
            ok = true;
        }
    }
    gen_free(line);
    std::fclose(in);
    return ok;
}

} // namespace

void CVS_VersionControl_Server::IsVCOptimistic(bool* is_optimistic, char**) {
    *is_optimistic = true;
}

void CVS_VersionControl_Server::GetVCUsername(char**, char** error_string) {
    *error_string = gen_strdup("GetVCUsername is not implemented.\n");
}

void CVS_VersionControl_Server::FileIsUnderVC(const char* filename, bool* result, char**) {
    FileForQuery file(this, filename);
    *result = file.path && entries.entriesFor(file.adminDir())->contains(file.base);
}

void CVS_VersionControl_Server::GetCommentTemplateForFile(const char* filename,
                                                          char** comment_template, char**) {
    FileForQuery file(this, filename);
    if (file.path)
        *comment_template = readTemplate(file.adminDir());
}

// The answer does not depend on the file, so its name is not resolved.
void CVS_VersionControl_Server::GetUserWhoOwnsFile(const char*, char** username, char**) {
    if (g_loginName[0] == '\0' && !plat_user_name(g_loginName, sizeof g_loginName))
        g_loginName[0] = '\0';
    *username = g_loginName[0] ? gen_strdup(g_loginName) : nullptr;
}

void CVS_VersionControl_Server::GetVersionInfo(const char* filename, const char* version,
                                               VersionInfo* info, char** error_string) {
    const char* const lead = "Unable to get version information for file. CVS reported:\n";
    FileForQuery file(this, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2(lead, kNoFileName);
        return;
    }
    StringPool pool;
    // The revision stays one word whatever it holds, so that it can't become a second argument.
    char* revision = pool.add(gen_concat2("-r", version ? version : ""));
    char* options = pool.add(gen_concat3(" -nQ -n log ", pool.add(cvsFileWord(revision)), " "));
    const char* line = pool.add(cvsFileLine(options, file.base));
    char* logFile = pool.add(gen_temp_name(nullptr, gen_extension(file.base)));
    if (logFile == nullptr) {
        *error_string = gen_concat2(lead, "No temporary file could be made.\n");
        return;
    }
    DirectoryChanger changer(file.dir);
    char* cvsError = nullptr;
    bool ok = runCommandToFile(line, logFile, &cvsError);
    pool.add(cvsError);
    if (!ok || cvsError) {
        gen_force_unlink(logFile);
        *error_string = gen_concat2(lead, cvsError ? cvsError : "");
        return;
    }
    VersionLogEntry entry;
    // A log that could not be opened gives an empty answer and no error.
    if (readVersionLog(logFile, &entry, error_string) && entry.date) {
        info->_filename = gen_strdup(file.path);
        info->_version = gen_strdup(version);
        info->_author = entry.author;
        info->_date = entry.date;
        info->_comments = entry.comments;
    }
    gen_force_unlink(logFile);
}

void CVS_VersionControl_Server::GetStatusInfo(const char* filename, int32_t* status_type,
                                              char** status_str, char** local_version,
                                              char** remote_version, char** tag, char** locked_by,
                                              char** error_string) {
    *locked_by = nullptr;
    const char* const runLead = "Error: Unable to get file status information. CVS reported:\n";
    FileForQuery file(this, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2(runLead, kNoFileName);
        return;
    }
    StringPool pool;
    DirectoryChanger changer(file.dir);
    CapturedRun status = runCapturedLine(cvsFileLine(" -n stat ", file.base), &pool);
    // A file that cvs knows nothing of, or no longer has, is still reported on; anything else
    // that fails is passed on as cvs said it.
    if (!status.clean() && !statusFailureIsExpected(status.output)) {
        *error_string = gen_concat2(runLead, status.output);
        return;
    }
    if (!parseStatusOutput(status.output, local_version, remote_version, status_str, status_type,
                           tag)) {
        *error_string = gen_concat2("Error: Unable to get status info for file. CVS reported:\n",
                                    status.output);
        return;
    }
    // Conflict markers that the user took out by hand leave an ordinary modification.
    if (*status_type == 700 && std::strcmp(*status_str, "File had conflicts on merge") == 0) {
        if (!fileHasConflictMarkers(file.path))
            *status_type = 1200;
        return;
    }
    // A merge still to come: a dry update tells whether it will meet a conflict.
    if (*status_type == 600) {
        CapturedRun probe = runCapturedLine(cvsFileLine(" -nq update ", file.base), &pool);
        if (probe.ok && updateReportsConflict(probe.output, file.base))
            *status_type = 500;
    }
}

void CVS_VersionControl_Server::ShowHistory(const char* filename, HistoryInfo* history_info,
                                            char** error_string) {
    const char* const logLead = "Error: Unable to get history log. CVS reported:\n";
    FileForQuery file(this, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2(logLead, kNoFileName);
        return;
    }
    StringPool pool;
    DirectoryChanger changer(file.dir);
    CapturedRun status = runCapturedLine(cvsFileLine(" -n stat ", file.base), &pool);
    if (!status.clean()) {
        *error_string = gen_concat2(logLead, status.output);
        return;
    }
    char *local = nullptr, *remote = nullptr, *word = nullptr, *tag = nullptr;
    int32_t type = 0;
    bool parsed = parseStatusOutput(status.output, &local, &remote, &word, &type, &tag);
    pool.add(local);
    pool.add(remote);
    pool.add(word);
    pool.add(tag);
    if (!parsed) {
        *error_string =
            gen_concat2("Error: Unable to get CVS status. CVS reported:\n", status.output);
        return;
    }
    CapturedRun log = runCapturedLine(cvsFileLine(" -nQ log ", file.base), &pool);
    if (!log.clean()) {
        *error_string = gen_concat2(logLead, log.output);
        return;
    }
    history_info->_file_is_modified =
        std::strcmp(word, "Up-to-date") != 0 && std::strcmp(word, "Needs Patch") != 0;
    history_info->_version = pool.remove(local) ? local : nullptr;
    history_info->_status = pool.remove(word) ? word : nullptr;
    history_info->_tag = pool.remove(tag) ? tag : nullptr;
    history_info->_num_items = parseLogOutput(log.output, &history_info->_items);
    history_info->_display_tags = true;
}

void CVS_VersionControl_Server::GetPreviousVersionForFile(const char* filename, const char* version,
                                                          char** previous_version, char**) {
    *previous_version =
        version && *version ? previousVersion(version) : versionInEntries(&entries, this, filename);
}

void CVS_VersionControl_Server::GetNextVersionForFile(const char* filename, const char* version,
                                                      char** next_version, char**) {
    *next_version =
        version && *version ? nextVersion(version) : versionInEntries(&entries, this, filename);
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
