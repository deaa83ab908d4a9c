// Operations on one file, run in the file's own directory.
#include "cvs_versioncontrol_server.h"

#include "client_path.h"
#include "cvs_command.h"
#include "cvs_remarks.h"
#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_stringpool.h"

#include <memory>
#include <vector>

namespace {

const char* const kNoComments = "No comments specified, checkin not allowed.\n";
const char* const kNoCommentFile = "Unable to write comments to temporary file.\n";
// Behind an operation's failure lead when the request named no file at all.
const char* const kNoFileName = "No file name was given.\n";

// One file of a request: resolved against the client's "cwd", its directory's CVS/Entries image
// marked stale, and the process in its directory for as long as this lives.
class FileInItsDirectory {
public:
    FileInItsDirectory(STPSpecClass* connection, EntriesCache* entries, const char* filename)
        : path(ClientPath(connection, filename)), dir(gen_dirname(path)),
          base(path ? gen_basename(path) : nullptr) {
        if (path == nullptr)
            return;
        entries->markFileStale(path);
        changer = std::make_unique<DirectoryChanger>(dir);
    }
    ~FileInItsDirectory() {
        changer.reset();
        gen_free(dir);
        gen_free(path);
    }
    FileInItsDirectory(const FileInItsDirectory&) = delete;
    FileInItsDirectory& operator=(const FileInItsDirectory&) = delete;

    char* const path; // null when the request named no file
    char* const dir;  // null when the path has no directory part
    const char* const base;

private:
    std::unique_ptr<DirectoryChanger> changer;
};

// `cvs -Q update` of the file; on anything but a clean run *error_string is `lead` and the output.
void updateOneFile(STPSpecClass* connection, EntriesCache* entries, const char* filename,
                   bool deleteFirst, const char* lead, char** error_string) {
    FileInItsDirectory file(connection, entries, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2(lead, kNoFileName);
        return;
    }
    // Whether the delete worked is not looked at: what cvs says decides. The full path makes sure
    // that nothing but this file goes, even where its directory could not be entered.
    if (deleteFirst)
        gen_force_unlink(file.path);
    StringPool pool;
    CapturedRun run = runCapturedLine(cvsFileLine(" -Q update ", file.base), &pool);
    if (!run.clean())
        *error_string = gen_concat2(lead, run.output);
}

// The options of a commit of one file with `commentFile`: `quiet` (" -Q commit -F FILE ") or
// somewhat quiet (" -q commit -F FILE ").
char* commitOptions(bool quiet, const char* commentFile) {
    char* word = cvsFileWord(commentFile);
    char* options = gen_concat3(quiet ? " -Q commit -F " : " -q commit -F ", word, " ");
    gen_free(word);
    return options;
}

} // namespace

// `cvs -Q add` of each file brings it back. The version comes from what cvs says ("cvs server:
// a.c, version 1.4, resurrected"); cvs 1.12 says nothing under -Q, so where the output names no
// version the restored one is read from CVS/Entries: a file whose entry was removed before the
// add and is a live entry with a version after it was brought back with that version.
void CVS_VersionControl_Server::UnremoveFiles(const StringList& filenames, StringList* new_versions,
                                              char** error_string) {
    int32_t count = stp_count(filenames.data, filenames.count);
    new_versions->count = count;
    new_versions->data =
        count > 0 ? static_cast<char**>(gen_alloc(static_cast<size_t>(count), sizeof(char*)))
                  : nullptr;
    StringPool pool;
    std::vector<const char*> paths;
    for (int32_t i = 0; i < count; ++i) {
        const char* path = pool.add(ClientPath(this, filenames.data[i]));
        if (path)
            entries.markFileStale(path);
        paths.push_back(path);
    }
    for (int32_t i = 0; i < count; ++i) {
        const char* path = paths[i];
        if (path == nullptr) {
            *error_string = gen_concat2("Unable to restore file . CVS reported:\n", kNoFileName);
            return;
        }
        const char* base = gen_basename(path);
        const char* dir = pool.add(gen_dirname(path));
        DirectoryChanger changer(dir);
        CVSEntriesFile* image = entries.entriesFor(dir ? dir : ".");
        image->markStale();
        bool wasRemoved = image->isRemoved(base);
        CapturedRun run = runCapturedLine(cvsFileLine(" -Q add ", base), &pool);
        char* version = run.ok ? resurrectedVersion(run.output, base) : nullptr;
        if (run.ok && version == nullptr && wasRemoved) {
            image->markStale();
            if (image->contains(base) && !image->isRemoved(base) && !image->isNew(base))
                version = gen_strdup(image->version(base).c_str());
        }
        if (version == nullptr) {
            *error_string =
                gen_asprintf("Unable to restore file %s. CVS reported:\n%s", path, run.output);
            return;
        }
        new_versions->data[i] = version;
    }
}

