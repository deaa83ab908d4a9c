// Scratch folders and whole-file reads and writes for tests that touch the disk.
#pragma once

#include "plat_process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The whole file, or what could be read of it: "" for a file that is missing. A read that fails
// ends the text instead of throwing, as the stream library would; a /proc file of a process that
// ends while it is read fails that way.
inline std::string readFile(const std::string& path) {
    std::string text;
    if (FILE* file = std::fopen(path.c_str(), "rbe")) {
        char buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0)
            text.append(buffer, n);
        std::fclose(file);
    }
    return text;
}

// Everything written to `file` so far (flushed and read from its start).
inline std::string readStream(FILE* file) {
    std::fflush(file);
    std::rewind(file);
    std::string out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        out.append(buffer, n);
    return out;
}

// Writes `content` as the whole file, making missing parent folders.
inline void writeFile(const std::string& path, const std::string& content) {
    std::filesystem::path p(path);
    if (p.has_parent_path())
        std::filesystem::create_directories(p.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

// Writes `content` as the whole file and makes it executable (a script with a "#!" line that
// tests start directly, as a stand-in for a real program).
inline void writeExecutable(const std::string& path, const std::string& content) {
    writeFile(path, content);
    std::filesystem::permissions(
        path, std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
                  std::filesystem::perms::group_exec | std::filesystem::perms::others_read |
                  std::filesystem::perms::others_exec);
}

// A fresh folder under the system's temporary directory, named after the running test and the
// process, removed with everything in it at the end (write permission that a case took away is
// given back first).
class ScratchFolder {
public:
    ScratchFolder() {
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = "cvss_";
        if (info)
            name += std::string(info->test_suite_name()) + "_" + info->name() + "_";
        name += std::to_string(plat_current_process_id());
        for (char& c : name)
            if (c == '/')
                c = '_';
        root_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(root_);
        std::filesystem::create_directories(root_);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        for (auto& entry : std::filesystem::recursive_directory_iterator(root_, ignored))
            std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        std::filesystem::remove_all(root_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // The path of `name` inside the folder.
    std::string at(const std::string& name) const { return (root_ / name).string(); }
    std::string root() const { return root_.string(); }

private:
    std::filesystem::path root_;
};

// Keeps environment variables as they were: their values are saved on construction (and, with
// `clear`, removed) and put back at the end of the scope.
class SavedEnvironment {
public:
    SavedEnvironment(std::initializer_list<const char*> names, bool clear) {
        for (const char* name : names) {
            const char* value = std::getenv(name);
            saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
            if (clear)
                unsetenv(name);
        }
    }
    ~SavedEnvironment() {
        for (auto& [name, value] : saved_) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    }
    SavedEnvironment(const SavedEnvironment&) = delete;
    SavedEnvironment& operator=(const SavedEnvironment&) = delete;

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

// A test fixture with a scratch folder of its own.
class ScratchTest : public ::testing::Test {
protected:
    std::string at(const std::string& name) const { return folder_.at(name); }
    std::string root() const { return folder_.root(); }
    static void write(const std::string& path, const std::string& content) {
        writeFile(path, content);
    }
    static std::string read(const std::string& path) { return readFile(path); }

private:
    ScratchFolder folder_;
};
