// Tests of STPStream: the ASCII body form, including the reference request and reply texts.
#include "stp_stream.h"

#include "indgen.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// The text of a stream's bytes up to the first NUL.
std::string textOf(const STPStream& s) {
    return std::string(s.data(), strnlen(s.data(), static_cast<size_t>(s.size())));
}

// A closed body: the text, zero bytes to the next multiple of 4, and a zero word.
std::vector<char> closedBody(const std::string& text) {
    std::vector<char> body(text.begin(), text.end());
    body.resize((body.size() + 3) / 4 * 4 + 4, '\0');
    return body;
}

std::vector<char> bytesOf(const STPStream& s) {
    return std::vector<char>(s.data(), s.data() + s.size());
}

// A reader over a copy of `text` in a block of exactly its size, without any terminator, so
// that the address sanitizer sees a read past the end.
struct ExactText {
    explicit ExactText(const std::string& text) : block(new char[text.size()]) {
        std::memcpy(block.get(), text.data(), text.size());
        stream = std::make_unique<STPStream>(block.get(), static_cast<int32_t>(text.size()));
    }
    std::unique_ptr<char[]> block;
    std::unique_ptr<STPStream> stream;
};

// A reader over the characters of `text`, without its NUL.
STPStream over(const char* text) {
    return STPStream(text, static_cast<int32_t>(std::strlen(text)));
}

// Collects reports instead of printing them.
std::vector<std::string> g_reports;
void collectReport(int level, const char* format, va_list args) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    g_reports.push_back(std::to_string(level) + ":" + text);
}

struct ReportCapture {
    ReportCapture() {
        g_reports.clear();
        previous = gen_set_report_func(collectReport);
    }
    ~ReportCapture() { gen_set_report_func(previous); }
    gen_report_func previous;
};

std::string takeString(char* s) {
    std::string copy = s ? s : "<null>";
    gen_free(s);
    return copy;
}

const char kReply[] =
    "new_local_versions:{ count:0x1 data:(0x1 )[ \"1.2\"  ]  } error_string:null ";
const char kRequest[] =
    "CommitFiles filenames:{ count:0x2 data:(0x2 )[ \"a.c\" \"b.c\"  ]  } comments:\"fix\" ";

TEST(STPStreamAsciiReference, QueryUserRequestMatchesByteForByte) {
    STPStream s;
    s.asciiPutWord("QueryUser");
    s.asciiPutNamedString("request_str", "Proceed?");
    EXPECT_EQ(s.size(), 33);
    s.putU32(0);
    EXPECT_EQ(s.size(), 40);
    EXPECT_EQ(bytesOf(s), closedBody("QueryUser request_str:\"Proceed?\" "));
}

TEST(STPStreamAsciiReference, CommitFilesReplyAndRequestMatchByteForByte) {
    STPStream reply;
    reply.asciiBeginNamedStruct("new_local_versions");
    reply.asciiPutNamedNumber("count", 1);
    reply.asciiBeginNamedArray("data", 1);
    reply.asciiPutString("1.2");
    reply.asciiEndArray();
    reply.asciiEndStruct();
    reply.asciiPutNamedString("error_string", nullptr);
    reply.putU32(0);
    EXPECT_EQ(bytesOf(reply), closedBody(kReply));

    STPStream request;
    request.asciiPutWord("CommitFiles");
    request.asciiBeginNamedStruct("filenames");
    request.asciiPutNamedNumber("count", 2);
    request.asciiBeginNamedArray("data", 2);
    request.asciiPutString("a.c");
    request.asciiPutString("b.c");
    request.asciiEndArray();
    request.asciiEndStruct();
    request.asciiPutNamedString("comments", "fix");
    request.putU32(0);
    EXPECT_EQ(bytesOf(request), closedBody(kRequest));
}

TEST(STPStreamAsciiReference, CommitFilesRequestReadsAsTheDispatcherDoes) {
    std::vector<char> body = closedBody(kRequest);
    STPStream s(body.data(), static_cast<int32_t>(body.size()));
    int32_t n;
    const char* name = s.asciiPeekWord(&n);
    EXPECT_EQ(std::string(name, static_cast<size_t>(n)), "CommitFiles");
    EXPECT_EQ(s.tell(), 0); // a peek moves nothing
    name = s.asciiGetWord(&n);
    EXPECT_EQ(std::string(name, static_cast<size_t>(n)), "CommitFiles");

    STPAsciiScope files, data;
    ASSERT_TRUE(s.asciiEnterNamedStruct(&files, "filenames"));
    EXPECT_EQ(s.asciiGetNamedNumber("count"), 2u);
    ASSERT_EQ(s.asciiEnterNamedArray(&data, "data"), 2);
    EXPECT_EQ(takeString(s.asciiGetString()), "a.c");
    EXPECT_EQ(takeString(s.asciiGetString()), "b.c");
    s.asciiLeaveArray(data);
    s.asciiLeaveStruct(files);
    EXPECT_EQ(takeString(s.asciiGetNamedString("comments")), "fix");
    EXPECT_EQ(s.asciiFindField("comments"), nullptr); // consumed
}

