// Images of CVS/Entries read from real files: the line forms (also as real cvs wrote them),
// changes from outside noticed by the modification time, unreadable and malformed files, the
// cache's discard rule, and CVS/Template.
#include "cvs_entries.h"

#include "golden_files.h"
#include "indgen.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string show(const ut_string& s) {
    return s.isNull() ? "null" : s.c_str();
}

// Every entry of the image in map order, with all its fields and the answers of the queries.
// The names are taken first: a query may read the file again, which replaces the map.
std::string describeEntries(CVSEntriesFile& image) {
    std::vector<std::string> names;
    for (const auto& [key, entry] : image.entriesMap())
        names.emplace_back(key.c_str());
    std::ostringstream out;
    for (const std::string& s : names) {
        const char* name = s.c_str();
        out << goldenText(name) << ": version " << goldenText(image.version(name).c_str())
            << " new " << image.isNew(name) << " removed " << image.isRemoved(name) << "\n   date "
            << goldenText(image.date(name).c_str()) << " merge " << image.isResultOfMerge(name)
            << " options " << goldenText(image.options(name).c_str()) << " tag "
            << goldenText(image.tag(name).c_str()) << "\n";
    }
    return out.str();
}

// Moves the file's modification time by `seconds` from now.
void setModified(const std::string& path, int seconds) {
    fs::last_write_time(path, fs::file_time_type::clock::now() + std::chrono::seconds(seconds));
}

class CvsEntries : public ScratchTest {
protected:
    std::string entries() const { return at("w/CVS/Entries"); }
};

TEST_F(CvsEntries, EveryLineFormAndQuery) {
    write(entries(), "/a.c/1.4/Mon Jan  1 10:00:00 2001//T\n"
                     "/new.c/0/dummy timestamp//\n"
                     "/next.c/1.2/Mon Jan  1 10:00:00 2001/-kb/Tbranch1\n"
                     "/gone.c/-1.4/dummy timestamp//\n"
                     "/dated.c/1.3/Result of merge+Mon Jan  1 10:00:00 2001//D2001.01.01.00.00.00\n"
                     "D/sub////\n"
                     "D\n"
                     "/open.c/1.1/Mon Jan  1 10:00:00 2001/-kb\n"
                     "/twice.c/1.1/x//\n"
                     "/twice.c/1.2/y//Tb\n"
                     "\n"
                     "junk\n");
    // Older than any read, so that only markStale makes the image read it again.
    setModified(entries(), -60);
    CVSEntriesFile image(entries().c_str(), false);
    EXPECT_EQ(describeEntries(image),
              "\"a.c\": version \"1.4\" new 0 removed 0\n"
              "   date \"Mon Jan  1 10:00:00 2001\" merge 0 options \"\" tag \"HEAD\"\n"
              "\"dated.c\": version \"1.3\" new 0 removed 0\n"
              "   date \"Result of merge+Mon Jan  1 10:00:00 2001\" merge 1 options \"\" tag "
              "\"D2001.01.01.00.00.00\"\n"
              "\"gone.c\": version \"1.4\" new 0 removed 1\n"
              "   date \"N/A\" merge 0 options \"\" tag \"HEAD\"\n"
              "\"new.c\": version \"New File\" new 1 removed 0\n"
              "   date \"N/A\" merge 0 options \"\" tag \"HEAD\"\n"
              "\"next.c\": version \"1.2\" new 0 removed 0\n"
              "   date \"Mon Jan  1 10:00:00 2001\" merge 0 options \"-kb\" tag \"branch1\"\n"
              "\"twice.c\": version \"1.2\" new 0 removed 0\n"
              "   date \"y\" merge 0 options \"\" tag \"b\"\n");

    // Paths are cut to their last component, with either separator; contains takes the name.
    EXPECT_EQ(show(image.version("/some/where/next.c")), "1.2");
    EXPECT_EQ(show(image.tag("c:\\w\\next.c")), "branch1");
    EXPECT_EQ(show(image.options("next.c")), "-kb");
    EXPECT_EQ(show(image.date("x/gone.c")), "N/A");
    EXPECT_TRUE(image.contains("a.c"));
    EXPECT_FALSE(image.contains("w/a.c"));
    for (const char* missing : {"sub", "open.c", "nothing.c"}) {
        EXPECT_FALSE(image.contains(missing)) << missing;
        EXPECT_TRUE(image.version(missing).isNull()) << missing;
        EXPECT_TRUE(image.tag(missing).isNull()) << missing;
        EXPECT_FALSE(image.isNew(missing) || image.isRemoved(missing) ||
                     image.isResultOfMerge(missing));
    }
    EXPECT_EQ(show(image.directory()), root() + "/w");

    // removeEntry changes the image only, and only until the file is read again.
    EXPECT_TRUE(image.removeEntry("/elsewhere/a.c"));
    EXPECT_FALSE(image.removeEntry("a.c"));
    EXPECT_FALSE(image.contains("a.c"));
    image.markStale();
    EXPECT_TRUE(image.contains("a.c"));
}

