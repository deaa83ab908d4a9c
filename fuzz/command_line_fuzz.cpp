// The command-line reader, which reads the command strings that clients send to cvs: any text
// is read or refused without a fault, what it reads writes back to a line that reads the same,
// and any text written as one word reads back unchanged.
#include "gen_process.h"
#include "indgen.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {
CommandLine reread(const std::string& text) {
    CommandLine line;
    if (!readCommandLine(text.c_str(), &line))
        std::abort();
    return line;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));

    CommandLine line;
    if (readCommandLine(text.c_str(), &line)) {
        std::vector<const char*> argv;
        for (const std::string& word : line.words)
            argv.push_back(word.c_str());
        argv.push_back(nullptr);
        char* joined = argvCommandLine(argv[0], argv.data());
        std::string written = joined;
        gen_free(joined);
        if (!line.workingDirectory.empty()) {
            char* cd = cdCommandLine(line.workingDirectory.c_str(), written.c_str());
            written = cd;
            gen_free(cd);
        }
        CommandLine again = reread(written);
        if (again.words != line.words || again.workingDirectory != line.workingDirectory)
            std::abort();
    }

    char* word = commandWord(text.c_str());
    CommandLine single = reread(std::string("p ") + word);
    gen_free(word);
    if (single.words.size() != 2 || single.words[1] != text)
        std::abort();
    return 0;
}