TEST(STPStreamAscii, NumbersRoundTrip) {
    STPStream s;
    s.asciiPutNamedNumber("a", 0);
    s.asciiPutNamedNumber("b", 0xdeadbeef);
    s.asciiPutNamedNumber64("c", UINT64_C(0x100000002));
    s.asciiPutNamedNumber64("d", 7);
    s.asciiPutNamedNumber64("e", UINT64_MAX);
    EXPECT_EQ(textOf(s), "a:0x0 b:0xdeadbeef c:0x100000002 d:0x000000007 e:0xffffffffffffffff ");
    s.startReading();
    EXPECT_EQ(s.asciiGetNamedNumber("a"), 0u);
    EXPECT_EQ(s.asciiGetNamedNumber("b"), 0xdeadbeefu);
    EXPECT_EQ(s.asciiGetNamedNumber64("c"), UINT64_C(0x100000002));
    EXPECT_EQ(s.asciiGetNamedNumber64("d"), 7u);
    EXPECT_EQ(s.asciiGetNamedNumber64("e"), UINT64_MAX);
    EXPECT_EQ(s.asciiGetNamedNumber("missing"), 0u);
    EXPECT_EQ(s.asciiGetNamedNumber64("missing"), 0u);
}

TEST(STPStreamAscii, StringsEscapeAndUnescape) {
    const char* tricky = "say \"hi\"\nC:\\dir\\ {x} [y] a:b";
    STPStream s;
    s.asciiPutNamedString("s", tricky);
    s.asciiPutNamedString("n", nullptr);
    s.asciiPutNamedString("e", "");
    s.asciiPutNamedNumber("after", 5);
    EXPECT_EQ(textOf(s),
              "s:\"say \\\"hi\\\"\\nC:\\\\dir\\\\ {x} [y] a:b\" n:null e:\"\" after:0x5 ");
    s.startReading();
    EXPECT_EQ(takeString(s.asciiGetNamedString("s")), tricky);
    EXPECT_EQ(takeString(s.asciiGetNamedString("n")), "<null>");
    EXPECT_EQ(takeString(s.asciiGetNamedString("e")), "");
    EXPECT_EQ(s.asciiGetNamedNumber("after"), 5u); // found in order after the tricky ones
}

TEST(STPStreamAscii, ReaderUndoesEveryBackslash) {
    STPStream s = over("\"a\\\\b\" \"\\t\\q\" \"end\\");
    EXPECT_EQ(takeString(s.asciiGetString()), "a\\b");
    EXPECT_EQ(takeString(s.asciiGetString()), "tq");
    EXPECT_EQ(takeString(s.asciiGetString()), "end"); // a backslash at the end stops the scan
    EXPECT_EQ(s.tell(), s.size());
}

TEST(STPStreamAscii, NullNeedsItsBlank) {
    STPStream s = over("null");
    EXPECT_EQ(s.asciiGetString(), nullptr);
    EXPECT_EQ(s.tell(), 0); // not a null string: the cursor stays
    STPStream t = over("null x");
    EXPECT_EQ(t.asciiGetString(), nullptr);
    EXPECT_EQ(t.tell(), 5);
    int32_t n;
    EXPECT_EQ(std::string(t.asciiGetWord(&n), 1), "x");
}

