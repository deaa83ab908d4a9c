// ut_string: shared blocks, tag-word counting, the constant strings, and the editing operations.
// Run it in the sanitizer build as well: a block freed too early or never is a failure there.
#include "ut_string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {
constexpr int32_t kShortOne = 20;
constexpr int32_t kGrowableOne = 28;

TEST(UtStringSharing, CopiesShareOneBlockUntilAWriteOfEitherKind) {
    ut_string a("abc");
    EXPECT_EQ(a.tagWord(), kShortOne);
    ut_string b = a;
    EXPECT_EQ(b.c_str(), a.c_str());
    EXPECT_EQ(a.tagWord(), kShortOne + 16);
    {
        ut_string c(b);
        ut_string d;
        d = c;
        d = d; // self-assignment leaves the count alone
        EXPECT_EQ(a.tagWord(), kShortOne + 48);
    }
    EXPECT_EQ(a.tagWord(), kShortOne + 16);
    b.setAt(0, 'X');
    EXPECT_STREQ(a.c_str(), "abc");
    EXPECT_STREQ(b.c_str(), "Xbc");
    EXPECT_EQ(a.tagWord(), kShortOne);
    EXPECT_EQ(b.tagWord(), kGrowableOne);

    // Every editing operation on a shared block copies first; the other owner keeps its text.
    b = "ab";
    b.append("c");
    for (auto edit : std::vector<void (*)(ut_string&)>{
             [](ut_string& s) { s.append("d"); }, [](ut_string& s) { s.erase(0, 1); },
             [](ut_string& s) { s.exchangeAt(2, 'Z'); },
             [](ut_string& s) { s.replace(0, 1, "xyz"); }}) {
        ut_string shared = b;
        edit(shared);
        EXPECT_STREQ(b.c_str(), "abc");
        EXPECT_NE(shared.c_str(), b.c_str());
    }
    EXPECT_EQ(b.tagWord(), kGrowableOne);

    // A move hands the block over and leaves null behind.
    const char* text = b.c_str();
    ut_string moved(std::move(b));
    EXPECT_EQ(moved.c_str(), text);
    EXPECT_TRUE(b.isNull()); // NOLINT: the moved-from state is specified
}

TEST(UtStringConstants, NullAndEmptyAreSharedAndNeverFreed) {
    ut_string null;
    ut_string empty("");
    const int32_t nullTag = null.tagWord();
    const int32_t emptyTag = empty.tagWord();
    EXPECT_GE(nullTag, kShortOne + 16); // the block's own owner plus this one
    EXPECT_GE(emptyTag, kShortOne + 16);
    {
        std::vector<ut_string> many(1000);
        for (int i = 0; i < 1000; ++i)
            many.emplace_back("");
        EXPECT_EQ(null.tagWord(), nullTag + 16 * 1000);
        EXPECT_EQ(empty.tagWord(), emptyTag + 16 * 1000);
        EXPECT_EQ(many.front().c_str(), null.c_str());
        EXPECT_EQ(many.back().c_str(), empty.c_str());
    }
    EXPECT_EQ(null.tagWord(), nullTag);
    EXPECT_EQ(empty.tagWord(), emptyTag);
    // Every way to reach them releases again what it took.
    for (int i = 0; i < 100; ++i) {
        ut_string a(nullptr), b(nullptr, 3), c("x", 0), d = ut_string() + ut_string();
        ut_string e = a;
        e = "";
        e = nullptr;
        ut_string f("gone");
        f = std::move(e);
    }
    EXPECT_EQ(null.tagWord(), nullTag);
    EXPECT_EQ(empty.tagWord(), emptyTag);
    EXPECT_GE(nullTag, kShortOne);
}

TEST(UtStringConstants, NullIsNotEmpty) {
    ut_string null(nullptr);
    EXPECT_TRUE(null.isNull());
    EXPECT_EQ(null.length(), 0);
    EXPECT_STREQ(null.c_str(), "");
    ut_string empty("");
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty == "");
    EXPECT_EQ(empty.length(), 0);
    EXPECT_NE(null.c_str(), empty.c_str());
    // Writing to a constant gives the writer a block of its own.
    ut_string appended;
    appended.append("x");
    EXPECT_FALSE(appended.isNull());
    EXPECT_STREQ(appended.c_str(), "x");
    EXPECT_STREQ(null.c_str(), "");
}

