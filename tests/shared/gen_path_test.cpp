// Paths as text: tables of inputs and expected outputs for both separators.
#include "gen_path.h"

#include "gen_string.h"
#include "indgen.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {
std::string take(char* s) {
    std::string text = s ? s : "<null>";
    gen_free(s);
    return text;
}

// Restores the path separator after each case.
class SeparatorGuard {
public:
    explicit SeparatorGuard(char separator) : previous_(gen_path_separator()) {
        gen_set_path_separator(separator);
    }
    ~SeparatorGuard() { gen_set_path_separator(previous_); }

private:
    char previous_;
};

struct NormaliseCase {
    char separator;
    const char* input;
    const char* expected;
};

class GenPathNormalise : public ::testing::TestWithParam<NormaliseCase> {};

TEST_P(GenPathNormalise, InPlace) {
    const NormaliseCase& c = GetParam();
    SeparatorGuard guard(c.separator);
    char* path = gen_strdup(c.input);
    gen_path_normalise(path);
    EXPECT_STREQ(path, c.expected) << "input " << c.input;
    gen_free(path);
}

INSTANTIATE_TEST_SUITE_P(
    Table, GenPathNormalise,
    ::testing::Values(
        NormaliseCase{'\\', "a/./b//c/../d", "a\\b\\d"}, NormaliseCase{'\\', "c:/x", "C:\\x"},
        NormaliseCase{'\\', "a/b/", "a\\b\\"}, NormaliseCase{'\\', "a/.", "a"},
        NormaliseCase{'/', "a/./b//c/../d", "a/b/d"}, NormaliseCase{'/', "a\\b\\..\\c", "a/c"},
        NormaliseCase{'/', "/usr//lib/./x/", "/usr/lib/x/"}, NormaliseCase{'/', "a/b/..", "a"},
        NormaliseCase{'/', "a/b/../", "a/"}, NormaliseCase{'/', "../../x", "../../x"},
        NormaliseCase{'/', "a/../../b", "../b"}, NormaliseCase{'/', "a/..", "."},
        NormaliseCase{'/', ".", "."}, NormaliseCase{'/', "./a/./b", "./a/b"},
        NormaliseCase{'/', "/", "/"}, NormaliseCase{'/', "//", "/"},
        NormaliseCase{'/', "///a", "/a"}, NormaliseCase{'/', "//server/share/../x", "//server/x"},
        NormaliseCase{'\\', "\\\\server\\share\\.\\y", "\\\\server\\share\\y"},
        NormaliseCase{'/', "d:\\a\\..\\b", "D:/b"}, NormaliseCase{'/', "c:x/./y", "C:x/y"},
        NormaliseCase{'/', "/../a", "/../a"}, NormaliseCase{'/', "", ""}));

struct JoinCase {
    char separator;
    const char* dir;
    const char* name;
    const char* expected;
};

class GenPathJoin : public ::testing::TestWithParam<JoinCase> {};

TEST_P(GenPathJoin, Joins) {
    const JoinCase& c = GetParam();
    SeparatorGuard guard(c.separator);
    EXPECT_EQ(take(gen_path_join(c.dir, c.name)), c.expected)
        << "dir " << (c.dir ? c.dir : "<null>") << " name " << (c.name ? c.name : "<null>");
}

INSTANTIATE_TEST_SUITE_P(
    Table, GenPathJoin,
    ::testing::Values(JoinCase{'\\', "a", "b", "a\\b"}, JoinCase{'\\', "a/", "b", "a\\b"},
                      JoinCase{'/', "a", "b", "a/b"}, JoinCase{'/', "a\\", "b", "a/b"},
                      JoinCase{'/', "/x/y", "../z", "/x/z"}, JoinCase{'/', "a", "..", "."},
                      JoinCase{'/', "c:", "x", "C:x"}, JoinCase{'/', "a", "", "a"},
                      JoinCase{'/', "a//b", nullptr, "a//b"}, JoinCase{'/', "", "b//c", "b//c"},
                      JoinCase{'/', nullptr, "b", "b"}, JoinCase{'/', "a", "/abs//x", "/abs//x"},
                      JoinCase{'/', "a", "c:\\x", "c:\\x"}, JoinCase{'/', "a", "~/x", "~/x"},
                      JoinCase{'/', nullptr, nullptr, "<null>"},
                      JoinCase{'/', "//srv/share", "d/./e/", "//srv/share/d/e/"}));

