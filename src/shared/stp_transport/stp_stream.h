// STPStream: a growable byte buffer with the field writers and readers of both STP body forms,
// the binary form (tagged, 4-byte-aligned fields) and the ASCII form (`name:value` text).
#pragma once

#include <cstddef>
#include <cstdint>

// Fixed tags of a binary list, the same in every protocol and never translated through a tag map:
// the count of a list, and each of its elements.
inline constexpr int32_t STP_TAG_LIST_COUNT = 22;
inline constexpr int32_t STP_TAG_LIST_ELEMENT = 23;

// Low byte of a binary type word: bits 0-3 the value's size (0: a length word follows), bits 4-7
// the class. The tag sits in bits 8-31.
enum : uint32_t {
    STP_TYPE_STRING = 0x10,
    STP_TYPE_INT8 = 0x21,
    STP_TYPE_INT16 = 0x22,
    STP_TYPE_INT32 = 0x24,
    STP_TYPE_INT64 = 0x28,
    STP_TYPE_FLOAT = 0x34,
    STP_TYPE_DOUBLE = 0x38,
    STP_TYPE_STRUCT = 0x40,
    STP_TYPE_ARRAY = 0x50,
};

// Class (bits 4-7) and tag (bits 8-31, arithmetic shift) of a type word.
inline uint32_t stp_type_class(uint32_t typeWord) {
    return typeWord & 0xF0u;
}
inline int32_t stp_type_tag(uint32_t typeWord) {
    return static_cast<int32_t>(typeWord) >> 8;
}

// What enterScope saves and leaveScope restores: the binary scope around the entered field, and
// where that field ends, so that leaving puts the cursor behind it.
struct STPFieldScope {
    int32_t fieldStart = 0;
    int32_t fieldEnd = 0;
    int32_t fieldStop = 0;
};

// What the ASCII enter calls save and the leave calls restore: the enclosing scope's start.
struct STPAsciiScope {
    int32_t asciiScope = 0;
};

// One buffer of bytes with a cursor.
//
// Storage. Either owned (a fresh stream, grown on demand, new memory always zero-filled so that
// skipped alignment bytes are 0) or borrowed (the constructor over `data` and `length`, for
// reading bytes the caller keeps alive). The first write to a borrowed stream copies its bytes
// into an owned buffer. Growth keeps content and offsets; pointers handed out before (data(),
// views, asciiFindField) are invalid after a write that grows.
//
// Positions. `cursor`, `limit`, `fieldStart`, `fieldEnd` and `asciiScope` are byte offsets from
// the start of the buffer. Alignment is counted from the start of the buffer, not from the
// address in memory, so a body may lie at any address. `size()` is the number of bytes in hand:
// the furthest byte ever written, or the borrowed length.
//
// Reading. Every read is bounded twice: by `limit` (set by findField to the end of the field being
// read) and by the read end given to startReading (never beyond size()). A read that does not fit
// moves the cursor to `limit` and yields 0 or null; nothing here reads past the bytes in hand, and
// no input, however broken, makes a reader fail other than by yielding "absent". A fresh owned
// stream has an empty read range: call startReading after writing to read back. A borrowed stream
// starts reading at offset 0 over its whole length.
//
// Writing. Writes go at the cursor, whatever the read range is; they are not bounded by `limit`.
// Alignment padding is written as zero bytes. A writer never fails: running out of memory stops
// the process in the allocation layer.
//
// Strings handed out as copies (getString, asciiGetString, getCountedArray) are allocated with
// gen_alloc and owned by the caller, who frees them with gen_free. Views (getStringView, the word
// readers, asciiFindField) point into the buffer and live as long as it does, unmodified.
//
// Nothing here waits, re-enters the event loop or reports errors, with one exception: an ASCII
// array without a count that is not empty prints "unspecified stp ascii array size" through
// gen_error and reads on with count 0. One stream is used by one thread.
class STPStream {
public:
    // An empty owned stream; the first write allocates.
    STPStream();
    // An owned stream of `initialCapacity` zero bytes (capacity, not size).
    explicit STPStream(int32_t initialCapacity);
    // A borrowed view of `length` bytes at `data`, read range set to all of them.
    STPStream(const void* data, int32_t length);
    virtual ~STPStream();

