// Lines and tokens of configuration text: a stack of open files (includes on top), logical
// lines with backslash continuation, the directive lines handed to the preprocessor, and the
// tokens of what is left, with macros expanded.
#pragma once

#include "ut_simple_preprocessor.h"
#include "ut_string.h"
#include "ut_string_list.h"

#include <cstdio>
#include <list>
#include <string>
#include <vector>

// One source for the reading of one file with its includes. Its preprocessor (directive
// character `%`) is made with it and dies with it, and with it the macros the text defined;
// the outer macros stay. Errors are reported through the general reporter with the position in
// front; only an include that cannot be opened ends the reading.
class ut_line_source : private ut_report_sink {
public:
    // `outerMacros` and `hooks` are not owned and may be null. In word mode a letter, digit or
    // `_` starts a word of letters, digits, `_` and `/`.
    ut_line_source(bool wordMode, ut_macro_table* outerMacros, const ut_preprocessor_hooks* hooks,
                   char directiveChar = '%');
    ~ut_line_source() override;
    ut_line_source(const ut_line_source&) = delete;
    ut_line_source& operator=(const ut_line_source&) = delete;

    // Opens the first file (close-on-exec). False when something is open already or the file
    // cannot be opened. The macro __DIR__ becomes the file's directory.
    bool open(const char* path);

    // The next token, reading further lines as needed; null at the end of the input. A token
    // stays valid until a new line is read. A string token keeps its quotes.
    char* next_token();
    // True when the current line has no further token; reads no line.
    bool at_end_of_line();
    // Goes to the start of the next token (reading lines as needed); if the text there begins
    // with `text`, consumes it and gives true.
    bool accept(const char* text);
    // Drops the rest of the current line.
    void skip_line();
    // Turns a token that begins with a double quote into its value, in place.
    static void unquote(char* token);

    // "\"<file>\", line <n>" with the current file and the number of the first physical line of
    // the current logical line; empty when no file is open.
    std::string position() const;
    // Reports "<position>: error: <text>" as an error.
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Every file opened, includes too, in order.
    const ut_string_list& files_read() const { return filesRead; }
    const ut_string& first_file_name() const { return firstFileName; }
    // An include could not be opened (or nested too deep): the reading ended early.
    bool include_failed() const { return includeFailed; }
    simple_preprocessor& preprocessor() { return pre; }

    // How deep includes may nest before the reading ends; a file that includes itself would
    // otherwise open files until none are left.
    static constexpr int kMaxIncludeDepth = 32;

private:
    struct File {
        ut_string path;
        ut_string dir;
        FILE* stream = nullptr;
        int reached = 1; // the physical line that comes next
        int noted = 1;   // the first line of the current logical line
    };
    struct Frame {
        ut_string macro; // null for a line of a file
        std::string text;
        size_t pos = 0;
    };

    void report(int level, const char* text) override;
    bool pushFile(const char* path);
    void popFile();
    // Reads one logical line of the innermost file; false at its end with nothing read.
    bool readLogicalLine(File& file, std::string* line);
    // Fills the input with the next line that is neither a directive nor skipped.
    bool fetchLine();
    // Whether a macro of this name is already being read (a frame or a string expansion).
    bool onStack(const ut_string& name) const;
    char* keep(std::string text);
    char* scanToken(Frame& frame);
    void scanString(Frame& frame, std::string* out);
    // A macro's text inside a string: identifiers expanded in turn, the rest escaped.
    void expandInString(const ut_string& name, const ut_string& value, std::string* out);

    bool wordMode;
    std::vector<File> files; // the innermost last
    std::vector<Frame> frames;
    std::vector<ut_string> expanding; // macros being expanded inside a string
    std::list<std::string> tokens;    // the tokens of the current line
    simple_preprocessor pre;
    const ut_preprocessor_hooks* hooks;
    ut_string_list filesRead;
    ut_string firstFileName;
    bool includeFailed = false;
    ut_string lastPath; // the file and line where the input ended, for messages after it
    int lastLine = 0;
};
