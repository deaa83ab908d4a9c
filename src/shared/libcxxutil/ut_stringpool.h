// StringPool: collects plain strings (allocated with gen_alloc) that a routine hands out, and
// frees them all when it goes out of scope.
#pragma once

#include <set>

class StringPool {
public:
    StringPool() = default;
    StringPool(const StringPool&) = delete;
    StringPool& operator=(const StringPool&) = delete;
    // Frees every pointer still held, each once, with gen_free.
    ~StringPool();

    // Takes ownership of `pointer` and gives it back; a pointer already held (or null) is
    // ignored.
    char* add(char* pointer);
    // Hands `pointer` back to the caller without freeing it; false if it was not held.
    bool remove(char* pointer);
    int size() const { return static_cast<int>(pointers_.size()); }

private:
    std::set<char*> pointers_;
};
