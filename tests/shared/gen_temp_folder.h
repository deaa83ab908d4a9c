// A fresh folder under the system's temporary directory for one test, removed afterwards.
#pragma once

#include "plat_process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

class GenTempFolder : public ::testing::Test {
protected:
    void SetUp() override {
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("cvss_") + info->test_suite_name() + "_" + info->name() +
                           "_" + std::to_string(plat_current_process_id());
        for (char& c : name)
            if (c == '/')
                c = '_';
        root_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(root_);
        std::filesystem::create_directories(root_);
    }
    void TearDown() override {
        std::error_code ignored;
        // Give back write permission that a case took away, so that everything can go.
        for (auto& entry : std::filesystem::recursive_directory_iterator(root_, ignored))
            std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        std::filesystem::remove_all(root_, ignored);
    }
    // The path of `name` inside the folder.
    std::string at(const std::string& name) const { return (root_ / name).string(); }
    std::string root() const { return root_.string(); }
    static void write(const std::string& path, const std::string& content) {
        std::ofstream out(path, std::ios::binary);
        out << content;
    }
    static std::string read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path root_;
};
