// Feeds arbitrary message bodies to the field readers of both body forms.
//
// Input layout: one byte k (taken modulo 64), then k bytes of read script, then the body. The
// script chooses which readers run in which order, so that the fuzzer explores sequences of
// reads (in order, out of order, nested scopes) and not only the bytes. Each script byte is an
// operation (low 4 bits) and an argument (high 4 bits: a tag or a field name). The same script
// runs once over the body as the binary form and once as the ASCII form.
//
// Besides the sanitizers, the target checks that every view lies inside the body and is
// NUL-terminated where promised, and that every string read re-encodes and reads back equal.
#include "indgen.h"
#include "stp_stream.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

void silentReport(int, const char*, va_list) {}

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

// Tags 0 to 12 as they are; 13 stands for 28, the highest index of the router's tag table.
int32_t tagOf(uint8_t arg) {
    if (arg == 13)
        return 28;
    if (arg == 14)
        return STP_TAG_LIST_COUNT;
    if (arg == 15)
        return STP_TAG_LIST_ELEMENT;
    return arg;
}

const char* const kNames[16] = {
    "count",
    "data",
    "error_string",
    "name",
    "_version",
    "filenames",
    "comments",
    "request_str",
    "x",
    "a",
    "new_local_versions",
    "_name",
    "path",
    "status",
    "cookie",
    "",
};

bool inside(const char* p, int32_t length, const uint8_t* body, size_t size) {
    const char* begin = reinterpret_cast<const char*>(body);
    return p >= begin && length >= 0 && p + length <= begin + size;
}

void checkBinaryString(const char* s) {
    if (!s)
        return;
    STPStream copy;
    copy.putStringField(3, s);
    copy.putU32(0);
    copy.startReading();
    const char* back = copy.getStringView(3);
    check(back && std::strcmp(back, s) == 0);
}

void checkAsciiString(const char* s) {
    STPStream copy;
    copy.asciiPutNamedString("s", s);
    copy.putU32(0);
    copy.startReading();
    char* back = copy.asciiGetNamedString("s");
    check((back == nullptr) == (s == nullptr));
    check(!s || std::strcmp(back, s) == 0);
    gen_free(back);
}

void runBinary(const uint8_t* script, size_t k, const uint8_t* body, size_t size) {
    STPStream r(body, static_cast<int32_t>(size));
    STPFieldScope scopes[16];
    int depth = 0;
    for (size_t i = 0; i < k; ++i) {
        uint8_t op = script[i] & 0xF;
        uint8_t arg = script[i] >> 4;
        int32_t tag = tagOf(arg);
        switch (op) {
        case 0:
            r.getInt8(tag);
            r.getInt16(tag);
            break;
        case 1:
            r.getInt32(tag);
            break;
        case 2:
            r.getInt64(tag);
            break;
        case 3:
            r.getFloat(tag);
            r.getDouble(tag);
            break;
        case 4: {
            char* s = r.getString(tag);
            checkBinaryString(s);
            gen_free(s);
            break;
        }
        case 5: {
            int32_t n;
            const char* s = r.getStringView(tag, &n);
            if (s) {
                check(inside(s, n + 1, body, size));
                check(std::strlen(s) == static_cast<size_t>(n));
            }
            break;
        }
        case 6:
            if (depth < 16)
                r.enterScope(tag, &scopes[depth++]);
            break;
        case 7:
            if (depth > 0)
                r.leaveScope(scopes[--depth]);
            break;
        case 8: {
            uint32_t words[8];
            check(r.getArray(tag, words, 8, 4) <= 8);
            uint16_t halves[3];
            r.getArray(tag, halves, 3, 2);
            break;
        }
        case 9: {
            int32_t n;
            void* elements = r.getCountedArray(tag, &n, 1 << (arg % 3));
            check(n >= 0 && static_cast<size_t>(n) <= size);
            check((elements == nullptr) == (n == 0));
            gen_free(elements);
            break;
        }
        case 10: {
            int32_t n = r.getListCount();
            check(n >= 0 && static_cast<size_t>(n) <= size / 8);
            for (int32_t e = 0; e < n; ++e) {
                if (arg & 1) {
                    STPFieldScope element;
                    r.enterScope(STP_TAG_LIST_ELEMENT, &element);
                    gen_free(r.getString(0));
                    r.leaveScope(element);
                } else {
                    gen_free(r.getString(STP_TAG_LIST_ELEMENT));
                }
            }
            break;
        }
        case 11:
            r.getByte();
            r.getU16();
            r.getU32();
            r.getU64();
            break;
        case 12: {
            char raw[7];
            r.getBytes(raw, 7, 1);
            break;
        }
        case 13:
            r.findField(-1);
            r.getU32();
            break;
        case 14:
            check(r.getU32At(arg * 4) == 0 || arg * 4 + 4 <= static_cast<int>(size));
            break;
        case 15:
            r.startReading(arg * 3, arg & 1 ? -1 : static_cast<int32_t>(size) - arg);
            depth = 0;
            break;
        }
        check(r.tell() >= 0 && r.getLimit() <= static_cast<int32_t>(size));
    }
}

