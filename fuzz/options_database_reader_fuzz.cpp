// Feeds arbitrary text to the options database reader (through the preprocessor), then writes
// the tree it built and reads that text again.
//
// Besides the sanitizers, it checks the round trip: a tree without number lists (which the text
// form does not carry) writes a text that reads back without error into a tree that writes the
// same text again.
#include "fuzz_input_file.h"
#include "indgen.h"
#include "ut_options_database.h"

namespace {

void silentReport(int, const char*, va_list) {}

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

bool onlyTheInput(void*, const char*, int depth) {
    return depth == 0;
}

bool hasNumberList(const ut_options_group* group) {
    for (int i = 0; i < group->attribute_count(); ++i)
        if (group->attribute(i).type == UT_OPTION_INT32_LIST)
            return true;
    for (const ut_options_group* c = group->first_child(); c; c = c->next_sibling())
        if (hasNumberList(c))
            return true;
    return false;
}

// Empty names and siblings of one name do not survive the text form unchanged: the reader
// refuses an empty attribute name and joins groups of one name.
bool writable(const ut_options_group* group) {
    for (int i = 0; i < group->attribute_count(); ++i)
        if (group->attribute(i).name.length() == 0)
            return false;
    for (const ut_options_group* c = group->first_child(); c; c = c->next_sibling()) {
        if (c->name().length() == 0 || !writable(c))
            return false;
        for (const ut_options_group* d = c->next_sibling(); d; d = d->next_sibling())
            if (d->name() == c->name())
                return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    gen_set_report_func(silentReport);
    if (size < 1)
        return 0;
    // The first byte chooses the reader's options.
    uint8_t options = data[0];
    if (!writeFuzzInput(data + 1, size - 1))
        return 0;
    ut_preprocessor_hooks hooks;
    hooks.may_read_file = onlyTheInput;
    ut_options_database first("fuzz", &hooks, false);
    first.keep_going = options & 1;
    first.number_lists = options & 2;
    first.size_suffixes = options & 4;
    first.read(fuzzInputPath().c_str());
    if (hasNumberList(&first) || !writable(&first))
        return 0;
    std::string text = first.text();
    check(writeFuzzInput(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    ut_options_database second("fuzz", &hooks, false);
    check(second.read(fuzzInputPath().c_str()));
    check(second.text() == text);
    return 0;
}
