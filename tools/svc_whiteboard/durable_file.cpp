// Durable replacement of a file through a synced temporary and a rename.
#include "durable_file.h"

#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_file_sync.h"
#include "plat_files.h"
#include "plat_process.h"

#include <cerrno>
#include <cstring>

namespace {

uint32_t g_counter = 0; // one count for all temporaries of the process

std::string folderOf(const char* path) {
    char* dir = gen_dirname(path);
    std::string result = dir ? dir : ".";
    gen_free(dir);
    return result;
}

std::string prefixOf(const char* path) {
    return std::string(".") + gen_basename(path) + ".";
}

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        int64_t n = plat_write(fd, text.data() + done, text.size() - done);
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

bool replaceFileDurably(const char* path, const std::string& text, std::string* error) {
    std::string folder = folderOf(path);
    std::string temp;
    int fd = -1;
    // Exclusive creation under the name tried: a name that exists is never opened.
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        std::string name = prefixOf(path) + std::to_string(plat_current_process_id()) + "." +
                           std::to_string(++g_counter) + ".tmp";
        char* joined = gen_path_join(folder.c_str(), name.c_str());
        temp = joined;
        gen_free(joined);
        fd = plat_open(temp.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_EXCL, 0600);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    if (fd < 0) {
        *error = "cannot create a temporary file beside " + std::string(path) + ": " +
                 std::strerror(errno);
        return false;
    }
    bool written = writeAll(fd, text) && plat_fsync(fd) == 0;
    int writeErrno = errno;
    if (plat_close(fd) != 0 && written) {
        written = false;
        writeErrno = errno;
    }
    if (!written) {
        *error = "cannot write " + temp + ": " + std::strerror(writeErrno);
        plat_unlink(temp.c_str());
        return false;
    }
    if (plat_rename_replace(temp.c_str(), path) != 0) {
        *error = "cannot put " + temp + " in the place of " + path + ": " + std::strerror(errno);
        plat_unlink(temp.c_str());
        return false;
    }
    return true;
}

void removeStaleTemporaries(const char* path) {
    std::string folder = folderOf(path);
    std::string prefix = prefixOf(path);
    GenDir dir;
    if (!gen_dir_open(&dir, folder.c_str()))
        return;
    gen_dir_options(&dir, true, true, false);
    while (const char* name = gen_dir_next(&dir)) {
        size_t n = std::strlen(name);
        if (n > prefix.size() + 4 && std::strncmp(name, prefix.c_str(), prefix.size()) == 0 &&
            std::strcmp(name + n - 4, ".tmp") == 0)
            plat_unlink(dir.entryPath);
    }
    gen_dir_close(&dir);
}
