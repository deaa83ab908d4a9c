#include "gen_process.h"

#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_pipe.h"
#include "plat_time.h"

#include <cstring>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

const char* skipBlanks(const char* p) {
    while (isBlank(*p))
        ++p;
    return p;
}

bool fail(std::string* error, const char* reason) {
    if (error)
        *error = reason;
    return false;
}

// Reads the quoted word at `p` (which holds `"` or `'`) into *word; *end is behind the closing
// quote. The closing `"` is the first one that no backslash escapes, as gen_quote writes it.
bool readQuoted(const char* p, std::string* word, const char** end, std::string* error) {
    const char* q = p + 1;
    if (*p == '\'') {
        while (*q && *q != '\'')
            ++q;
    } else {
        while (*q && *q != '"')
            q += (*q == '\\' && q[1]) ? 2 : 1;
    }
    if (*q == '\0')
        return fail(error, "a quote is not closed");
    char* token = gen_strndup(p, static_cast<int>(q + 1 - p));
    char* text = gen_unquote(token);
    *word = text;
    gen_free(text);
    gen_free(token);
    *end = q + 1;
    return true;
}

// Reads one word at `p` (not a blank); *end is behind it.
bool readWord(const char* p, std::string* word, const char** end, std::string* error) {
    if (*p == '"' || *p == '\'') {
        if (!readQuoted(p, word, end, error))
            return false;
        if (**end && !isBlank(**end))
            return fail(error, "text follows a closing quote without a blank");
        return true;
    }
    const char* q = p;
    while (*q && !isBlank(*q))
        ++q;
    word->assign(p, static_cast<size_t>(q - p));
    *end = q;
    return true;
}

// The "cd DIR ;" prefix behind "cd "; *end is behind the `;`.
bool readDirectory(const char* p, std::string* directory, const char** end, std::string* error) {
    const char* cdError = "\"cd\" needs a directory, a \";\" and a command behind it";
    p = skipBlanks(p);
    if (*p == '"' || *p == '\'') {
        if (!readQuoted(p, directory, &p, error))
            return false;
        p = skipBlanks(p);
        if (*p != ';')
            return fail(error, cdError);
    } else {
        const char* semicolon = std::strchr(p, ';');
        if (semicolon == nullptr)
            return fail(error, cdError);
        const char* last = semicolon;
        while (last > p && isBlank(last[-1]))
            --last;
        directory->assign(p, static_cast<size_t>(last - p));
        p = semicolon;
    }
    if (directory->empty())
        return fail(error, cdError);
    *end = p + 1;
    return true;
}

bool needsQuotes(const char* text, const char* specials) {
    return *text == '\0' || std::strpbrk(text, specials) != nullptr;
}

// The program as it is started: ".exe" added when it has no extension.
std::string programToRun(const std::string& word) {
    if (gen_has_extension(word.c_str(), nullptr))
        return word;
    return word + ".exe";
}

// The program's base name without ".exe", as messages name it.
std::string displayName(const char* program) {
    std::string name = gen_basename(program);
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".exe") == 0)
        name.resize(name.size() - 4);
    return name;
}

int streamFd(int fd) {
    return fd < 0 ? PLAT_SPAWN_NULL_DEVICE : fd;
}

// The parsed line started with the given handles; `baseDirectory` (may be null) is where a
// relative "cd" directory is taken from.
bool startLine(const CommandLine& line, const char* baseDirectory, PlatProcess** process,
               int stdinFd, int stdoutFd, int stderrFd, int flags, std::string* error) {
    std::string program = programToRun(line.words[0]);
    std::vector<const char*> argv;
    argv.push_back(program.c_str());
    for (size_t i = 1; i < line.words.size(); ++i)
        argv.push_back(line.words[i].c_str());
    argv.push_back(nullptr);
    // Joined as a shell's "cd BASE ; cd DIR" would, without normalising: names keep every byte.
    std::string directory = baseDirectory ? baseDirectory : "";
    const std::string& own = line.workingDirectory;
    if (!own.empty())
        directory = directory.empty() || own[0] == '/' ? own : directory + "/" + own;
    return createChild(argv.data(), directory.c_str(), process, stdinFd, stdoutFd, stderrFd, flags,
                       error);
}

