// MString: appends and their counts, peeling, trimming, and the null-argument reports.
#include "mstring.h"

#include "indgen.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {
// Captures reports so that the null-argument texts can be checked.
class MStringTest : public ::testing::Test {
protected:
    void SetUp() override {
        reports().clear();
        previous_ = gen_set_report_func([](int level, const char* format, va_list) {
            reports().push_back(std::to_string(level) + ":" + format);
        });
    }
    void TearDown() override { gen_set_report_func(previous_); }
    static std::vector<std::string>& reports() {
        static std::vector<std::string> list;
        return list;
    }

private:
    gen_report_func previous_ = nullptr;
};

TEST_F(MStringTest, AppendsCountAndGrow) {
    MString* ms = MString_new(1);
    EXPECT_EQ(MString_append(ms, "abc"), 3);
    EXPECT_EQ(MString_appendn(ms, "defgh", 2), 2);
    EXPECT_EQ(MString_appendn(ms, "xy", 10), 2); // stops at the NUL
    EXPECT_EQ(MString_appendn(ms, "zz", 0), 0);
    EXPECT_EQ(MString_appendf(ms, "[%d-%s]", 42, "q"), 6);
    EXPECT_STREQ(ms->text, "abcdexy[42-q]");
    EXPECT_EQ(MString_length(ms), 13);

    std::string expected = ms->text;
    for (int i = 0; i < 500; ++i) {
        MString_append(ms, "0123456789");
        expected += "0123456789";
    }
    EXPECT_EQ(std::string(ms->text), expected);
    EXPECT_EQ(ms->length, static_cast<int32_t>(expected.size()));
    MString_delete(ms);
    EXPECT_TRUE(reports().empty());
}

TEST_F(MStringTest, PeelGivesAnExactAllocationAndCopyAnIndependentOne) {
    MString* ms = MString_new(100);
    MString_append(ms, "peeled");
    char* copy = MString_copy(ms);
    char* text = MString_peel(ms);
    EXPECT_STREQ(text, "peeled");
    EXPECT_STREQ(copy, "peeled");
    EXPECT_NE(text, copy);
    gen_free(text);
    gen_free(copy);

    char* empty = MString_peel(MString_new(50));
    EXPECT_EQ(empty[0], '\0');
    gen_free(empty);
}

TEST_F(MStringTest, TrimRightRemovesTrailingWhiteSpace) {
    MString* ms = MString_new(4);
    MString_append(ms, " a b \t\r\n ");
    EXPECT_EQ(MString_trimRight(ms), 5);
    EXPECT_STREQ(ms->text, " a b");
    EXPECT_EQ(ms->length, 4);
    MString_delete(ms);
}

TEST_F(MStringTest, NullArgumentsReportAndReturn) {
    MString* ms = MString_new(4);
    MString_delete(nullptr);
    EXPECT_EQ(MString_append(nullptr, "x"), -1);
    EXPECT_EQ(MString_append(ms, nullptr), -1);
    EXPECT_EQ(MString_appendn(nullptr, "x", 1), -1);
    EXPECT_EQ(MString_appendf(nullptr, "x"), -1);
    EXPECT_EQ(MString_peel(nullptr), nullptr);
    EXPECT_EQ(MString_copy(nullptr), nullptr);
    EXPECT_EQ(MString_ensureCapacity(nullptr, 3), -1);
    const std::vector<std::string> expected = {
        "3:[MString_delete]: cannot operate on NULL MString",
        "3:[MString_append]: cannot operate on NULL",
        "3:[MString_append]: cannot operate on NULL",
        "3:[MString_appendn]: cannot operate on NULL",
        "3:[MString_appendf]: cannot operate on NULL",
        "3:[MString_peel]: cannot operate on NULL MString",
        "3:[MString_copy]: cannot operate on NULL MString",
        "3:[MString_ensureCapacity]: cannot operate on NULL MString",
    };
    EXPECT_EQ(reports(), expected);
    EXPECT_STREQ(ms->text, "");
    MString_delete(ms);
}
} // namespace