TEST(UtStringAppend, ManyAppendsKeepEveryByte) {
    ut_string s("ab");
    std::string expected = s.c_str();
    for (int i = 0; i < 2000; ++i) {
        s.append("xyz", 2);
        expected += "xy";
    }
    EXPECT_EQ(std::string(s.c_str()), expected);
    s.append(nullptr, 3);
    s.append("abc", 0);
    s.append("abc", -1);
    EXPECT_EQ(s.length(), static_cast<int>(expected.size()));
}

TEST(UtStringAppend, EmbeddedNulBytesAreKeptButLengthStopsAtThem) {
    ut_string s("a");
    s.append("\0b", 2);
    s.append("c");
    EXPECT_EQ(s.length(), 1);
    EXPECT_EQ(std::memcmp(s.c_str(), "a\0bc", 5), 0);
}

TEST(UtStringAppend, FromItself) {
    ut_string s("ab");
    s.append(s);
    EXPECT_STREQ(s.c_str(), "abab");
    s.append(s.c_str() + 1, 2); // the source lies in the block that is replaced
    EXPECT_STREQ(s.c_str(), "ababba");
    ut_string q("x\"");
    q.appendQuoted(q.c_str());
    EXPECT_STREQ(q.c_str(), "x\"\"x\\\"\"");
}

TEST(UtStringAppend, QuotedForms) {
    ut_string s;
    s.appendQuoted("a\"b");
    EXPECT_STREQ(s.c_str(), "\"a\\\"b\"");
    s = "";
    s.appendQuoted("c:\\dir\\");
    EXPECT_STREQ(s.c_str(), "\"c:\\\\dir\\\\\"");
    s = "";
    s.appendQuoted("abcdef", 3);
    EXPECT_STREQ(s.c_str(), "\"abc\"");

    s = "cmd ";
    s.appendQuotedIfNeeded("ab");
    EXPECT_STREQ(s.c_str(), "cmd ab");
    s.appendQuotedIfNeeded(" x");
    s.appendQuotedIfNeeded("it's");
    s.appendQuotedIfNeeded("say\"");
    EXPECT_STREQ(s.c_str(), "cmd ab\" x\"\"it's\"\"say\\\"\"");
    ut_string t;
    t.appendQuotedIfNeeded("ab\0 c", 5); // the test stops at the NUL: the bytes go in plain
    EXPECT_EQ(std::memcmp(t.c_str(), "ab\0 c", 6), 0);
    ut_string u;
    u.appendQuotedIfNeeded("one two", 3);
    EXPECT_STREQ(u.c_str(), "one");
}

TEST(UtStringEdit, SetAtAndExchangeAt) {
    ut_string s("abc");
    s.setAt(1, '\0');
    EXPECT_STREQ(s.c_str(), "a");
    EXPECT_EQ(s.length(), 1);
    s.append("z");
    EXPECT_STREQ(s.c_str(), "az");

    ut_string t("abc");
    ut_string shared = t;
    EXPECT_EQ(t.exchangeAt(5, 'x'), 0);
    EXPECT_EQ(t.exchangeAt(-1, 'x'), 0);
    EXPECT_EQ(t.c_str(), shared.c_str()); // nothing written, nothing unshared
    t.setAt(3, 'x');
    EXPECT_STREQ(t.c_str(), "abc");
}

TEST(UtStringEdit, EraseAndReplace) {
    ut_string s("abcdef");
    s.erase(1, 2);
    EXPECT_STREQ(s.c_str(), "adef");
    s.erase(2, 100);
    EXPECT_STREQ(s.c_str(), "ad");
    s.erase(5, 1);
    EXPECT_STREQ(s.c_str(), "ad");
    s.append("xy");
    EXPECT_STREQ(s.c_str(), "adxy"); // the end was moved by erase

    ut_string r("abcdef");
    r.replace(1, 2, "XYZ");
    EXPECT_STREQ(r.c_str(), "aXYZdef");
    r.replace(1, 3, "Q");
    EXPECT_STREQ(r.c_str(), "aQdef");
    r.replace(5, 0, "!");
    EXPECT_STREQ(r.c_str(), "aQdef!");
    r.replace(4, 99, "");
    EXPECT_STREQ(r.c_str(), "aQde");
    r.replace(9, 1, "never");
    EXPECT_STREQ(r.c_str(), "aQde");
    r.replace(0, 1, r.c_str()); // the new text is the string itself
    EXPECT_STREQ(r.c_str(), "aQdeQde");
    std::string big(100, 'B');
    r.replace(2, 1, big.c_str());
    EXPECT_EQ(std::string(r.c_str()), "aQ" + big + "eQde");
}