// A growing buffer for one output stream of a run: the first n bytes get a capacity of 2n + 1,
// and a full buffer grows to twice its capacity + n + 1. The text is kept terminated.
class OutputCollector {
public:
    OutputCollector() = default;
    OutputCollector(const OutputCollector&) = delete;
    OutputCollector& operator=(const OutputCollector&) = delete;
    ~OutputCollector() { gen_free(text_); }

    void add(const char* bytes, size_t n) {
        if (text_ == nullptr) {
            capacity_ = 2 * n + 1;
            text_ = static_cast<char*>(gen_alloc(capacity_, 1));
        } else if (length_ + n + 1 > capacity_) {
            capacity_ = capacity_ * 2 + n + 1;
            text_ = static_cast<char*>(gen_realloc(text_, capacity_));
        }
        std::memcpy(text_ + length_, bytes, n);
        length_ += n;
        text_[length_] = '\0';
    }
    void add(const std::string& text) { add(text.data(), text.size()); }
    bool endsWithNewline() const { return length_ > 0 && text_[length_ - 1] == '\n'; }
    bool empty() const { return length_ == 0; }

    // Hands the text over (an empty, present string when nothing came) and starts afresh.
    void take(char** text, size_t* length) {
        if (length)
            *length = length_;
        if (text)
            *text = text_ ? text_ : gen_strdup("");
        else
            gen_free(text_);
        text_ = nullptr;
        length_ = capacity_ = 0;
    }

private:
    char* text_ = nullptr;
    size_t length_ = 0;
    size_t capacity_ = 0;
};

// One output stream of a run: its pipe and what came through it.
struct CapturedStream {
    bool wanted = false;
    int fds[2] = {-1, -1};
    OutputCollector text;

    bool open() const { return fds[0] >= 0; }
    void closeRead() {
        plat_close_fd(fds[0]);
        fds[0] = -1;
    }
    void closeWrite() {
        plat_close_fd(fds[1]);
        fds[1] = -1;
    }
    // Reads what waits; at the pipe's end (or on an error) the stream is closed.
    void drain() {
        char buffer[8192];
        long n = plat_read_fd(fds[0], buffer, sizeof buffer);
        if (n > 0)
            text.add(buffer, static_cast<size_t>(n));
        else
            closeRead();
    }
};

// Milliseconds left before `deadline`, at least 0; -1 when there is no deadline.
int32_t msLeft(bool limited, int32_t deadline) {
    if (!limited)
        return -1;
    int32_t left = plat_tick_diff(deadline, plat_tick_count());
    return left < 0 ? 0 : left;
}

} // namespace

bool readCommandLine(const char* command, CommandLine* line, std::string* error) {
    line->workingDirectory.clear();
    line->words.clear();
    const char* p = command ? skipBlanks(command) : "";
    if (*p == '\0')
        return fail(error, "the command line is empty");
    if (std::strncmp(p, "cd ", 3) == 0) {
        if (!readDirectory(p + 3, &line->workingDirectory, &p, error))
            return false;
        p = skipBlanks(p);
        if (*p == '\0')
            return fail(error, "\"cd\" needs a directory, a \";\" and a command behind it");
    }
    while (*p) {
        std::string word;
        if (!readWord(p, &word, &p, error))
            return false;
        line->words.push_back(std::move(word));
        p = skipBlanks(p);
    }
    return true;
}

char* commandWord(const char* text) {
    if (text == nullptr)
        return nullptr;
    return needsQuotes(text, " \t\"'\\") ? gen_quote(text) : gen_strdup(text);
}

char* cdCommandLine(const char* directory, const char* command) {
    const char* dir = directory ? directory : "";
    char* word = needsQuotes(dir, " \t\"'\\;") ? gen_quote(dir) : gen_strdup(dir);
    char* line = gen_concat4("cd ", word, " ; ", command);
    gen_free(word);
    return line;
}

char* argvCommandLine(const char* program, const char* const argv[]) {
    char* line = gen_quote(program ? program : "");
    for (const char* const* arg = argv && argv[0] ? argv + 1 : argv; arg && *arg; ++arg) {
        char* word = commandWord(*arg);
        line = gen_append3(line, " ", word);
        gen_free(word);
    }
    return line;
}

