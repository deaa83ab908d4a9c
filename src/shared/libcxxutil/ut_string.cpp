#include "ut_string.h"

#include "indgen.h"

#include <climits>
#include <cstring>
#include <string>

namespace {
constexpr int32_t kOwner = 16;
constexpr int32_t kShortHeader = 4;
constexpr int32_t kGrowableHeader = 12;
constexpr int32_t kShortOne = kOwner + kShortHeader;       // 20
constexpr int32_t kGrowableOne = kOwner + kGrowableHeader; // 28

// A constant block of the short form: the tag word right in front of the text.
struct ConstantBlock {
    int32_t tag;
    char text[4];
};
ConstantBlock g_nullBlock = {kShortOne, ""};
ConstantBlock g_emptyBlock = {kShortOne, ""};

int32_t& tagOf(char* text) {
    return *reinterpret_cast<int32_t*>(text - 4);
}
int32_t& capacityEndOf(char* text) {
    return *reinterpret_cast<int32_t*>(text - 8);
}
int32_t& endOf(char* text) {
    return *reinterpret_cast<int32_t*>(text - 12);
}

int32_t checkedLength(size_t n) {
    GEN_ASSERT(n < static_cast<size_t>(INT32_MAX / 4));
    return static_cast<int32_t>(n);
}

char* sharedNull() {
    tagOf(g_nullBlock.text) += kOwner;
    return g_nullBlock.text;
}

char* sharedEmpty() {
    tagOf(g_emptyBlock.text) += kOwner;
    return g_emptyBlock.text;
}

// A short block with one owner holding `n` bytes of `text` and a NUL.
char* newShort(const char* text, size_t n) {
    checkedLength(n);
    char* block = static_cast<char*>(gen_alloc(n + kShortHeader + 1, 1));
    char* t = block + kShortHeader;
    tagOf(t) = kShortOne;
    std::memcpy(t, text, n);
    return t;
}

// A growable block with one owner for a text of `total` bytes, the first `oldLength` of them
// copied from `old`. With n = total + 1 the block has 2n + 19 bytes and room up to 2n + 7.
char* newGrowable(const char* old, int32_t oldLength, int32_t total) {
    size_t n = static_cast<size_t>(checkedLength(static_cast<size_t>(total))) + 1;
    char* block = static_cast<char*>(gen_alloc(2 * n + 19, 1));
    char* t = block + kGrowableHeader;
    std::memcpy(t, old, static_cast<size_t>(oldLength));
    endOf(t) = total;
    capacityEndOf(t) = static_cast<int32_t>(2 * n + 7);
    tagOf(t) = kGrowableOne;
    return t;
}

void unrefText(char* text) {
    int32_t& tag = tagOf(text);
    tag -= kOwner;
    if (tag < 17)
        gen_free(text - (tag & 15));
}

bool needsQuotes(const char* text, int n) {
    for (int i = 0; i < n && text[i]; ++i)
        if (text[i] == ' ' || text[i] == '"' || text[i] == '\'')
            return true;
    return false;
}

int clamp(int value, int low, int high) {
    return value < low ? low : value > high ? high : value;
}
} // namespace

ut_string::ut_string() : text_(sharedNull()) {}

ut_string::ut_string(const char* text)
    : text_(!text    ? sharedNull()
            : !*text ? sharedEmpty()
                     : newShort(text, std::strlen(text))) {}

ut_string::ut_string(const char* text, int length)
    : text_(!text         ? sharedNull()
            : length <= 0 ? sharedEmpty()
                          : newShort(text, static_cast<size_t>(length))) {}

ut_string::ut_string(const ut_string& other) : text_(other.text_) {
    ref();
}

ut_string::ut_string(ut_string&& other) noexcept : text_(other.text_) {
    other.text_ = sharedNull();
}

ut_string::~ut_string() {
    unref();
}

ut_string& ut_string::operator=(const ut_string& other) {
    if (other.text_ != text_) {
        char* old = text_;
        text_ = other.text_;
        ref();
        unrefText(old);
    }
    return *this;
}

ut_string& ut_string::operator=(ut_string&& other) noexcept {
    if (this != &other) {
        char* old = text_;
        text_ = other.text_;
        other.text_ = sharedNull();
        unrefText(old);
    }
    return *this;
}

ut_string& ut_string::operator=(const char* text) {
    if (text != text_) {
        ut_string fresh(text);
        *this = std::move(fresh);
    }
    return *this;
}

