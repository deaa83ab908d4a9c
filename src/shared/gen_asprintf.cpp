#include "gen_asprintf.h"

#include "indgen.h"

#include <charconv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {
constexpr int kMaxSignificantDigits = 56;

struct Conversion {
    bool left = false;
    bool plus = false;
    bool zero = false;
    bool blank = false;
    bool alternate = false;
    int width = 0;
    int precision = -1; // -1: none
    char length = 0;    // 0, 'l', 'L' or 'h'
};

class Output {
public:
    Output(gen_format_sink sink, void* context) : sink_(sink), context_(context) {}
    void put(const char* bytes, size_t length) {
        // The sink takes int lengths; a longer run goes in pieces.
        while (length > 0) {
            int piece = length > INT_MAX ? INT_MAX : static_cast<int>(length);
            sink_(context_, bytes, piece);
            count_ += piece;
            bytes += piece;
            length -= static_cast<size_t>(piece);
        }
    }
    void repeat(char c, int n) {
        char run[64];
        std::memset(run, c, sizeof run);
        while (n > 0) {
            int piece = n > 64 ? 64 : n;
            put(run, static_cast<size_t>(piece));
            n -= piece;
        }
    }
    int count() const { return count_; }

private:
    gen_format_sink sink_;
    void* context_;
    int count_ = 0;
};

// Writes prefix (sign, "0x") and body padded to the width: blanks on the right with `-`, zeros
// between prefix and body with `0` (when allowed), blanks on the left otherwise.
void emit(Output& out, const Conversion& c, const char* prefix, const char* body, size_t bodyLength,
          bool zeroAllowed) {
    size_t prefixLength = std::strlen(prefix);
    long long total = static_cast<long long>(prefixLength + bodyLength);
    int pad = c.width > total ? static_cast<int>(c.width - total) : 0;
    if (c.left) {
        out.put(prefix, prefixLength);
        out.put(body, bodyLength);
        out.repeat(' ', pad);
    } else if (c.zero && zeroAllowed) {
        out.put(prefix, prefixLength);
        out.repeat('0', pad);
        out.put(body, bodyLength);
    } else {
        out.repeat(' ', pad);
        out.put(prefix, prefixLength);
        out.put(body, bodyLength);
    }
}

void formatInteger(Output& out, const Conversion& c, char conv, uint64_t magnitude, bool negative) {
    const char* digitSet = conv == 'X' || conv == 'P' ? "0123456789ABCDEF" : "0123456789abcdef";
    unsigned base = conv == 'o' ? 8 : (conv == 'd' || conv == 'i' || conv == 'u') ? 10 : 16;
    char digits[96];
    int n = 0;
    for (uint64_t v = magnitude; v != 0; v /= base)
        digits[n++] = digitSet[v % base];
    if (magnitude == 0 && c.precision != 0)
        digits[n++] = '0';
    // The precision is the least number of digits, as in C; it never exceeds the buffer here,
    // longer precisions are written as leading zeros below.
    int leadingZeros = c.precision > n ? c.precision - n : 0;
    if (conv == 'o' && c.alternate && leadingZeros == 0 && (n == 0 || digits[n - 1] != '0'))
        leadingZeros = 1;
    std::string body(static_cast<size_t>(leadingZeros), '0');
    for (int i = n - 1; i >= 0; --i)
        body.push_back(digits[i]);

    const char* prefix = "";
    if (negative)
        prefix = "-";
    else if ((conv == 'd' || conv == 'i') && c.plus)
        prefix = "+";
    else if ((conv == 'd' || conv == 'i') && c.blank)
        prefix = " ";
    else if (c.alternate && magnitude != 0 && (conv == 'x' || conv == 'p'))
        prefix = "0x";
    else if (c.alternate && magnitude != 0 && (conv == 'X' || conv == 'P'))
        prefix = "0X";
    emit(out, c, prefix, body.data(), body.size(), c.precision < 0);
}

// `significant` digits of `value` (finite, >= 0), correctly rounded up to 56 digits and zeros
// beyond, with the decimal exponent of the first digit.
std::string scientificDigits(double value, int significant, int* exponent) {
    std::string digits;
    if (value == 0) {
        *exponent = 0;
        return std::string(static_cast<size_t>(significant), '0');
    }
    int produced = significant < kMaxSignificantDigits ? significant : kMaxSignificantDigits;
    char text[128];
    auto result =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, produced - 1);
    *result.ptr = '\0';
    char* e = std::strchr(text, 'e');
    for (char* p = text; p < e; ++p)
        if (*p != '.')
            digits.push_back(*p);
    *exponent = std::atoi(e + 1);
    digits.resize(static_cast<size_t>(significant), '0');
    return digits;
}

// The decimal exponent of `value` (finite, > 0) as written out in full, before any rounding.
int exactExponent(double value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific);
    *result.ptr = '\0';
    return std::atoi(std::strchr(text, 'e') + 1);
}

