#include "child_mode.h"

#include "plat_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

std::string childArgument(const std::string& name) {
    std::string prefix = "--" + name + "=";
    for (const std::string& arg : ::testing::internal::GetArgvs())
        if (arg.rfind(prefix, 0) == 0)
            return arg.substr(prefix.size());
    return "";
}

std::vector<std::string> childCommand(const std::string& test,
                                      const std::vector<std::string>& extra) {
    char self[4096] = "";
    plat_self_path(self, sizeof self);
    std::vector<std::string> words{self, "--gtest_filter=" + test,
                                   "--gtest_also_run_disabled_tests"};
    words.insert(words.end(), extra.begin(), extra.end());
    return words;
}

PlatProcess* startProgram(const std::vector<std::string>& words, const PlatSpawnOptions* options) {
    std::vector<const char*> argv;
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    argv.push_back(nullptr);
    return plat_spawn(argv.data(), options, nullptr);
}

std::vector<int> openDescriptors() {
    namespace fs = std::filesystem;
    // The listing holds a descriptor of its own, which links to the folder being listed.
    fs::path own = fs::path("/proc") / std::to_string(plat_current_process_id()) / "fd";
    std::vector<int> open;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd", error)) {
        std::error_code ignored;
        if (fs::read_symlink(entry.path(), ignored) == own)
            continue;
        open.push_back(std::stoi(entry.path().filename().string()));
    }
    std::sort(open.begin(), open.end());
    return open;
}

void writeOpenDescriptors(const std::string& path) {
    std::vector<int> open = openDescriptors();
    std::ofstream out(path);
    for (int fd : open)
        out << fd << ' ';
}

std::vector<int> leakedDescriptors(const std::string& path, const std::vector<int>& inherited) {
    std::ifstream in(path);
    std::vector<int> leaked;
    int count = 0;
    for (int fd; in >> fd; ++count)
        if (fd > 2 && std::find(inherited.begin(), inherited.end(), fd) == inherited.end())
            leaked.push_back(fd);
    if (count == 0)
        leaked.push_back(-1); // no list at all: the child did not run
    return leaked;
}