// `forced` changes nothing. Absent comments give an empty log message.
void CVS_VersionControl_Server::PlaceFileUnderVC(const char* filename, bool, const char* comments,
                                                 char** error_string) {
    const char* const addLead = "Unable to add file to CVS repository. CVS reported:\n";
    FileInItsDirectory file(this, &entries, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2(addLead, kNoFileName);
        return;
    }
    StringPool pool;
    // Remarks on the standard error stream do not fail the add.
    CapturedRun add = runCapturedLine(cvsFileLine(" -Q add ", file.base), &pool);
    if (!add.ok) {
        *error_string = gen_concat2(addLead, add.output);
        return;
    }
    char* commentFile = nullptr;
    if (!writeCommentFile(&commentFile, comments)) {
        *error_string = gen_strdup(kNoCommentFile);
        return;
    }
    pool.add(commentFile);
    const char* options = pool.add(commitOptions(true, commentFile));
    CapturedRun commit = runCapturedLine(cvsFileLine(options, file.base), &pool);
    if (commit.clean()) {
        gen_unlink(commentFile);
        return;
    }
    // The message stays on disk like that of every failed commit, so that it is never lost.
    *error_string = gen_asprintf("Unable to commit added file to CVS. CVS reported:\n%s\n\nCommit "
                                 "log message has been left in file: %s",
                                 commit.output, commentFile);
}

void CVS_VersionControl_Server::CheckInFile(const char* filename, const char* comments,
                                            char** new_local_version, char** error_string) {
    if (comments == nullptr) {
        *error_string = gen_strdup(kNoComments);
        return;
    }
    *new_local_version = nullptr;
    FileInItsDirectory file(this, &entries, filename);
    if (file.path == nullptr) {
        *error_string = gen_concat2("Unable to check file in. CVS reported:\n", kNoFileName);
        return;
    }
    StringPool pool;
    char* commentFile = nullptr;
    if (!writeCommentFile(&commentFile, comments)) {
        *error_string = gen_strdup(kNoCommentFile);
        return;
    }
    pool.add(commentFile);
    const char* options = pool.add(commitOptions(false, commentFile));
    CapturedRun commit = runCapturedLine(cvsFileLine(options, file.base), &pool);
    if (commit.ok && (!commit.stderrSeen || commitRemarksOnly(commit.output))) {
        gen_unlink(commentFile);
        return;
    }
    *error_string = gen_asprintf("Unable to check file in. CVS reported:\n%s\n\nCommit log message "
                                 "has been left in file: %s",
                                 commit.output, commentFile);
}

// `logname` names nothing that cvs needs here, so it is not looked at.
void CVS_VersionControl_Server::CheckOutFile(const char*, const char* filename,
                                             char** error_string) {
    updateOneFile(this, &entries, filename, false, "Unable to update file. CVS reported:\n",
                  error_string);
}

void CVS_VersionControl_Server::GetFile(const char* filename, char** error_string) {
    updateOneFile(this, &entries, filename, false,
                  "Unable to get file from CVS repository. CVS reported:\n", error_string);
}

// The one operation that throws a working file away: that file only, then cvs fetches it anew.
void CVS_VersionControl_Server::UncheckFile(const char*, const char* filename,
                                            char** error_string) {
    updateOneFile(
        this, &entries, filename, true,
        "Unable to get new file from CVS, but your old file was deleted.\nCVS reported:\n",
        error_string);
}
