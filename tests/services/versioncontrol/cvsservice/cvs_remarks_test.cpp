// The remarks of cvs that the operations on files pass over, on outputs captured from the real
// cvs (local and :fork: roots, tests/data/cvs_remarks) and on texts in the older wording.
#include "cvs_remarks.h"

#include "golden_files.h"
#include "indgen.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string take(char* text) {
    std::string s = goldenText(text);
    gen_free(text);
    return s;
}

// What each test says of one output. The resurrecting cases bring back "back.c".
std::string describe(const std::string& text) {
    const char* output = text.c_str();
    std::ostringstream out;
    out << "add: " << addRemarksOnly(output) << "\nremove: " << removeRemarksOnly(output)
        << "\ncommit: " << commitRemarksOnly(output) << "\nupdate: " << updateRemarksOnly(output)
        << "\nresurrected back.c: " << take(resurrectedVersion(output, "back.c")) << "\n";
    return out.str();
}

TEST(CvsRemarksGolden, OutputsOfRealCvs) {
    GoldenFolder golden(std::string(CVSS_TEST_DATA_DIR) + "/cvs_remarks");
    std::vector<std::string> cases = golden.cases();
    ASSERT_GE(cases.size(), 30u);
    for (const std::string& name : cases)
        EXPECT_TRUE(golden.matches(name, describe(golden.input(name))));
}

struct Remark {
    const char* label;
    bool (*test)(const char*);
    const char* output;
    bool passes;
};

class CvsRemarks : public testing::TestWithParam<Remark> {};

TEST_P(CvsRemarks, InTheOlderWordingAndOddShapes) {
    EXPECT_EQ(GetParam().test(GetParam().output), GetParam().passes) << GetParam().output;
}

const char* const kOldLockWait = "cvs server: [10:00:00] waiting for dev's lock in /r/m\n"
                                 "cvs server: [10:00:30] obtained lock in /r/m\n"
                                 "Checking in a.c;\n/r/m/a.c,v  <--  a.c\n"
                                 "new revision: 1.2; previous revision: 1.1\ndone\n";

INSTANTIATE_TEST_SUITE_P(
    Texts, CvsRemarks,
    testing::Values(
        Remark{"add_server", addRemarksOnly,
               "cvs server: scheduling file `a.c' for addition\n"
               "cvs server: use 'cvs commit' to add this file permanently\n",
               true},
        Remark{"add_without_the_permanent_part", addRemarksOnly,
               "cvs add: use 'cvs commit' to add a.c\n", false},
        Remark{"remove_server", removeRemarksOnly,
               "cvs server: use 'cvs commit' to remove these files permanently\n", true},
        Remark{"commit_old_lock_wait", commitRemarksOnly, kOldLockWait, true},
        Remark{"commit_wait_without_obtained", commitRemarksOnly,
               "cvs commit: [10:00:00] waiting for dev's lock in /r/m\n", false},
        Remark{"commit_up_to_date_failed_after_wait", commitRemarksOnly,
               "cvs commit: [10:00:00] waiting for dev's lock in /r/m\n"
               "cvs commit: [10:00:30] obtained lock in /r/m\n"
               "cvs commit: Up-to-date check failed for `a.c'\n",
               false},
        Remark{"commit_other_remark_after_wait", commitRemarksOnly,
               "cvs commit: [10:00:00] waiting for dev's lock in /r/m\n"
               "cvs commit: [10:00:30] obtained lock in /r/m\ncvs commit: a.c is odd\n",
               false},
        Remark{"update_not_pertinent_server", updateRemarksOnly,
               "cvs server: warning: a.c is not (any longer) pertinent\n", true},
        Remark{"update_conflict_server", updateRemarksOnly,
               "rcsmerge: warning: conflicts during merge\ncvs server: conflicts found in a.c\n",
               true},
        Remark{"update_updating", updateRemarksOnly, "cvs server: Updating .\n", false},
        Remark{"update_stops_at_an_empty_line", updateRemarksOnly,
               "cvs server: conflicts found in a.c\n\ncvs server: Updating .\n", true}),
    [](const testing::TestParamInfo<Remark>& info) { return std::string(info.param.label); });

TEST(CvsResurrectedVersion, BothWordingsOnlyForTheFileAndOnlyAtTheStart) {
    EXPECT_EQ(take(resurrectedVersion("cvs server: a.c, version 1.4, resurrected\n", "a.c")),
              "\"1.4\"");
    EXPECT_EQ(take(resurrectedVersion("cvs add: `a b.c', version 1.2.2.1, resurrected\nU a b.c\n",
                                      "a b.c")),
              "\"1.2.2.1\"");
    EXPECT_EQ(take(resurrectedVersion("cvs server: a.c, version 1.4, resurrected\n", "b.c")),
              "null");
    EXPECT_EQ(take(resurrectedVersion("U a.c\ncvs add: `a.c', version 1.4, resurrected\n", "a.c")),
              "null");
    EXPECT_EQ(take(resurrectedVersion("cvs server: a.c, version 1.4\n", "a.c")), "null");
    EXPECT_EQ(take(resurrectedVersion("cvs server: a.c already exists, with version number 1.4\n",
                                      "a.c")),
              "null");
}

} // namespace
