// Files and listings on real files in a temporary folder.
#include "gen_file.h"

#include "gen_path.h"
#include "gen_viewpath.h"
#include "indgen.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {
class GenFileTest : public ScratchTest {
protected:
    // Every line gen_readline gives for `content`.
    std::vector<std::string> lines(const std::string& content) {
        std::string path = at("lines.txt");
        write(path, content);
        FILE* f = gen_fopen(path.c_str(), "rb");
        EXPECT_NE(f, nullptr);
        std::vector<std::string> result;
        char* buffer = nullptr;
        int capacity = 0;
        while (const char* line = gen_readline(f, &buffer, &capacity))
            result.push_back(line);
        EXPECT_EQ(gen_readline(f, &buffer, &capacity), nullptr); // stays at the end
        EXPECT_EQ(capacity % 250, 0);
        gen_free(buffer);
        std::fclose(f);
        return result;
    }

    static unsigned permissions(const std::string& path) {
        PlatFileStatus status;
        EXPECT_EQ(gen_stat(path.c_str(), &status), 0) << path;
        return status.mode & 07777;
    }

    // True when permission bits do not stop this process (it runs as root).
    bool permissionsIgnored() {
        std::string dir = at("probe");
        fs::create_directory(dir);
        fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
        std::string file = dir + "/x";
        write(file, "x");
        bool ignored = fs::exists(file);
        fs::permissions(dir, fs::perms::owner_all);
        return ignored;
    }
};

TEST_F(GenFileTest, ReadlineSplitsAtNewlineAndReturn) {
    using V = std::vector<std::string>;
    EXPECT_EQ(lines("a\nbb\r\nccc\rdd"), (V{"a", "bb", "ccc", "dd"}));
    EXPECT_EQ(lines("last line has no newline"), (V{"last line has no newline"}));
    EXPECT_EQ(lines("\n\n"), (V{"", ""}));
    EXPECT_EQ(lines("x\r"), (V{"x"}));
    EXPECT_EQ(lines(""), V{});
    std::string longLine(1000, 'L');
    EXPECT_EQ(lines(longLine + "\nshort\n"), (V{longLine, "short"}));
}

TEST_F(GenFileTest, FopenWritesAndReadsAndRefusesWhatItCannotOpen) {
    std::string path = at("written.txt");
    FILE* f = gen_fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("content", f);
    std::fclose(f);
    EXPECT_EQ(read(path), "content");
    EXPECT_EQ(gen_fopen(nullptr, "r"), nullptr);
    EXPECT_EQ(gen_fopen(at("missing").c_str(), "r"), nullptr);
}

TEST_F(GenFileTest, StatExistsAndDirectories) {
    std::string file = at("f.txt");
    write(file, "12345");
    PlatFileStatus status;
    ASSERT_EQ(gen_stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.size, 5);
    EXPECT_TRUE(status.isRegular);
    EXPECT_FALSE(status.isDirectory);
    EXPECT_EQ(gen_stat(at("missing").c_str(), &status), -1);
    EXPECT_EQ(errno, ENOENT);

    errno = 1234;
    EXPECT_TRUE(gen_exists(file.c_str()));
    EXPECT_FALSE(gen_exists(at("missing").c_str()));
    EXPECT_EQ(errno, 1234); // left as it was

    EXPECT_EQ(gen_is_directory(root().c_str()), 1);
    EXPECT_EQ(gen_is_directory((root() + "/").c_str()), 1);
    EXPECT_EQ(gen_is_directory((root() + "//").c_str()), 1);
    EXPECT_EQ(gen_is_directory(file.c_str()), 0);
    EXPECT_EQ(gen_is_directory((file + "/").c_str()), 0);
    EXPECT_EQ(gen_is_directory(at("missing").c_str()), 0);
    EXPECT_EQ(gen_is_directory("/"), 1);
    EXPECT_EQ(gen_is_directory(""), 0);
    EXPECT_EQ(gen_is_directory(nullptr), 0);

    // With POSIX paths a trailing backslash is part of the directory's name.
    std::filesystem::create_directory(at("d\\"));
    EXPECT_EQ(gen_is_directory(at("d\\").c_str()), 0); // looked for as "d"
    gen_set_posix_paths(true);
    EXPECT_EQ(gen_is_directory(at("d\\").c_str()), 1);
    EXPECT_EQ(gen_mkdir_parents(at("e\\/f\\").c_str(), 0755), 0);
    gen_set_posix_paths(false);
    EXPECT_TRUE(std::filesystem::is_directory(at("e\\/f\\")));
}

TEST_F(GenFileTest, UnlinkAndForceUnlink) {
    std::string file = at("gone.txt");
    write(file, "x");
    EXPECT_EQ(gen_unlink(file.c_str()), 0);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(gen_unlink(file.c_str()), -1);

    write(file, "x");
    fs::permissions(file, fs::perms::owner_read);
    EXPECT_EQ(gen_force_unlink(file.c_str()), 0);
    EXPECT_FALSE(fs::exists(file));

    std::string dir = at("dir");
    fs::create_directory(dir);
    EXPECT_EQ(gen_force_unlink(dir.c_str()), -1);
    EXPECT_TRUE(fs::exists(dir));
}