bool createChild(const char* const argv[], const char* workingDirectory, PlatProcess** process,
                 int stdinFd, int stdoutFd, int stderrFd, int flags, std::string* error) {
    *process = nullptr;
    if (argv == nullptr || argv[0] == nullptr || argv[0][0] == '\0')
        return fail(error, "no program to start");
    PlatSpawnOptions options;
    options.workingDir = workingDirectory && *workingDirectory ? workingDirectory : nullptr;
    options.stdinFd = streamFd(stdinFd);
    options.stdoutFd = streamFd(stdoutFd);
    options.stderrFd = streamFd(stderrFd);
    options.newSession = (flags & (GEN_SPAWN_DETACHED | GEN_SPAWN_NEW_CONSOLE)) != 0;
    PlatError failure = PlatError::none;
    *process = plat_spawn(argv, &options, &failure);
    if (*process)
        return true;
    if (error) {
        // Named as the caller wrote it, without the ".exe" that was added for the search.
        std::string program = argv[0];
        if (program.size() > 4 && program.compare(program.size() - 4, 4, ".exe") == 0 &&
            !gen_exists(argv[0]))
            program.resize(program.size() - 4);
        if (options.workingDir && !gen_is_directory(options.workingDir))
            *error = "Unable to start " + program + ": the directory " + options.workingDir +
                     " cannot be entered.";
        else if (failure == PlatError::not_found)
            *error = "Unable to start " + program + ": no such program was found.";
        else
            *error = "Unable to start " + program + ": the system refused to start it.";
    }
    return false;
}

bool spawnCommandLine(const char* command, PlatProcess** process, int stdinFd, int stdoutFd,
                      int stderrFd, int flags, std::string* error) {
    *process = nullptr;
    CommandLine line;
    if (!readCommandLine(command, &line, error))
        return false;
    return startLine(line, nullptr, process, stdinFd, stdoutFd, stderrFd, flags, error);
}

bool spawnArgv(const char* program, const char* const argv[], PlatProcess** process, int stdinFd,
               int stdoutFd, int stderrFd, int flags) {
    char* line = argvCommandLine(program, argv);
    bool ok = spawnCommandLine(line, process, stdinFd, stdoutFd, stderrFd, flags);
    gen_free(line);
    return ok;
}

bool spawnVector(const char* const argv[], PlatProcess** process, bool skipFirstByte) {
    *process = nullptr;
    if (argv == nullptr || argv[0] == nullptr)
        return false;
    const char* program = argv[0];
    if (skipFirstByte && *program)
        ++program;
    return spawnArgv(program, argv, process, GEN_NO_HANDLE, GEN_NO_HANDLE, GEN_NO_HANDLE,
                     GEN_SPAWN_DETACHED);
}

bool ChildPipe::hasData() const {
    return plat_pipe_peek(fd) != 0;
}

bool ChildPipe::read(char* buffer, size_t size, size_t* count) {
    *count = 0;
    if (size > 0)
        buffer[0] = '\0';
    if (!open || size == 0)
        return false;
    long waiting = plat_pipe_peek(fd);
    if (waiting < 0) {
        open = false;
        return false;
    }
    size_t want = static_cast<size_t>(waiting) < size - 1 ? static_cast<size_t>(waiting) : size - 1;
    if (want == 0)
        return true;
    long n = plat_read_fd(fd, buffer, want);
    if (n <= 0) {
        open = false;
        return false;
    }
    buffer[n] = '\0';
    *count = static_cast<size_t>(n);
    return true;
}

void ChildPipe::close() {
    plat_close_fd(fd);
    fd = -1;
    open = false;
}

bool spawnWithPipes(const char* command, const char* workingDirectory, PlatProcess** process,
                    bool wantStdout, ChildPipe** stdoutPipe, bool wantStderr,
                    ChildPipe** stderrPipe, bool mergeStderr) {
    *process = nullptr;
    if (stdoutPipe)
        *stdoutPipe = nullptr;
    if (stderrPipe)
        *stderrPipe = nullptr;
    CommandLine line;
    if (!readCommandLine(command, &line, nullptr))
        return false;
    int outFds[2] = {-1, -1};
    int errFds[2] = {-1, -1};
    bool merged = wantStderr && mergeStderr;
    bool ok = (!wantStdout && !merged) || plat_pipe(outFds);
    if (ok && wantStderr && !merged)
        ok = plat_pipe(errFds);
    if (ok) {
        int childErr = merged ? outFds[1] : errFds[1];
        ok = startLine(line, workingDirectory, process, GEN_NO_HANDLE, outFds[1], childErr,
                       GEN_SPAWN_DETACHED, nullptr);
    }
    // The child's ends are its own now (or nobody's).
    plat_close_fd(outFds[1]);
    plat_close_fd(errFds[1]);
    if (!ok) {
        plat_close_fd(outFds[0]);
        plat_close_fd(errFds[0]);
        return false;
    }
    ChildPipe* out = outFds[0] >= 0 ? new ChildPipe{outFds[0], true} : nullptr;
    ChildPipe* err = errFds[0] >= 0 ? new ChildPipe{errFds[0], true} : merged ? out : nullptr;
    if (stdoutPipe)
        *stdoutPipe = out;
    else if (out && out != err) {
        out->close();
        delete out;
    }
    if (stderrPipe)
        *stderrPipe = err;
    else if (err && err != out) {
        err->close();
        delete err;
    }
    return true;
}

