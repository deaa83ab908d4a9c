// Fuzzes the parser of `cvs status` output and the remark tests that read the same text. The
// text is an exact-size heap copy of the input (plus its terminator), so that a read past the
// end is caught. Whatever the bytes, no crash, leak or read outside memory.
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

    char* local = nullptr;
    char* remote = nullptr;
    char* word = nullptr;
    char* tag = nullptr;
    int32_t type = 0;
    bool ok = parseStatusOutput(text.get(), &local, &remote, &word, &type, &tag);
    if (ok && (!local || !remote || !word || !tag))
        __builtin_trap();
    statusHadConflicts(word);
    statusFailureIsExpected(text.get());
    // The last word of the text as the file a dry update is asked about.
    const char* name = std::strrchr(text.get(), ' ');
    updateReportsConflict(text.get(), name ? name + 1 : text.get());
    gen_free(local);
    gen_free(remote);
    gen_free(word);
    gen_free(tag);
    return 0;
}