TEST(STPStreamAscii, WordsAndQuotedWords) {
    STPStream s;
    s.asciiPutNamedWord("w", "plain");
    s.asciiPutWord(nullptr);
    s.asciiPutWord("");
    s.asciiPutNamedQuoted("q", "no \\ escapes");
    s.asciiPutQuoted(nullptr);
    EXPECT_EQ(textOf(s), "w:plain q:\"no \\ escapes\" \"\" ");
    s.startReading();
    int32_t n;
    const char* w = s.asciiGetNamedWord("w", &n);
    EXPECT_EQ(std::string(w, static_cast<size_t>(n)), "plain");
    const char* q = s.asciiGetNamedQuoted("q", &n);
    EXPECT_EQ(std::string(q, static_cast<size_t>(n)), "no \\ escapes");
    EXPECT_NE(s.asciiGetQuoted(&n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(s.asciiGetNamedWord("missing", &n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(s.asciiGetNamedQuoted("missing", &n), nullptr);
    EXPECT_EQ(n, 0);
}

TEST(STPStreamAscii, FieldsReadInOrderAreConsumedOthersAreNot) {
    STPStream s = over("a:0x1 b:0x2 c:0x3 ");
    EXPECT_EQ(s.asciiGetNamedNumber("a"), 1u);
    EXPECT_EQ(s.asciiGetNamedNumber("a"), 0u); // consumed
    EXPECT_EQ(s.asciiGetNamedNumber("c"), 3u); // out of order
    EXPECT_EQ(s.asciiGetNamedNumber("c"), 3u); // not consumed
    // The cursor stands behind c, away from the scope: b is found by a new scan, which
    // consumes nothing either.
    EXPECT_EQ(s.asciiGetNamedNumber("b"), 2u);
    EXPECT_EQ(s.asciiGetNamedNumber("b"), 2u);
}

TEST(STPStreamAscii, APrefixOfANameDoesNotMatch) {
    STPStream s = over("counter:0x5 count:0x6 ");
    EXPECT_EQ(s.asciiGetNamedNumber("count"), 6u);
    EXPECT_EQ(s.asciiGetNamedNumber("counte"), 0u);
    EXPECT_EQ(s.asciiGetNamedNumber("counter"), 5u);
}

TEST(STPStreamAscii, NestedStructsAndFieldsOfANewerPeer) {
    STPStream s;
    s.asciiBeginNamedStruct("outer");
    s.asciiPutNamedString("_name", "x");
    s.asciiPutNamedNumber("_new", 9); // unknown to the reader
    s.asciiBeginNamedStruct("_inner");
    s.asciiPutNamedNumber("_v", 4);
    s.asciiEndStruct();
    s.asciiEndStruct();
    s.asciiPutNamedString("added", "by a newer peer");
    s.asciiPutNamedNumber("last", 8);
    s.putU32(0);

    s.startReading();
    STPAsciiScope outer, inner;
    ASSERT_TRUE(s.asciiEnterNamedStruct(&outer, "outer"));
    EXPECT_EQ(takeString(s.asciiGetNamedString("_name")), "x");
    ASSERT_TRUE(s.asciiEnterNamedStruct(&inner, "_inner"));
    EXPECT_EQ(s.asciiGetNamedNumber("_v"), 4u);
    EXPECT_EQ(s.asciiGetNamedNumber("last"), 0u); // not visible inside
    s.asciiLeaveStruct(inner);
    s.asciiLeaveStruct(outer);
    EXPECT_EQ(s.asciiGetNamedNumber("last"), 8u);

    STPAsciiScope missing;
    EXPECT_FALSE(s.asciiEnterNamedStruct(&missing, "none"));
    EXPECT_EQ(s.asciiGetNamedNumber("_v"), 0u);
    s.asciiLeaveStruct(missing);
    EXPECT_EQ(takeString(s.asciiGetNamedString("added")), "by a newer peer");
}

TEST(STPStreamAscii, ListOfStructsWithExtraFieldsKeepsItsElements) {
    STPStream s;
    s.asciiBeginNamedArray("items", 3);
    for (int i = 0; i < 3; ++i) {
        s.asciiBeginStruct();
        s.asciiPutNamedNumber("_id", static_cast<uint32_t>(i));
        s.asciiPutNamedString("_extra", "} ] \" unread");
        s.asciiEndStruct();
    }
    s.asciiEndArray();
    s.asciiPutNamedNumber("tail", 1);
    s.putU32(0);

    s.startReading();
    STPAsciiScope array;
    ASSERT_EQ(s.asciiEnterNamedArray(&array, "items"), 3);
    for (uint32_t i = 0; i < 3; ++i) {
        STPAsciiScope element;
        ASSERT_TRUE(s.asciiEnterStruct(&element));
        EXPECT_EQ(s.asciiGetNamedNumber("_id"), i);
        s.asciiLeaveStruct(element);
    }
    s.asciiLeaveArray(array);
    EXPECT_EQ(s.asciiGetNamedNumber("tail"), 1u);
}

TEST(STPStreamAscii, EmptyAndUncountedArrays) {
    STPStream s;
    s.asciiBeginNamedArray("empty", 0);
    s.asciiEndArray();
    s.asciiBeginNamedArray("open", -1);
    s.asciiEndArray();
    EXPECT_EQ(textOf(s), "empty:(0x0 )[  ] open:[  ] ");
    s.putRaw("bad:[ \"x\" ] after:0x2 ");
    s.putU32(0);

    ReportCapture reports;
    s.startReading();
    STPAsciiScope a;
    EXPECT_EQ(s.asciiEnterNamedArray(&a, "empty"), 0);
    EXPECT_EQ(s.asciiGetString(), nullptr);
    s.asciiLeaveArray(a);
    EXPECT_EQ(s.asciiEnterNamedArray(&a, "open"), 0);
    s.asciiLeaveArray(a);
    EXPECT_TRUE(g_reports.empty());
    EXPECT_EQ(s.asciiEnterNamedArray(&a, "bad"), 0);
    ASSERT_EQ(g_reports.size(), 1u);
    EXPECT_EQ(g_reports[0], std::to_string(GEN_ERROR) + ":unspecified stp ascii array size");
    s.asciiLeaveArray(a); // the element is skipped
    EXPECT_EQ(s.asciiGetNamedNumber("after"), 2u);
    EXPECT_EQ(s.asciiEnterNamedArray(&a, "missing"), 0);
    s.asciiLeaveArray(a);
}

TEST(STPStreamAscii, ArrayCountsCannotExceedTheText) {
    STPStream s = over("(0xffffff )[ 1 ] (0xffffffff )[ ] ");
    STPAsciiScope a;
    EXPECT_LE(s.asciiEnterArray(&a), 34);
    s.asciiLeaveArray(a);
    EXPECT_EQ(s.asciiEnterArray(&a), 0); // negative
    s.asciiLeaveArray(a);
}

TEST(STPStreamAscii, WalkingAScopeWithoutKnowingItsNames) {
    STPStream s = over("x:0x1 y:{ a:\"b\" } z:[ 1 2 ] bare } tail:0x2 ");
    std::vector<std::string> names;
    const char* name;
    int32_t n;
    while (s.asciiNextField(&name, &n)) {
        names.emplace_back(name ? std::string(name, static_cast<size_t>(n)) : "-");
        ASSERT_NE(s.asciiNextValue(), nullptr);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"x", "y", "z", "-"}));
    EXPECT_EQ(s.asciiNextValue(), nullptr); // at the closer
}

TEST(STPStreamAscii, UnnamedReadersAtTheCursor) {
    STPStream s;
    s.asciiBeginArray(4);
    s.asciiPutNumber(010);
    s.asciiPutNumber64(UINT64_C(1) << 40);
    s.asciiPutString("s");
    s.asciiPutWord("w");
    s.asciiEndArray();
    s.startReading();
    STPAsciiScope a;
    ASSERT_EQ(s.asciiEnterArray(&a), 4);
    EXPECT_EQ(s.asciiGetNumber(), 8u);
    EXPECT_EQ(s.asciiGetNumber64(), UINT64_C(1) << 40);
    EXPECT_EQ(takeString(s.asciiGetString()), "s");
    int32_t n;
    const char* word = s.asciiGetWord(&n);
    EXPECT_EQ(std::string(word, static_cast<size_t>(n)), "w");
    EXPECT_EQ(s.asciiGetWord(&n), nullptr);
    EXPECT_EQ(n, 0);
    s.asciiLeaveArray(a);
}

// Every prefix of the reference reply, in a block of exactly its size and without terminator:
// a reader that walks it all yields values or absence and never reads beyond the block.
TEST(STPStreamAscii, TruncatedTextNeverOverReads) {
    const std::string full = kReply;
    ReportCapture quiet;
    for (size_t n = 0; n <= full.size(); ++n) {
        ExactText t(full.substr(0, n));
        STPStream& s = *t.stream;
        STPAsciiScope outer, data;
        s.asciiEnterNamedStruct(&outer, "new_local_versions");
        s.asciiGetNamedNumber("count");
        int32_t count = s.asciiEnterNamedArray(&data, "data");
        EXPECT_LE(count, 1);
        for (int32_t i = 0; i < count; ++i)
            gen_free(s.asciiGetString());
        s.asciiLeaveArray(data);
        s.asciiLeaveStruct(outer);
        gen_free(s.asciiGetNamedString("error_string"));
        int32_t len;
        s.asciiGetNamedWord("error_string", &len);
        s.asciiGetNamedQuoted("x", &len);
        s.asciiGetNamedNumber64("y");
        const char* name;
        s.startReading();
        while (s.asciiNextField(&name, &len) && s.asciiNextValue()) {
        }
    }
    ExactText open("s:\"never closed \\");
    EXPECT_EQ(takeString(open.stream->asciiGetNamedString("s")), "never closed ");
    ExactText deep("a:" + std::string(100000, '{'));
    EXPECT_EQ(deep.stream->asciiFindField("x"), nullptr);
}

} // namespace