// Lays out digits with the exponent of the first one in fixed form with `decimals` places.
std::string fixedFromDigits(const std::string& digits, int exponent, int decimals, bool point,
                            const char* decimalPoint) {
    std::string text;
    auto digitAt = [&](int power) {
        long long index = static_cast<long long>(exponent) - power;
        return index >= 0 && index < static_cast<long long>(digits.size())
                   ? digits[static_cast<size_t>(index)]
                   : '0';
    };
    for (int power = exponent > 0 ? exponent : 0; power >= 0; --power)
        text.push_back(digitAt(power));
    if (point)
        text += decimalPoint;
    for (int power = -1; power >= -decimals; --power)
        text.push_back(digitAt(power));
    return text;
}

std::string fixedText(double value, int decimals, bool point, const char* decimalPoint) {
    int exponent = value == 0 ? 0 : exactExponent(value);
    long long significant = static_cast<long long>(exponent) + 1 + decimals;
    if (significant > kMaxSignificantDigits) {
        std::string digits = scientificDigits(value, kMaxSignificantDigits, &exponent);
        return fixedFromDigits(digits, exponent, decimals, point, decimalPoint);
    }
    // Up to 56 significant digits (or a value that rounds to zero or one unit of the last
    // place): the library's exact fixed conversion. Its integer part has at most 56 digits.
    std::string text(static_cast<size_t>(decimals) + 80, '\0');
    auto result = std::to_chars(text.data(), text.data() + text.size(), value,
                                std::chars_format::fixed, decimals);
    text.resize(static_cast<size_t>(result.ptr - text.data()));
    size_t dot = text.find('.');
    if (dot != std::string::npos)
        text.replace(dot, 1, decimalPoint);
    else if (point)
        text += decimalPoint;
    return text;
}

std::string exponentialText(const std::string& digits, int exponent, bool point, char letter,
                            const char* decimalPoint) {
    std::string text(1, digits[0]);
    if (point)
        text += decimalPoint;
    text.append(digits, 1, std::string::npos);
    text.push_back(letter);
    text.push_back(exponent < 0 ? '-' : '+');
    int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude < 10)
        text.push_back('0');
    text += std::to_string(magnitude);
    return text;
}

// Removes trailing zeros of the fraction, and then a trailing point, in front of `end`.
void stripFraction(std::string& text, size_t end, const char* decimalPoint) {
    size_t point = text.find(decimalPoint);
    if (point == std::string::npos || point >= end)
        return;
    size_t cut = end;
    while (cut > point + std::strlen(decimalPoint) && text[cut - 1] == '0')
        --cut;
    if (cut == point + std::strlen(decimalPoint))
        cut = point;
    text.erase(cut, end - cut);
}

void formatFloat(Output& out, const Conversion& c, char conv, double value) {
    if (std::isnan(value) || std::isinf(value)) {
        // Zero padding a word makes no sense; it is padded with blanks.
        Conversion plain = c;
        plain.zero = false;
        const char* word = std::isnan(value) ? "nan" : "inf";
        emit(out, plain, "", word, 3, false);
        return;
    }
    const char* prefix = "";
    if (value < 0)
        prefix = "-";
    else if (c.plus)
        prefix = "+";
    else if (c.blank)
        prefix = " ";
    double magnitude = std::fabs(value);
    const char* decimalPoint = std::localeconv()->decimal_point;
    if (!decimalPoint || !*decimalPoint)
        decimalPoint = ".";

    std::string text;
    int precision = c.precision < 0 ? 6 : c.precision;
    if (conv == 'f') {
        text = fixedText(magnitude, precision, precision > 0 || c.alternate, decimalPoint);
    } else if (conv == 'e' || conv == 'E') {
        int exponent;
        std::string digits = scientificDigits(magnitude, precision + 1, &exponent);
        text = exponentialText(digits, exponent, precision > 0 || c.alternate, conv, decimalPoint);
    } else {
        if (precision == 0)
            precision = 1;
        int exponent;
        std::string digits = scientificDigits(magnitude, precision, &exponent);
        if (exponent >= -3 && exponent < precision) {
            int decimals = precision - 1 - exponent;
            text = fixedFromDigits(digits, exponent, decimals, decimals > 0 || c.alternate,
                                   decimalPoint);
            if (!c.alternate)
                stripFraction(text, text.size(), decimalPoint);
        } else {
            char letter = conv == 'G' ? 'E' : 'e';
            text = exponentialText(digits, exponent, precision > 1 || c.alternate, letter,
                                   decimalPoint);
            if (!c.alternate)
                stripFraction(text, text.find(letter), decimalPoint);
        }
    }
    emit(out, c, prefix, text.data(), text.size(), true);
}

// Reads digits into a non-negative int, saturating instead of overflowing.
int readNumber(const char*& p) {
    int n = 0;
    while (*p >= '0' && *p <= '9') {
        int digit = *p++ - '0';
        n = n > (INT_MAX - digit) / 10 ? INT_MAX : n * 10 + digit;
    }
    return n;
}