    STPStream(const STPStream&) = delete;
    STPStream& operator=(const STPStream&) = delete;

    // --- Buffer ----------------------------------------------------------------------------

    // Start of the buffer (null while an empty owned stream has allocated nothing).
    const char* data() const { return base; }
    char* data() { return base; }
    int32_t size() const { return length; }
    int32_t getCapacity() const { return capacity; }
    bool isBorrowed() const { return !owned; }
    // Offset of the cursor.
    int32_t tell() const { return cursor; }
    // Offset one past the last byte the current read may touch.
    int32_t getLimit() const { return limit; }

    // Moves the cursor to `offset` (negative counts as 0), growing an owned stream if the offset
    // lies beyond the capacity. Does not change size(). Returns the old offset.
    int32_t seek(int32_t offset);
    // Replaces the content with a private copy of `length` bytes at `data`; the read range
    // becomes all of them, starting at 0.
    void assign(const void* data, int32_t length);
    // Empties an owned stream, keeping its capacity (the old bytes are zeroed); a borrowed stream
    // becomes an empty owned one.
    void clear();

    // Sets the read range to [start, end) (end -1 or beyond size(): size()), puts the cursor,
    // `fieldStart` and `asciiScope` at `start` and `fieldEnd` and `limit` at the end. A received
    // message reads with start = headerSize and end = headerSize + dataSize.
    void startReading(int32_t start = 0, int32_t end = -1);

    // Little-endian words at a fixed offset, for header words. The setter grows the stream and
    // moves neither the cursor nor anything else; the getter gives 0 beyond size().
    void setU32At(int32_t offset, uint32_t value);
    uint32_t getU32At(int32_t offset) const;

    // --- Binary form: raw values -----------------------------------------------------------

    void putByte(uint8_t value);
    void putU16(uint16_t value); // aligned to 2 first
    void putU32(uint32_t value); // aligned to 4 first; putU32(0) closes a body with its end word
    void putU64(uint64_t value); // aligned to 4; high word, then low word
    // `count` elements of `size` bytes (1, 2 or 4), aligned to `size`, each little-endian.
    void putBytes(const void* data, int32_t count, int32_t size);
    // A length word (bytes including the NUL) and the bytes; a null `s` is just a zero word.
    void putString(const char* s);

    // The same alignment and bounds as the writers. A value that does not fit before `limit`
    // yields 0 and moves the cursor to `limit`.
    uint8_t getByte();
    uint16_t getU16();
    uint32_t getU32();
    uint64_t getU64();
    // Reads `count` elements of `size` bytes (1, 2 or 4) into `out`: the whole elements that fit
    // before `limit`; the rest are set to 0 and the cursor goes to `limit`. Returns how many
    // elements were read.
    int32_t getBytes(void* out, int32_t count, int32_t size);

    // --- Binary form: fields ---------------------------------------------------------------

    void putInt8(int32_t tag, int8_t value);
    void putInt16(int32_t tag, int16_t value);
    void putInt32(int32_t tag, int32_t value);
    void putInt64(int32_t tag, int64_t value);
    void putFloat(int32_t tag, float value);
    void putDouble(int32_t tag, double value);
    // A null `s` is written as length 0 without bytes; "" as length 1 (its NUL).
    void putStringField(int32_t tag, const char* s);
    // Type word and a zero length word; `*mark` receives the offset behind the length word.
    void beginStruct(int32_t tag, int32_t* mark);
    // Patches the length word before `mark` with the bytes written since, up to the cursor.
    void endStruct(int32_t mark);
    void beginArray(int32_t tag, int32_t* mark); // as beginStruct, class array
    void endArray(int32_t mark);
    // An array field of raw elements; the counted form puts a count word before them.
    void putArray(int32_t tag, const void* data, int32_t count, int32_t size);
    void putCountedArray(int32_t tag, const void* data, int32_t count, int32_t size);
    // The tag 22 field with a list's count.
    void putListCount(int32_t count) { putInt32(STP_TAG_LIST_COUNT, count); }