struct DirnameCase {
    const char* path;
    const char* dirname;
    const char* basename;
};

class GenPathSplit : public ::testing::TestWithParam<DirnameCase> {};

TEST_P(GenPathSplit, DirnameAndBasename) {
    const DirnameCase& c = GetParam();
    EXPECT_EQ(take(gen_dirname(c.path)), c.dirname) << c.path;
    const char* base = gen_basename(c.path);
    ASSERT_NE(base, nullptr);
    EXPECT_STREQ(base, c.basename) << c.path;
    EXPECT_GE(base, c.path); // a pointer into the path
    EXPECT_LE(base, c.path + std::char_traits<char>::length(c.path));
}

INSTANTIATE_TEST_SUITE_P(
    Table, GenPathSplit,
    ::testing::Values(DirnameCase{"a.c", "<null>", "a.c"}, DirnameCase{"c:\\x", "c:\\", "x"},
                      DirnameCase{"\\x", "\\", "x"}, DirnameCase{"c:x", "c:", "x"},
                      DirnameCase{"/a/b/", "/a/b", ""}, DirnameCase{"/a/b", "/a", "b"},
                      DirnameCase{"a\\b/c", "a\\b", "c"}, DirnameCase{"/", "/", ""},
                      DirnameCase{"dir/sub.d/f.tar.gz", "dir/sub.d", "f.tar.gz"}));

TEST(GenPathSplitNull, NullGivesNull) {
    EXPECT_EQ(gen_basename(nullptr), nullptr);
    EXPECT_EQ(gen_dirname(nullptr), nullptr);
}

TEST(GenPathAbsolute, Forms) {
    for (const char* path : {"/x", "\\x", "~", "~user/x", "c:", "c:x", "D:\\y", "//srv/s"})
        EXPECT_TRUE(gen_is_absolute(path)) << path;
    for (const char* path : {"", "x", "./x", "../x", "xy:"})
        EXPECT_FALSE(gen_is_absolute(path)) << path;
    EXPECT_FALSE(gen_is_absolute(nullptr));
}

struct ExtensionCase {
    const char* path;
    const char* extension; // "<null>" for none
    const char* set;       // gen_set_extension(path, "txt")
    const char* cut;       // gen_set_extension(path, null)
};

class GenPathExtension : public ::testing::TestWithParam<ExtensionCase> {};

TEST_P(GenPathExtension, FindsReplacesAndCuts) {
    const ExtensionCase& c = GetParam();
    const char* ext = gen_extension(c.path);
    EXPECT_STREQ(ext ? ext : "<null>", c.extension) << c.path;
    EXPECT_EQ(take(gen_set_extension(c.path, "txt")), c.set) << c.path;
    EXPECT_EQ(take(gen_set_extension(c.path, ".txt")), c.set) << c.path;
    EXPECT_EQ(take(gen_set_extension(c.path, nullptr)), c.cut) << c.path;
}

INSTANTIATE_TEST_SUITE_P(
    Table, GenPathExtension,
    ::testing::Values(ExtensionCase{"a.c", "c", "a.txt", "a"},
                      ExtensionCase{"dir.d/file", "<null>", "dir.d/file.txt", "dir.d/file"},
                      ExtensionCase{"x.tar.gz", "gz", "x.tar.txt", "x.tar"},
                      ExtensionCase{"c:a.b\\c", "<null>", "c:a.b\\c.txt", "c:a.b\\c"},
                      ExtensionCase{"libx.so.1.2", "so", "libx.so.1.txt", "libx.so.1"},
                      ExtensionCase{"libx.sa.3", "sa", "libx.sa.txt", "libx.sa"},
                      ExtensionCase{"libx.so", "so", "libx.txt", "libx"},
                      ExtensionCase{"x.so.1a", "1a", "x.so.txt", "x.so"},
                      ExtensionCase{"end.", "", "end.txt", "end"}));

TEST(GenPathExtensionTests, HasExtensionIgnoresCaseAndALeadingDot) {
    EXPECT_TRUE(gen_has_extension("A.CFG", "cfg"));
    EXPECT_TRUE(gen_has_extension("a.cfg", ".CFG"));
    EXPECT_FALSE(gen_has_extension("a.cfgx", "cfg"));
    EXPECT_FALSE(gen_has_extension("cfg", "cfg"));
    EXPECT_TRUE(gen_has_extension("a.b", nullptr));
    EXPECT_FALSE(gen_has_extension("ab", nullptr));
    EXPECT_TRUE(gen_has_extension("libz.so.1.2.13", "so"));
}

