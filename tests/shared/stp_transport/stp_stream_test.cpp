// Tests of STPStream: the buffer and the binary body form, including the two binary packets that
// serve as reference images of the wire format.
#include "stp_stream.h"

#include "indgen.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const STPStream& s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    return Bytes(p, p + s.size());
}

void appendWord(Bytes& b, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

void appendText(Bytes& b, const char* s) {
    b.insert(b.end(), s, s + std::strlen(s) + 1); // with its NUL
}

// The eleven header words, as the message layer writes them in front of a body.
void putHeader(STPStream& s, const uint32_t (&words)[11]) {
    for (int i = 0; i < 11; ++i)
        s.setU32At(4 * i, words[i]);
}

// A copy of `bytes` in a heap block of exactly that size, so that the address sanitizer sees
// any read past the end.
struct ExactCopy {
    explicit ExactCopy(const Bytes& bytes, size_t shift = 0)
        : block(new char[bytes.size() + shift]) {
        if (!bytes.empty())
            std::memcpy(block.get() + shift, bytes.data(), bytes.size());
        data = block.get() + shift;
    }
    std::unique_ptr<char[]> block;
    const char* data;
};

constexpr int32_t kNameList = 28; // router tag table indexes of the reference packet
constexpr int32_t kCount = 6;

void writeServiceList(STPStream& s) {
    int32_t mark;
    s.beginStruct(kNameList, &mark);
    s.putInt32(kCount, 2);
    s.putListCount(2);
    s.putStringField(STP_TAG_LIST_ELEMENT, "VersionControl.CVS");
    s.putStringField(STP_TAG_LIST_ELEMENT, "VC_CheckoutInfo.CVS");
    s.endStruct(mark);
    s.putU32(0);
}

TEST(STPStreamReference, MessageWithoutFieldsIsHeaderAndEndWord) {
    STPStream s(108);
    s.seek(44);
    s.putU32(0);
    putHeader(s, {44, 4, 1, 2, 2, 0, 15, 11, 2, 0x00070002, 1});

    const Bytes expected = {0x2c, 0, 0, 0, 0x04, 0, 0, 0, 0x01, 0, 0, 0, 0x02, 0, 0, 0,
                            0x02, 0, 0, 0, 0x00, 0, 0, 0, 0x0f, 0, 0, 0, 0x0b, 0, 0, 0,
                            0x02, 0, 0, 0, 0x02, 0, 7, 0, 0x01, 0, 0, 0, 0x00, 0, 0, 0};
    EXPECT_EQ(bytesOf(s), expected);
}

TEST(STPStreamReference, ServiceListPacketMatchesByteForByte) {
    STPStream s(108);
    s.seek(44);
    writeServiceList(s);
    ASSERT_EQ(s.size(), 44 + 84);
    putHeader(s, {44, 84, 1, 2, 2, 0, 15, 7, 2, 0x00070002, 1});

    Bytes expected;
    for (uint32_t w : {44u, 84u, 1u, 2u, 2u, 0u, 15u, 7u, 2u, 0x00070002u, 1u})
        appendWord(expected, w);
    appendWord(expected, 0x00001c40); // tag 28, struct
    appendWord(expected, 72);
    appendWord(expected, 0x00000624); // tag 6, 32-bit integer
    appendWord(expected, 2);
    appendWord(expected, 0x00001624); // tag 22, list count
    appendWord(expected, 2);
    appendWord(expected, 0x00001710); // tag 23, string
    appendWord(expected, 19);
    appendText(expected, "VersionControl.CVS");
    expected.push_back(0); // alignment
    appendWord(expected, 0x00001710);
    appendWord(expected, 20);
    appendText(expected, "VC_CheckoutInfo.CVS");
    appendWord(expected, 0); // end word
    EXPECT_EQ(bytesOf(s), expected);
}

TEST(STPStreamReference, ServiceListReadsBackAsAGeneratedReaderDoes) {
    STPStream s(108);
    s.seek(44);
    writeServiceList(s);
    s.startReading(44);

    STPFieldScope scope;
    ASSERT_EQ(s.enterScope(kNameList, &scope), 0x00001c40u);
    EXPECT_EQ(s.getInt32(kCount), 2);
    ASSERT_EQ(s.getListCount(), 2);
    char* first = s.getString(STP_TAG_LIST_ELEMENT);
    char* second = s.getString(STP_TAG_LIST_ELEMENT);
    EXPECT_STREQ(first, "VersionControl.CVS");
    EXPECT_STREQ(second, "VC_CheckoutInfo.CVS");
    EXPECT_EQ(s.getString(STP_TAG_LIST_ELEMENT), nullptr); // the list is used up
    gen_free(first);
    gen_free(second);
    s.leaveScope(scope);
    EXPECT_EQ(s.findField(kCount), 0u); // the count lives inside the struct only
}

TEST(STPStreamBuffer, WritingToBorrowedBytesCopiesThemFirst) {
    const Bytes original = {0x24, 0x05, 0, 0, 9, 0, 0, 0};
    Bytes source = original;
    STPStream s(source.data(), static_cast<int32_t>(source.size()));
    ASSERT_TRUE(s.isBorrowed());
    EXPECT_EQ(s.getInt32(5), 9);
    s.seek(8);
    s.putInt32(6, 10);
    EXPECT_FALSE(s.isBorrowed());
    EXPECT_EQ(source, original);
    s.startReading();
    EXPECT_EQ(s.getInt32(5), 9);
    EXPECT_EQ(s.getInt32(6), 10);
}

TEST(STPStreamBinary, EveryValueClassRoundTrips) {
    STPStream s;
    s.putInt8(1, -5);
    s.putInt16(2, -300);
    s.putInt32(3, -70000);
    s.putInt64(4, INT64_C(-0x123456789a));
    s.putFloat(5, 1.5f);
    s.putDouble(6, -2.25e100);
    s.putStringField(7, "text");
    const uint32_t words[3] = {1, 0xffffffff, 3};
    s.putArray(8, words, 3, 4);
    const uint16_t halves[3] = {0x102, 0x304, 0x506};
    s.putCountedArray(9, halves, 3, 2);
    s.putU32(0);

    s.startReading();
    EXPECT_EQ(s.getInt8(1), -5);
    EXPECT_EQ(s.getInt16(2), -300);
    EXPECT_EQ(s.getInt32(3), -70000);
    EXPECT_EQ(s.getInt64(4), INT64_C(-0x123456789a));
    EXPECT_EQ(s.getFloat(5), 1.5f);
    EXPECT_EQ(s.getDouble(6), -2.25e100);
    int32_t n;
    EXPECT_STREQ(s.getStringView(7, &n), "text");
    EXPECT_EQ(n, 4);
    uint32_t readWords[4] = {9, 9, 9, 9};
    EXPECT_EQ(s.getArray(8, readWords, 4, 4), 3); // asks for one more than there is
    EXPECT_EQ(readWords[0], 1u);
    EXPECT_EQ(readWords[1], 0xffffffffu);
    EXPECT_EQ(readWords[2], 3u);
    EXPECT_EQ(readWords[3], 0u);
    int32_t count;
    auto* readHalves = static_cast<uint16_t*>(s.getCountedArray(9, &count, 2));
    ASSERT_EQ(count, 3);
    EXPECT_EQ(readHalves[0], 0x102);
    EXPECT_EQ(readHalves[2], 0x506);
    gen_free(readHalves);
    EXPECT_EQ(s.findField(10), 0u);
}

TEST(STPStreamBinary, WideValuesGoHighWordFirst) {
    STPStream s;
    s.putInt64(1, INT64_C(0x0102030405060708));
    s.putDouble(2, 1.0); // 0x3ff00000 00000000
    const Bytes expected = {0x28, 1, 0, 0, 4, 3, 2,    1,    8, 7, 6, 5,
                            0x38, 2, 0, 0, 0, 0, 0xf0, 0x3f, 0, 0, 0, 0};
    EXPECT_EQ(bytesOf(s), expected);
}

TEST(STPStreamBinary, StringsTakeTheirNulAndTheNextFieldIsAligned) {
    STPStream s;
    s.putStringField(1, nullptr);
    s.putStringField(2, "");
    s.putStringField(3, "abc");  // 4 bytes with its NUL: no padding
    s.putStringField(4, "abcd"); // 5 bytes: 3 bytes of padding before the next field
    s.putInt8(5, 1);
    const Bytes expected = {0x10, 1, 0, 0,    0, 0, 0, 0,                        // null
                            0x10, 2, 0, 0,    1, 0, 0, 0, 0,   0,   0,   0,      // "" and padding
                            0x10, 3, 0, 0,    4, 0, 0, 0, 'a', 'b', 'c', 0,      // "abc"
                            0x10, 4, 0, 0,    5, 0, 0, 0, 'a', 'b', 'c', 'd', 0, // "abcd"
                            0,    0, 0, 0x21, 5, 0, 0, 1};
    EXPECT_EQ(bytesOf(s), expected);

    s.startReading();
    int32_t n = -1;
    EXPECT_EQ(s.getStringView(1, &n), nullptr);
    EXPECT_EQ(n, 0);
    char* empty = s.getString(2);
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    gen_free(empty);
    EXPECT_STREQ(s.getStringView(4), "abcd");
    EXPECT_STREQ(s.getStringView(3), "abc"); // out of order: found by a new scan
    EXPECT_EQ(s.getInt8(5), 1);
}

TEST(STPStreamBinary, OddSizedFieldsKeepEveryTypeWordAlignedWithZeroPadding) {
    STPStream s;
    s.putInt8(1, 0x7f);
    s.putInt16(2, 0x1234);
    s.putInt8(3, -1);
    s.putInt32(4, 5);
    const Bytes expected = {0x21, 1, 0, 0, 0x7f, 0, 0, 0, 0x22, 2, 0, 0, 0x34, 0x12, 0, 0,
                            0x21, 3, 0, 0, 0xff, 0, 0, 0, 0x24, 4, 0, 0, 5,    0,    0, 0};
    EXPECT_EQ(bytesOf(s), expected);

    // Padding stays zero when a stream is rewritten over old bytes.
    s.seek(0);
    s.putU32(0xffffffff);
    s.putU32(0xffffffff);
    s.seek(0);
    s.putInt8(1, 0x7f);
    s.putU32(9);
    EXPECT_EQ(bytesOf(s)[5], 0);
    EXPECT_EQ(bytesOf(s)[7], 0);
}

TEST(STPStreamBinary, BodyAtAnOddAddressReadsAlike) {
    STPStream w;
    w.putInt8(1, 3);
    w.putInt16(2, -2);
    w.putInt64(3, 1);
    w.putStringField(4, "odd");
    w.putU32(0);
    for (size_t shift = 1; shift < 4; ++shift) {
        ExactCopy copy(bytesOf(w), shift);
        STPStream r(copy.data, w.size());
        EXPECT_EQ(r.getInt8(1), 3);
        EXPECT_EQ(r.getInt16(2), -2);
        EXPECT_EQ(r.getInt64(3), 1);
        EXPECT_STREQ(r.getStringView(4), "odd");
    }
}

TEST(STPStreamBinary, RawArraysAlignToTheirElementSize) {
    STPStream s;
    s.putByte(1);
    const uint16_t halves[2] = {0xa0b, 0xc0d};
    s.putBytes(halves, 2, 2);
    s.putByte(2);
    const uint32_t word = 0x11223344;
    s.putBytes(&word, 1, 4);
    const Bytes expected = {1, 0, 0x0b, 0x0a, 0x0d, 0x0c, 2, 0, 0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(bytesOf(s), expected);

    s.startReading();
    EXPECT_EQ(s.getByte(), 1);
    uint16_t readHalves[2];
    EXPECT_EQ(s.getBytes(readHalves, 2, 2), 2);
    EXPECT_EQ(readHalves[1], 0xc0d);
    EXPECT_EQ(s.getByte(), 2);
    EXPECT_EQ(s.getU32(), 0x11223344u);
    EXPECT_EQ(s.getU32(), 0u); // nothing left
    EXPECT_EQ(s.tell(), s.getLimit());
}

TEST(STPStreamBinary, NestedScopesAndListsOfStructs) {
    STPStream s;
    int32_t outer, element;
    s.putInt32(1, 10);
    s.beginStruct(2, &outer);
    s.putListCount(3);
    for (int i = 0; i < 3; ++i) {
        s.beginStruct(STP_TAG_LIST_ELEMENT, &element);
        s.putStringField(4, std::to_string(i).c_str());
        s.putInt32(5, 100 + i);
        s.endStruct(element);
    }
    s.endStruct(outer);
    s.putInt32(3, 30);
    s.putU32(0);

    s.startReading();
    EXPECT_EQ(s.getInt32(1), 10);
    STPFieldScope o;
    ASSERT_NE(s.enterScope(2, &o), 0u);
    ASSERT_EQ(s.getListCount(), 3);
    for (int i = 0; i < 3; ++i) {
        STPFieldScope e;
        ASSERT_NE(s.enterScope(STP_TAG_LIST_ELEMENT, &e), 0u) << i;
        EXPECT_EQ(s.getInt32(5), 100 + i); // out of order inside the element
        EXPECT_STREQ(s.getStringView(4), std::to_string(i).c_str());
        EXPECT_EQ(s.getInt32(3), 0); // a field of the outer scope is not visible here
        s.leaveScope(e);
    }
    STPFieldScope past;
    EXPECT_EQ(s.enterScope(STP_TAG_LIST_ELEMENT, &past), 0u); // the list is used up
    s.leaveScope(past);
    s.leaveScope(o);
    EXPECT_EQ(s.getInt32(3), 30);
}

TEST(STPStreamBinary, BeginArrayHoldsRawValues) {
    STPStream s;
    int32_t mark;
    s.beginArray(6, &mark);
    s.putU32(2);
    s.putU32(0xaa);
    s.putU32(0xbb);
    s.endArray(mark);
    s.putU32(0);
    EXPECT_EQ(s.getU32At(4), 12u);

    s.startReading();
    STPFieldScope scope;
    EXPECT_EQ(stp_type_class(s.enterScope(6, &scope)), STP_TYPE_ARRAY);
    EXPECT_EQ(s.getU32(), 2u);
    EXPECT_EQ(s.getU32(), 0xaau);
    EXPECT_EQ(s.getU32(), 0xbbu);
    EXPECT_EQ(s.getU32(), 0u);
    s.leaveScope(scope);
}

TEST(STPStreamBinary, InOrderReadsConsumeOutOfOrderReadsDoNot) {
    STPStream s;
    s.putInt32(1, 11);
    s.putInt32(2, 22);
    s.putInt32(1, 33); // a repeated tag
    s.putU32(0);
    s.startReading();
    EXPECT_EQ(s.getInt32(2), 22); // out of order: nothing consumed
    EXPECT_EQ(s.getInt32(2), 22); // found again
    EXPECT_EQ(s.getInt32(1), 11);
    EXPECT_EQ(s.getInt32(1), 11); // still the first: the scan starts over
    s.startReading();
    EXPECT_EQ(s.getInt32(1), 11); // in order: consumed
    EXPECT_EQ(s.getInt32(2), 22);
    EXPECT_EQ(s.getInt32(1), 33);
    EXPECT_EQ(s.getInt32(1), 0);
}

TEST(STPStreamBinary, MissingUnknownAndMistypedFields) {
    STPStream s;
    s.putInt32(1, 7);
    s.putStringField(40, "from a newer peer");
    int32_t mark;
    s.beginStruct(41, &mark);
    s.putInt32(2, 99);
    s.endStruct(mark);
    s.putInt8(3, 4);
    s.putU32(0);

    s.startReading();
    EXPECT_EQ(s.getInt32(1), 7);
    EXPECT_EQ(s.getInt32(9), 0);  // missing
    EXPECT_EQ(s.getInt32(-1), 0); // a name the writer does not know
    EXPECT_EQ(s.getString(9), nullptr);
    STPFieldScope scope;
    EXPECT_EQ(s.enterScope(9, &scope), 0u);
    EXPECT_EQ(s.getInt32(2), 0); // the empty scope of a missing struct
    s.leaveScope(scope);
    EXPECT_EQ(s.getInt32(3), 0); // an 8-bit field read as 32 bits
    EXPECT_EQ(s.getString(3), nullptr);
    EXPECT_EQ(s.getInt16(1), 0); // found out of order, wrong size
    EXPECT_EQ(s.getInt8(3), 4);  // unknown fields in between are skipped
    EXPECT_EQ(s.getInt32(2), 0); // inside a struct, not at this level
}

TEST(STPStreamBinary, WrongTagLeavesTheScopeInPlace) {
    STPStream s;
    s.putInt32(1, 5);
    s.putInt32(2, 6);
    s.putU32(0);
    s.startReading();
    int32_t unread = s.scopeBytesLeft();
    EXPECT_EQ(s.getInt32(3), 0);
    EXPECT_EQ(s.scopeBytesLeft(), unread);
    EXPECT_EQ(s.getInt32(1), 5);
    EXPECT_EQ(s.getInt32(2), 6);
}

// Every prefix of a valid body, and every single-byte corruption of it, in a block of exactly
// its size: the readers yield values or absence, and never read beyond the block.
TEST(STPStreamBinary, TruncatedAndCorruptBodiesNeverOverRead) {
    STPStream w;
    w.putInt8(1, 1);
    w.putInt64(2, 2);
    w.putStringField(3, "three");
    int32_t mark;
    w.beginStruct(4, &mark);
    w.putListCount(2);
    w.putStringField(STP_TAG_LIST_ELEMENT, "a");
    w.putStringField(STP_TAG_LIST_ELEMENT, nullptr);
    w.endStruct(mark);
    const uint32_t words[2] = {5, 6};
    w.putCountedArray(5, words, 2, 4);
    w.putU32(0);
    const Bytes full = bytesOf(w);

    auto readAll = [](const Bytes& body) {
        ExactCopy copy(body);
        STPStream r(copy.data, static_cast<int32_t>(body.size()));
        r.getInt8(1);
        int64_t second = r.getInt64(2);
        gen_free(r.getString(3));
        STPFieldScope scope;
        r.enterScope(4, &scope);
        int32_t n = r.getListCount();
        EXPECT_LE(n, 2);
        for (int32_t i = 0; i < n; ++i)
            gen_free(r.getString(STP_TAG_LIST_ELEMENT));
        r.leaveScope(scope);
        int32_t count;
        void* elements = r.getCountedArray(5, &count, 4);
        EXPECT_LE(count, 2);
        gen_free(elements);
        uint32_t raw[4];
        r.getArray(5, raw, 4, 4);
        return second;
    };
    for (size_t n = 0; n < full.size(); ++n)
        readAll(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n)));
    for (size_t i = 0; i < full.size(); ++i) {
        for (unsigned char v : {0x00, 0x10, 0x7f, 0xff}) {
            Bytes bad = full;
            bad[i] = v;
            readAll(bad);
        }
    }
    EXPECT_EQ(readAll(full), 2);
}

