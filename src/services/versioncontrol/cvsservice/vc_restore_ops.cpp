// Restores: the content of a version or a date of a file, written to a file of the client's.
//
// cvs prints the old content on its standard output (`update -p`, with -n so that nothing in the
// working copy changes). The output file is only touched once cvs has run clean: a version or a
// date that does not exist, or a cvs that cannot be run, leaves it exactly as it was.
#include "cvs_versioncontrol_server.h"

#include "client_path.h"
#include "cvs_command.h"
#include "gen_asprintf.h"
#include "gen_path.h"
#include "gen_process.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_stringpool.h"
#include "versctrl_defaultconfig.h"

#include <cstring>

namespace {

const char* const kUpdateLead = "Unable to update file. CVS reported:\n";

struct RestoreRequest {
    // Both resolved and absolute, since the directory changes.
    const char* source;
    const char* outname;
    const char* selector; // the options that name the revision, e.g. ` -r 1.4 `
};

// Runs `cvs -q -n update -p SELECTOR BASENAME` in the directory of the source and, when cvs exited
// with 0 and said nothing on its standard error stream, makes its output the content of the
// output file. Anything else leaves the output file alone and sets *error_string.
void restoreInto(EntriesCache* entries, const RestoreRequest& request, char** error_string) {
    StringPool pool;
    const char* dir = pool.add(gen_dirname(request.source));
    const char* base = gen_basename(request.source);
    DirectoryChanger changer(dir);
    const char* options = pool.add(gen_concat2(" -q -n update -p", request.selector));
    const char* line = pool.add(cvsFileLine(options, base));
    char* out = nullptr;
    char* err = nullptr;
    size_t length = 0;
    bool ok = captureCommand(line, &out, &err, &length, nullptr, versctrlCVSTimeLimitSeconds());
    pool.add(out);
    pool.add(err);
    if (!ok || (err && *err)) {
        *error_string = gen_concat2(kUpdateLead, err ? err : "");
        return;
    }
    // cvs prints nothing at all for a name it does not know; an empty version of a file that is
    // under version control is fine, but an unknown one must not empty the output file.
    if (length == 0 && !entries->entriesFor(dir ? dir : ".")->contains(base)) {
        *error_string = gen_asprintf("%s%s is not under version control.\n", kUpdateLead, base);
        return;
    }
    char* writeError = nullptr;
    if (!replaceFileContent(request.outname, out ? out : "", length, &writeError))
        *error_string = gen_concat2(kUpdateLead, writeError);
    gen_free(writeError);
}

// The common start of both restores: both names resolved and made absolute, and the source's
// CVS/Entries image marked stale. False with *error_string set when a name is missing.
bool resolveBoth(STPSpecClass* connection, EntriesCache* entries, const char* sourcename,
                 const char* outname, StringPool* pool, RestoreRequest* request,
                 char** error_string) {
    const char* source = pool->add(ClientPath(connection, sourcename));
    const char* out = pool->add(ClientPath(connection, outname));
    if (source == nullptr || out == nullptr || *source == '\0' || *out == '\0') {
        *error_string = gen_concat2(kUpdateLead, "No file name was given.\n");
        return false;
    }
    request->source = pool->add(gen_abspath(source));
    request->outname = pool->add(gen_abspath(out));
    entries->markFileStale(request->source);
    return true;
}

} // namespace

// The working file takes the content of `version`; its CVS/Entries line stays as it is.
void CVS_VersionControl_Server::CheckOutFileByVersion(const char* filename, const char* version,
                                                      char** error_string) {
    RestoreFileToVersion(filename, filename, version, true, error_string);
}

// `use_current_time` changes nothing: the output file gets the time of the write.
void CVS_VersionControl_Server::RestoreFileToDate(const char* sourcename, const char* outname,
                                                  const char* date_str, bool, char** error_string) {
    StringPool pool;
    RestoreRequest request{};
    if (!resolveBoth(this, &entries, sourcename, outname, &pool, &request, error_string))
        return;
    if (date_str == nullptr || *date_str == '\0')
        return;
    char* date = pool.add(gen_concat2(date_str, " GMT"));
    // The date holds a blank at least, so it always goes to cvs in double quotes.
    const char* word = pool.add(cvsFileWord(date));
    request.selector = pool.add(gen_concat3(" -D ", word, " "));
    restoreInto(&entries, request, error_string);
}

void CVS_VersionControl_Server::RestoreFileToVersion(const char* sourcename, const char* outname,
                                                     const char* version_str, bool,
                                                     char** error_string) {
    StringPool pool;
    RestoreRequest request{};
    if (!resolveBoth(this, &entries, sourcename, outname, &pool, &request, error_string))
        return;
    if (version_str == nullptr || *version_str == '\0') {
        *error_string = gen_concat2(kUpdateLead, "No version was given.\n");
        return;
    }
    const char* word = pool.add(cvsFileWord(version_str));
    request.selector = pool.add(gen_concat3(" -r ", word, " "));
    restoreInto(&entries, request, error_string);
}
