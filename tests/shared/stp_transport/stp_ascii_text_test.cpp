// Tests of the bounded scanning of the ASCII body form.
#include "stp_ascii_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// What remains after skipping one value of `text`.
std::string afterValue(const std::string& text) {
    const char* end = text.data() + text.size();
    return std::string(stp_ascii_skip_value(text.data(), end), end);
}

struct SkipCase {
    const char* text;
    const char* rest;
};

class SkipValue : public ::testing::TestWithParam<SkipCase> {};

TEST_P(SkipValue, StopsBehindTheValueAndItsBlanks) {
    EXPECT_EQ(afterValue(GetParam().text), GetParam().rest) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Values, SkipValue,
    ::testing::Values(SkipCase{"0x1f  next", "next"}, SkipCase{"word} x", "} x"},
                      SkipCase{"word] x", "] x"}, SkipCase{"\"a b\" next", "next"},
                      SkipCase{"\"a \\\" b\\\\\" next", "next"}, // escaped quote, backslash
                      SkipCase{"\"never closed", ""},            // runs to the end
                      SkipCase{"{ a:\"}\" b:[ 1 ] c:{ d:2 } } next", "next"},
                      SkipCase{"{ x ] y } next", "next"},             // `]` is plain inside {}
                      SkipCase{"(0x2 )[ \"a\" \"b\" ] next", "next"}, // count, then the array
                      SkipCase{"(0x1 )[ { a:1 } ] next", "next"},
                      SkipCase{"[ a } b ] next", "next"}, // stray `}` stepped over
                      SkipCase{"[ [ 1 ] [ ] ] next", "next"}, SkipCase{"[ 1 2", ""},
                      SkipCase{"} rest", "} rest"}, SkipCase{"", ""}));

TEST(STPAsciiText, ANulEndsTheText) {
    const std::string text("{ a\0b } x", 9);
    EXPECT_EQ(afterValue(text), std::string("\0b } x", 6));
    EXPECT_EQ(afterValue(std::string("ab\0cd", 5)), std::string("\0cd", 3));
}

TEST(STPAsciiText, NestingBeyondTheBoundIsBrokenText) {
    std::string deep(STP_ASCII_MAX_NESTING + 1, '[');
    deep += " tail";
    EXPECT_EQ(afterValue(deep), "");
    std::string fits(STP_ASCII_MAX_NESTING, '[');
    fits += std::string(STP_ASCII_MAX_NESTING, ']') + " tail";
    EXPECT_EQ(afterValue(fits), "tail");
}

TEST(STPAsciiText, SkipsNeverLeaveTheirBound) {
    const char text[] = "\"abc\" (0x1 ) { x }";
    for (size_t n = 0; n < sizeof text - 1; ++n) {
        const char* end = text + n;
        for (const char* p = text; p < end; ++p) {
            EXPECT_LE(stp_ascii_skip_value(p, end), end);
            EXPECT_LE(stp_ascii_find_closer(p, end, '}'), end);
            if (*p == '"') {
                EXPECT_LE(stp_ascii_skip_quoted(p, end), end);
            }
            if (*p == '(') {
                EXPECT_LE(stp_ascii_skip_count(p, end), end);
            }
        }
    }
}

TEST(STPAsciiText, FindCloserSkipsNestedAndQuotedClosers) {
    std::string text = "a:\"}\" b:{ c:1 } d:[ } ] } after";
    const char* end = text.data() + text.size();
    const char* closer = stp_ascii_find_closer(text.data(), end, '}');
    EXPECT_EQ(std::string(closer, end), "} after");
    EXPECT_EQ(stp_ascii_find_closer(text.data(), end, ')'), end);
}

struct NumberCase {
    const char* text;
    uint32_t value;
    int consumed; // characters behind which the parse stops
};

class ParseU32 : public ::testing::TestWithParam<NumberCase> {};

TEST_P(ParseU32, FollowsTheBaseZeroRules) {
    const NumberCase& c = GetParam();
    const char* end = c.text + std::strlen(c.text);
    const char* stop;
    EXPECT_EQ(stp_ascii_parse_u32(c.text, end, &stop), c.value) << c.text;
    EXPECT_EQ(stop - c.text, c.consumed) << c.text;
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ParseU32,
    ::testing::Values(NumberCase{"0x1f ", 0x1f, 4}, NumberCase{"0XAb", 0xab, 4},
                      NumberCase{"017", 15, 3}, NumberCase{"019", 1, 2}, // octal stops at 9
                      NumberCase{"42x", 42, 2}, NumberCase{"  7", 7, 3},
                      NumberCase{"-1", 0xffffffff, 2}, NumberCase{"+5", 5, 2},
                      NumberCase{"0xffffffff", 0xffffffff, 10},
                      NumberCase{"0x100000000", 0xffffffff, 11}, // overflow: all ones
                      NumberCase{"-4294967296", 0xffffffff, 11}, NumberCase{"0x", 0, 1},
                      NumberCase{"0xg", 0, 1}, NumberCase{"x", 0, 0}, NumberCase{"-", 0, 0},
                      NumberCase{"", 0, 0}));

TEST(STPAsciiText, Parse64ReadsHexOrDecimal) {
    const char* stop;
    std::string hex = "0x000000010000000f ";
    EXPECT_EQ(stp_ascii_parse_u64(hex.data(), hex.data() + hex.size(), &stop),
              UINT64_C(0x10000000f));
    EXPECT_EQ(*stop, ' ');
    std::string dec = "0123";
    EXPECT_EQ(stp_ascii_parse_u64(dec.data(), dec.data() + dec.size(), &stop), 123u);
    std::string big = "0x1ffffffffffffffff";
    EXPECT_EQ(stp_ascii_parse_u64(big.data(), big.data() + big.size(), &stop), UINT64_MAX);
    std::string neg = "-2";
    EXPECT_EQ(stp_ascii_parse_u64(neg.data(), neg.data() + neg.size(), &stop), UINT64_MAX - 1);
    // The bound cuts the digits, whatever follows in memory.
    std::string cut = "12345";
    EXPECT_EQ(stp_ascii_parse_u64(cut.data(), cut.data() + 3, &stop), 123u);
}

} // namespace