ut_string& ut_string::assignConcat(const char* a, const char* b) {
    if (!a && !b) {
        *this = ut_string();
        return *this;
    }
    size_t na = a ? std::strlen(a) : 0;
    size_t nb = b ? std::strlen(b) : 0;
    if (na + nb == 0) {
        *this = ut_string("");
        return *this;
    }
    checkedLength(na + nb);
    char* t = static_cast<char*>(gen_alloc(na + nb + kShortHeader + 1, 1)) + kShortHeader;
    tagOf(t) = kShortOne;
    if (na)
        std::memcpy(t, a, na);
    if (nb)
        std::memcpy(t + na, b, nb);
    *this = ut_string(Adopt{}, t);
    return *this;
}

void ut_string::ref() {
    int64_t tag = static_cast<int64_t>(tagOf(text_)) + kOwner;
    gen_assert(tag >= 1 && tag <= INT32_MAX, "ut_string reference count overflow", __FILE__,
               __LINE__, 0);
    tagOf(text_) = static_cast<int32_t>(tag);
}

void ut_string::unref() {
    unrefText(text_);
}

int ut_string::storedLength() const {
    return (tagOf(text_) & 15) == kGrowableHeader ? endOf(text_)
                                                  : static_cast<int>(std::strlen(text_));
}

void ut_string::unshare() {
    if (tagOf(text_) == kGrowableOne)
        return;
    int32_t length = storedLength();
    char* fresh = newGrowable(text_, length, length);
    unrefText(text_);
    text_ = fresh;
}

int ut_string::length() const {
    return static_cast<int>(std::strlen(text_));
}

bool ut_string::isNull() const {
    return text_ == g_nullBlock.text;
}

int32_t ut_string::tagWord() const {
    return tagOf(text_);
}

namespace {
// Where `extra` more bytes go behind the text of `*text`: in place when the block is growable
// with one owner and they fit, else in a new growable block that replaces `*text`. The old
// block is handed back in `*previous` (null when unchanged) so that the caller can still read
// from it, for a source inside the string itself, before releasing it.
char* reserve(char** text, int32_t length, int32_t extra, char** previous) {
    *previous = nullptr;
    if (tagOf(*text) == kGrowableOne && length + extra < capacityEndOf(*text))
        return *text + length;
    char* fresh = newGrowable(*text, length, length + extra);
    *previous = *text;
    *text = fresh;
    return fresh + length;
}

void finish(char* text, int32_t newLength, char* previous) {
    endOf(text) = newLength;
    text[newLength] = '\0';
    if (previous)
        unrefText(previous);
}
} // namespace

ut_string& ut_string::append(const char* text, int n) {
    if (!text || n < 1)
        return *this;
    int32_t length = storedLength();
    char* previous;
    char* out = reserve(&text_, length, n, &previous);
    std::memmove(out, text, static_cast<size_t>(n));
    finish(text_, length + n, previous);
    return *this;
}

ut_string& ut_string::append(const char* text) {
    return text ? append(text, static_cast<int>(std::strlen(text))) : *this;
}

ut_string& ut_string::append(char c) {
    return append(&c, 1);
}

ut_string& ut_string::append(const ut_string& other) {
    return append(other.text_, other.length());
}

ut_string& ut_string::appendQuoted(const char* text, int n) {
    if (!text || n < 0)
        return *this;
    int32_t needed = n + 2;
    for (int i = 0; i < n; ++i)
        if (text[i] == '\\' || text[i] == '"')
            ++needed;
    int32_t length = storedLength();
    char* previous;
    char* out = reserve(&text_, length, needed, &previous);
    // A source inside this string stays readable: in place the quoted bytes go behind it, and a
    // new block leaves the old one alive in `previous` until finish.
    std::string source(text, static_cast<size_t>(n));
    *out++ = '"';
    for (char c : source) {
        if (c == '\\' || c == '"')
            *out++ = '\\';
        *out++ = c;
    }
    *out = '"';
    finish(text_, length + needed, previous);
    return *this;
}

ut_string& ut_string::appendQuoted(const char* text) {
    return text ? appendQuoted(text, static_cast<int>(std::strlen(text))) : *this;
}

ut_string& ut_string::appendQuotedIfNeeded(const char* text, int n) {
    if (!text)
        return *this;
    return needsQuotes(text, n) ? appendQuoted(text, n) : append(text, n);
}

