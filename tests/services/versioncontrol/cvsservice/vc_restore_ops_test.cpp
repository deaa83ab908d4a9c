// The restores end to end: requests through svc_router to cvsservice, which has cvs print an old
// version of a file of a real working copy (local and :fork: roots) into a file of the client's.
// Read-only targets, names that need quoting, dates, and failures that must leave the target as
// it was.
#include "vc_ops_session.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

const std::string kOddName = "my 'odd\" name.c";

// Module m with a.c at revision 1.2 and a file whose name has blanks and quotes, checked out as
// "wc" with the root of the parameter.
class RestoreOps : public VcOpsSession, public testing::WithParamInterface<CvsRootKind> {
protected:
    void SetUp() override {
        VcOpsSession::SetUp();
        ASSERT_TRUE(repo.init());
        ASSERT_TRUE(repo.importModule("m", {{"a.c", "1\n2\n3\n"}, {kOddName, "odd 1\n"}}))
            << repo.lastError();
        wc = repo.checkout("m", "wc", GetParam());
        ASSERT_FALSE(wc.empty()) << repo.lastError();
        ASSERT_TRUE(repo.commitChange(wc, "a.c", "1\n2\n3\n4\n", "second")) << repo.lastError();
        ASSERT_TRUE(repo.commitChange(wc, kOddName, "odd 2\n", "second")) << repo.lastError();
        entriesBefore = readFile(wc + "/CVS/Entries");
        runs();
    }

    std::string toVersion(const std::string& source, const std::string& out, const char* version) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            return vc->RestoreFileToVersion(source.c_str(), out.c_str(), version, false, e, r, s);
        });
    }
    std::string toDate(const std::string& source, const std::string& out, const char* date) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            return vc->RestoreFileToDate(source.c_str(), out.c_str(), date, true, e, r, s);
        });
    }
    std::string byVersion(const std::string& name, const char* version) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            return vc->CheckOutFileByVersion(name.c_str(), version, e, r, s);
        });
    }
    static unsigned bits(const std::string& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions() &
                                     std::filesystem::perms::mask);
    }
    static void readOnly(const std::string& path) {
        std::filesystem::permissions(path, std::filesystem::perms::owner_read |
                                               std::filesystem::perms::group_read |
                                               std::filesystem::perms::others_read);
    }

    std::string wc, entriesBefore;
};

TEST_P(RestoreOps, AVersionGoesIntoAnyFileReadOnlyOrNewAndCVSEntriesStaysAsItWas) {
    // A read-only target is overwritten and is read-only again afterwards.
    std::string old = wc + "/old.c";
    writeFile(old, "something else entirely\n");
    readOnly(old);
    EXPECT_EQ(toVersion("wc/a.c", "wc/old.c", "1.1"), "(absent)");
    EXPECT_EQ(readFile(old), "1\n2\n3\n");
    EXPECT_EQ(bits(old), 0444u);
    std::vector<std::string> lines = runs();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], std::filesystem::canonical(wc).string() + "|-q -n update -p -r 1.1 a.c");

    // A missing target is made; the source's own file and its entry are not touched.
    EXPECT_EQ(toVersion("wc/a.c", "fresh.c", "1.2"), "(absent)");
    EXPECT_EQ(readFile(at("fresh.c")), "1\n2\n3\n4\n");
    EXPECT_EQ(readFile(wc + "/a.c"), "1\n2\n3\n4\n");
    EXPECT_EQ(readFile(wc + "/CVS/Entries"), entriesBefore);

    // The working file itself, by version: its content goes back, its entry stays at 1.2.
    readOnly(wc + "/a.c");
    EXPECT_EQ(byVersion("wc/a.c", "1.1"), "(absent)");
    EXPECT_EQ(readFile(wc + "/a.c"), "1\n2\n3\n");
    EXPECT_EQ(bits(wc + "/a.c"), 0444u);
    EXPECT_EQ(readFile(wc + "/CVS/Entries"), entriesBefore);

    // A name with blanks and quotes reaches cvs as one argument, unchanged.
    EXPECT_EQ(byVersion("wc/" + kOddName, "1.1"), "(absent)");
    EXPECT_EQ(readFile(wc + "/" + kOddName), "odd 1\n");
}

TEST_P(RestoreOps, ADateGivesTheVersionOfThatTimeAndAnEmptyDateDoesNothing) {
    EXPECT_EQ(toDate("wc/a.c", "wc/then.c", "2100-01-01 00:00:00"), "(absent)");
    EXPECT_EQ(readFile(wc + "/then.c"), "1\n2\n3\n4\n");
    std::vector<std::string> lines = runs();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(contains(lines[0], "|-q -n update -p -D 2100-01-01 00:00:00 GMT a.c")) << lines[0];

    writeFile(wc + "/then.c", "kept\n");
    EXPECT_EQ(toDate("wc/a.c", "wc/then.c", ""), "(absent)");
    EXPECT_TRUE(runs().empty());
    EXPECT_EQ(readFile(wc + "/then.c"), "kept\n");
}

// What cvs does not have is never written over the target: the user's text stays.
TEST_P(RestoreOps, FailuresSayWhyAndLeaveTheTargetAsItWas) {
    const std::string lead = "Unable to update file. CVS reported:\n";
    writeFile(wc + "/a.c", "my own work\n");

    std::string error = byVersion("wc/a.c", "1.9");
    EXPECT_EQ(error.rfind(lead, 0), 0u) << error;
    // cvs 1.12: "cvs update: conflict: `a.c' is modified but no longer in the repository".
    EXPECT_TRUE(contains(error, "a.c") && contains(error, "no longer in the repository")) << error;
    error = toDate("wc/a.c", "wc/a.c", "1990-01-01");
    EXPECT_TRUE(contains(error, "no longer in the repository")) << error;
    EXPECT_EQ(readFile(wc + "/a.c"), "my own work\n");

    // cvs says nothing at all of a file it does not know.
    writeFile(wc + "/mine.c", "not under version control\n");
    EXPECT_EQ(byVersion("wc/mine.c", "1.1"), lead + "mine.c is not under version control.\n");
    EXPECT_EQ(readFile(wc + "/mine.c"), "not under version control\n");
}

INSTANTIATE_TEST_SUITE_P(Roots, RestoreOps, testing::Values(CvsRootKind::local, CvsRootKind::fork),
                         [](const testing::TestParamInfo<CvsRootKind>& info) {
                             return info.param == CvsRootKind::local ? "local" : "fork";
                         });

} // namespace
