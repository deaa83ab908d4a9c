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
