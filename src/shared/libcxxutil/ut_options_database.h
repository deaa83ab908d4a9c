// The options database: the root of a tree of groups that reads itself from configuration
// text (through the preprocessor) and writes itself back in the same form.
//
// The text form: a group is a name, `{`, attributes one to a line (`name = value`) and `}`;
// `a.b = 1` reaches into child `a`. Values are quoted strings, numbers (0x hexadecimal, 0 octal),
// the words false/no.../off... (0) and on.../true.../yes... (1), and `{ "a", "b" }` lists of
// strings. `#` begins a comment; `%` lines are directives (conditions, includes, macros).
#pragma once

#include "ut_options_group.h"
#include "ut_simple_preprocessor.h"
#include "ut_string_list.h"

#include <cstdio>
#include <string>

class ut_line_source;

class ut_options_database : public ut_options_group {
public:
    // `name` is for people ("Service Router"); nothing depends on it. `hooks` (may be null) is
    // owned when `ownsHooks`, and its release function is then called at destruction. The
    // macros _TRELLIS_DIR, __TRELLIS_DIR__ (the installation directory), __TRELLIS_HOST__ and,
    // in a development tree, __TRELLIS_WIN32_DEV_HOST__ are defined at construction.
    explicit ut_options_database(const char* name, ut_preprocessor_hooks* hooks = nullptr,
                                 bool ownsHooks = false);
    ~ut_options_database() override;

    // Reads `path` into `into` (the root when null); several files may be read into one tree,
    // later values replacing earlier ones. False when the file cannot be opened (the tree is
    // unchanged) or a parse error stopped the reading (what was read stays). Parse errors are
    // reported as "<position>: parse error: <text>" with file and line.
    bool read(const char* path, ut_options_group* into = nullptr);
    // A file could not be opened, or a parse error was reported.
    bool had_errors() const { return fileFailed || parseFailed; }
    bool file_failed() const { return fileFailed; }
    bool parse_failed() const { return parseFailed; }
    // Every file read so far, includes too.
    const ut_string_list& files_read() const { return filesRead; }

    // The text form of the whole tree.
    std::string text() const;
    // Writes the text form, replacing the file (or to an open stream). False, with the error
    // "failed when writing <path>", when anything went wrong, closing too.
    bool write(const char* path) const;
    bool write(FILE* stream) const;

    // Macros for the text to use; define them before reading.
    void define_macro(const char* name, const char* value);
    // "name=value"; without a "=" the value is empty.
    void define_macro_from_text(const char* text);
    void define_macro_number(const char* name, int32_t value);
    // Each string attribute of `group` by its name and value (numbers in decimal).
    void define_macros_from_group(const ut_options_group* group);
    void copy_macros(const ut_options_database& other);
    // The value of a macro, or null; with `report` a missing one is reported as
    // "macro not defined(<name>) ...".
    const char* lookup_macro(const char* name, bool report) const;
    ut_macro_table& macros() { return macroTable; }

    // Reading options, all off by default, which is the format of this system's files.
    bool keep_going = false;    // after a parse error, go on with the next line
    bool flat_format = false;   // `a.b.c=value` lines, values taken as written
    bool size_suffixes = false; // a number may end in K (1024) or M (1048576)
    bool number_lists = false;  // lists of numbers and `+=` on a number

protected:
    const char* single_file_read() const override;

private:
    class Parser;
    void writeGroup(std::string* out, const ut_options_group* group,
                    const std::string* prefix) const;
    void writeFlat(std::string* out, const ut_options_group* group, const std::string& path) const;

    ut_string databaseName;
    ut_macro_table macroTable;
    ut_preprocessor_hooks* hooks;
    bool ownsHooks;
    ut_string_list filesRead;
    bool fileFailed = false;
    bool parseFailed = false;
};

// How the text form writes a name or a string value: in double quotes, with a backslash before
// each backslash, quote and `$` (which would start a macro), line ends and tabs as \n \r \t and
// other control bytes as three octal digits, so that the reader gives back exactly the bytes
// that were written.
std::string ut_options_quote(const char* text);
