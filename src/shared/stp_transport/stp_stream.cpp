// STPStream: buffer management and the binary form; the ASCII form is in stp_stream_ascii.cpp.
#include "stp_stream.h"

#include "indgen.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

uint32_t loadU32(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
}

uint16_t loadU16(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}

void storeU32(char* p, uint32_t v) {
    auto* b = reinterpret_cast<unsigned char*>(p);
    b[0] = static_cast<unsigned char>(v);
    b[1] = static_cast<unsigned char>(v >> 8);
    b[2] = static_cast<unsigned char>(v >> 16);
    b[3] = static_cast<unsigned char>(v >> 24);
}

void storeU16(char* p, uint16_t v) {
    auto* b = reinterpret_cast<unsigned char*>(p);
    b[0] = static_cast<unsigned char>(v);
    b[1] = static_cast<unsigned char>(v >> 8);
}

int64_t alignUp(int64_t offset, int32_t alignment) {
    return (offset + alignment - 1) & ~static_cast<int64_t>(alignment - 1);
}

bool validElementSize(int32_t size) {
    return size == 1 || size == 2 || size == 4;
}

} // namespace

// --- Buffer ------------------------------------------------------------------------------------

STPStream::STPStream() = default;

STPStream::STPStream(int32_t initialCapacity) {
    if (initialCapacity > 0) {
        base = static_cast<char*>(gen_alloc(static_cast<size_t>(initialCapacity), 1));
        capacity = initialCapacity;
    }
}

STPStream::STPStream(const void* data, int32_t dataLength) {
    base = const_cast<char*>(static_cast<const char*>(data));
    owned = false;
    capacity = length = data ? std::max(dataLength, 0) : 0;
    startReading(0, length);
}

STPStream::~STPStream() {
    if (owned)
        gen_free(base);
}

// Grows to `count + 2 * capacity` (`count + 14` from nothing), so that a run of small writes
// costs few reallocations. A borrowed buffer is copied into an owned one at the same time.
void STPStream::reserve(int64_t count) {
    int64_t needEnd = static_cast<int64_t>(cursor) + count;
    if (owned && needEnd <= capacity)
        return;
    if (needEnd > INT32_MAX)
        gen_out_of_memory();
    int64_t grown = capacity == 0 ? count + 14 : count + 2 * static_cast<int64_t>(capacity);
    grown = std::min<int64_t>(std::max(grown, needEnd), INT32_MAX);
    if (owned) {
        base = static_cast<char*>(gen_realloc(base, static_cast<size_t>(grown)));
        std::memset(base + capacity, 0, static_cast<size_t>(grown - capacity));
    } else {
        char* copy = static_cast<char*>(gen_alloc(static_cast<size_t>(grown), 1));
        if (length > 0)
            std::memcpy(copy, base, static_cast<size_t>(length));
        base = copy;
        owned = true;
    }
    capacity = static_cast<int32_t>(grown);
}

int32_t STPStream::seek(int32_t offset) {
    int32_t old = cursor;
    offset = std::max(offset, 0);
    if (offset > capacity)
        reserve(static_cast<int64_t>(offset) - cursor);
    cursor = offset;
    return old;
}

void STPStream::assign(const void* data, int32_t dataLength) {
    clear();
    if (data && dataLength > 0)
        writeBytes(data, dataLength);
    startReading(0, length);
}

void STPStream::clear() {
    if (!owned) {
        base = nullptr;
        capacity = 0;
        owned = true;
    } else if (length > 0) {
        std::memset(base, 0, static_cast<size_t>(length));
    }
    length = cursor = limit = readEnd = 0;
    fieldStart = fieldEnd = asciiScope = 0;
}

void STPStream::startReading(int32_t start, int32_t end) {
    if (end < 0 || end > length)
        end = length;
    start = std::clamp(start, 0, end);
    readEnd = end;
    cursor = fieldStart = asciiScope = start;
    fieldEnd = limit = end;
}

void STPStream::setU32At(int32_t offset, uint32_t value) {
    if (offset < 0)
        return;
    if (static_cast<int64_t>(offset) + 4 > capacity || !owned) {
        int32_t saved = cursor;
        cursor = offset;
        reserve(4);
        cursor = saved;
    }
    storeU32(base + offset, value);
    length = std::max(length, offset + 4);
}

uint32_t STPStream::getU32At(int32_t offset) const {
    if (offset < 0 || static_cast<int64_t>(offset) + 4 > length)
        return 0;
    return loadU32(base + offset);
}

void STPStream::writeBytes(const void* bytes, int64_t count) {
    if (count <= 0)
        return;
    reserve(count);
    std::memcpy(base + cursor, bytes, static_cast<size_t>(count));
    cursor += static_cast<int32_t>(count);
    length = std::max(length, cursor);
}