TEST(GenPathExtensionTests, AddExtensionUsesExactlyOneDot) {
    EXPECT_EQ(take(gen_add_extension("a", "cfg")), "a.cfg");
    EXPECT_EQ(take(gen_add_extension("a", ".cfg")), "a.cfg");
    EXPECT_EQ(take(gen_add_extension("a.", ".cfg")), "a.cfg");
    EXPECT_EQ(take(gen_add_extension("a.", "cfg")), "a.cfg");
    EXPECT_EQ(take(gen_add_extension("a.b", "c")), "a.b.c");
}

TEST(GenPathSeparator, OnlySlashAndBackslash) {
    EXPECT_EQ(gen_path_separator(), '/');
    EXPECT_FALSE(gen_set_path_separator(':'));
    EXPECT_EQ(gen_path_separator(), '/');
    {
        SeparatorGuard guard('\\');
        EXPECT_EQ(gen_path_separator(), '\\');
        EXPECT_EQ(take(gen_path_join3("a", "b/c", "d")), "a\\b\\c\\d");
    }
    EXPECT_EQ(take(gen_path_join3("a", "b", "/c")), "/c");
}

// With POSIX paths a backslash and a colon are bytes of a name, and only `/` roots a path.
TEST(GenPathPosix, BackslashAndColonAreBytesOfNames) {
    gen_set_posix_paths(true);
    {
        SeparatorGuard guard('\\'); // ignored while POSIX paths are on
        EXPECT_EQ(gen_path_separator(), '/');
        EXPECT_EQ(take(gen_path_join("/w", "x")), "/w/x");
    }
    EXPECT_EQ(take(gen_dirname("/w/a\\b")), "/w");
    EXPECT_STREQ(gen_basename("/w/a\\b"), "a\\b");
    EXPECT_STREQ(gen_basename("x:y"), "x:y");
    EXPECT_EQ(take(gen_dirname("c:\\x")), "<null>");
    EXPECT_EQ(take(gen_dirname("/x")), "/");
    for (const char* path : {"\\x", "~", "c:", "D:\\y"})
        EXPECT_FALSE(gen_is_absolute(path)) << path;
    EXPECT_TRUE(gen_is_absolute("/x"));
    EXPECT_EQ(take(gen_path_join("/w", "it's\\ a:b")), "/w/it's\\ a:b");
    EXPECT_EQ(take(gen_path_join("/w/", "c:\\x/../y")), "/w/y");
    EXPECT_EQ(take(gen_path_join3("/w", "d\\", "f")), "/w/d\\/f");
    EXPECT_TRUE(gen_is_path_separator('/'));
    EXPECT_FALSE(gen_is_path_separator('\\'));
    gen_set_posix_paths(false);
    EXPECT_TRUE(gen_is_path_separator('\\'));
    EXPECT_EQ(take(gen_path_join("/w", "a\\b")), "/w/a/b");
}

TEST(GenPathCwd, AbspathJoinsRelativePathsToTheCachedDirectory) {
    std::string cwd = std::filesystem::current_path().string();
    EXPECT_EQ(std::string(gen_getcwd()), cwd);
    EXPECT_EQ(take(gen_abspath("x/../y")), cwd + "/y");
    EXPECT_EQ(take(gen_abspath("/p//q/./r")), "/p/q/r");
    EXPECT_EQ(take(gen_abspath("")), "");
    EXPECT_EQ(take(gen_abspath(nullptr)), "<null>");

    // gen_chdir empties the cache; a change made behind the library's back is not seen.
    std::filesystem::path tmp = std::filesystem::temp_directory_path();
    ASSERT_EQ(gen_chdir(tmp.c_str()), 0);
    std::string there = std::filesystem::current_path().string();
    EXPECT_EQ(std::string(gen_getcwd()), there);
    std::filesystem::current_path(cwd);
    EXPECT_EQ(std::string(gen_getcwd()), there);
    ASSERT_EQ(gen_chdir(cwd.c_str()), 0);
    EXPECT_EQ(std::string(gen_getcwd()), cwd);
    EXPECT_EQ(gen_chdir("/no/such/directory/here"), -1);
    EXPECT_EQ(gen_chdir(""), -1);
    EXPECT_EQ(std::string(gen_getcwd()), cwd);
}
} // namespace