TEST_F(GenFileTest, ForceUnlinkPutsTheOldBitsBackWhenItFails) {
    if (permissionsIgnored())
        GTEST_SKIP() << "permission bits do not apply to this user";
    std::string dir = at("locked");
    fs::create_directory(dir);
    std::string file = dir + "/f";
    write(file, "x");
    fs::permissions(file, fs::perms::owner_read);
    fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(gen_force_unlink(file.c_str()), -1);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(permissions(file), 0400u);
    fs::permissions(dir, fs::perms::owner_all);
}

TEST_F(GenFileTest, MakeWritableAddsBitsAndGivesTheOldOnes) {
    std::string file = at("ro.txt");
    write(file, "x");
    ASSERT_EQ(gen_chmod(file.c_str(), 0444), 0);
    EXPECT_EQ(gen_make_writable(file.c_str(), 0220), 0444u);
    EXPECT_EQ(permissions(file), 0664u);
    EXPECT_EQ(gen_make_writable(at("missing").c_str(), 0220), 0664u);
    EXPECT_EQ(gen_chmod(at("missing").c_str(), 0644), -1);
}

TEST_F(GenFileTest, TouchCreatesOrRenewsTheModificationTime) {
    std::string fresh = at("new.txt");
    EXPECT_EQ(gen_touch(fresh.c_str()), 0);
    ASSERT_TRUE(fs::exists(fresh));
    EXPECT_EQ(fs::file_size(fresh), 0u);

    auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
    for (const std::string& content : {std::string("abc"), std::string()}) {
        std::string file = at(content.empty() ? "empty.txt" : "full.txt");
        write(file, content);
        fs::last_write_time(file, old);
        EXPECT_EQ(gen_touch(file.c_str()), 0);
        EXPECT_GT(fs::last_write_time(file), old + std::chrono::hours(24)) << file;
        EXPECT_EQ(read(file), content); // the content is unchanged
    }
    EXPECT_EQ(gen_touch(at("no/such/dir/f").c_str()), -1);
}

TEST_F(GenFileTest, MkdirAndParents) {
    std::string dir = at("made");
    EXPECT_EQ(gen_mkdir(dir.c_str(), 0755), 0);
    EXPECT_TRUE(fs::is_directory(dir));
    EXPECT_EQ(gen_mkdir(dir.c_str(), 0755), 0); // exists already
    std::string file = at("plain");
    write(file, "x");
    EXPECT_EQ(gen_mkdir(file.c_str(), 0755), -1);
    EXPECT_EQ(gen_mkdir(at("a/b").c_str(), 0755), -1); // no parent

    std::string deep = at("p/q\\r/s/");
    EXPECT_EQ(gen_mkdir_parents(deep.c_str(), 0750), 0);
    EXPECT_TRUE(fs::is_directory(at("p/q\\r/s"))) << "a backslash is a name byte on Linux";
    EXPECT_EQ(gen_mkdir_parents(deep.c_str(), 0750), 0);
    EXPECT_EQ(gen_mkdir_parents((file + "/x").c_str(), 0755), -1);
}

TEST_F(GenFileTest, DirectoryListingSkipsWhatItIsTold) {
    write(at("a"), "1");
    write(at("b.txt"), "2");
    fs::create_directory(at("sub"));
    fs::create_directory(at("CVS"));
    auto list = [&](int skipMode) {
        GenDir dir;
        EXPECT_TRUE(gen_dir_open(&dir, root().c_str()));
        if (skipMode == 1)
            gen_dir_options(&dir, true, true, false);
        if (skipMode == 2)
            gen_dir_options(&dir, false, true, true);
        if (skipMode == 3)
            gen_dir_options(&dir, false, false, false);
        std::set<std::string> names;
        while (const char* name = gen_dir_next(&dir)) {
            names.insert(std::string(name) + (dir.isDirectory ? "/" : ""));
            std::string expected = std::string(name) == "." ? root()
                                   : std::string(name) == ".."
                                       ? fs::path(root()).parent_path().string()
                                       : at(name);
            EXPECT_EQ(std::string(dir.entryPath), expected);
        }
        EXPECT_EQ(gen_dir_next(&dir), nullptr);
        gen_dir_close(&dir);
        return names;
    };
    using S = std::set<std::string>;
    EXPECT_EQ(list(0), (S{"a", "b.txt", "sub/", "CVS/"}));
    EXPECT_EQ(list(1), (S{"a", "b.txt"}));
    EXPECT_EQ(list(2), (S{"a", "b.txt", "sub/"}));
    EXPECT_EQ(list(3), (S{"a", "b.txt", "sub/", "CVS/", "./", "../"}));

    GenDir dir;
    EXPECT_FALSE(gen_dir_open(&dir, at("a").c_str()));
    EXPECT_FALSE(gen_dir_open(&dir, at("missing").c_str()));
}
} // namespace