// Padding is written, not skipped: a stream rewritten after a seek must still carry zero padding.
void STPStream::alignWrite(int32_t alignment) {
    int64_t pad = alignUp(cursor, alignment) - cursor;
    if (pad == 0)
        return;
    reserve(pad);
    std::memset(base + cursor, 0, static_cast<size_t>(pad));
    cursor += static_cast<int32_t>(pad);
    length = std::max(length, cursor);
}

// --- Binary form: raw values -------------------------------------------------------------------

void STPStream::putByte(uint8_t value) {
    writeBytes(&value, 1);
}

void STPStream::putU16(uint16_t value) {
    alignWrite(2);
    char bytes[2];
    storeU16(bytes, value);
    writeBytes(bytes, 2);
}

void STPStream::putU32(uint32_t value) {
    alignWrite(4);
    char bytes[4];
    storeU32(bytes, value);
    writeBytes(bytes, 4);
}

void STPStream::putU64(uint64_t value) {
    alignWrite(4);
    char bytes[8];
    storeU32(bytes, static_cast<uint32_t>(value >> 32));
    storeU32(bytes + 4, static_cast<uint32_t>(value));
    writeBytes(bytes, 8);
}

void STPStream::putBytes(const void* data, int32_t count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    alignWrite(size);
    if (count <= 0 || !data)
        return;
    int64_t total = static_cast<int64_t>(count) * size;
    reserve(total);
    char* out = base + cursor;
    const char* in = static_cast<const char*>(data);
    if (size == 1) {
        std::memcpy(out, in, static_cast<size_t>(total));
    } else {
        // Elements are host values; the wire is little-endian whatever the host.
        for (int32_t i = 0; i < count; ++i) {
            if (size == 2) {
                uint16_t v;
                std::memcpy(&v, in + 2 * i, 2);
                storeU16(out + 2 * i, v);
            } else {
                uint32_t v;
                std::memcpy(&v, in + 4 * static_cast<int64_t>(i), 4);
                storeU32(out + 4 * static_cast<int64_t>(i), v);
            }
        }
    }
    cursor += static_cast<int32_t>(total);
    length = std::max(length, cursor);
}

void STPStream::putString(const char* s) {
    if (!s) {
        putU32(0);
        return;
    }
    size_t n = std::strlen(s) + 1;
    if (n > INT32_MAX)
        gen_out_of_memory();
    putU32(static_cast<uint32_t>(n));
    writeBytes(s, static_cast<int64_t>(n));
}

// Positions the cursor for a read of `size` bytes aligned to `alignment`, or fails the read.
bool STPStream::alignRead(int32_t alignment, int32_t size, int32_t* at) {
    int64_t offset = alignUp(cursor, alignment);
    if (cursor > limit || offset + size > limit) {
        failRead();
        return false;
    }
    *at = static_cast<int32_t>(offset);
    cursor = static_cast<int32_t>(offset) + size;
    return true;
}

uint8_t STPStream::getByte() {
    int32_t at;
    return alignRead(1, 1, &at) ? static_cast<uint8_t>(base[at]) : 0;
}

uint16_t STPStream::getU16() {
    int32_t at;
    return alignRead(2, 2, &at) ? loadU16(base + at) : 0;
}

uint32_t STPStream::getU32() {
    int32_t at;
    return alignRead(4, 4, &at) ? loadU32(base + at) : 0;
}

uint64_t STPStream::getU64() {
    int32_t at;
    if (!alignRead(4, 8, &at))
        return 0;
    return static_cast<uint64_t>(loadU32(base + at)) << 32 | loadU32(base + at + 4);
}

int32_t STPStream::getBytes(void* out, int32_t count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    if (count <= 0 || !out)
        return 0;
    char* dest = static_cast<char*>(out);
    int64_t offset = alignUp(cursor, size);
    int64_t fit = cursor <= limit && offset <= limit ? (limit - offset) / size : 0;
    int32_t n = static_cast<int32_t>(std::min<int64_t>(count, fit));
    for (int32_t i = 0; i < n; ++i) {
        const char* in = base + offset + static_cast<int64_t>(i) * size;
        if (size == 1) {
            dest[i] = *in;
        } else if (size == 2) {
            uint16_t v = loadU16(in);
            std::memcpy(dest + 2 * static_cast<int64_t>(i), &v, 2);
        } else {
            uint32_t v = loadU32(in);
            std::memcpy(dest + 4 * static_cast<int64_t>(i), &v, 4);
        }
    }
    if (n < count) {
        std::memset(dest + static_cast<int64_t>(n) * size, 0,
                    static_cast<size_t>(static_cast<int64_t>(count - n) * size));
        failRead();
    } else {
        cursor = static_cast<int32_t>(offset + static_cast<int64_t>(n) * size);
    }
    return n;
}

