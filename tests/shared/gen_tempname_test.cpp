// Temporary directory choice, temporary names and temporary files, in a temporary folder.
#include "gen_tempname.h"

#include "indgen.h"
#include "plat_files.h"
#include "plat_folders.h"
#include "plat_process.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

namespace fs = std::filesystem;

namespace {
std::string take(char* s) {
    std::string text = s ? s : "<null>";
    gen_free(s);
    return text;
}

std::string base32(unsigned value) {
    const char* digits = "0123456789abcdefghijklmnopqrstuv";
    std::string text;
    do {
        text.insert(text.begin(), digits[value % 32]);
        value /= 32;
    } while (value);
    return text;
}

// Sets or clears the variables that choose the temporary directory, and puts them back.
class GenTempNameTest : public ScratchTest {
protected:
    void TearDown() override {
        gen_temp_dir(root().c_str()); // forget this folder before it goes
        ScratchTest::TearDown();
    }

private:
    SavedEnvironment environment{{"TMP", "TEMP", "BUILDER_TEMPORARY_NAME"}, true};
};

TEST_F(GenTempNameTest, DirectoryIsTheFirstAccessibleChoice) {
    std::string tmp = at("tmp"), temp = at("temp"), preferred = at("preferred");
    for (const std::string& d : {tmp, temp, preferred})
        fs::create_directory(d);

    EXPECT_EQ(std::string(gen_temp_dir(preferred.c_str())), preferred);
    setenv("TEMP", temp.c_str(), 1);
    EXPECT_EQ(std::string(gen_temp_dir(preferred.c_str())), temp);
    setenv("TMP", tmp.c_str(), 1);
    EXPECT_EQ(std::string(gen_temp_dir(preferred.c_str())), tmp);
    setenv("TMP", at("missing").c_str(), 1);
    EXPECT_EQ(std::string(gen_temp_dir(preferred.c_str())), temp);

    // Cached: without a preferred directory the last answer stands.
    unsetenv("TEMP");
    EXPECT_EQ(std::string(gen_temp_dir(nullptr)), temp);
    // With none of them accessible, the system's temporary root.
    EXPECT_EQ(std::string(gen_temp_dir(at("missing").c_str())), plat_default_temp_dir());
    EXPECT_EQ(std::string(plat_default_temp_dir()), "/tmp");
}

// A regular file of mode 0600 with no bytes in it, as a name handed out must be.
void expectFreshFile(const std::string& path) {
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path))) << path;
    PlatFileStatus status;
    ASSERT_EQ(plat_stat(path.c_str(), &status), 0) << path;
    EXPECT_EQ(status.mode & 0777, 0600u) << path;
    EXPECT_EQ(status.size, 0) << path;
}

TEST_F(GenTempNameTest, EachNameIsANewFileAndTakenNamesArePassedOver) {
    std::string pid = base32(static_cast<unsigned>(plat_current_process_id()));
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        std::string name = take(gen_temp_name(root().c_str(), i % 2 ? ".log" : "txt"));
        ASSERT_EQ(name.rfind(root() + "/tq_" + pid, 0), 0u) << name;
        EXPECT_TRUE(seen.insert(name).second) << "repeated " << name;
        EXPECT_EQ(name.substr(name.size() - 4), i % 2 ? ".log" : ".txt");
        expectFreshFile(name);
    }

    std::string first = take(gen_temp_name(root().c_str(), "x"));
    std::string counter = first.substr(root().size() + 4 + pid.size());
    unsigned value =
        static_cast<unsigned>(std::stoul(counter.substr(0, counter.size() - 2), nullptr, 32));
    // The next name is a file of somebody else's, the one after it a link planted to catch
    // what the process writes: both are passed over, and nothing goes through the link.
    std::string target = at("caught");
    write(root() + "/tq_" + pid + base32(value + 1) + ".x", "someone's");
    fs::create_symlink(target, root() + "/tq_" + pid + base32(value + 2) + ".x");
    std::string third = take(gen_temp_name(root().c_str(), "x"));
    EXPECT_EQ(third, root() + "/tq_" + pid + base32(value + 3) + ".x");
    expectFreshFile(third);
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(read(root() + "/tq_" + pid + base32(value + 1) + ".x"), "someone's");
    EXPECT_EQ(take(gen_temp_name(root().c_str(), nullptr)),
              root() + "/tq_" + pid + base32(value + 4));
    // A folder that refuses new files ends the search at once (not testable as root).
    fs::create_directory(at("locked"));
    fs::permissions(at("locked"), fs::perms::owner_read | fs::perms::owner_exec);
    if (plat_access(at("locked").c_str(), 2) != 0) {
        EXPECT_EQ(take(gen_temp_name(at("locked").c_str(), "x")), "<null>");
    }
}

