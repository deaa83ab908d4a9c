// The status vocabulary shared by both services: a value outside it, and the bounds of a band.
#include "status_type.h"

#include <gtest/gtest.h>

namespace {

TEST(StatusType, AValueOutsideTheVocabularyHasTheErrorWordAndBandsIncludeTheirBounds) {
    EXPECT_STREQ(statusTypeWord(1234), "Error: Unknown Type");
    EXPECT_STREQ(statusTypeWord(2050), "Directory Not under VC");
    EXPECT_EQ(statusTypeBand(900), StatusBand::local_change);
    EXPECT_EQ(statusTypeBand(1800), StatusBand::remote_change);
    EXPECT_EQ(statusTypeBand(1850), StatusBand::none);
}

} // namespace
