// Fuzzes the reader of CVS/Entries: the input becomes the whole file, which an image reads and
// is then asked about every name it found (and about names cut from the input), also after a
// re-read forced by markStale. Whatever the bytes, no crash, leak or read outside memory.
#include "cvs_entries.h"
#include "gen_file.h"
#include "gen_path.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_process.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// CVS/Entries in a folder of this process's own under the temporary directory, removed when
// the process ends.
struct EntriesFolder {
    std::string dir = "/tmp/cvss_entries_fuzz_" + std::to_string(plat_current_process_id());
    std::string path = dir + "/CVS/Entries";
    EntriesFolder() { gen_mkdir_parents((dir + "/CVS").c_str(), 0700); }
    ~EntriesFolder() {
        gen_unlink(path.c_str());
        plat_rmdir((dir + "/CVS").c_str());
        plat_rmdir(dir.c_str());
    }
};

const std::string& entriesPath() {
    static const EntriesFolder folder;
    return folder.path;
}

void askAbout(CVSEntriesFile& image, const char* name) {
    image.contains(name);
    image.isNew(name);
    image.isRemoved(name);
    image.isResultOfMerge(name);
    volatile int sum = image.version(name).length() + image.date(name).length() +
                       image.options(name).length() + image.tag(name).length();
    (void)sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = gen_fopen(entriesPath().c_str(), "wbe");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    CVSEntriesFile image(entriesPath().c_str(), false);
    std::vector<std::string> names;
    for (const auto& [key, entry] : image.entriesMap())
        names.emplace_back(key.view());
    for (const std::string& name : names)
        askAbout(image, name.c_str());
    // A name cut from the input at its first newline, as a path with a directory part.
    std::string cut(reinterpret_cast<const char*>(data), size);
    cut = "dir/" + cut.substr(0, cut.find('\n'));
    askAbout(image, cut.c_str());
    image.directory();
    image.markStale();
    if (!names.empty())
        image.removeEntry(names.front().c_str());
    image.contains("");
    return 0;
}