// --- Binary form: fields -----------------------------------------------------------------------

void STPStream::putTypeWord(int32_t tag, uint32_t type) {
    putU32(static_cast<uint32_t>(tag) << 8 | type);
}

void STPStream::putInt8(int32_t tag, int8_t value) {
    putTypeWord(tag, STP_TYPE_INT8);
    putByte(static_cast<uint8_t>(value));
}

void STPStream::putInt16(int32_t tag, int16_t value) {
    putTypeWord(tag, STP_TYPE_INT16);
    putU16(static_cast<uint16_t>(value));
}

void STPStream::putInt32(int32_t tag, int32_t value) {
    putTypeWord(tag, STP_TYPE_INT32);
    putU32(static_cast<uint32_t>(value));
}

void STPStream::putInt64(int32_t tag, int64_t value) {
    putTypeWord(tag, STP_TYPE_INT64);
    putU64(static_cast<uint64_t>(value));
}

void STPStream::putFloat(int32_t tag, float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    putTypeWord(tag, STP_TYPE_FLOAT);
    putU32(bits);
}

void STPStream::putDouble(int32_t tag, double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    putTypeWord(tag, STP_TYPE_DOUBLE);
    putU64(bits);
}

void STPStream::putStringField(int32_t tag, const char* s) {
    putTypeWord(tag, STP_TYPE_STRING);
    putString(s);
}

void STPStream::beginLengthField(int32_t tag, uint32_t type, int32_t* mark) {
    putTypeWord(tag, type);
    putU32(0);
    *mark = cursor;
}

void STPStream::endLengthField(int32_t mark) {
    if (mark < 4 || mark > length || cursor < mark)
        return;
    storeU32(base + mark - 4, static_cast<uint32_t>(cursor - mark));
}

void STPStream::beginStruct(int32_t tag, int32_t* mark) {
    beginLengthField(tag, STP_TYPE_STRUCT, mark);
}

void STPStream::endStruct(int32_t mark) {
    endLengthField(mark);
}

void STPStream::beginArray(int32_t tag, int32_t* mark) {
    beginLengthField(tag, STP_TYPE_ARRAY, mark);
}

void STPStream::endArray(int32_t mark) {
    endLengthField(mark);
}

void STPStream::putArray(int32_t tag, const void* data, int32_t count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    count = data ? std::max(count, 0) : 0;
    putTypeWord(tag, STP_TYPE_ARRAY);
    putU32(static_cast<uint32_t>(static_cast<int64_t>(count) * size));
    putBytes(data, count, size);
}

void STPStream::putCountedArray(int32_t tag, const void* data, int32_t count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    count = data ? std::max(count, 0) : 0;
    putTypeWord(tag, STP_TYPE_ARRAY);
    putU32(static_cast<uint32_t>(4 + static_cast<int64_t>(count) * size));
    putU32(static_cast<uint32_t>(count));
    putBytes(data, count, size);
}

uint32_t STPStream::findField(int32_t tag) {
    bool sequential = true;
    if (cursor != fieldStart) {
        cursor = fieldStart;
        sequential = false;
    }
    limit = fieldEnd;
    if (tag == -1) {
        limit = cursor;
        return 0;
    }
    for (;;) {
        int64_t at = alignUp(cursor, 4);
        if (at + 4 > fieldEnd) {
            cursor = limit = fieldEnd;
            return 0;
        }
        uint32_t word = loadU32(base + at);
        int64_t next = at + 4;
        if (word == 0) {
            cursor = limit = static_cast<int32_t>(next);
            return 0;
        }
        int64_t size = word & 0xFu;
        bool hasLengthWord = size == 0;
        if (hasLengthWord) {
            if (next + 4 > fieldEnd) {
                cursor = limit = fieldEnd;
                return 0;
            }
            size = loadU32(base + next);
            next += 4;
        }
        if (stp_type_tag(word) != tag) {
            sequential = false;
            if (next + size > fieldEnd) {
                cursor = limit = fieldEnd;
                return 0;
            }
            cursor = static_cast<int32_t>(next + size);
            continue;
        }
        // The string reader reads the length word itself.
        if (stp_type_class(word) == STP_TYPE_STRING && hasLengthWord) {
            next -= 4;
            size += 4;
        }
        // A value that claims more than its scope holds is cut at the scope's end.
        int64_t stop = std::min<int64_t>(next + size, fieldEnd);
        cursor = static_cast<int32_t>(next);
        limit = static_cast<int32_t>(stop);
        if (sequential)
            fieldStart = limit;
        return word;
    }
}