    // Finds the field `tag` in the current scope [fieldStart, fieldEnd) and returns its type
    // word, or 0 when it is absent (or `tag` is -1, a name the writer's table lacks). The cursor
    // is left on the value (for a string: on its length word) and `limit` behind it. Fields read
    // in written order are consumed one after the other, so repeated tags (list elements) come
    // in turn; a field found out of order is not consumed and can be found again.
    uint32_t findField(int32_t tag);

    // findField, then the value. An absent field, or one of another class or size, gives 0.
    int8_t getInt8(int32_t tag);
    int16_t getInt16(int32_t tag);
    int32_t getInt32(int32_t tag);
    int64_t getInt64(int32_t tag);
    float getFloat(int32_t tag);
    double getDouble(int32_t tag);
    // A copy of the string (gen_free it), or null when absent, null on the wire, or broken (its
    // length does not fit or its last byte is not a NUL).
    char* getString(int32_t tag);
    // The same without a copy: a NUL-terminated view into the buffer. `*length`, if given,
    // receives the length without the NUL (0 when null).
    const char* getStringView(int32_t tag, int32_t* length = nullptr);

    // Enters the struct or array field `tag`: its contents become the current scope. Returns the
    // type word, or 0 when absent or of another class; the scope is then empty. Every enterScope
    // must be paired with leaveScope, which restores the scope and puts the cursor behind the
    // field, so that reading in written order goes on.
    uint32_t enterScope(int32_t tag, STPFieldScope* saved);
    void leaveScope(const STPFieldScope& saved);

    // Reads the raw array field `tag` (without count) into `out` as getBytes does; an absent
    // field zeroes all `count` elements. Returns the elements read.
    int32_t getArray(int32_t tag, void* out, int32_t count, int32_t size);
    // Reads a counted array field `tag`: a count word and the elements, in a new gen_alloc'ed
    // buffer (gen_free it), null when the count is 0 or the field is absent. A count larger than
    // the field holds is cut to the whole elements present, so that no message can make the
    // reader allocate more than its own size; `*count` receives what was read.
    void* getCountedArray(int32_t tag, int32_t* count, int32_t size);

    // The tag 22 count of a list in the current scope, cut to what the rest of the scope could
    // hold (every element takes at least 8 bytes): a hostile count cannot make a list reader
    // allocate more than the message's size. 0 when absent or negative.
    int32_t getListCount();
    // Bytes between fieldStart and fieldEnd: an upper bound for counts read from the wire.
    int32_t scopeBytesLeft() const { return fieldEnd - fieldStart; }

    // --- ASCII form: writing ---------------------------------------------------------------

    // Appends `text` without a terminator; null appends nothing.
    void putRaw(const char* text);
    void putRaw(const char* text, int32_t count);
    // `0x%x ` of the 32-bit value.
    void asciiPutNumber(uint32_t value);
    void asciiPutNamedNumber(const char* name, uint32_t value);
    // `0x%x%08x `: high word, then the low word padded to 8 digits.
    void asciiPutNumber64(uint64_t value);
    void asciiPutNamedNumber64(const char* name, uint64_t value);
    // `"..." ` with `\`, `"` and newline escaped; `null ` for a null string.
    void asciiPutString(const char* s);
    void asciiPutNamedString(const char* name, const char* s);
    // The characters and a blank, no escaping; nothing at all for a null or empty word.
    void asciiPutWord(const char* word);
    void asciiPutNamedWord(const char* name, const char* word);
    // `"..." ` without escaping; a null word is written as empty.
    void asciiPutQuoted(const char* word);
    void asciiPutNamedQuoted(const char* name, const char* word);
    // `{ `, the fields, ` } `.
    void asciiBeginStruct();
    void asciiBeginNamedStruct(const char* name);
    void asciiEndStruct();
    // `(0x<count> )[ `, the values, ` ] `; a negative count writes `[ ` alone.
    void asciiBeginArray(int32_t count);
    void asciiBeginNamedArray(const char* name, int32_t count);
    void asciiEndArray();

    // --- ASCII form: reading ---------------------------------------------------------------
    // The text runs to the read end or to the first NUL, whichever comes first. Unnamed readers
    // read at the cursor; named readers first find their field with asciiFindField.