TEST(STPStreamBinary, HostileLengthsGiveAbsence) {
    Bytes body;
    appendWord(body, 0x00000110); // tag 1, string
    appendWord(body, 0x7fffffff); // a length far beyond the body
    appendText(body, "x");
    ExactCopy copy(body);
    STPStream r(copy.data, static_cast<int32_t>(body.size()));
    EXPECT_EQ(r.getString(1), nullptr);

    Bytes notTerminated;
    appendWord(notTerminated, 0x00000110);
    appendWord(notTerminated, 4);
    for (char c : {'a', 'b', 'c', 'd'})
        notTerminated.push_back(static_cast<unsigned char>(c));
    ExactCopy copy2(notTerminated);
    STPStream r2(copy2.data, static_cast<int32_t>(notTerminated.size()));
    EXPECT_EQ(r2.getStringView(1), nullptr);

    Bytes array;
    appendWord(array, 0x00000250); // tag 2, array
    appendWord(array, 12);
    appendWord(array, 0x40000000); // a count of a billion elements
    appendWord(array, 1);
    appendWord(array, 2);
    ExactCopy copy3(array);
    STPStream r3(copy3.data, static_cast<int32_t>(array.size()));
    int32_t count;
    auto* elements = static_cast<uint32_t*>(r3.getCountedArray(2, &count, 4));
    ASSERT_EQ(count, 2); // cut to what the field holds
    EXPECT_EQ(elements[1], 2u);
    gen_free(elements);

    Bytes list;
    appendWord(list, 0x00001624);
    appendWord(list, 0x7fffffff);
    appendWord(list, 0x00001710);
    appendWord(list, 0);
    ExactCopy copy4(list);
    STPStream r4(copy4.data, static_cast<int32_t>(list.size()));
    EXPECT_EQ(r4.getListCount(), 1);
}

} // namespace