TEST_F(CvsEntries, LineEndsOfEveryKindAndByteOrder) {
    const std::string lines[] = {"/b.c/1.1/x//", "/B.c/1.2/x//", "/\xc3\xa9.c/1.3/x//",
                                 "/a.c/1.4/x//"};
    std::string expected;
    for (const char* end : {"\n", "\r\n", "\r"}) {
        std::string text;
        for (const std::string& line : lines)
            text += line + end;
        write(entries(), text);
        CVSEntriesFile image(entries().c_str(), true);
        std::string order;
        for (const auto& [key, entry] : image.entriesMap())
            order += std::string(key.c_str()) + "=" + entry->version.c_str() + " ";
        // Unsigned bytes: upper case first, a UTF-8 name last.
        EXPECT_EQ(order, "B.c=1.2 a.c=1.4 b.c=1.1 \xc3\xa9.c=1.3 ") << goldenText(end);
    }
}

TEST_F(CvsEntries, ChangesFromOutsideAreNoticedByTheModificationTime) {
    write(entries(), "/a.c/1.1/x//\n");
    CVSEntriesFile image(entries().c_str(), false);
    CVSEntriesFile frozen(entries().c_str(), true);
    ASSERT_TRUE(image.contains("a.c"));

    // Within the second of the read: still noticed.
    write(entries(), "/a.c/1.2/x//\n/b.c/1.1/x//\n");
    EXPECT_EQ(show(image.version("a.c")), "1.2");
    EXPECT_TRUE(image.contains("b.c"));

    // Later, as cvs run from a shell would change it.
    write(entries(), "/b.c/1.1/x//\n");
    setModified(entries(), 5);
    EXPECT_FALSE(image.contains("a.c"));

    // A file that looks older than the last read is not read again, until the image is stale.
    write(entries(), "/c.c/1.1/x//\n");
    setModified(entries(), -60);
    EXPECT_TRUE(image.contains("b.c"));
    EXPECT_FALSE(image.contains("c.c"));
    image.markStale();
    EXPECT_TRUE(image.contains("c.c"));
    EXPECT_FALSE(image.contains("b.c"));

    // A frozen image never reads again.
    EXPECT_TRUE(frozen.contains("a.c"));
    EXPECT_FALSE(frozen.contains("c.c"));
}

TEST_F(CvsEntries, UnreadableFilesKeepWhatWasReadAndMalformedLinesAreSkipped) {
    CVSEntriesFile missing(entries().c_str(), false);
    EXPECT_TRUE(missing.entriesMap().empty());
    EXPECT_FALSE(missing.contains("a.c"));

    // Appearing later, it is read.
    write(entries(), "/a.c/1.1/x//\n");
    EXPECT_TRUE(missing.contains("a.c"));

    // Deleted, or replaced by something that can be opened but not read: the image stays.
    fs::remove(entries());
    EXPECT_TRUE(missing.contains("a.c"));
    fs::create_directory(entries());
    setModified(entries(), 5);
    EXPECT_TRUE(missing.contains("a.c"));
    fs::remove(entries());

    std::string garbage = "/ok1.c/1.1/x//\n";
    garbage += std::string("/nul.c/1.\0"
                           "2/x//\n",
                           16);
    garbage += "/" + std::string(100000, 'n') + "/1.1/x//\n";
    garbage += "////\n/////\n/\n//\n///\n/x/\xff\xfe\x01/\n";
    for (int c = 1; c < 256; ++c)
        garbage += static_cast<char>(c);
    garbage += "\n/ok2.c/1.2/x//";
    write(entries(), garbage);
    CVSEntriesFile image(entries().c_str(), false);
    EXPECT_TRUE(image.contains("ok1.c"));
    EXPECT_EQ(show(image.version("ok2.c")), "1.2");
    EXPECT_TRUE(image.contains(std::string(100000, 'n').c_str()));
    EXPECT_FALSE(image.contains("nul.c"));
    // "/////" is a file line with an empty name and empty fields, which no query can reach.
    EXPECT_EQ(image.entriesMap().size(), 4u);
}

