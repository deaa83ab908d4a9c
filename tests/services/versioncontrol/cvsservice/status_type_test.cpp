// The status vocabulary shared by both services: its words and its bands.
#include "status_type.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(StatusType, WordsOfTheVocabularyAndOfValuesOutsideIt) {
    const std::pair<int32_t, const char*> words[] = {{200, "Unknown"},
                                                     {500, "Will Conflict"},
                                                     {600, "Needs Merge"},
                                                     {700, "Has Conflict"},
                                                     {1000, "Locally Added"},
                                                     {1100, "Locally Removed"},
                                                     {1200, "Locally Modified"},
                                                     {1500, "Remotely Added"},
                                                     {1600, "Remotely Removed"},
                                                     {1700, "Remotely Modified"},
                                                     {2000, "Not under VC"},
                                                     {2050, "Directory Not under VC"},
                                                     {2300, "No changes"},
                                                     {2600, "File does not exist"},
                                                     {1234, "Error: Unknown Type"},
                                                     {0, "Error: Unknown Type"}};
    for (const auto& [value, word] : words)
        EXPECT_STREQ(statusTypeWord(value), word) << value;
}

TEST(StatusType, BandsIncludeTheirBounds) {
    EXPECT_EQ(statusTypeBand(899), StatusBand::none);
    EXPECT_EQ(statusTypeBand(900), StatusBand::local_change);
    EXPECT_EQ(statusTypeBand(1300), StatusBand::local_change);
    EXPECT_EQ(statusTypeBand(1400), StatusBand::remote_change);
    EXPECT_EQ(statusTypeBand(1800), StatusBand::remote_change);
    EXPECT_EQ(statusTypeBand(2050), StatusBand::not_controlled);
    EXPECT_EQ(statusTypeBand(2400), StatusBand::unchanged);
    EXPECT_EQ(statusTypeBand(2600), StatusBand::none);
    EXPECT_EQ(statusTypeBand(700), StatusBand::none);
}

} // namespace
