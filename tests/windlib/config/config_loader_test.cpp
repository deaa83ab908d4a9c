// Configuration files: how each kind of line sets "GeneralConfiguration" (or does not), the
// order of the layers, and the start-up steps without a router or a WhiteBoard service.
#include "config_loader.h"

#include "report_capture.h"
#include "scratch_folder.h"
#include "versctrl_defaultconfig.h"
#include "whiteboard.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

// What the group holds under `key`, every type: "bool:0 int32:1 string:x".
std::string describe(WhiteBoard* board, const char* key) {
    std::string out;
    bool b = false;
    int32_t n = 0;
    ut_string s;
    if (board->getBoolValue(CFG_WBD, key, &b))
        out += std::string(out.empty() ? "" : " ") + "bool:" + (b ? "1" : "0");
    if (board->getInt32Value(CFG_WBD, key, &n))
        out += std::string(out.empty() ? "" : " ") + "int32:" + std::to_string(n);
    if (board->getStringValue(CFG_WBD, key, &s))
        out += std::string(out.empty() ? "" : " ") + "string:" + s.c_str();
    return out;
}

class ConfigFiles : public ScratchTest {
protected:
    void SetUp() override {
        setVersctrlCVSPath(nullptr);
        setVersctrlCVSTimeLimitSeconds(300);
        board = getWhiteBoard();
    }
    void TearDown() override { board->unref(); }
    WhiteBoard* board = nullptr;
};

struct Line {
    const char* name;
    const char* text;
    const char* key;
    const char* result;
};

class ConfigLine : public ConfigFiles, public testing::WithParamInterface<Line> {};

TEST_P(ConfigLine, SetsTheGroupByTheSyntaxOfItsValue) {
    write(at("ort.cfg"), GetParam().text);
    EXPECT_TRUE(applyConfigFile(at("ort.cfg").c_str(), board));
    EXPECT_EQ(describe(board, GetParam().key), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ConfigLine,
    testing::Values(
        Line{"quoted", "Versctrl_CVSPath: \"/usr/bin/cvs\"\n", "Versctrl_CVSPath",
             "string:/usr/bin/cvs"},
        Line{"no_blank", "Versctrl_CVSPath:\t\"/x\"", "Versctrl_CVSPath", "string:/x"},
        Line{"backslashes", "Versctrl_CVSPath: \"C:\\\\cvs\\\\cvs.exe\"", "Versctrl_CVSPath",
             "string:C:\\cvs\\cvs.exe"},
        Line{"crlf", "Versctrl_CVSPath: \"/crlf\"\r\nx", "Versctrl_CVSPath", "string:/crlf"},
        Line{"unquoted", "Versctrl_CVSPath: /usr/bin/cvs", "Versctrl_CVSPath", "string:cvs.exe"},
        Line{"text_behind_the_quote", "Versctrl_CVSPath: \"/x\" ", "Versctrl_CVSPath",
             "string:cvs.exe"},
        Line{"blank_before_colon", "Versctrl_CVSPath : \"/x\"", "Versctrl_CVSPath",
             "string:cvs.exe"},
        Line{"comment", "#Versctrl_CVSPath: \"/x\"", "Versctrl_CVSPath", "string:cvs.exe"},
        Line{"no_value", "Versctrl_CVSPath:   ", "Versctrl_CVSPath", "string:cvs.exe"},
        Line{"on", "Versctrl_TVCAutoCheckout: On", "Versctrl_TVCAutoCheckout", "bool:1"},
        Line{"on_with_blank", "Versctrl_TVCAutoCheckout: On ", "Versctrl_TVCAutoCheckout",
             "bool:0"},
        Line{"number_for_a_bool", "Versctrl_TVCAutoCheckout: 1", "Versctrl_TVCAutoCheckout",
             "bool:0 int32:1"},
        Line{"number_with_a_prefix", "Versctrl_CVSTimeLimit: 0x10 seconds", "Versctrl_CVSTimeLimit",
             "int32:16"},
        Line{"minus_is_no_number", "Versctrl_CVSTimeLimit: -5", "Versctrl_CVSTimeLimit",
             "int32:300"},
        Line{"no_default_key", "vc_command: \"do it\"", "vc_command", "string:do it"},
        Line{"unknown_key", "Versctrl_Unknown: \"x\"", "Versctrl_Unknown", ""}),
    [](const testing::TestParamInfo<Line>& info) { return std::string(info.param.name); });

TEST_F(ConfigFiles, TheLaterFileWinsAndTheMirrorsFollow) {
    write(at("system.cfg"), "Versctrl_CVSPath: \"/system/cvs\"\nVersctrl_CVSTimeLimit: 10\n");
    write(at("user.cfg"), "# mine\nVersctrl_CVSPath: \"/user/cvs\"\n");
    EXPECT_TRUE(applyConfigFile(at("system.cfg").c_str(), board));
    EXPECT_TRUE(applyConfigFile(at("user.cfg").c_str(), board));
    EXPECT_STREQ(versctrlCVSPath(), "/user/cvs");
    EXPECT_EQ(versctrlCVSTimeLimitSeconds(), 10);
}

TEST_F(ConfigFiles, WhatCannotBeReadGivesFalse) {
    EXPECT_FALSE(applyConfigFile(at("absent.cfg").c_str(), board));
    EXPECT_FALSE(applyConfigFile("", board));
    EXPECT_FALSE(applyConfigFile(nullptr, board));
    write(at("ort.cfg"), "");
    EXPECT_FALSE(applyConfigFile(at("ort.cfg").c_str(), nullptr));
}

TEST_F(ConfigFiles, WithoutARouterNothingIsReadAndNothingIsSaid) {
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_FALSE(loadDefaultConfig());
    EXPECT_EQ(ReportCapture::joined(), "");
}

TEST_F(ConfigFiles, TheUsersFileIsReadOnceAndRegisteringWithoutAServiceFails) {
    // The folders are found once per process; this test is the first to ask.
    setenv("XDG_CONFIG_HOME", root().c_str(), 1);
    write(at("ORT/trellis.cfg"), "Versctrl_CVSPath: \"/from/the/user\"\n");
    ReportCapture capture;
    ReportCapture::clear();
    EXPECT_FALSE(applyConfigFiles());
    EXPECT_EQ(ReportCapture::texts(),
              std::vector<std::string>{"warning: Unable to register group GeneralConfiguration"});
    EXPECT_STREQ(versctrlCVSPath(), "/from/the/user");
    write(at("ORT/ort.cfg"), "Versctrl_CVSPath: \"/second/read\"\n");
    EXPECT_TRUE(applyConfigFiles()) << "a second call reads nothing";
    EXPECT_STREQ(versctrlCVSPath(), "/from/the/user");
}

} // namespace
