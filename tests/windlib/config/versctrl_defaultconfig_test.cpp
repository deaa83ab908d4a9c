// The version-control keys: their compiled defaults in a new WhiteBoard, the ".exe" rule, the
// type codes, and the change callback that keeps the mirrors following the group.
#include "versctrl_defaultconfig.h"

#include "report_capture.h"
#include "whiteboard.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A fresh global WhiteBoard with the mirrors at their defaults; released at the end.
class VersctrlConfig : public testing::Test {
protected:
    void SetUp() override {
        setVersctrlCVSPath(nullptr);
        setVersctrlCVSTimeLimitSeconds(300);
        board = getWhiteBoard();
    }
    void TearDown() override { board->unref(); }
    std::string string(const char* key) {
        ut_string value("<none>");
        board->getStringValue(CFG_WBD, key, &value);
        return value.c_str();
    }
    WhiteBoard* board = nullptr;
};

TEST_F(VersctrlConfig, ANewWhiteBoardHoldsTheCompiledDefaults) {
    EXPECT_EQ(string("Versctrl_CVSPath"), "cvs.exe");
    EXPECT_EQ(string("Versctrl_RCSPath"), "rcs.exe");
    EXPECT_EQ(string("Versctrl_ClearCasePath"), "cleartool.exe");
    EXPECT_EQ(string("Versctrl_CustomPath"), ".exe");
    EXPECT_EQ(string("versioncontroltype"), "Auto Detect");
    EXPECT_EQ(string("Versctrl_PVCSRoot"), "");
    EXPECT_EQ(string("vc_command"), "<none>") << "settable from a file, no default";
    int32_t limit = 0;
    EXPECT_TRUE(board->getInt32Value(CFG_WBD, "Versctrl_CVSTimeLimit", &limit));
    EXPECT_EQ(limit, 300);
    bool flag = true;
    EXPECT_TRUE(board->getBoolValue(CFG_WBD, "dontusevc", &flag));
    EXPECT_FALSE(flag);
    EXPECT_STREQ(versctrlCVSPath(), "cvs.exe");
    EXPECT_EQ(findConfigKey("Versctrl_CVSPath")->type, CFG_STRING);
    EXPECT_EQ(findConfigKey("Versctrl_CVSTimeLimit")->type, CFG_INT);
    EXPECT_EQ(findConfigKey("nope"), nullptr);
}

TEST_F(VersctrlConfig, TheMirrorsFollowTheGroup) {
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_TRUE(board->setStringValue(CFG_WBD, "Versctrl_CVSPath", "/opt/cvs/bin/cvs", false));
    EXPECT_STREQ(versctrlCVSPath(), "/opt/cvs/bin/cvs");
    EXPECT_TRUE(board->setInt32Value(CFG_WBD, "Versctrl_CVSTimeLimit", 0, false));
    EXPECT_EQ(versctrlCVSTimeLimitSeconds(), 0);
    // A number for a key of type string is an Int32 item beside it: the mirror stays.
    EXPECT_TRUE(board->setInt32Value(CFG_WBD, "Versctrl_CVSPath", 5, false));
    EXPECT_STREQ(versctrlCVSPath(), "/opt/cvs/bin/cvs");
    // A value equal to the group's fires nothing, whatever the mirror holds.
    setVersctrlCVSPath("/elsewhere");
    EXPECT_TRUE(board->setStringValue(CFG_WBD, "Versctrl_CVSPath", "/opt/cvs/bin/cvs", false));
    EXPECT_STREQ(versctrlCVSPath(), "/elsewhere");
    EXPECT_EQ(ReportCapture::joined(), "");
}

TEST_F(VersctrlConfig, AnUnknownVersionControlTypeIsWarnedAboutOncePerChange) {
    ReportCapture capture;
    ReportCapture::clear();
    for (const char* value : {"Foo", "Foo", "CVS", "Disable", "Foo", "Bar"})
        board->setStringValue(CFG_WBD, "versioncontroltype", value, false);
    EXPECT_EQ(ReportCapture::texts(),
              (std::vector<std::string>{"warning: Unknown version control type: Foo.",
                                        "warning: Unknown version control type: Foo.",
                                        "warning: Unknown version control type: Bar."}));
}

TEST(VersctrlConfigDeath, TheCallbackOfAnotherGroupStopsTheProcess) {
    EXPECT_EXIT(configChanged("OtherGroup", "Versctrl_CVSPath"), testing::ExitedWithCode(1),
                "Assertion \\(!strcmp\\(group, CFG_WBD\\)\\) failed in "
                "'../src/windlib/config/versctrl_defaultconfig.cpp' on line 173");
}

struct Exe {
    const char* in;
    const char* out;
};
class ExeRule : public testing::TestWithParam<Exe> {};
TEST_P(ExeRule, ReplacesOrAddsTheExtensionOfTheBaseName) {
    char* out = applyExeRule(GetParam().in);
    EXPECT_STREQ(out, GetParam().out);
    gen_free(out);
}
INSTANTIATE_TEST_SUITE_P(Paths, ExeRule,
                         testing::Values(Exe{"cvs", "cvs.exe"}, Exe{"cvs.exe", "cvs.exe"},
                                         Exe{"", ".exe"}, Exe{"tool.bat", "tool.exe"},
                                         Exe{"dir.d/cvs", "dir.d/cvs.exe"}));

TEST(VersionControlTypes, HaveTheirCodesAndTheDefaultHasNone) {
    EXPECT_EQ(versionControlTypeCode("TVC"), 0);
    EXPECT_EQ(versionControlTypeCode("CVS"), 1);
    EXPECT_EQ(versionControlTypeCode("AutoDetect"), 5);
    EXPECT_EQ(versionControlTypeCode("Custom"), 7);
    EXPECT_EQ(versionControlTypeCode("Disable"), 9);
    EXPECT_EQ(versionControlTypeCode("Auto Detect"), -1);
    EXPECT_EQ(versionControlTypeCode("cvs"), -1);
}

} // namespace
