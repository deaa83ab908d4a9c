// The places of the program's and the user's configuration, on folders made for the test.
#include "gen_config_dirs.h"

#include "indgen.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {
std::string take(char* s) {
    std::string text = s ? s : "<null>";
    gen_free(s);
    return text;
}

class GenConfigDirsTest : public ScratchTest {
    SavedEnvironment environment{{"XDG_CONFIG_HOME", "HOME"}, false};
};

TEST_F(GenConfigDirsTest, InstallDirIsTheProgramsDirectory) {
    std::string self = fs::read_symlink("/proc/self/exe").parent_path().string();
    ASSERT_NE(gen_install_dir(), nullptr);
    EXPECT_EQ(std::string(gen_install_dir()), self);
    // The test program does not run from a development tree, so the internal directory is
    // "config" beside it.
    EXPECT_FALSE(gen_is_dev_tree());
    EXPECT_EQ(std::string(gen_internal_config_dir()), self + "/config");
}

TEST_F(GenConfigDirsTest, DevelopmentTreeNeedsSourcesAndNoInstalledFolders) {
    std::string bin = at("tree/bin");
    fs::create_directories(bin);
    EXPECT_FALSE(gen_is_dev_tree_at(bin.c_str()));
    fs::create_directories(at("tree/src/target"));
    EXPECT_FALSE(gen_is_dev_tree_at(bin.c_str()));
    fs::create_directories(at("tree/src/configuration"));
    EXPECT_TRUE(gen_is_dev_tree_at(bin.c_str()));
    fs::create_directories(at("tree/bin/defaults"));
    EXPECT_FALSE(gen_is_dev_tree_at(bin.c_str()));
    fs::remove(at("tree/bin/defaults"));
    write(at("tree/bin/target"), "a file, not a directory");
    EXPECT_TRUE(gen_is_dev_tree_at(bin.c_str()));
    EXPECT_FALSE(gen_is_dev_tree_at(nullptr));
}

TEST_F(GenConfigDirsTest, UserDirFollowsTheBaseDirectoryConvention) {
    std::string xdg = at("xdg/config");
    setenv("XDG_CONFIG_HOME", xdg.c_str(), 1);
    EXPECT_EQ(take(gen_find_user_dir(root().c_str())), xdg);
    EXPECT_TRUE(fs::is_directory(xdg)); // made when missing

    // A relative value does not count; then $HOME/.config.
    setenv("XDG_CONFIG_HOME", "relative/dir", 1);
    setenv("HOME", at("home").c_str(), 1);
    EXPECT_EQ(take(gen_find_user_dir(root().c_str())), at("home/.config"));
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(take(gen_find_user_dir(root().c_str())), at("home/.config"));
    EXPECT_TRUE(fs::is_directory(at("home/.config")));
}

TEST_F(GenConfigDirsTest, UserConfigDirIsMadeOnRequest) {
    // The cached places are read once per process: set the base before the first use.
    std::string xdg = at("cfg");
    setenv("XDG_CONFIG_HOME", xdg.c_str(), 1);
    EXPECT_EQ(std::string(gen_user_dir()), xdg);
    char* error = nullptr;
    const char* dir = gen_user_config_dir(false, &error);
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(std::string(dir), xdg + "/ORT");
    EXPECT_FALSE(fs::exists(dir));
    EXPECT_EQ(gen_user_config_dir(true, &error), dir);
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(fs::is_directory(dir));

    // A file in its place: the directory cannot be made, and the text says where.
    fs::remove(dir);
    write(dir, "in the way");
    EXPECT_EQ(gen_user_config_dir(true, &error), dir);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(take(error), "Couldn't create user config directory: " + xdg + "/ORT");
}

TEST_F(GenConfigDirsTest, FindConfigPrefersOverrideThenOrtThenName) {
    std::string dir = root();
    // Nothing exists: ort.cfg without use_name, name.cfg with it.
    EXPECT_EQ(take(gen_find_config(dir.c_str(), "vc", false, true)), dir + "/ort.cfg");
    EXPECT_EQ(take(gen_find_config(dir.c_str(), "vc", true, true)), dir + "/vc.cfg");
    write(at("ort.cfg"), "");
    EXPECT_EQ(take(gen_find_config(dir.c_str(), "vc", true, true)), dir + "/ort.cfg");
    fs::create_directory(at("override"));
    write(at("override/vc.cfg"), "");
    EXPECT_EQ(take(gen_find_config(dir.c_str(), "vc", true, true)), dir + "/override/vc.cfg");
    EXPECT_EQ(take(gen_find_config(dir.c_str(), "vc", true, false)), dir + "/ort.cfg");
}
} // namespace
