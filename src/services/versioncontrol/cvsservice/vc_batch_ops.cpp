// Operations on lists of files, cut into groups with one cvs command each.
#include "cvs_versioncontrol_server.h"

#include "client_path.h"
#include "cvs_command.h"
#include "cvs_remarks.h"
#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_stringpool.h"

#include <vector>

namespace {

const char* const kNoComments = "No comments specified, checkin not allowed.\n";
const char* const kNoCommentFile = "Unable to write comments to temporary file.\n";

const CVSBatchOperation kAdd{
    " -Q add ", addRemarksOnly, "Unable to add files in directory: ", "",
    "\nSince this was the first attempt no other files\nhave been added and the operation was "
    "aborted.\n"};

const CVSBatchOperation kUpdate{
    " -Q update ", updateRemarksOnly, "Unable to update files in directory: ", "",
    "\nSince this was the first attempt no other files.\nhave been updated and the operation was "
    "aborted.\n"};

// The names of a request resolved against the client's "cwd", in request order, each with the
// image of its directory's CVS/Entries marked stale before cvs changes it. An absent name, or one
// that can't be resolved because the process is shutting down, names no file and is left out.
std::vector<const char*> resolvedFiles(STPSpecClass* connection, EntriesCache* entries,
                                       const StringList& names, StringPool* pool) {
    std::vector<const char*> files;
    for (int32_t i = 0; i < stp_count(names.data, names.count); ++i) {
        const char* path = pool->add(ClientPath(connection, names.data[i]));
        if (path == nullptr)
            continue;
        entries->markFileStale(path);
        files.push_back(path);
    }
    return files;
}

// The comment file of a commit as a word of a command line: " -Q commit -F FILE ".
char* commitOptions(const char* commentFile) {
    char* word = cvsFileWord(commentFile);
    char* options = gen_concat3(" -Q commit -F ", word, " ");
    gen_free(word);
    return options;
}

// The end of a commit: a failure keeps the comment file and names it behind the failure text, so
// that the message is never lost; a success deletes it.
void finishCommit(const char* commentFile, char** error_string) {
    if (*error_string == nullptr) {
        gen_unlink(commentFile);
        return;
    }
    char* text = gen_asprintf("%s\n\nCommit log message has been left in file: %s", *error_string,
                              commentFile);
    gen_free(*error_string);
    *error_string = text;
}

} // namespace

void CVS_VersionControl_Server::AddFilesToVC(const StringList& filenames, char** error_string) {
    StringPool pool;
    std::vector<const char*> files = resolvedFiles(this, &entries, filenames, &pool);
    runCVSBatch(kAdd, &files, &pool, error_string);
}

void CVS_VersionControl_Server::CommitFiles(const StringList& filenames, const char* comments,
                                            StringList*, char** error_string) {
    if (comments == nullptr) {
        *error_string = gen_strdup(kNoComments);
        return;
    }
    StringPool pool;
    char* commentFile = nullptr;
    if (!writeCommentFile(&commentFile, comments)) {
        *error_string = gen_strdup(kNoCommentFile);
        return;
    }
    pool.add(commentFile);
    std::vector<const char*> files = resolvedFiles(this, &entries, filenames, &pool);
    CVSBatchOperation commit{
        pool.add(commitOptions(commentFile)), commitRemarksOnly,
        "Unable to commit files in directory: ", "\n",
        "\nSince this was the first attempt no other files\nhave been committed and the operation "
        "was aborted.\n"};
    runCVSBatch(commit, &files, &pool, error_string);
    finishCommit(commentFile, error_string);
}

void CVS_VersionControl_Server::CommitDirectories(const StringList& directories,
                                                  const char* comments, char** error_string) {
    if (comments == nullptr) {
        *error_string = gen_strdup(kNoComments);
        return;
    }
    StringPool pool;
    char* commentFile = nullptr;
    if (!writeCommentFile(&commentFile, comments)) {
        *error_string = gen_strdup(kNoCommentFile);
        return;
    }
    pool.add(commentFile);
    // A commit of a whole directory may change any file below it.
    markAllEntriesStale();
    std::vector<const char*> dirs;
    for (int32_t i = 0; i < stp_count(directories.data, directories.count); ++i)
        if (const char* dir = pool.add(ClientPath(this, directories.data[i])))
            dirs.push_back(dir);
    const char* line = pool.add(cvsFileLine(" -Q commit -F ", commentFile));
    for (const char* dir : dirs) {
        DirectoryChanger changer(dir);
        char* output = nullptr;
        bool stderrSeen = false;
        bool ok = runCommandCapture(&output, line, true, true, &stderrSeen);
        pool.add(output);
        if (ok && !stderrSeen)
            continue;
        *error_string = gen_asprintf("Unable to commit files in directory: %s\nCVS reported:\n%s\n",
                                     dir, output);
        break;
    }
    finishCommit(commentFile, error_string);
}

void CVS_VersionControl_Server::CheckOutFiles(const StringList& filenames, char** error_string) {
    StringPool pool;
    std::vector<const char*> files = resolvedFiles(this, &entries, filenames, &pool);
    runCVSBatch(kUpdate, &files, &pool, error_string);
}

// Group by group, the working files of the group are deleted and then `cvs remove`d; the files
// of a later group stay untouched until their group runs. The first failure ends the batch. A
// file is deleted by its full path, so that a root that can't be entered never costs a file of
// the same name in the directory the process happens to be in.
void CVS_VersionControl_Server::RemoveFiles(const StringList& filenames, char** error_string) {
    StringPool pool;
    std::vector<const char*> files = resolvedFiles(this, &entries, filenames, &pool);
    std::vector<const char*> group;
    while (const char* root = pool.add(nextCVSGroup(&group, &files))) {
        DirectoryChanger changer(root);
        for (const char* name : group) {
            if (gen_unlink(pool.add(gen_concat3(root, "/", name))) != 0) {
                *error_string = gen_asprintf("Error: Unable to delete file %s.", name);
                return;
            }
        }
        const char* line = pool.add(cvsGroupLine(" -Q remove ", group));
        char* output = nullptr;
        bool stderrSeen = false;
        bool ok = runCommandCapture(&output, line, true, true, &stderrSeen);
        pool.add(output);
        if (ok && (!stderrSeen || removeRemarksOnly(output)))
            continue;
        *error_string =
            gen_concat4("Unable to delete files in directory: ", root, "\nCVS reported:\n", output);
        return;
    }
}