// Finds a field and checks its class; on a mismatch the read fails as a truncated one would.
bool STPStream::fieldOfClass(int32_t tag, uint32_t typeClass) {
    uint32_t word = findField(tag);
    if (word == 0)
        return false;
    if (stp_type_class(word) != typeClass) {
        failRead();
        return false;
    }
    return true;
}

// Scalars must match in class and size: an 8-bit field read as 32 bits gives 0, not a guess.
bool STPStream::scalarField(int32_t tag, uint32_t type) {
    uint32_t word = findField(tag);
    if (word == 0)
        return false;
    if ((word & 0xFFu) != type) {
        failRead();
        return false;
    }
    return true;
}

int8_t STPStream::getInt8(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_INT8))
        return 0;
    return static_cast<int8_t>(getByte());
}

int16_t STPStream::getInt16(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_INT16))
        return 0;
    return static_cast<int16_t>(getU16());
}

int32_t STPStream::getInt32(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_INT32))
        return 0;
    return static_cast<int32_t>(getU32());
}

int64_t STPStream::getInt64(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_INT64))
        return 0;
    return static_cast<int64_t>(getU64());
}

float STPStream::getFloat(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_FLOAT))
        return 0;
    uint32_t bits = getU32();
    float value;
    std::memcpy(&value, &bits, 4);
    return value;
}

double STPStream::getDouble(int32_t tag) {
    if (!scalarField(tag, STP_TYPE_DOUBLE))
        return 0;
    uint64_t bits = getU64();
    double value;
    std::memcpy(&value, &bits, 8);
    return value;
}

const char* STPStream::getStringView(int32_t tag, int32_t* viewLength) {
    if (viewLength)
        *viewLength = 0;
    if (!fieldOfClass(tag, STP_TYPE_STRING))
        return nullptr;
    uint32_t n = getU32();
    if (n == 0 || static_cast<int64_t>(cursor) + n > limit || base[cursor + n - 1] != '\0') {
        failRead();
        return nullptr;
    }
    const char* s = base + cursor;
    cursor = limit;
    if (viewLength)
        *viewLength = static_cast<int32_t>(strnlen(s, n));
    return s;
}

char* STPStream::getString(int32_t tag) {
    int32_t n;
    const char* view = getStringView(tag, &n);
    if (!view)
        return nullptr;
    char* copy = static_cast<char*>(gen_alloc(static_cast<size_t>(n) + 1, 1));
    std::memcpy(copy, view, static_cast<size_t>(n));
    return copy;
}

uint32_t STPStream::enterScope(int32_t tag, STPFieldScope* saved) {
    uint32_t word = findField(tag);
    uint32_t typeClass = stp_type_class(word);
    if (word != 0 && typeClass != STP_TYPE_STRUCT && typeClass != STP_TYPE_ARRAY) {
        failRead();
        word = 0;
    }
    saved->fieldStart = fieldStart;
    saved->fieldEnd = fieldEnd;
    saved->fieldStop = limit;
    if (word == 0)
        cursor = limit;
    fieldStart = cursor;
    fieldEnd = limit;
    return word;
}

void STPStream::leaveScope(const STPFieldScope& saved) {
    fieldStart = saved.fieldStart;
    fieldEnd = saved.fieldEnd;
    cursor = saved.fieldStop;
    limit = fieldEnd;
}

int32_t STPStream::getArray(int32_t tag, void* out, int32_t count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    if (!out || count <= 0)
        return 0;
    if (!fieldOfClass(tag, STP_TYPE_ARRAY)) {
        std::memset(out, 0, static_cast<size_t>(static_cast<int64_t>(count) * size));
        return 0;
    }
    int32_t n = getBytes(out, count, size);
    cursor = limit;
    return n;
}

void* STPStream::getCountedArray(int32_t tag, int32_t* count, int32_t size) {
    GEN_ASSERT(validElementSize(size));
    *count = 0;
    if (!fieldOfClass(tag, STP_TYPE_ARRAY))
        return nullptr;
    int64_t n = static_cast<int32_t>(getU32());
    int64_t offset = alignUp(cursor, size);
    int64_t fit = offset <= limit ? (limit - offset) / size : 0;
    n = std::min(n, fit);
    if (n <= 0) {
        failRead();
        return nullptr;
    }
    void* elements = gen_alloc(static_cast<size_t>(n), static_cast<size_t>(size));
    *count = getBytes(elements, static_cast<int32_t>(n), size);
    cursor = limit;
    return elements;
}

int32_t STPStream::getListCount() {
    int32_t n = getInt32(STP_TAG_LIST_COUNT);
    // A string or struct element is at least a type word and a length word.
    return std::clamp(n, 0, std::max(scopeBytesLeft(), 0) / 8);
}
