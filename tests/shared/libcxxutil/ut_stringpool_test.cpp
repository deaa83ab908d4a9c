// StringPool: frees what it holds, once, and gives back what is removed. The sanitizer build
// reports a leak or a double free as a failure.
#include "ut_stringpool.h"

#include "indgen.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {
char* copy(const char* text) {
    char* s = static_cast<char*>(gen_alloc(std::strlen(text) + 1, 1));
    std::strcpy(s, text);
    return s;
}

TEST(StringPool, FreesEachPointerOnceAndHandsBackRemovedOnes) {
    char* kept;
    {
        StringPool pool;
        char* a = pool.add(copy("a"));
        EXPECT_STREQ(a, "a");
        EXPECT_EQ(pool.add(a), a); // already held: ignored
        EXPECT_EQ(pool.add(nullptr), nullptr);
        pool.add(copy("b"));
        kept = pool.add(copy("kept"));
        EXPECT_EQ(pool.size(), 3);
        EXPECT_TRUE(pool.remove(kept));
        EXPECT_FALSE(pool.remove(kept));
        EXPECT_EQ(pool.size(), 2);
    }
    EXPECT_STREQ(kept, "kept"); // still alive after the pool went
    gen_free(kept);
}
} // namespace
