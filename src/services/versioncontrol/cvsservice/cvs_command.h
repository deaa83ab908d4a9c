// Running the cvs client for the VersionControl service: command lines, runs with their output,
// comment files for commits, the working directory of a command, and groups of files that one
// cvs command can handle. Everything here runs on the event-loop thread and blocks it while cvs
// runs; nothing re-enters the event loop. Strings are plain gen_alloc strings (gen_free).
#pragma once

#include <cstddef>
#include <vector>

class StringPool;

// ---- Command lines ----

// The first word of every cvs command line: the configured cvs client (Versctrl_CVSPath, read
// anew on each call) in double quotes, with a backslash before each `\`, `"` and `'`. Kept in
// one static buffer: valid until the next call.
const char* cvsCommand();

// A file name as a word of a cvs command line: an ordinary name as it stands; one that the
// command-line reader would split or unquote (a blank, a tab, a quote, a backslash, or empty)
// in double quotes (gen_quote), so that cvs gets it as one argument, unchanged.
char* cvsFileWord(const char* name);

// cvsCommand(), `options` and `baseName`: the line of an operation on one file in its own
// directory, e.g. cvsFileLine(" -n stat ", "a.c") gives `"cvs.exe" -n stat a.c`. A name that
// begins with "-" is preceded by "-- ", so that cvs never takes it for an option.
char* cvsFileLine(const char* options, const char* baseName);

// cvsCommand(), `options`, then for each name one blank and the name: the line of a group, e.g.
// cvsGroupLine(" -Q add ", {"x/f", "y/g"}) gives `"cvs.exe" -Q add  x/f y/g`. When a name
// begins with "-", " --" goes before the names.
char* cvsGroupLine(const char* options, const std::vector<const char*>& names);

// ---- Running cvs ----

// Runs `command` to its end (captureCommand with the configured time limit of one cvs run),
// collecting the standard output only if `want_stdout` and the standard error only if
// `want_stderr`. *text (always set, never null) is the standard error text followed by the
// standard output text. *stderr_seen (if given) is true exactly when the standard error was
// wanted and not empty. True exactly when cvs was started and exited with code 0.
bool runCommandCapture(char** text, const char* command, bool want_stdout, bool want_stderr,
                       bool* stderr_seen);

// One run of runCommandCapture with both streams wanted; `output` belongs to the pool given to
// runCapturedLine.
struct CapturedRun {
    bool ok = false;
    bool stderrSeen = false;
    char* output = nullptr;
    // The run counts as clean when cvs exited with 0 and said nothing on its error stream.
    bool clean() const { return ok && !stderrSeen; }
};

// Runs `line` (which the pool takes, as it takes the output) through runCommandCapture.
CapturedRun runCapturedLine(char* line, StringPool* pool);

// Runs `command` with its standard output as the new content of the file `path`. A read-only
// file is overwritten and gets its permission bits back on every path. False with a sentence in
// *error_text when the file cannot be created or opened ("Unable to create file %s.\n", "Unable
// to open output file %s for writing.\n") or written, and false with cvs's standard error text
// in *error_text when cvs failed. True otherwise, with *error_text absent, or holding what cvs
// said on its standard error stream (which callers count as a failure too).
bool runCommandToFile(const char* command, const char* path, char** error_text);

// Makes `length` bytes at `text` the whole content of the file `path`, creating it when it is
// missing. A read-only file is overwritten and gets its permission bits back on every path.
// False with a sentence in *error_text when the file cannot be created ("Unable to create file
// %s.\n"), opened ("Unable to open output file %s for writing.\n") or written ("Unable to write
// output file %s.\n"); true with *error_text absent otherwise.
bool replaceFileContent(const char* path, const char* text, size_t length, char** error_text);

// Hands a commit message to cvs: creates a new file "vccommentXXXXXX" in the temporary
// directory, exclusively and with mode 0600, and writes `comments` into it line by line, each
// followed by "\n", leaving out every line that begins with "CVS:" (a line ends at the first
// "\n\r" if the rest holds one, else at the first "\n"). Absent or empty comments give an empty
// file. True with the file's name in *path (for the caller to delete, or to name when a commit
// failed); false with *path absent when the file cannot be made or written (a file that was
// made is deleted).
bool writeCommentFile(char** path, const char* comments);

// Changes the working directory of the whole process for its scope: records the current one,
// changes into `path` made absolute against it (a failed change is not reported: cvs then
// reports its own error), and changes back at its end. A null `path` only records.
class DirectoryChanger {
public:
    explicit DirectoryChanger(const char* path);
    ~DirectoryChanger();
    DirectoryChanger(const DirectoryChanger&) = delete;
    DirectoryChanger& operator=(const DirectoryChanger&) = delete;

private:
    char* previous_;
};

// ---- Groups of files ----

// The first line of `dir`/CVS/Root, or absent when the file cannot be read or is empty.
char* readCVSRoot(const char* dir);

// True when readCVSRoot(dir) gives a line that equals `value`; an absent `value` matches nothing.
bool hasCVSRoot(const char* value, const char* dir);

// Whether the file `name` can join the group rooted at *root: every directory from the file up
// to a common directory, and from the root up to it, must name the repository of the root's
// CVS/Root. Raises *root (freed and replaced) to that common directory when needed.
bool sharesCVSRoot(char** root, const char* name);

// Makes each name of `group` relative to `root`, by moving its start past the root and the
// separators behind it (the names stay owned by whoever owned them). False when a name does not
// begin with `root`.
bool relativeToRoot(const char* root, std::vector<const char*>* group);

// Moves the next group out of `files` into *group: the first name and every later one that
// shares its repository root, made relative to the group's root. Returns the root (new), or
// null with an empty group when `files` is empty or the group cannot be formed.
char* nextCVSGroup(std::vector<const char*>* group, std::vector<const char*>* files);

// ---- The batch loop ----

// What tells one batch operation from another.
struct CVSBatchOperation {
    // The line between cvsCommand() and the group's names, e.g. " -Q add ".
    const char* options;
    // Whether the output of a run that exited with 0 but wrote on the standard error stream is
    // only harmless remarks; null: any such text is a failure.
    bool (*remarksOnly)(const char* output);
    // A failed group adds failureLead, its root, "\nCVS reported:\n", the output, failureTail.
    const char* failureLead;
    const char* failureTail;
    // Added when the first group fails, which ends the batch.
    const char* firstAttemptSentence;
};

// Added behind each failed group once some group has worked; the batch then goes on.
extern const char* const kContinuingSentence;

// Runs `operation` over `files` (resolved names, in request order; consumed), group by group,
// each in its root directory. A group that fails adds its block to *error_string; if no group
// has worked yet the first-attempt sentence follows and the batch ends, otherwise the continuing
// sentence follows and the next group is tried. *error_string stays absent exactly when every
// group worked. Roots and lines are kept in `pool`. Returns the number of groups that worked.
int runCVSBatch(const CVSBatchOperation& operation, std::vector<const char*>* files,
                StringPool* pool, char** error_string);