TEST(UtStringRead, SubstrCopyOutAndFind) {
    ut_string s("hello world");
    EXPECT_STREQ(s.substr(6).c_str(), "world");
    EXPECT_STREQ(s.substr(0, 5).c_str(), "hello");
    EXPECT_STREQ(s.substr(6, 100).c_str(), "world");
    EXPECT_TRUE(s.substr(11).c_str()[0] == '\0');
    EXPECT_FALSE(s.substr(11).isNull());
    EXPECT_TRUE(ut_string().substr(0).isNull());

    char buffer[8] = {};
    EXPECT_EQ(s.copyOut(buffer, 3, 4), 3);
    EXPECT_STREQ(buffer, "o w");
    EXPECT_EQ(s.copyOut(buffer, 8, 9), 2);
    EXPECT_EQ(s.copyOut(buffer, 8, 12), 0);

    EXPECT_EQ(s.find('o'), 4);
    EXPECT_EQ(s.find('o', 5), 7);
    EXPECT_EQ(s.find('z'), -1);
    EXPECT_EQ(s.find('o', 50), -1);
    EXPECT_EQ(s.find("world"), 6);
    EXPECT_EQ(s.find("o", 8), -1);
    EXPECT_EQ(s.find("xyz"), -1);
    EXPECT_EQ(s.find(nullptr), -1);
}

TEST(UtStringCompare, SignedFirstByteThenStrcmp) {
    ut_string a("apple"), b("banana"), a2("apple");
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(a == a2);
    EXPECT_TRUE(a != b);
    EXPECT_EQ(a.compare(a2), 0);
    EXPECT_LT(a.compare("apples"), 0);
    EXPECT_GT(a.compare("app"), 0);
    EXPECT_TRUE(a == "apple");
    EXPECT_TRUE("apple" == a);
    EXPECT_TRUE("pear" != a);
    EXPECT_EQ(ut_string("").compare(nullptr), 0);
    EXPECT_GT(a.compare(nullptr), 0);
    // The first byte compares as a signed character, the rest as strcmp does.
    ut_string high("\x80");
    EXPECT_TRUE(high < "a");
    EXPECT_GT(ut_string("a\x80").compare("aa"), 0);
}

// The classic ELF formulation of the same hash, as an independent reference.
unsigned elfHash(const char* text, unsigned tableSize) {
    unsigned long h = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        h = (h << 4) + *p;
        unsigned long g = h & 0xF0000000ul;
        if (g)
            h ^= g >> 24;
        h &= ~g;
    }
    return static_cast<unsigned>(h % tableSize);
}

TEST(UtStringHash, PjwHash) {
    EXPECT_EQ(ut_string::hash("", 101), 0u);
    EXPECT_EQ(ut_string::hash("a", 1000), 97u);
    EXPECT_EQ(ut_string::hash("ab", 100000), 97u * 16 + 98);
    for (const char* text : {"x", "hello", "a rather longer text to pass 28 bits",
                             "\xff\xfe\xfd\xfc\xfb\xfa\xf9\xf8\xf7"})
        for (unsigned size : {1u, 7u, 101u, 4096u, 0xFFFFFFFFu})
            EXPECT_EQ(ut_string::hash(text, size), elfHash(text, size)) << text << " " << size;
    EXPECT_EQ(ut_string("hello").hash(101), elfHash("hello", 101));
}

TEST(UtStringConcat, PlusAndAssignConcat) {
    ut_string a("ab");
    EXPECT_STREQ((a + "cd").c_str(), "abcd");
    EXPECT_STREQ(("x" + a).c_str(), "xab");
    EXPECT_STREQ((a + a).c_str(), "abab");
    EXPECT_TRUE((ut_string() + ut_string()).isNull());
    EXPECT_FALSE((ut_string() + "").isNull());
    ut_string s;
    s.assignConcat("left", nullptr);
    EXPECT_STREQ(s.c_str(), "left");
    s.assignConcat(s.c_str(), s.c_str()); // both halves from the string being replaced
    EXPECT_STREQ(s.c_str(), "leftleft");
    EXPECT_EQ(s.tagWord(), kShortOne);
}
} // namespace