// Real CVS/Entries files that cvs wrote for the states of the status goldens, again with
// "\r\n" line ends.
TEST_F(CvsEntries, GoldenFilesWrittenByRealCvs) {
    GoldenFolder golden(std::string(CVSS_TEST_DATA_DIR) + "/cvs_entries");
    ASSERT_FALSE(golden.cases().empty());
    for (const std::string& name : golden.cases()) {
        CVSEntriesFile image(golden.inputPath(name).c_str(), true);
        EXPECT_TRUE(golden.matches(name, describeEntries(image))) << name;
        write(entries(), withCrLf(golden.input(name)));
        CVSEntriesFile crlf(entries().c_str(), true);
        EXPECT_TRUE(golden.matches(name, describeEntries(crlf), false)) << name << " with CRLF";
    }
}

class EntriesCacheTest : public ScratchTest {};

TEST_F(EntriesCacheTest, HoldsTwentyOneImagesAndDiscardsTheSecondInKeyOrder) {
    auto dir = [this](int i) { return at("d" + std::to_string(100 + i)); };
    for (int i = 0; i < 23; ++i)
        write(dir(i) + "/CVS/Entries", "/f.c/1.1/x//\n");
    EntriesCache cache;
    for (int i = 0; i < 21; ++i)
        ASSERT_TRUE(cache.entriesFor(dir(i).c_str())->contains("f.c"));
    EXPECT_EQ(cache.entriesFor((dir(3) + "/").c_str()), cache.entriesFor(dir(3).c_str()));

    // From here a kept image still knows f.c; one made anew finds no file.
    for (int i = 0; i < 23; ++i)
        fs::remove(dir(i) + "/CVS/Entries");
    EXPECT_FALSE(cache.entriesFor(dir(21).c_str())->contains("f.c")); // drops d101
    EXPECT_TRUE(cache.entriesFor(dir(0).c_str())->contains("f.c"));
    for (int i = 2; i < 21; ++i)
        EXPECT_TRUE(cache.entriesFor(dir(i).c_str())->contains("f.c")) << i;
    EXPECT_FALSE(cache.entriesFor(dir(1).c_str())->contains("f.c")); // drops d102
    EXPECT_TRUE(cache.entriesFor(dir(0).c_str())->contains("f.c"));
    EXPECT_FALSE(cache.entriesFor(dir(2).c_str())->contains("f.c"));
}

TEST_F(EntriesCacheTest, MarkingMakesTheNextQueryReadAgain) {
    for (const char* d : {"x", "y"})
        write(at(d) + "/CVS/Entries", "/old.c/1.1/x//\n");
    EntriesCache cache;
    CVSEntriesFile* x = cache.entriesFor(at("x").c_str());
    CVSEntriesFile* y = cache.entriesFor(at("y").c_str());
    ASSERT_TRUE(x->contains("old.c") && y->contains("old.c"));
    for (const char* d : {"x", "y"}) {
        write(at(d) + "/CVS/Entries", "/new.c/1.1/x//\n");
        setModified(at(d) + "/CVS/Entries", -60);
    }
    cache.markFileStale((at("x") + "/new.c").c_str());
    EXPECT_TRUE(x->contains("new.c"));
    EXPECT_FALSE(y->contains("new.c"));
    cache.markAllStale();
    EXPECT_TRUE(y->contains("new.c"));
}

TEST_F(CvsEntries, TemplateLinesEachEndInANewline) {
    char* none = readTemplate(at("w").c_str());
    EXPECT_EQ(none, nullptr);
    write(at("w/CVS/Template"), "");
    char* empty = readTemplate(at("w").c_str());
    EXPECT_STREQ(empty, "");
    write(at("w/CVS/Template"), "CVS: first\r\n\rCVS: last");
    char* text = readTemplate(at("w").c_str());
    EXPECT_STREQ(text, "CVS: first\n\nCVS: last\n");
    gen_free(empty);
    gen_free(text);
}

} // namespace