bool captureCommand(const char* command, char** stdoutText, char** stderrText, size_t* stdoutLength,
                    size_t* stderrLength, int32_t timeLimitSeconds) {
    CapturedStream streams[2];
    CapturedStream& out = streams[0];
    CapturedStream& err = streams[1];
    out.wanted = stdoutText || stdoutLength;
    err.wanted = stderrText || stderrLength;

    bool started = false, timedOut = false;
    int exitCode = -1;
    std::string why;
    CommandLine line;
    if (!readCommandLine(command, &line, &why)) {
        why = "Unable to run the command: " + why + ".";
    } else {
        bool piped = (!out.wanted || plat_pipe(out.fds)) && (!err.wanted || plat_pipe(err.fds));
        PlatProcess* process = nullptr;
        if (!piped)
            why = "Unable to start the command: no pipe could be made for its output.";
        else
            started = startLine(line, nullptr, &process, GEN_NO_HANDLE, out.fds[1], err.fds[1],
                                GEN_SPAWN_DETACHED, &why);
        out.closeWrite();
        err.closeWrite();
        // Ticks wrap after about 24 days; a longer limit is as good as none.
        bool limited = timeLimitSeconds > 0 && timeLimitSeconds < 2000000;
        int32_t deadline = plat_tick_add(plat_tick_count(), limited ? timeLimitSeconds * 1000 : 0);
        // Both streams are drained at once; the one read first alternates from pass to pass,
        // so that a busy stream cannot starve the other.
        for (unsigned pass = 0; started && (out.open() || err.open()); ++pass) {
            int32_t left = msLeft(limited, deadline);
            if (left == 0) {
                timedOut = true;
                break;
            }
            CapturedStream* order[2] = {&out, &err};
            if (pass % 2 == 1)
                std::swap(order[0], order[1]);
            int fds[2];
            CapturedStream* waiting[2];
            int count = 0;
            for (CapturedStream* s : order)
                if (s->open()) {
                    waiting[count] = s;
                    fds[count++] = s->fds[0];
                }
            bool ready[2] = {false, false};
            if (plat_wait_readable(fds, count, left, ready) < 0) {
                // Nothing more can be read: closing the ends lets a writing child go on.
                out.closeRead();
                err.closeRead();
                break;
            }
            for (int i = 0; i < count; ++i)
                if (ready[i])
                    waiting[i]->drain();
        }
        bool exited = false;
        if (started && !timedOut) {
            PlatWait wait = plat_wait_process(process, msLeft(limited, deadline));
            timedOut = wait == PlatWait::timed_out;
            exited = wait == PlatWait::exited;
        }
        if (timedOut) {
            plat_terminate_process_group(process, -1);
            if (err.wanted) {
                if (!err.text.empty() && !err.text.endsWithNewline())
                    err.text.add("\n", 1);
                err.text.add(displayName(line.words[0].c_str()) + " was stopped after " +
                             std::to_string(timeLimitSeconds) +
                             " seconds because it had not finished within the time limit.\n");
            }
        } else if (!exited || !plat_process_exit_code(process, &exitCode)) {
            exitCode = -1;
        }
        plat_close_process(process);
    }
    out.closeRead();
    err.closeRead();
    if (!started && err.wanted && !why.empty())
        err.text.add(why + "\n");
    out.text.take(stdoutText, stdoutLength);
    err.text.take(stderrText, stderrLength);
    return started && !timedOut && exitCode == 0;
}
