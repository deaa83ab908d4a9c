// The general library: report texts, levels and counts, assertions, exits and allocation.
#include "indgen.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

// Under AddressSanitizer an impossible allocation must fail as it does in production (null),
// so that the library's own out-of-memory exit is what the tests see.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

class Reports : public testing::Test {
protected:
    void SetUp() override { gen_init("/some/where/indgen_test.exe"); }
    static std::string captured(void (*report)()) {
        testing::internal::CaptureStderr();
        report();
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(Reports, ProgramNameAndPathComeFromTheProgramFile) {
    ASSERT_NE(gen_program_name(), nullptr);
    EXPECT_STREQ(gen_program_name(), "indgen_test");
    ASSERT_NE(gen_program_path(), nullptr);
    EXPECT_NE(std::string(gen_program_path()).find("/indgen_test"), std::string::npos);
    EXPECT_EQ(gen_socket_startup_result(), 0);
}

TEST_F(Reports, EachLevelHasItsPrefixAndOneFinalNewline) {
    EXPECT_EQ(captured([] { gen_warning("disk %d of %s", 3, "4"); }),
              "indgen_test: warning: disk 3 of 4\n");
    EXPECT_EQ(captured([] { gen_info("note\n"); }), "indgen_test: info: note\n");
    EXPECT_EQ(captured([] { gen_error("bad"); }), "indgen_test: error: bad\n");
    EXPECT_EQ(captured([] { gen_message("plain %s", "text"); }), "plain text\n");
    EXPECT_EQ(captured([] { gen_message("%s", ""); }), "\n");
}

TEST_F(Reports, SysErrorAddsTheSystemTextAndClearsErrno) {
    std::string text = captured([] {
        errno = ENOENT;
        gen_syserror("cannot open %s", "x.txt");
    });
    // Level 102 is level 2 with the system's text: the prefix is that of level 2.
    EXPECT_EQ(text, "indgen_test: fatal: cannot open x.txt: No such file or directory\n");
    EXPECT_EQ(errno, 0);
    // Without an errno there is no system text, only the newline.
    text = captured([] {
        errno = 0;
        gen_syserror("cannot open");
    });
    EXPECT_EQ(text, "indgen_test: fatal: cannot open\n");
}

TEST_F(Reports, CountsPerLevelAndTotalBelowWarnings) {
    int warnings = gen_report_count(GEN_WARNING);
    int errors = gen_report_count(GEN_ERROR);
    int fatals = gen_report_count(GEN_FATAL);
    int total = gen_report_total();
    captured([] {
        gen_warning("w");
        gen_error("e");
        gen_syserror("s");
        gen_info("i");
    });
    EXPECT_EQ(gen_report_count(GEN_WARNING), warnings + 1);
    EXPECT_EQ(gen_report_count(GEN_ERROR), errors + 1);
    EXPECT_EQ(gen_report_count(GEN_FATAL), fatals + 1); // the syserror counts at level 2
    EXPECT_EQ(gen_report_total(), total + 2);
}

int g_seenLevel = -1;
std::string g_seenText;
void recordingReporter(int level, const char* format, va_list args) {
    g_seenLevel = level;
    char buf[128];
    vsnprintf(buf, sizeof buf, format, args);
    g_seenText = buf;
}

TEST_F(Reports, ReplaceableReporterReceivesEveryReport) {
    gen_report_func previous = gen_set_report_func(recordingReporter);
    EXPECT_EQ(previous, gen_default_report);
    std::string text = captured([] { gen_warning("w%d", 1); });
    EXPECT_EQ(text, "");
    EXPECT_EQ(g_seenLevel, GEN_WARNING);
    EXPECT_EQ(g_seenText, "w1");
    captured([] { gen_syserror("s"); });
    EXPECT_EQ(g_seenLevel, GEN_SYSERROR);
    EXPECT_EQ(gen_set_report_func(nullptr), recordingReporter);
    EXPECT_EQ(captured([] { gen_error("back"); }), "indgen_test: error: back\n");
}

void initForChild() {
    gen_init("indgen_test");
}

void fatalSeven() {
    initForChild();
    gen_fatal(7, "broken %s", "pipe");
}
void fatalZero() {
    initForChild();
    gen_fatal(0, "done");
}
void assertWithText() {
    initForChild();
    gen_assert(false, "a == b", "dir/f.cpp", 12, 0);
}
void assertWithCode() {
    initForChild();
    gen_assert(false, "x", "f.cpp", 3, 5);
}
void assertTrueThenExit() {
    gen_assert(true, "fine", "f.cpp", 1, 0);
    std::exit(42);
}
void exitAgainDuringExit() {
    gen_exit(4);
}
void exitTwice() {
    std::atexit(exitAgainDuringExit);
    gen_exit(2);
}
void allocTooMuch() {
    initForChild();
    gen_alloc(SIZE_MAX / 2, 16);
}
void reallocTooMuch() {
    initForChild();
    void* p = gen_alloc(1, 8);
    gen_realloc(p, SIZE_MAX - 64);
}

TEST(ExitsDeathTest, FatalReportsAndExitsWithItsCode) {
    EXPECT_EXIT(fatalSeven(), testing::ExitedWithCode(7), "^indgen_test: fatal: broken pipe\n$");
    EXPECT_EXIT(fatalZero(), testing::ExitedWithCode(0), "^indgen_test: done\n$");
}

TEST(ExitsDeathTest, AssertionTextHasEveryPartAndExitsWithOne) {
    EXPECT_EXIT(assertWithText(), testing::ExitedWithCode(1),
                "^Assertion \\(a == b\\) failed in 'dir/f.cpp' on line 12 in indgen_test\n$");
    // The text "x" and an absent text are left out; a code shows in brackets.
    EXPECT_EXIT(assertWithCode(), testing::ExitedWithCode(1),
                "^Assertion \\[5\\] failed in 'f.cpp' on line 3 in indgen_test\n$");
    EXPECT_EXIT(gen_assert(false, nullptr, "f.cpp", 4, 0), testing::ExitedWithCode(1),
                "^Assertion failed in 'f.cpp' on line 4");
}

TEST(ExitsDeathTest, TrueAssertionDoesNothing) {
    EXPECT_EXIT(assertTrueThenExit(), testing::ExitedWithCode(42), "^$");
}

TEST(ExitsDeathTest, ExitCalledDuringExitLeavesAtOnceWithItsCode) {
    EXPECT_EXIT(exitTwice(), testing::ExitedWithCode(4), "^$");
}

TEST(ExitsDeathTest, OutOfMemoryWritesTheFatalTextAndExitsWithThree) {
    EXPECT_EXIT(allocTooMuch(), testing::ExitedWithCode(3),
                "(^|\n)indgen_test: fatal: Out of memory\n$");
    EXPECT_EXIT(reallocTooMuch(), testing::ExitedWithCode(3),
                "(^|\n)indgen_test: fatal: Out of memory\n$");
}

TEST(Allocation, ZeroedBlocksAndTheEdgesOfCountAndSize) {
    EXPECT_EQ(gen_alloc(0, 16), nullptr);
    auto* bytes = static_cast<unsigned char*>(gen_alloc(64, 4));
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(bytes[i], 0) << i;
    bytes = static_cast<unsigned char*>(gen_realloc(bytes, 1024));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[255], 0); // the old contents stay
    EXPECT_EQ(gen_realloc(bytes, 0), nullptr);
    void* fresh = gen_realloc(nullptr, 8);
    EXPECT_NE(fresh, nullptr);
    gen_free(fresh);
    gen_free(nullptr);
}

} // namespace
