// The viewpathing wrappers with viewpathing off: each behaves as the call it stands for.
#include "gen_viewpath.h"

#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {
using GenViewpathTest = ScratchTest;

TEST_F(GenViewpathTest, WrappersActOnTheFileSystem) {
    std::string file = at("f");
    EXPECT_EQ(V_access(file.c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
    int fd = V_open(file.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_EXCL, 0644);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(plat_write(fd, "abc", 3), 3);
    plat_close(fd);
    EXPECT_EQ(V_open(file.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_EXCL, 0644), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(V_access(file.c_str(), 6), 0);

    fd = V_open(file.c_str(), PLAT_O_WRONLY | PLAT_O_APPEND, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(plat_write(fd, "de", 2), 2);
    plat_close(fd);
    EXPECT_EQ(read(file), "abcde");

    PlatFileStatus status;
    ASSERT_EQ(V_stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.size, 5);

    FILE* f = V_fopen(file.c_str(), "a");
    ASSERT_NE(f, nullptr);
    std::fputs("f", f);
    FILE* again = V_freopen(file.c_str(), "r", f);
    ASSERT_NE(again, nullptr);
    char line[16] = {};
    EXPECT_NE(std::fgets(line, sizeof line, again), nullptr);
    EXPECT_STREQ(line, "abcdef");
    std::fclose(again);

    std::string dir = at("d");
    EXPECT_EQ(V_mkdir(dir.c_str(), 0755), 0);
    EXPECT_EQ(V_mkdir(dir.c_str(), 0755), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(fs::is_directory(dir));

    EXPECT_EQ(V_unlink(file.c_str()), 0);
    EXPECT_EQ(V_unlink(file.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(GenViewpathTest, ChdirRefusesTheEmptyPath) {
    fs::path before = fs::current_path();
    EXPECT_EQ(V_chdir(""), -1);
    EXPECT_EQ(V_chdir(nullptr), -1);
    EXPECT_EQ(V_chdir(at("missing").c_str()), -1);
    EXPECT_EQ(fs::current_path(), before);
    ASSERT_EQ(V_chdir(root().c_str()), 0);
    EXPECT_EQ(fs::current_path(), fs::path(root()));
    fs::current_path(before);
    EXPECT_EQ(V_fopen(nullptr, "r"), nullptr);
}
} // namespace