void runAscii(const uint8_t* script, size_t k, const uint8_t* body, size_t size) {
    STPStream r(body, static_cast<int32_t>(size));
    STPAsciiScope scopes[16];
    int depth = 0;
    for (size_t i = 0; i < k; ++i) {
        uint8_t op = script[i] & 0xF;
        uint8_t arg = script[i] >> 4;
        const char* name = kNames[arg];
        int32_t n = 0;
        switch (op) {
        case 0: {
            const char* p = r.asciiFindField(name);
            check(!p || inside(p, 0, body, size));
            break;
        }
        case 1:
            r.asciiGetNamedNumber(name);
            break;
        case 2:
            r.asciiGetNamedNumber64(name);
            break;
        case 3: {
            char* s = r.asciiGetNamedString(name);
            checkAsciiString(s);
            gen_free(s);
            break;
        }
        case 4: {
            const char* w = r.asciiGetNamedWord(name, &n);
            check(w ? inside(w, n, body, size) && n > 0 : n == 0);
            break;
        }
        case 5: {
            const char* q = r.asciiGetNamedQuoted(name, &n);
            check(q ? inside(q, n, body, size) : n == 0);
            break;
        }
        case 6:
            if (depth < 16)
                r.asciiEnterNamedStruct(&scopes[depth++], name);
            break;
        case 7:
            if (depth > 0)
                r.asciiLeaveStruct(scopes[--depth]);
            break;
        case 8:
            if (depth < 16) {
                int32_t count = r.asciiEnterNamedArray(&scopes[depth++], name);
                check(count >= 0 && static_cast<size_t>(count) <= size);
                for (int32_t e = 0; e < count && e < 64; ++e) {
                    char* s = r.asciiGetString();
                    checkAsciiString(s);
                    gen_free(s);
                }
            }
            break;
        case 9:
            if (depth > 0)
                r.asciiLeaveArray(scopes[--depth]);
            break;
        case 10: {
            const char* fieldName;
            const char* value = r.asciiNextField(&fieldName, &n);
            check(!value || inside(value, 0, body, size));
            check(!fieldName || inside(fieldName, n, body, size));
            r.asciiNextValue();
            break;
        }
        case 11: {
            char* s = r.asciiGetString();
            checkAsciiString(s);
            gen_free(s);
            break;
        }
        case 12:
            r.asciiGetNumber();
            r.asciiGetNumber64();
            break;
        case 13: {
            const char* w = r.asciiPeekWord(&n);
            check(!w || inside(w, n, body, size));
            w = arg & 1 ? r.asciiGetQuoted(&n) : r.asciiGetWord(&n);
            check(!w || inside(w, n, body, size));
            break;
        }
        case 14:
            if (depth < 16)
                r.asciiEnterStruct(&scopes[depth++]);
            break;
        case 15:
            r.startReading(arg, -1);
            depth = 0;
            break;
        }
        check(r.tell() >= 0 && r.tell() <= static_cast<int32_t>(size));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static bool quiet = (gen_set_report_func(silentReport), true);
    (void)quiet;
    if (size < 1 || size > (1u << 20))
        return 0;
    size_t k = data[0] % 64;
    if (1 + k > size)
        k = size - 1;
    const uint8_t* script = data + 1;
    const uint8_t* body = data + 1 + k;
    size_t bodySize = size - 1 - k;
    runBinary(script, k, body, bodySize);
    runAscii(script, k, body, bodySize);
    return 0;
}