ut_string& ut_string::appendQuotedIfNeeded(const char* text) {
    return text ? appendQuotedIfNeeded(text, static_cast<int>(std::strlen(text))) : *this;
}

void ut_string::setAt(int index, char c) {
    if (index < 0 || index >= length())
        return;
    unshare();
    text_[index] = c;
    if (c == '\0')
        endOf(text_) = index;
}

char ut_string::exchangeAt(int index, char c) {
    if (index < 0 || index >= length())
        return 0;
    unshare();
    char old = text_[index];
    text_[index] = c;
    if (c == '\0')
        endOf(text_) = index;
    return old;
}

void ut_string::erase(int index, int n) {
    int32_t length = storedLength();
    index = clamp(index, 0, length);
    n = clamp(n, 0, length - index);
    if (n == 0)
        return;
    unshare();
    std::memmove(text_ + index, text_ + index + n, static_cast<size_t>(length - index - n) + 1);
    endOf(text_) = length - n;
}

void ut_string::replace(int index, int n, const char* text) {
    int32_t length = storedLength();
    if (index < 0 || index > length)
        return;
    n = clamp(n, 0, length - index);
    std::string source = text ? text : ""; // may point into this string
    int32_t m = static_cast<int32_t>(source.size());
    if (m > n) {
        char* previous;
        reserve(&text_, length, m - n, &previous);
        finish(text_, length + m - n, previous);
        std::memmove(text_ + index + m, text_ + index + n, static_cast<size_t>(length - index - n));
    } else {
        if (n == 0)
            return;
        unshare();
        std::memmove(text_ + index + m, text_ + index + n,
                     static_cast<size_t>(length - index - n) + 1);
        endOf(text_) = length - (n - m);
    }
    std::memcpy(text_ + index, source.data(), static_cast<size_t>(m));
}

ut_string ut_string::substr(int index, int n) const {
    int length = this->length();
    index = clamp(index, 0, length);
    n = n < 0 ? length - index : clamp(n, 0, length - index);
    return isNull() ? ut_string() : ut_string(text_ + index, n);
}

int ut_string::copyOut(char* buffer, int n, int index) const {
    int length = this->length();
    if (!buffer || index < 0 || index > length || n <= 0)
        return 0;
    int count = n < length - index ? n : length - index;
    std::memcpy(buffer, text_ + index, static_cast<size_t>(count));
    return count;
}

int ut_string::find(char c, int from) const {
    int length = this->length();
    if (from < 0)
        from = 0;
    if (from >= length)
        return -1;
    const void* hit = std::memchr(text_ + from, c, static_cast<size_t>(length - from));
    return hit ? static_cast<int>(static_cast<const char*>(hit) - text_) : -1;
}

int ut_string::find(const char* text, int from) const {
    if (!text)
        return -1;
    if (from < 0)
        from = 0;
    if (from > length())
        return -1;
    const char* hit = std::strstr(text_ + from, text);
    return hit ? static_cast<int>(hit - text_) : -1;
}

int ut_string::compare(const char* other) const {
    if (!other)
        other = "";
    if (other == text_)
        return 0;
    // The first bytes decide most comparisons without a call.
    signed char a = static_cast<signed char>(text_[0]);
    signed char b = static_cast<signed char>(other[0]);
    if (a != b)
        return a - b;
    if (a == 0)
        return 0;
    return std::strcmp(text_ + 1, other + 1);
}

int ut_string::compare(const ut_string& other) const {
    return compare(other.text_);
}

unsigned ut_string::hash(const char* text, unsigned tableSize) {
    uint32_t h = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); p && *p; ++p) {
        h = (h << 4) + *p;
        if (h > 0x0FFFFFFFu) {
            uint32_t g = h & 0xF0000000u;
            h = h ^ (g >> 24) ^ g;
        }
    }
    return h % tableSize;
}

ut_string operator+(const ut_string& a, const ut_string& b) {
    return ut_string().assignConcat(a.isNull() ? nullptr : a.c_str(),
                                    b.isNull() ? nullptr : b.c_str());
}

ut_string operator+(const ut_string& a, const char* b) {
    return ut_string().assignConcat(a.isNull() ? nullptr : a.c_str(), b);
}

ut_string operator+(const char* a, const ut_string& b) {
    return ut_string().assignConcat(a, b.isNull() ? nullptr : b.c_str());
}

bool operator==(const char* a, const ut_string& b) {
    return b.compare(a) == 0;
}
bool operator!=(const char* a, const ut_string& b) {
    return b.compare(a) != 0;
}
