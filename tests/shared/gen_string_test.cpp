// The small string helpers: copies, joins, comparison, number parsing, quoting.
#include "gen_string.h"

#include "indgen.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

namespace {
// Takes ownership of a result and gives its text ("<null>" for null).
std::string take(char* s) {
    std::string text = s ? s : "<null>";
    gen_free(s);
    return text;
}

TEST(GenString, CopiesAndBoundedCopies) {
    EXPECT_EQ(take(gen_strdup("abc")), "abc");
    EXPECT_EQ(take(gen_strdup(nullptr)), "<null>");
    EXPECT_EQ(take(gen_strndup("abcdef", 3)), "abc");
    EXPECT_EQ(take(gen_strndup("ab", 10)), "ab");
    EXPECT_EQ(take(gen_strndup("ab", 0)), "");
    EXPECT_EQ(take(gen_strndup("ab", -1)), "<null>");
    EXPECT_EQ(take(gen_strndup(nullptr, 3)), "<null>");
}

TEST(GenString, ConcatTreatsNullAsEmptyAndAllNullAsNull) {
    EXPECT_EQ(take(gen_concat2("a", "b")), "ab");
    EXPECT_EQ(take(gen_concat2(nullptr, "b")), "b");
    EXPECT_EQ(take(gen_concat2(nullptr, nullptr)), "<null>");
    EXPECT_EQ(take(gen_concat2("", nullptr)), "");
    EXPECT_EQ(take(gen_concat3("a", nullptr, "c")), "ac");
    EXPECT_EQ(take(gen_concat4("a", "b", "c", "d")), "abcd");
    EXPECT_EQ(take(gen_concat5("1", "2", nullptr, "4", "5")), "1245");
    EXPECT_EQ(take(gen_concat5(nullptr, nullptr, nullptr, nullptr, nullptr)), "<null>");
}

TEST(GenString, AppendFreesItsFirstArgument) {
    // Run under the sanitizer build, a leak or double free of the first argument shows.
    char* s = gen_strdup("x");
    s = gen_append2(s, "y");
    s = gen_append3(s, "z", nullptr);
    s = gen_append4(s, "1", "2", "3");
    s = gen_append5(s, "4", "5", "6", "7");
    EXPECT_EQ(take(s), "xyz1234567");
    EXPECT_EQ(take(gen_append2(nullptr, "only")), "only");
    EXPECT_EQ(take(gen_append2(nullptr, nullptr)), "<null>");
}

TEST(GenString, StrstrAndCaselessEquality) {
    const char* text = "hello world";
    EXPECT_EQ(gen_strstr(text, "wor"), text + 6);
    EXPECT_EQ(gen_strstr(text, "xyz"), nullptr);
    EXPECT_EQ(gen_strstr(nullptr, "a"), nullptr);
    EXPECT_EQ(gen_strstr(text, nullptr), nullptr);

    EXPECT_TRUE(gen_strcasecmp_eq("Makefile", "MAKEFILE"));
    EXPECT_TRUE(gen_strcasecmp_eq(nullptr, nullptr));
    EXPECT_TRUE(gen_strcasecmp_eq("", ""));
    EXPECT_FALSE(gen_strcasecmp_eq("a", nullptr));
    EXPECT_FALSE(gen_strcasecmp_eq("abc", "abcd"));
    EXPECT_FALSE(gen_strcasecmp_eq("[", "{"));       // not letters: 0x5b and 0x7b differ
    EXPECT_FALSE(gen_strcasecmp_eq("\xc4", "\xe4")); // only ASCII letters fold
}

TEST(GenStrtoul, PrefixesBlanksSignsAndBadBasesAreReadAsTheCLibraryDoes) {
    struct Case {
        const char* text;
        int base;
        unsigned long value;
        int consumed;
    };
    for (const Case& c : std::vector<Case>{{"0x10", 0, 16, 4},
                                           {"010", 0, 8, 3},
                                           {" \t\n\v\f\r\b42z", 10, 42, 9},
                                           {"-1", 10, ULONG_MAX, 2},
                                           {"ZZ", 36, 1295, 2},
                                           {"19", 8, 1, 1},
                                           {"0xg", 16, 0, 1},
                                           {"12", 37, 0, 0},
                                           {"12", 1, 0, 0}}) {
        const char* end = nullptr;
        errno = 0;
        EXPECT_EQ(gen_strtoul(c.text, &end, c.base), c.value) << c.text;
        EXPECT_EQ(end - c.text, c.consumed) << c.text;
        EXPECT_EQ(errno, 0);
    }
}

TEST(GenStrtoulOverflow, SetsErrnoAndGivesAllOnes) {
    const char* end = nullptr;
    errno = 0;
    EXPECT_EQ(gen_strtoul("99999999999999999999999", &end, 10), ULONG_MAX);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(*end, '\0');
    errno = 0;
    EXPECT_EQ(gen_strtoul("18446744073709551615", nullptr, 10), ULONG_MAX);
    EXPECT_EQ(errno, 0);
}

struct QuoteCase {
    const char* text;
    char quote;
    bool controls;
    const char* expected;
};

class GenQuote : public ::testing::TestWithParam<QuoteCase> {};

TEST_P(GenQuote, QuotesAndUnquotesBack) {
    const QuoteCase& c = GetParam();
    char* quoted = gen_quote(c.text, c.quote, c.controls);
    EXPECT_STREQ(quoted, c.expected);
    if (c.quote == '"') {
        EXPECT_EQ(take(gen_unquote(quoted)), c.text); // escapes read back to the original
    }
    gen_free(quoted);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GenQuote,
    ::testing::Values(QuoteCase{"a\\b", '"', false, "\"a\\\\b\""},
                      QuoteCase{"say \"hi\" 'x'", '"', false, "\"say \\\"hi\\\" \\'x\\'\""},
                      QuoteCase{"a\nb\tc\rd", '"', true, "\"a\\nb\\tc\\rd\""},
                      QuoteCase{"a\nb", '"', false, "\"a\nb\""},
                      QuoteCase{"\x01\x02\x03", '"', true, "\"\\1\\2\\3\""},
                      QuoteCase{"plain", 0, false, "plain"}, QuoteCase{"it's", 0, false, "it\\'s"},
                      QuoteCase{"", '"', false, "\"\""}, QuoteCase{"x y", '\'', false, "'x y'"}));

TEST(GenQuoteForms, ShortAndShellForms) {
    EXPECT_EQ(take(gen_quote("a\\b")), "\"a\\\\b\"");
    EXPECT_EQ(take(gen_quote(nullptr)), "<null>");
    EXPECT_EQ(take(gen_shell_quote("plain")), "plain");
    EXPECT_EQ(take(gen_shell_quote("two words")), "'two words'");
    EXPECT_EQ(take(gen_shell_quote("a\"b")), "'a\\\"b'");
    EXPECT_EQ(take(gen_shell_quote(nullptr)), "<null>");
}

TEST(GenUnquote, ReadsEscapesOnlyInDoubleQuotes) {
    EXPECT_EQ(take(gen_unquote("'a\\nb'")), "a\\nb");
    EXPECT_EQ(take(gen_unquote("\"\\a\\b\\f\\v\\?\"")), "\a\b\f\v?");
    EXPECT_EQ(take(gen_unquote("\"\\101\\0612\\7\"")), "A12\a");
    EXPECT_EQ(take(gen_unquote("\"\\x41\\x4a2\\xg\"")), "AJ2xg");
    EXPECT_EQ(take(gen_unquote("\"\\q\\\\\"")), "q\\");
    EXPECT_EQ(take(gen_unquote("no quotes")), "no quotes");
    EXPECT_EQ(take(gen_unquote("\"unbalanced")), "\"unbalanced");
    EXPECT_EQ(take(gen_unquote("\"")), "\"");
    EXPECT_EQ(take(gen_unquote("''")), "");
    EXPECT_EQ(take(gen_unquote(nullptr)), "<null>");
}
} // namespace