TEST_F(GenTempNameTest, BuilderTemporaryNameIsCreatedUnderThatName) {
    setenv("BUILDER_TEMPORARY_NAME", "fixed", 1);
    EXPECT_EQ(take(gen_temp_name(root().c_str(), "txt")), root() + "/fixed.txt");
    expectFreshFile(root() + "/fixed.txt");
    EXPECT_EQ(take(gen_temp_name(root().c_str(), nullptr)), root() + "/fixed");
    setenv("BUILDER_TEMPORARY_NAME", "dotted.", 1);
    EXPECT_EQ(take(gen_temp_name(root().c_str(), ".cfg")), root() + "/dotted.cfg");
    // What is there already gives way, a planted link without its target being touched.
    write(root() + "/dotted.cfg", "old contents");
    EXPECT_EQ(take(gen_temp_name(root().c_str(), "cfg")), root() + "/dotted.cfg");
    expectFreshFile(root() + "/dotted.cfg");
    write(at("target"), "keep");
    fs::remove(root() + "/dotted.cfg");
    fs::create_symlink(at("target"), root() + "/dotted.cfg");
    EXPECT_EQ(take(gen_temp_name(root().c_str(), "cfg")), root() + "/dotted.cfg");
    expectFreshFile(root() + "/dotted.cfg");
    EXPECT_EQ(read(at("target")), "keep");
}

TEST_F(GenTempNameTest, MakeTempCreatesAnExclusiveFile) {
    std::string tid = std::to_string(plat_current_thread_id());
    std::string digits = std::string(5 - std::min<size_t>(5, tid.size()), '0') +
                         tid.substr(tid.size() > 5 ? tid.size() - 5 : 0);
    std::string pattern = root() + "/vccommentXXXXXX";
    // A link planted under the first name is passed over; nothing is written through it.
    fs::create_symlink(at("caught"), root() + "/vccommenta" + digits);
    for (char letter : {'b', 'c', 'd'}) {
        std::string name = pattern;
        int fd = gen_make_temp(name.data());
        ASSERT_GE(fd, 0);
        EXPECT_EQ(name, root() + "/vccomment" + letter + digits);
        EXPECT_EQ(plat_write(fd, "hi", 2), 2);
        EXPECT_EQ(plat_close(fd), 0);
        EXPECT_EQ(read(name), "hi");
        PlatFileStatus status;
        ASSERT_EQ(plat_stat(name.c_str(), &status), 0);
        EXPECT_EQ(status.mode & 0777, 0600u);
    }

    EXPECT_FALSE(fs::exists(at("caught")));

    std::string bad = root() + "/noXXXXX";
    EXPECT_EQ(gen_make_temp(bad.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(gen_make_temp(nullptr), -1);
}

TEST_F(GenTempNameTest, MakeTempFailsWhenEveryLetterIsTaken) {
    std::string pattern = root() + "/fullXXXXXX";
    for (int i = 0; i < 26; ++i) {
        std::string name = pattern;
        int fd = gen_make_temp(name.data());
        ASSERT_GE(fd, 0) << i;
        plat_close(fd);
    }
    std::string name = pattern;
    EXPECT_EQ(gen_make_temp(name.data()), -1);
    EXPECT_EQ(errno, EEXIST);
}
} // namespace