// Parses one conversion behind its '%' and writes it; returns the position behind it.
const char* convert(Output& out, const char* p, va_list& args) {
    Conversion c;
    for (;; ++p) {
        if (*p == '-')
            c.left = true;
        else if (*p == '+')
            c.plus = true;
        else if (*p == '0')
            c.zero = true;
        else if (*p == ' ')
            c.blank = true;
        else if (*p == '#')
            c.alternate = true;
        else
            break;
    }
    if (*p == '*') {
        ++p;
        int width = va_arg(args, int);
        if (width < 0) {
            c.left = true;
            width = width == INT_MIN ? INT_MAX : -width;
        }
        c.width = width;
    } else {
        c.width = readNumber(p);
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            int precision = va_arg(args, int);
            c.precision = precision < 0 ? -1 : precision;
        } else {
            c.precision = readNumber(p);
        }
    }
    while (*p == ' ')
        ++p;
    if (*p == 'l' || *p == 'L' || *p == 'h')
        c.length = *p++;

    char conv = *p;
    if (conv == '\0')
        return p;
    ++p;
    switch (conv) {
    case 'd':
    case 'i': {
        long long v;
        if (c.length == 'h')
            v = static_cast<short>(va_arg(args, int));
        else if (c.length == 'l' || c.length == 'L')
            v = va_arg(args, long);
        else
            v = va_arg(args, int);
        uint64_t magnitude = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
        formatInteger(out, c, conv, magnitude, v < 0);
        break;
    }
    case 'u':
    case 'x':
    case 'X':
    case 'o': {
        uint64_t v;
        if (c.length == 'h')
            v = static_cast<unsigned short>(va_arg(args, unsigned));
        else if (c.length == 'l' || c.length == 'L')
            v = va_arg(args, unsigned long);
        else
            v = va_arg(args, unsigned);
        formatInteger(out, c, conv, v, false);
        break;
    }
    case 'p':
    case 'P':
        formatInteger(out, c, conv, reinterpret_cast<uintptr_t>(va_arg(args, void*)), false);
        break;
    case 'c': {
        char ch = static_cast<char>(va_arg(args, int));
        emit(out, c, "", &ch, 1, true);
        break;
    }
    case 's': {
        const char* s = va_arg(args, const char*);
        if (!s)
            s = "(null)";
        size_t n = c.precision < 0 ? std::strlen(s) : strnlen(s, static_cast<size_t>(c.precision));
        emit(out, c, "", s, n, true);
        break;
    }
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G': {
        double v =
            c.length == 'L' ? static_cast<double>(va_arg(args, long double)) : va_arg(args, double);
        formatFloat(out, c, conv, v);
        break;
    }
    default:
        emit(out, c, "", &conv, 1, true);
        break;
    }
    return p;
}
} // namespace

int gen_format(gen_format_sink sink, void* context, const char* format, va_list args) {
    Output out(sink, context);
    if (!format)
        format = "(null)";
    // A copy, so that the caller's list is read the same way whatever the platform's va_list is.
    va_list list;
    va_copy(list, args);
    const char* p = format;
    while (*p) {
        const char* percent = std::strchr(p, '%');
        if (!percent) {
            out.put(p, std::strlen(p));
            break;
        }
        out.put(p, static_cast<size_t>(percent - p));
        p = convert(out, percent + 1, list);
    }
    va_end(list);
    return out.count();
}

void gen_format_buffer_sink(void* context, const char* bytes, int length) {
    auto* buffer = static_cast<GenFormatBuffer*>(context);
    int room = static_cast<int>(sizeof buffer->local) - buffer->localLength;
    int local = length < room ? length : room;
    std::memcpy(buffer->local + buffer->localLength, bytes, static_cast<size_t>(local));
    buffer->localLength += local;
    bytes += local;
    length -= local;
    if (length == 0)
        return;
    int needed = buffer->overflowLength + length;
    if (needed > buffer->overflowCapacity) {
        buffer->overflowCapacity = needed * 2;
        buffer->overflow = static_cast<char*>(
            gen_realloc(buffer->overflow, static_cast<size_t>(buffer->overflowCapacity)));
    }
    std::memcpy(buffer->overflow + buffer->overflowLength, bytes, static_cast<size_t>(length));
    buffer->overflowLength += length;
}

char* gen_format_buffer_finish(GenFormatBuffer* buffer) {
    size_t local = static_cast<size_t>(buffer->localLength);
    size_t overflow = static_cast<size_t>(buffer->overflowLength);
    char* text = static_cast<char*>(gen_alloc(local + overflow + 1, 1));
    std::memcpy(text, buffer->local, local);
    if (overflow > 0)
        std::memcpy(text + local, buffer->overflow, overflow);
    gen_free(buffer->overflow);
    buffer->overflow = nullptr;
    buffer->localLength = buffer->overflowLength = buffer->overflowCapacity = 0;
    return text;
}

char* gen_vasprintf(const char* format, va_list args) {
    // A va_list cannot be null on this platform, so the check for a null list has no place.
    if (!format) {
        gen_error("[gen_asprintf]: Format was NULL (illegal).");
        return nullptr;
    }
    GenFormatBuffer buffer;
    gen_format(gen_format_buffer_sink, &buffer, format, args);
    return gen_format_buffer_finish(&buffer);
}

char* gen_asprintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    char* text = gen_vasprintf(format, args);
    va_end(args);
    return text;
}
