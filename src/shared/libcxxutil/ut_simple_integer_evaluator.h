// The integer evaluator of `%if` lines: 32-bit expressions over numbers, macros and a few
// functions, with the operators of the directive language.
#pragma once

#include "ut_string.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The value of a quoted text of the directive language: the surrounding double quotes go (a
// missing closing one is no error) and the escapes are read: \" \' \? \\ \a \b \f \n \r \t \v,
// an octal digit 0 to 3 with up to two more octal digits, \x with up to two hex digits; a
// backslash before any other byte leaves that byte. A text without a leading quote is taken
// whole, with its escapes read the same way.
std::string ut_unquote_escapes(const char* text, size_t length);

// What the evaluator asks of the one who uses it: macro values, functions and where to report.
class ut_simple_integer_evaluator_client_interface {
public:
    virtual ~ut_simple_integer_evaluator_client_interface();
    // The value of macro `name` in *value; false when it has none. With `skip` nothing is
    // reported (the expression stands in a branch that is not taken).
    virtual bool macro_value(const char* name, bool skip, ut_string* value) = 0;
    // The value of function `name` with `count` arguments (identifiers as written, strings
    // unquoted). Reports unknown names and wrong counts itself and gives 0 for them.
    virtual int32_t call_function(const char* name, int count, const char* const* arguments,
                                  bool skip) = 0;
    // Reports a parse error of an expression ("parse error: near: ...").
    virtual void report_error(const char* text) = 0;
};

// Precedence climbing over the tokens of one text. Values are signed 32-bit numbers that wrap;
// comparisons are unsigned. A parse error is reported through the client and gives 0 for the
// part it stands in; the rest of the text is then left unread, and the levels around it go on
// with that 0. Not re-entrant across clients, but a macro whose value is an expression is
// evaluated recursively, up to a fixed depth (deeper is reported as a recursion).
class ut_simple_integer_evaluator {
public:
    // The client is not owned and must outlive the evaluator.
    explicit ut_simple_integer_evaluator(ut_simple_integer_evaluator_client_interface* client);

    int32_t evaluate(const char* text, bool skip);

    // The most arguments a function call may have.
    static constexpr int kMaxArguments = 12;
    // How deep macros whose values are expressions may nest.
    static constexpr int kMaxMacroDepth = 32;

private:
    struct Parser;
    int32_t expression(Parser& p, int minPrecedence);
    int32_t primary(Parser& p);
    int32_t macroValue(Parser& p, const ut_string& name);
    int32_t functionCall(Parser& p, const ut_string& name);

    ut_simple_integer_evaluator_client_interface* client;
    int depth = 0;
};
