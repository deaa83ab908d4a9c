// Child processes: command lines read into argument vectors (never handed to a shell), spawns
// whose output pipes a caller drains by itself, and runs to the end with both output streams
// collected. Only the event-loop thread calls this unit; nothing here re-enters the event loop.
#pragma once

#include "plat_process.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Spawn flags. Every caller gives GEN_SPAWN_DETACHED; on Linux both flags mean the same: a new
// session with no controlling terminal and a process group of its own (there is no console
// window to show or hide).
enum : int { GEN_SPAWN_DETACHED = 8, GEN_SPAWN_NEW_CONSOLE = 16 };

// A standard handle of -1: the child gets none, which on Linux means /dev/null.
inline constexpr int GEN_NO_HANDLE = -1;

// ---- Command lines ----

// A command line as readCommandLine cuts it up.
struct CommandLine {
    std::string workingDirectory;   // from a "cd DIR ;" prefix; empty when there is none
    std::vector<std::string> words; // the program first; never empty after a successful read
};

// Reads `command` the way a small shell would, without doing anything a shell does beyond
// cutting it up: leading blanks and tabs are skipped; "cd DIR ;" in front gives the working
// directory (a quoted DIR is read as a quoted word, a bare one runs to the `;` without trailing
// blanks and tabs) and a command must follow the `;`. Then words, each one of:
//   - a double-quoted word, read by gen_unquote (its backslash escapes);
//   - a single-quoted word, taken literally;
//   - a bare word, running to the next blank or tab.
// A quoted word must be followed by a blank, a tab or the end. The reverse of commandWord and of
// gen_quote, byte for byte. False with the reason in *error (if given) for an empty command, a
// quote that is not closed, text glued to a closing quote, or a "cd" without a directory, a `;`
// or a command behind it.
bool readCommandLine(const char* command, CommandLine* line, std::string* error = nullptr);

// `text` as one word that readCommandLine gives back unchanged: bare when it is not empty and
// holds no blank, tab, quote or backslash; otherwise gen_quote(text), in double quotes with a
// backslash before each `\`, `"` and `'`. A new string (gen_free); null for null.
char* commandWord(const char* text);

// "cd DIR ; COMMAND", with DIR as a word that readCommandLine gives back unchanged (quoted also
// when it holds a `;`). A new string (gen_free).
char* cdCommandLine(const char* directory, const char* command);

// The line that spawnArgv runs: `program` in double quotes (gen_quote), then each of argv[1..]
// behind one blank, as commandWord writes it. A new string (gen_free).
char* argvCommandLine(const char* program, const char* const argv[]);

// ---- Starting processes ----

// The one place that creates a process (CreateProcessA). argv[0] is the program: searched in
// PATH when it has no directory part, and "x.exe" that does not exist runs as "x"; the child's
// argv[0] is the name that runs. `workingDirectory` null or empty: this process's. Each standard
// handle is a descriptor or GEN_NO_HANDLE. With GEN_SPAWN_DETACHED or GEN_SPAWN_NEW_CONSOLE the
// child starts a new session (no controlling terminal, own process group). On success *process
// is the handle, which the caller closes (plat_close_process). False when nothing was started,
// with a sentence for a user in *error (if given).
bool createChild(const char* const argv[], const char* workingDirectory, PlatProcess** process,
                 int stdinFd, int stdoutFd, int stderrFd, int flags, std::string* error = nullptr);

// Reads `command` (readCommandLine), adds ".exe" to a program without an extension (which the
// platform layer runs as the plain name when only that exists), and starts it in the "cd"
// directory if the line has one; the current directory of this process does not change. A ".bat"
// program is started like any other: a Windows command processor (COMSPEC) has no meaning here.
// Handles and flags as createChild.
bool spawnCommandLine(const char* command, PlatProcess** process, int stdinFd, int stdoutFd,
                      int stderrFd, int flags, std::string* error = nullptr);

// Runs `program` with the arguments argv[1..] through argvCommandLine and spawnCommandLine;
// argv[0] is replaced by the name that actually runs.
bool spawnArgv(const char* program, const char* const argv[], PlatProcess** process, int stdinFd,
               int stdoutFd, int stderrFd, int flags);

// spawnArgv with argv[0] as the program (its first byte skipped when `skipFirstByte`), no
// standard handles and GEN_SPAWN_DETACHED.
bool spawnVector(const char* const argv[], PlatProcess** process, bool skipFirstByte);

// ---- Pipes that a caller drains ----

// The reading end of a pipe from a child, kept by the parent. `fd` may go into a wait set of the
// caller's (it turns readable when data waits or the child's end has closed).
struct ChildPipe {
    int fd = -1;
    bool open = true; // false once a read has failed or the pipe has ended

    // True when bytes wait, and also when asking fails or the pipe has ended: such a pipe must
    // be read so that its end shows.
    bool hasData() const;
    // Reads at most `size` - 1 bytes, and at most what waits, so it never blocks; the text is
    // terminated. False when the pipe is no longer open, or (setting `open` false) when it has
    // ended or the read fails. True with *count 0 when nothing waits yet.
    bool read(char* buffer, size_t size, size_t* count);
    // Closes the descriptor.
    void close();
};

// Starts `command` (spawnCommandLine, GEN_SPAWN_DETACHED, standard input from /dev/null) in
// `workingDirectory` (null or empty: this process's; handed to the spawn itself, so that any
// name works; a "cd" prefix of the command is taken relative to it). For each wanted stream a
// pipe is made; with `mergeStderr` the standard error goes into the standard output's pipe and
// *stderrPipe is the same object as *stdoutPipe. A stream that is not wanted goes to /dev/null.
// On success the caller owns *process and each pipe (new; delete once, after close()). Never
// blocks: the caller polls the pipes. On failure nothing stays open and the result is false.
bool spawnWithPipes(const char* command, const char* workingDirectory, PlatProcess** process,
                    bool wantStdout, ChildPipe** stdoutPipe, bool wantStderr,
                    ChildPipe** stderrPipe, bool mergeStderr);

// ---- Running a command to its end ----

// Runs `command` (as spawnCommandLine reads it, detached, standard input from /dev/null) to its
// end, draining both output streams at once so that a child that fills one pipe cannot block.
// A stream is collected when its text or its length is asked for; one that is not goes to
// /dev/null. The texts are new strings (gen_free), present and empty when nothing came; the
// lengths count their bytes (the texts may hold NUL bytes). The wait lasts until both streams
// have ended, so a grandchild that keeps a pipe open keeps it waiting, and then until the child
// has ended.
//
// `timeLimitSeconds` above 0 bounds the whole run: when it is reached the child's whole process
// group is killed, the result is false and the standard error text ends with the sentence
// "NAME was stopped after N seconds because it had not finished within the time limit.\n" (NAME
// is the program's base name without ".exe"). Time spent waiting for anything, a lock included,
// counts.
//
// True exactly when the command was started and exited with code 0; the texts are given in every
// case. A command that cannot be read or started gives false with the reason as the standard
// error text.
bool captureCommand(const char* command, char** stdoutText, char** stderrText, size_t* stdoutLength,
                    size_t* stderrLength, int32_t timeLimitSeconds);
