// The directive layer of configuration text: `%` lines with conditionals, includes and macro
// definitions, the macro tables they work on, and the functions of `%if` expressions.
#pragma once

#include "ut_simple_integer_evaluator.h"
#include "ut_string.h"

#include <cstdint>
#include <map>
#include <vector>

// Names and values, both texts, in byte order of the name.
class ut_macro_table {
public:
    // Replaces an existing entry.
    void define(const ut_string& name, const ut_string& value) { entries[name] = value; }
    // False when there was no such name.
    bool undefine(const ut_string& name) { return entries.erase(name) > 0; }
    // The value, or null (valid until the table changes).
    const ut_string* lookup(const ut_string& name) const;
    // Copies every entry into `other`, replacing what it had under the same names.
    void copyInto(ut_macro_table* other) const;
    const std::map<ut_string, ut_string>& all() const { return entries; }

private:
    std::map<ut_string, ut_string> entries;
};

// What the user of a source may add; every member may be null. The context is handed to each
// function; `release` frees it when the owner of the record asks for that.
struct ut_preprocessor_hooks {
    void* context = nullptr;
    void (*release)(void* context) = nullptr;
    // Whether `name` has a value outside the macros, and that value.
    bool (*has_variable)(void* context, const char* name) = nullptr;
    ut_string (*get_variable)(void* context, const char* name) = nullptr;
    // False: a file (or include) at this nesting depth is skipped without a word.
    bool (*may_read_file)(void* context, const char* path, int depth) = nullptr;
};

// Where the directive layer reports: the line source puts the position in front.
class ut_report_sink {
public:
    virtual ~ut_report_sink();
    // `level` is a report level of the general library (GEN_ERROR, GEN_WARNING, GEN_INFO).
    virtual void report(int level, const char* text) = 0;
};

class ut_simple_preprocessor_interface {
public:
    virtual ~ut_simple_preprocessor_interface();
    // Handles a line that begins with the directive character; true if it was understood.
    virtual bool directive(const char* line) = 0;
    // True while an enclosing conditional is false.
    virtual bool is_skipping() const = 0;
    // The last directive asks for a file to be included, and its name.
    virtual bool have_include() const = 0;
    virtual const char* include_name() const = 0;
    // Replaces an existing macro.
    virtual void define(const char* name, const char* value) = 0;
    // An identifier, blanks, then the rest as the value.
    virtual void define_from_text(const char* text) = 0;
    // An identifier, whose macro is removed.
    virtual void undefine_from_text(const char* text) = 0;
    // The local macros, then the outer ones, then the hooks' variables. When none has the name,
    // `report` reports "macro not defined(<name>) ..." as an error. *value may be null.
    virtual bool lookup(const ut_string& name, bool report, ut_string* value) = 0;
    virtual bool lookup(const char* name, bool report, ut_string* value) = 0;
};

// The preprocessor of one source. Conditions nest in frames; a frame left open at the end of
// the input is dropped without a word. Reports go to the sink given (the line source, which
// adds the position), or straight to the general reporter without one.
class simple_preprocessor : public ut_simple_preprocessor_interface,
                            public ut_simple_integer_evaluator_client_interface {
public:
    // `outerMacros`, `hooks` and `sink` are not owned and may be null.
    simple_preprocessor(char directiveChar, ut_macro_table* outerMacros,
                        const ut_preprocessor_hooks* hooks, ut_report_sink* sink);
    ~simple_preprocessor() override;

    bool directive(const char* line) override;
    bool is_skipping() const override;
    bool have_include() const override { return haveInclude; }
    const char* include_name() const override { return includeName.c_str(); }
    void define(const char* name, const char* value) override;
    void define_from_text(const char* text) override;
    void undefine_from_text(const char* text) override;
    bool lookup(const ut_string& name, bool report, ut_string* value) override;
    bool lookup(const char* name, bool report, ut_string* value) override;

    bool macro_value(const char* name, bool skip, ut_string* value) override;
    int32_t call_function(const char* name, int count, const char* const* arguments,
                          bool skip) override;
    void report_error(const char* text) override;

    // `path` with the directory macros put in, when it contains "_DIR": "${__TRELLIS_DIR__}",
    // "${_TRELLIS_DIR}" (the macro _TRELLIS_DIR, else the installation directory), "${__DIR__}"
    // (the macro __DIR__, else the current directory), and the bare word "_TRELLIS_DIR".
    ut_string expand_directory_macros(const char* path);

    ut_simple_integer_evaluator& evaluator() { return integerEvaluator; }
    ut_macro_table& local_macros() { return localMacros; }
    char directive_char() const { return directiveChar; }
    int condition_depth() const { return static_cast<int>(conditions.size()); }

private:
    struct Condition {
        bool value = false;
        bool active = false;
        bool taken = false;
        bool else_seen = false;
    };
    void setValue(Condition& frame, bool value);
    bool enclosingActive() const;
    void report(int level, const char* text);

    char directiveChar;
    bool haveInclude = false;
    ut_string includeName;
    std::vector<Condition> conditions; // the innermost last
    ut_simple_integer_evaluator integerEvaluator;
    ut_macro_table localMacros;
    ut_macro_table* outerMacros;
    const ut_preprocessor_hooks* hooks;
    ut_report_sink* sink;
};
