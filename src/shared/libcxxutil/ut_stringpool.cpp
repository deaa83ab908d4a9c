#include "ut_stringpool.h"

#include "indgen.h"

StringPool::~StringPool() {
    for (char* pointer : pointers_)
        gen_free(pointer);
}

char* StringPool::add(char* pointer) {
    if (pointer)
        pointers_.insert(pointer);
    return pointer;
}

bool StringPool::remove(char* pointer) {
    return pointers_.erase(pointer) > 0;
}
