// The annotate query: which version last changed a range of lines, the version before it, and
// where the first line of the range stands in the text of that version.
#include "cvs_versioncontrol_server.h"

#include "client_path.h"
#include "cvs_command.h"
#include "cvs_parsers.h"
#include "cvs_remarks.h"
#include "diff_engine.h"
#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "gen_tempname.h"
#include "indgen.h"
#include "ut_stringpool.h"

#include <cstdio>
#include <optional>
#include <string>

namespace {

// A new, private file of the operation (created at once, exclusively, by gen_temp_name) with the
// extension of the file under view, removed at the end of the scope. `path` is absolute, since
// the operation changes directory, and null when no file could be made.
class TemporaryFile {
public:
    explicit TemporaryFile(const char* extension) {
        char* name = gen_temp_name(nullptr, extension);
        if (name)
            path = gen_abspath(name);
        gen_free(name);
    }
    ~TemporaryFile() {
        if (path)
            gen_unlink(path);
        gen_free(path);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    char* path = nullptr;
};

// The whole content of the file at `path`; false when it cannot be opened.
bool readWholeFile(const char* path, std::string* text) {
    FILE* in = gen_fopen(path, "re");
    if (in == nullptr)
        return false;
    char buffer[8192];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0)
        text->append(buffer, n);
    std::fclose(in);
    return true;
}

// The line of `newFile` paired with line `line` of `oldFile` by the diff engine, or 0 when the
// line has no partner, lies beyond the end of `oldFile`, or the engine gives no result.
int32_t pairedLine(const char* oldFile, const char* newFile, int32_t line) {
    DiffResult* result = diffFiles(oldFile, newFile);
    if (result == nullptr)
        return 0;
    int32_t paired = 0;
    if (line >= 1 && line <= result->n_old && result->oldLines[line].paired)
        paired = result->oldLines[line].other;
    freeDiffResult(result);
    return paired;
}

// The annotate line of the text under view: the revision `theversion` when one is named, else
// the working revision of the file (the form without -r when it has none that is a version
// number, as an added file's "New File").
char* annotateLine(EntriesCache* entries, const char* dir, const char* base,
                   const char* theversion) {
    std::string revision;
    if (theversion && *theversion) {
        revision = theversion;
    } else {
        ut_string working = entries->entriesFor(dir)->version(base);
        if (!working.isNull() && isVersionNumber(working.c_str()))
            revision = working.c_str();
    }
    if (revision.empty())
        return cvsFileLine(" -Q -n annotate ", base);
    char* word = cvsFileWord(revision.c_str());
    char* options = gen_concat3(" -Q -n annotate -r ", word, " ");
    char* line = cvsFileLine(options, base);
    gen_free(options);
    gen_free(word);
    return line;
}

} // namespace

void CVS_VersionControl_Server::ShowLastEdit(const char* filename, int32_t from, int32_t to,
                                             const char* theversion, char** version,
                                             int32_t* lineno, char** postver, int32_t* postlineno,
                                             int32_t* ret_val, char** error_string) {
    *lineno = 0;
    *postlineno = 0;
    *ret_val = -1;
    StringPool pool;
    const char* resolved = pool.add(ClientPath(this, filename));
    if (resolved == nullptr || *resolved == '\0') {
        *error_string = gen_strdup("Error: Unable to annotate file . CVS reported:\n");
        return;
    }
    const char* path = pool.add(gen_abspath(resolved));
    const char* dir = pool.add(gen_dirname(path));
    const char* base = gen_basename(path);
    const char* previous = pool.add(gen_strdup(gen_getcwd()));
    if (dir && gen_chdir(dir) != 0) {
        *error_string =
            gen_concat3("Could not change into directory containing file: ", path, "\n");
        return;
    }

    const char* extension = gen_extension(base);
    TemporaryFile annotated(extension);
    char* runError = nullptr;
    bool ran = false;
    if (annotated.path) {
        const char* line = pool.add(annotateLine(&entries, dir ? dir : ".", base, theversion));
        ran = runCommandToFile(line, annotated.path, &runError);
    } else {
        runError = gen_strdup("Unable to create a temporary file for the annotation.\n");
    }
    pool.add(runError);
    if (!ran || !annotateRemarksOnly(runError)) {
        *error_string = gen_asprintf("Error: Unable to annotate file %s. CVS reported:\n%s", base,
                                     runError ? runError : "");
        gen_chdir(previous);
        return;
    }
    if (gen_chdir(previous) != 0)
        *error_string =
            gen_concat3("Warning: unable to return to old working directory: ", previous, "\n");

    std::string text;
    char* newest = nullptr;
    if (!readWholeFile(annotated.path, &text) ||
        !newestAnnotatedVersion(text.c_str(), from, to, &newest)) {
        *ret_val = -2;
        return;
    }
    pool.add(newest);

    char* before = previousVersion(newest);
    if (before == nullptr) {
        *version = gen_strdup("original");
        *postver = gen_strdup("");
        *ret_val = 0;
        return;
    }
    *version = before;
    *postver = gen_strdup(newest);

    // Follow line `from` into the text of the version that made the last edit. A restore that
    // fails leaves its words in error_string and the comparison runs on what the file holds.
    TemporaryFile edited(extension);
    std::optional<TemporaryFile> viewed;
    const char* underView = path;
    if (theversion && *theversion) {
        viewed.emplace(extension);
        underView = viewed->path;
    }
    if (edited.path && underView) {
        if (viewed)
            restoreForComparison(path, viewed->path, theversion, error_string);
        restoreForComparison(path, edited.path, newest, error_string);
        *postlineno = pairedLine(underView, edited.path, from);
    } else {
        *error_string =
            gen_append2(*error_string, "Unable to create a temporary file for the comparison.\n");
    }
    *ret_val = 0;
}

// RestoreFileToVersion into a file of the operation, its words (if any) added to *error_string.
void CVS_VersionControl_Server::restoreForComparison(const char* path, const char* outname,
                                                     const char* revision, char** error_string) {
    char* restoreError = nullptr;
    RestoreFileToVersion(path, outname, revision, false, &restoreError);
    if (restoreError)
        *error_string = gen_append2(*error_string, restoreError);
    gen_free(restoreError);
}
