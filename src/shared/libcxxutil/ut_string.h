// ut_string: the reference-counted string of class-based code. Copies share one block until
// one of them writes; the bookkeeping lies in the same block in front of the characters.
// One thread only: the counts are plain integers.
#pragma once

#include <cstdint>

// Block forms. Short: one 32-bit tag word in front of the text, the text allocated to size.
// Growable: three 32-bit words in front of the text, the end (offset of the terminating NUL),
// the capacity end (offset of the end of the usable room) and the tag word. The two ends are
// offsets from the text rather than pointers so that the header keeps its 12 bytes with 64-bit
// pointers. The tag word is refCount * 16 + header bytes: 20 is a short block with one owner,
// 28 a growable block with one owner.
//
// Two constant short blocks, the null string and the empty string, are shared by all; their
// tag word starts at 20 (the block itself counting as one owner that never lets go), so it
// never falls below 20 and they are never freed.
class ut_string {
public:
    // The null string.
    ut_string();
    // A null `text` gives the null string, "" the empty string, anything else a short block.
    ut_string(const char* text);
    // `length` bytes of `text` (taken as they are); a null text gives the null string.
    ut_string(const char* text, int length);
    // Shares `other`'s block.
    ut_string(const ut_string& other);
    // Takes `other`'s block and leaves it the null string.
    ut_string(ut_string&& other) noexcept;
    ~ut_string();

    // Assigning a string to itself does nothing.
    ut_string& operator=(const ut_string& other);
    ut_string& operator=(ut_string&& other) noexcept;
    ut_string& operator=(const char* text);
    // Becomes `a` followed by `b` (a null side counts as empty; both null give the null string).
    ut_string& assignConcat(const char* a, const char* b);

    // Appending writes into the block in place when it is growable with one owner and the text
    // fits, else moves to a new growable block with room for twice what is needed. A null text
    // or a count below 1 adds nothing. The bytes are copied as they are, so a count can embed
    // NUL bytes that length() then stops at.
    ut_string& append(const char* text, int n);
    ut_string& append(const char* text);
    ut_string& append(char c);
    ut_string& append(const ut_string& other);
    // Adds the text in double quotes with `\` in front of each `\` and `"`.
    ut_string& appendQuoted(const char* text, int n);
    ut_string& appendQuoted(const char* text);
    // appendQuoted when the text (up to `n` bytes, stopping at a NUL) holds a blank, `"` or `'`;
    // append otherwise.
    ut_string& appendQuotedIfNeeded(const char* text, int n);
    ut_string& appendQuotedIfNeeded(const char* text);

    // Bytes up to the first NUL.
    int length() const;
    // The characters; "" for the null string. Valid until the string changes or dies.
    const char* c_str() const { return text_; }
    bool isNull() const;

    // Sets the byte at `index` (inside the text) after unsharing; a NUL ends the string there.
    void setAt(int index, char c);
    // Sets the byte at `index` after unsharing and gives the old one; 0 for an index outside
    // the text (nothing changes then).
    char exchangeAt(int index, char c);
    // Removes `n` bytes from `index`, both cut to the text.
    void erase(int index, int n);
    // Replaces `n` bytes (cut to the text) from `index` (which must lie within the text, its
    // end included) with `text`.
    void replace(int index, int n, const char* text);
    // `n` bytes from `index`; an `n` of -1 means to the end. Both are cut to the text.
    ut_string substr(int index, int n = -1) const;
    // Copies at most `n` bytes from `index` into `buffer`, without a NUL; gives how many.
    int copyOut(char* buffer, int n, int index = 0) const;
    // The index of the first `c` (or `text`) at or after `from`, or -1.
    int find(char c, int from = 0) const;
    int find(const char* text, int from = 0) const;

    // Byte comparison of signed characters: negative, 0 or positive. A null `const char*`
    // counts as the empty text. Equal pointers are equal without reading the text.
    int compare(const ut_string& other) const;
    int compare(const char* other) const;
    bool operator==(const ut_string& other) const { return compare(other) == 0; }
    bool operator!=(const ut_string& other) const { return compare(other) != 0; }
    bool operator<(const ut_string& other) const { return compare(other) < 0; }
    bool operator==(const char* other) const { return compare(other) == 0; }
    bool operator!=(const char* other) const { return compare(other) != 0; }
    bool operator<(const char* other) const { return compare(other) < 0; }

    // PJW hash of `text` modulo `tableSize` (which must not be 0); 0 for an empty text.
    static unsigned hash(const char* text, unsigned tableSize);
    unsigned hash(unsigned tableSize) const { return hash(text_, tableSize); }

    // The block's tag word, for diagnostics and tests: owners * 16 + header bytes.
    int32_t tagWord() const;

private:
    struct Adopt {};
    // Takes over a block that already counts this owner.
    ut_string(Adopt, char* adoptedText) : text_(adoptedText) {}
    void ref();
    void unref();
    // Makes the block growable with one owner (tag word 28), copying when it is not.
    void unshare();
    // The stored length: the end offset of a growable block, strlen of a short one.
    int storedLength() const;

    char* text_;
};

ut_string operator+(const ut_string& a, const ut_string& b);
ut_string operator+(const ut_string& a, const char* b);
ut_string operator+(const char* a, const ut_string& b);
bool operator==(const char* a, const ut_string& b);
bool operator!=(const char* a, const ut_string& b);
