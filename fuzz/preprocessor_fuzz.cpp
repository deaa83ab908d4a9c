// Feeds arbitrary text to the line source and its preprocessor: logical lines, directives and
// nested conditions, expressions of %if, macros in and out of strings. Includes are refused
// through the hooks, so that a run reads nothing but its input.
//
// Besides the sanitizers, it checks that every token is a non-empty C string, that unquoting
// never lengthens a string token, and that a position is known while tokens come.
#include "fuzz_input_file.h"
#include "indgen.h"
#include "ut_line_source.h"

#include <cstring>

namespace {

void silentReport(int, const char*, va_list) {}

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

bool onlyTheInput(void*, const char*, int depth) {
    return depth == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    gen_set_report_func(silentReport);
    if (!writeFuzzInput(data, size))
        return 0;
    ut_preprocessor_hooks hooks;
    hooks.may_read_file = onlyTheInput;
    ut_macro_table outer;
    outer.define("OUTER", "1 + ${OUTER2}");
    outer.define("OUTER2", "\"q\\\"\" 7");
    ut_line_source source(true, &outer, &hooks);
    check(source.open(fuzzInputPath().c_str()));
    for (int tokens = 0; tokens < 100000; ++tokens) {
        bool endOfLine = source.at_end_of_line();
        (void)endOfLine;
        char* token = source.next_token();
        if (token == nullptr)
            break;
        check(!source.position().empty());
        size_t length = std::strlen(token);
        if (token[0] == '"') {
            ut_line_source::unquote(token);
            check(std::strlen(token) < length);
        } else {
            check(length > 0);
        }
    }
    return 0;
}