    // Finds `name:` in the current scope, starting at `asciiScope`. Returns the value's position
    // (the cursor goes there) or null. A field found in written order is consumed: `asciiScope`
    // moves behind its value. A name that is only a prefix of a field's name does not match.
    const char* asciiFindField(const char* name);
    // Walks a scope without knowing its names: the field at the cursor. Returns its value's
    // position (the cursor goes there) and its name (not NUL-terminated) in `*name` and
    // `*nameLength`; null at the end of the scope. A value without a name gives length 0.
    const char* asciiNextField(const char** name, int32_t* nameLength);
    // Skips the value at the cursor; returns its position, or null at the end of the scope.
    const char* asciiNextValue();

    // Numbers: `0x` hex, leading-0 octal or decimal, optional sign; an overflow gives all ones.
    // A missing field gives 0.
    uint32_t asciiGetNumber();
    uint32_t asciiGetNamedNumber(const char* name);
    // `0x` hex or decimal (no octal), optional sign, 64 bits.
    uint64_t asciiGetNumber64();
    uint64_t asciiGetNamedNumber64(const char* name);
    // A copy with the escapes undone (gen_free it); `null ` and a missing field give null.
    char* asciiGetString();
    char* asciiGetNamedString(const char* name);
    // A bare word: a view into the buffer and its length, not NUL-terminated; null and length 0
    // when missing. The unnamed reader also moves `asciiScope` when it reads at the start of the
    // scope, which is how the message name is consumed.
    const char* asciiGetWord(int32_t* length);
    const char* asciiGetNamedWord(const char* name, int32_t* length);
    // A quoted word, without its quotes and without undoing escapes.
    const char* asciiGetQuoted(int32_t* length);
    const char* asciiGetNamedQuoted(const char* name, int32_t* length);
    // asciiGetWord without moving anything.
    const char* asciiPeekWord(int32_t* length);

    // Enter a struct: its fields become the scope. Return false when no `{` is there; the scope
    // is then empty and every read inside finds nothing. Pair each with asciiLeaveStruct.
    bool asciiEnterStruct(STPAsciiScope* saved);
    bool asciiEnterNamedStruct(STPAsciiScope* saved, const char* name);
    void asciiLeaveStruct(const STPAsciiScope& saved);
    // Enter an array and return its count (0 when absent or without a count). A count larger than
    // the rest of the text is cut to the number of bytes left, and a negative one gives 0, so
    // that no message can make an array reader allocate more than its own size. Pair each with
    // asciiLeaveArray.
    int32_t asciiEnterArray(STPAsciiScope* saved);
    int32_t asciiEnterNamedArray(STPAsciiScope* saved, const char* name);
    void asciiLeaveArray(const STPAsciiScope& saved);

protected:
    // Makes room for `count` more bytes at the cursor, copying a borrowed buffer first.
    void reserve(int64_t count);

    char* base = nullptr;
    int32_t capacity = 0;
    int32_t cursor = 0;
    int32_t limit = 0;
    int32_t length = 0;  // bytes in hand
    int32_t readEnd = 0; // end of the read range, at most `length`
    bool owned = true;

    // Unread part of the current binary scope.
    int32_t fieldStart = 0;
    int32_t fieldEnd = 0;
    // Start of the unread part of the current ASCII scope.
    int32_t asciiScope = 0;

private:
    void writeBytes(const void* bytes, int64_t count);
    void alignWrite(int32_t alignment);
    bool alignRead(int32_t alignment, int32_t size, int32_t* at);
    void failRead() { cursor = limit; }
    void putTypeWord(int32_t tag, uint32_t type);
    void beginLengthField(int32_t tag, uint32_t type, int32_t* mark);
    void endLengthField(int32_t mark);
    bool fieldOfClass(int32_t tag, uint32_t typeClass);
    bool scalarField(int32_t tag, uint32_t type);
    void asciiPutName(const char* name);
    const char* asciiText(int32_t offset) const;
    int32_t asciiOffset(const char* p) const;
    void asciiGoToEnd();
    bool asciiEnter(STPAsciiScope* saved, char opener);
    void asciiLeave(const STPAsciiScope& saved, char closer);
};
