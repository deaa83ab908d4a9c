// Fuzzes the parser of cvs update and checkout output in both modes, and the merge that enters
// its records in a map and reports what no entry claims. The text is an exact-size heap copy
// of the input (plus its terminator), so that a read past the end is caught. Whatever the
// bytes, no crash, leak, hang or read outside memory, and every call moves forward.
#include "checkout_report.h"
#include "cvs_update_parser.h"
#include "mstring.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::unique_ptr<char[]> text(new char[size + 1]);
    std::memcpy(text.get(), data, size);
    text[size] = '\0';
    const char* end = text.get() + std::strlen(text.get());

    for (bool update_mode : {false, true}) {
        const char* cursor = text.get();
        UpdateRecord record;
        while (cursor && *cursor) {
            const char* next = nullptr;
            if (!parseUpdateOutput(cursor, "/fuzz", update_mode, &next, &record))
                break;
            if (next && (next <= cursor || next > end))
                __builtin_trap();
            cursor = next;
        }
        // The merge with no entries: every record is left over; paths under /fuzz name no real
        // directory, so the directory test only asks the file system about nothing.
        MString* warnings = MString_new(64);
        std::deque<EntriesRead> none;
        CheckoutInfo info =
            mergeCheckoutInfo(warnings, "/fuzz", text.get(), update_mode, &none, nullptr);
        CheckoutInfoRecord wire = info.wireRecord();
        CheckoutInfo::releaseWireRecord(&wire);
        MString_delete(warnings);
    }
    return 0;
}
