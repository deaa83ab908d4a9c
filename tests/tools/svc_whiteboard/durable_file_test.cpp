// Durable replacement of a file: the new text in place, private, nothing left behind, and the
// old file untouched when the replacement cannot be made.
#include "durable_file.h"

#include "plat_files.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

std::vector<std::string> namesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(DurableFile, ReplacesTheFileWithAPrivateOneAndLeavesNoTemporary) {
    ScratchFolder folder;
    std::string path = folder.at("g.wbd");
    writeFile(path, "old\n");
    std::string error;
    ASSERT_TRUE(replaceFileDurably(path.c_str(), "new text\n", &error)) << error;
    EXPECT_EQ(readFile(path), "new text\n");
    ASSERT_TRUE(replaceFileDurably(path.c_str(), "", &error)) << error;
    EXPECT_EQ(readFile(path), "");
    PlatFileStatus status;
    ASSERT_EQ(plat_stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.mode & 0777, 0600u);
    EXPECT_EQ(namesIn(folder.root()), std::vector<std::string>{"g.wbd"});
}

TEST(DurableFile, AFailedReplacementLeavesTheOldFileAndNoTemporary) {
    ScratchFolder folder;
    std::string error;
    EXPECT_FALSE(replaceFileDurably(folder.at("missing/dir/g.wbd").c_str(), "x", &error));
    EXPECT_NE(error.find("cannot create a temporary file beside"), std::string::npos) << error;

    // A folder where the file should be: the rename is refused.
    std::filesystem::create_directories(folder.at("taken.wbd/inside"));
    EXPECT_FALSE(replaceFileDurably(folder.at("taken.wbd").c_str(), "x", &error));
    EXPECT_NE(error.find("in the place of"), std::string::npos) << error;
    EXPECT_TRUE(std::filesystem::is_directory(folder.at("taken.wbd/inside")));
    EXPECT_EQ(namesIn(folder.root()), std::vector<std::string>{"taken.wbd"});
}

TEST(DurableFile, StaleTemporariesOfTheFileGoAndOthersStay) {
    ScratchFolder folder;
    for (const char* name : {".g.wbd.123.1.tmp", ".g.wbd.9.77.tmp", ".h.wbd.1.1.tmp", "g.wbd",
                             ".g.wbd.tmp", "g.wbd.1.1.tmp"})
        writeFile(folder.at(name), "x");
    removeStaleTemporaries(folder.at("g.wbd").c_str());
    EXPECT_EQ(namesIn(folder.root()),
              (std::vector<std::string>{".g.wbd.tmp", ".h.wbd.1.1.tmp", "g.wbd", "g.wbd.1.1.tmp"}));
}

} // namespace
