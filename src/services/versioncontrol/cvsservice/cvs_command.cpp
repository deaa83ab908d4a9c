#include "cvs_command.h"

#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_process.h"
#include "gen_string.h"
#include "gen_tempname.h"
#include "indgen.h"
#include "plat_files.h"
#include "ut_stringpool.h"
#include "versctrl_defaultconfig.h"

#include <cstring>

namespace {
char* g_cvsCommandLine = nullptr;

bool beginsWithDash(const char* name) {
    return name && name[0] == '-';
}

// Writes all of `text` to `fd`; false on a write error.
bool writeAll(int fd, const char* text, size_t length) {
    while (length > 0) {
        int64_t n = plat_write(fd, text, length);
        if (n <= 0)
            return false;
        text += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

// The text of `comments` as it goes into a comment file.
std::string commentText(const char* comments) {
    std::string text;
    const char* rest = comments ? comments : "";
    while (*rest) {
        const char* end = std::strstr(rest, "\n\r");
        size_t separator = 2;
        if (end == nullptr) {
            end = std::strchr(rest, '\n');
            separator = 1;
        }
        const char* next = end ? end + separator : rest + std::strlen(rest);
        if (end == nullptr)
            end = next;
        if (std::strncmp(rest, "CVS:", 4) != 0) {
            text.append(rest, static_cast<size_t>(end - rest));
            text += '\n';
        }
        rest = next;
    }
    return text;
}

// The directory part of `path`, or null when it has none or is its own directory part.
char* parentOf(const char* path) {
    char* parent = gen_dirname(path);
    if (parent && std::strcmp(parent, path) == 0) {
        gen_free(parent);
        return nullptr;
    }
    return parent;
}
} // namespace

const char* const kContinuingSentence =
    "\nContinuing to attempt to update in other directories\nsince some directories succeeded.\n";

const char* cvsCommand() {
    char* line = gen_quote(versctrlCVSPath());
    gen_free(g_cvsCommandLine);
    g_cvsCommandLine = line;
    return g_cvsCommandLine;
}

char* cvsFileWord(const char* name) {
    return commandWord(name ? name : "");
}

char* cvsFileLine(const char* options, const char* baseName) {
    char* word = cvsFileWord(baseName);
    char* line = gen_concat4(cvsCommand(), options, beginsWithDash(baseName) ? "-- " : "", word);
    gen_free(word);
    return line;
}

char* cvsGroupLine(const char* options, const std::vector<const char*>& names) {
    char* line = gen_concat2(cvsCommand(), options);
    for (const char* name : names)
        if (beginsWithDash(name)) {
            line = gen_append2(line, " --");
            break;
        }
    for (const char* name : names) {
        char* word = cvsFileWord(name);
        line = gen_append3(line, " ", word);
        gen_free(word);
    }
    return line;
}

bool runCommandCapture(char** text, const char* command, bool want_stdout, bool want_stderr,
                       bool* stderr_seen) {
    char* out = nullptr;
    char* err = nullptr;
    bool ok = captureCommand(command, want_stdout ? &out : nullptr, want_stderr ? &err : nullptr,
                             nullptr, nullptr, versctrlCVSTimeLimitSeconds());
    if (stderr_seen)
        *stderr_seen = want_stderr && err && *err;
    *text = gen_concat2(err ? err : "", out ? out : "");
    gen_free(out);
    gen_free(err);
    return ok;
}

CapturedRun runCapturedLine(char* line, StringPool* pool) {
    pool->add(line);
    CapturedRun run;
    run.ok = runCommandCapture(&run.output, line, true, true, &run.stderrSeen);
    pool->add(run.output);
    return run;
}

namespace {
// Opens `path` for writing from its start. The write permission is added before the file is
// touched, so that a read-only file can be touched and overwritten by any user, not only by one
// whom the system lets write anyway; a missing file is created by the touch. Gives the descriptor
// and in *bits the permission bits to put back when done; -1 with *error_text set (and the bits
// already back) when the file cannot be created or opened.
int openForReplacing(const char* path, unsigned* bits, char** error_text) {
    bool existed = gen_exists(path);
    *bits = existed ? gen_make_writable(path, 0220) : 0;
    if (gen_touch(path) != 0) {
        if (existed)
            gen_chmod(path, *bits);
        *error_text = gen_asprintf("Unable to create file %s.\n", path);
        return -1;
    }
    if (!existed)
        *bits = gen_make_writable(path, 0220);
    int fd = plat_open(path, PLAT_O_WRONLY | PLAT_O_TRUNC, 0);
    if (fd < 0) {
        *error_text = gen_asprintf("Unable to open output file %s for writing.\n", path);
        gen_chmod(path, *bits);
    }
    return fd;
}
} // namespace

bool runCommandToFile(const char* command, const char* path, char** error_text) {
    *error_text = nullptr;
    unsigned bits = 0;
    int fd = openForReplacing(path, &bits, error_text);
    if (fd < 0)
        return false;
    char* out = nullptr;
    size_t length = 0;
    bool ok =
        captureCommand(command, &out, error_text, &length, nullptr, versctrlCVSTimeLimitSeconds());
    if (ok && !writeAll(fd, out, length)) {
        ok = false;
        gen_free(*error_text);
        *error_text = gen_asprintf("Unable to write output file %s.\n", path);
    }
    gen_free(out);
    if (ok && *error_text && **error_text == '\0') {
        gen_free(*error_text);
        *error_text = nullptr;
    }
    plat_close(fd);
    gen_chmod(path, bits);
    return ok;
}

bool replaceFileContent(const char* path, const char* text, size_t length, char** error_text) {
    *error_text = nullptr;
    unsigned bits = 0;
    int fd = openForReplacing(path, &bits, error_text);
    if (fd < 0)
        return false;
    bool ok = writeAll(fd, text, length);
    if (!ok)
        *error_text = gen_asprintf("Unable to write output file %s.\n", path);
    plat_close(fd);
    gen_chmod(path, bits);
    return ok;
}

bool writeCommentFile(char** path, const char* comments) {
    *path = gen_path_join(gen_temp_dir(nullptr), "vccommentXXXXXX");
    int fd = gen_make_temp(*path);
    if (fd < 0) {
        gen_free(*path);
        *path = nullptr;
        return false;
    }
    std::string text = commentText(comments);
    bool ok = writeAll(fd, text.data(), text.size());
    plat_close(fd);
    if (!ok)
        gen_unlink(*path);
    return ok;
}

DirectoryChanger::DirectoryChanger(const char* path) : previous_(gen_strdup(gen_getcwd())) {
    if (path == nullptr)
        return;
    char* target = gen_abspath(path);
    gen_chdir(target);
    gen_free(target);
}

DirectoryChanger::~DirectoryChanger() {
    gen_chdir(previous_);
    gen_free(previous_);
}

char* readCVSRoot(const char* dir) {
    char* file = gen_path_join3(dir, "CVS", "Root");
    FILE* in = gen_fopen(file, "re");
    gen_free(file);
    if (in == nullptr)
        return nullptr;
    char* buffer = nullptr;
    int capacity = 0;
    char* line = gen_readline(in, &buffer, &capacity);
    std::fclose(in);
    if (line == nullptr) {
        gen_free(buffer);
        return nullptr;
    }
    return line;
}

bool hasCVSRoot(const char* value, const char* dir) {
    if (value == nullptr || dir == nullptr)
        return false;
    char* line = readCVSRoot(dir);
    bool same = line && std::strcmp(line, value) == 0;
    gen_free(line);
    return same;
}

bool sharesCVSRoot(char** root, const char* name) {
    StringPool pool;
    const char* rootValue = pool.add(readCVSRoot(*root));
    // Upward from the file until its directory lies within the root's path.
    const char* d = pool.add(gen_dirname(name));
    while (d && !std::strstr(*root, d)) {
        if (!hasCVSRoot(rootValue, d))
            return false;
        d = pool.add(parentOf(d));
    }
    if (d == nullptr)
        return false;
    if (std::strcmp(d, *root) == 0)
        return true;
    if (!hasCVSRoot(rootValue, d))
        return false;
    // Upward from the root until it lies within that directory.
    const char* p = pool.add(parentOf(*root));
    while (p && !std::strstr(d, p)) {
        if (!hasCVSRoot(rootValue, p))
            return false;
        p = pool.add(parentOf(p));
    }
    if (p == nullptr)
        return false;
    gen_free(*root);
    *root = gen_strdup(p);
    return true;
}

bool relativeToRoot(const char* root, std::vector<const char*>* group) {
    size_t length = std::strlen(root);
    for (const char*& name : *group) {
        if (std::strncmp(name, root, length) != 0)
            return false;
        const char* p = name + length;
        while (*p == '/')
            ++p;
        // With POSIX paths a backslash begins a name.
        while (*p == '\\' && !gen_posix_paths())
            ++p;
        name = p;
    }
    return true;
}

char* nextCVSGroup(std::vector<const char*>* group, std::vector<const char*>* files) {
    group->clear();
    if (files->empty())
        return nullptr;
    group->push_back(files->front());
    files->erase(files->begin());
    char* root = gen_dirname(group->front());
    for (auto it = files->begin(); root && it != files->end();) {
        if (sharesCVSRoot(&root, *it)) {
            group->push_back(*it);
            it = files->erase(it);
        } else {
            ++it;
        }
    }
    if (root == nullptr || !relativeToRoot(root, group)) {
        gen_free(root);
        group->clear();
        return nullptr;
    }
    return root;
}

int runCVSBatch(const CVSBatchOperation& operation, std::vector<const char*>* files,
                StringPool* pool, char** error_string) {
    int successes = 0;
    std::vector<const char*> group;
    while (const char* root = pool->add(nextCVSGroup(&group, files))) {
        DirectoryChanger changer(root);
        const char* line = pool->add(cvsGroupLine(operation.options, group));
        char* output = nullptr;
        bool stderrSeen = false;
        bool ok = runCommandCapture(&output, line, true, true, &stderrSeen);
        pool->add(output);
        if (ok && (!stderrSeen || (operation.remarksOnly && operation.remarksOnly(output)))) {
            ++successes;
            continue;
        }
        *error_string =
            gen_append5(*error_string, operation.failureLead, root, "\nCVS reported:\n", output);
        *error_string = gen_append2(*error_string, operation.failureTail);
        if (successes == 0) {
            *error_string = gen_append2(*error_string, operation.firstAttemptSentence);
            break;
        }
        *error_string = gen_append2(*error_string, kContinuingSentence);
    }
    return successes;
}
