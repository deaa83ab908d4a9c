// Fuzzes the parser of `cvs log` output (revisions, branch lines, the symbol table) and the
// version functions on what it finds. The text is an exact-size heap copy of the input (plus
// its terminator), so that a read past the end is caught. Whatever the bytes, no crash, leak or
// read outside memory, and every item has a version.
#include "cvs_parsers.h"
#include "indgen.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::unique_ptr<char[]> text(new char[size + 1]);
    std::memcpy(text.get(), data, size);
    text[size] = '\0';

    HistoryInfo info;
    info._num_items = parseLogOutput(text.get(), &info._items);
    if (info._num_items < 0 || (info._num_items > 0) != (info._items != nullptr))
        __builtin_trap();
    for (int32_t i = 0; i < info._num_items; ++i) {
        const HistoryItem& item = info._items[i];
        if (!item._version || (item._numTags > 0) != (item._tags != nullptr))
            __builtin_trap();
        if (compareVersions(item._version, item._version) != 0)
            __builtin_trap();
        if (i > 0 && compareVersions(item._version, info._items[i - 1]._version) !=
                         -compareVersions(info._items[i - 1]._version, item._version))
            __builtin_trap();
        if (isVersionNumber(item._version) && item._version[0] != '.') {
            char* next = nextVersion(item._version);
            if (!next || compareVersions(next, item._version) <= 0)
                __builtin_trap();
            gen_free(next);
            gen_free(previousVersion(item._version));
        }
    }
    HistoryInfo_free(&info);
    return 0;
}
