// Configuration end to end: svc_router launches svc_whiteboard and cvsservice; cvsservice's
// opening registers "GeneralConfiguration" and waits for the service's values before it offers
// its services; the layers (user file, then the service) and a change made later by another
// client reach cvsservice's change callback. Without a WhiteBoard the files still count.
//
// What cvsservice makes of a value shows on its standard error stream (the router's): an
// unknown versioncontroltype is warned about by the same callback that copies Versctrl_CVSPath
// to the path of the cvs client. Its message log (-sr_log) shows the conversation in order.
#include "gen_string.h"
#include "router_process.h"
#include "service_session.h"
#include "versctrl_defaultconfig.h"
#include "whiteboard_clients.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#ifndef SVC_WHITEBOARD_PATH
#error "SVC_WHITEBOARD_PATH must name the svc_whiteboard program"
#endif
#ifndef CVSSERVICE_PATH
#error "CVSSERVICE_PATH must name the cvsservice program"
#endif

namespace {

constexpr int32_t kWaitMs = 20000;

size_t at(const std::string& text, const std::string& part) {
    return text.find(part);
}
bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ConfigurationEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_CONFIG_HOME", scratch.root().c_str(), 1);
        writeFile(
            path("ORT/ort.cfg"),
            "versioncontroltype: \"FromTheUserFile\"\nVersctrl_CVSPath: \"/from/user/file\"\n");
    }
    // Waits until `part` shows in what `read` gives; false at the deadline.
    static bool waitFor(const std::function<std::string()>& read, const std::string& part) {
        int32_t begin = plat_tick_count();
        while (!contains(read(), part)) {
            if (plat_tick_diff(plat_tick_count(), begin) > kWaitMs)
                return false;
            plat_sleep_ms(10);
        }
        return true;
    }
    std::string cvsLog() const { return readFile(path("cvsservice.log")); }
    std::string path(const std::string& name) const { return scratch.at(name); }

    const ScratchFolder& folder() const { return scratch; }

    ScratchFolder scratch;
    RouterProcess router;
};

TEST_F(ConfigurationEndToEnd, TheServiceValuesComeBeforeTheRegistrationsAndChangesFollow) {
    writeFile(path("ORT/WhiteBoard/GeneralConfiguration.wbd"),
              "String {\n    versioncontroltype = \"FromTheService\"\n"
              "    Versctrl_CVSPath = \"/from/the/service\"\n}\n");
    ASSERT_TRUE(
        router.start(folder(), {"-stay", "-plugin", SVC_WHITEBOARD_PATH, "-plugin", CVSSERVICE_PATH,
                                "-plugin_arg", "-sr_log", "-plugin_arg", path("cvsservice.log")}))
        << router.errors();
    ASSERT_TRUE(waitFor([&] { return router.log(); }, "offers \"VC_CheckoutInfo.CVS\""))
        << router.log();
    std::string log = router.log();
    ASSERT_LT(at(log, "of \"WhiteBoard\" accepted"), at(log, "offers \"VersionControl.CVS\""))
        << log;

    // The file's value first, then the service's, which wins.
    ASSERT_TRUE(waitFor([&] { return router.errors(); }, "type: FromTheService."));
    std::string errors = router.errors();
    EXPECT_LT(at(errors, "Unknown version control type: FromTheUserFile."),
              at(errors, "Unknown version control type: FromTheService."))
        << errors;
    EXPECT_FALSE(contains(errors, "Unable to")) << errors;

    // Another client changes the group; cvsservice registered it with broadcast on.
    WhiteBoardClients clients;
    std::string error;
    ASSERT_TRUE(clients.open(router.port, scratch.root(), &error)) << error;
    WhiteBoard* board = clients.connect();
    ASSERT_NE(board, nullptr);
    std::string newCvs = path("bin/cvs-wrapper");
    ASSERT_TRUE(board->setStringValue(CFG_WBD, "Versctrl_CVSPath", newCvs.c_str(), true));
    ASSERT_TRUE(board->setStringValue(CFG_WBD, "versioncontroltype", "ChangedLater", true));
    ASSERT_TRUE(clients.fetch(board, CFG_WBD));
    ASSERT_TRUE(waitFor([&] { return router.errors(); }, "type: ChangedLater.")) << router.errors();
    clients.drop();

    // cvsservice writes its log out as it ends, which it does when the router goes.
    router.kill();
    ASSERT_TRUE(waitFor([&] { return cvsLog(); }, "Destroying ServiceRouter_Proxy.")) << cvsLog();
    std::string conversation = cvsLog();
    size_t request = at(conversation, "SEND: RequestServiceConnection: serviceName:\"WhiteBoard\"");
    size_t registerGroup =
        at(conversation, "SEND: RegisterGroup: groupname:\"GeneralConfiguration\""
                         ", broadcast_changes:0x1, use_disk:0x0");
    size_t ask =
        at(conversation, "SEND: RequestChangesInGroup: groupname:\"GeneralConfiguration\"");
    size_t changes = at(conversation, "RECV: Changes: ");
    size_t offer =
        at(conversation,
           "SEND: RegisterServiceList: name_list:{count:0x1 data:\"VersionControl.CVS\"");
    size_t later = at(conversation, "RECV: SetStringValue: info:{_group:\"GeneralConfiguration\" "
                                    "_name:\"Versctrl_CVSPath\" _value:\"" +
                                        newCvs + "\"}");
    ASSERT_NE(later, std::string::npos) << conversation;
    EXPECT_TRUE(request < registerGroup && registerGroup < ask && ask < changes &&
                changes < offer && offer < later)
        << conversation;
    EXPECT_TRUE(contains(conversation.substr(changes, offer - changes),
                         "_name:\"Versctrl_CVSPath\" _value:\"/from/the/service\""))
        << conversation;
}

TEST(ConfigurationTakesEffect, TheNextCvsRunUsesTheProgramSetThroughTheWhiteBoard) {
    ScratchFolder scratch;
    setenv("XDG_CONFIG_HOME", scratch.root().c_str(), 1);
    // A stand-in for cvs that leaves a mark and says who it is.
    std::string wrapper = scratch.at("bin/cvs-wrapper");
    writeExecutable(wrapper, "#!/bin/sh\necho \"$@\" > \"$0.ran\"\necho wrapper says $1\n");

    ServiceSession session;
    ASSERT_TRUE(session.start(scratch, {"-plugin", SVC_WHITEBOARD_PATH})) << session.error();
    VcClient* vc = session.connectVersionControl(scratch.root());
    ASSERT_NE(vc, nullptr) << session.error();

    WhiteBoardClients clients;
    std::string error;
    ASSERT_TRUE(clients.open(session.router().port, scratch.root(), &error)) << error;
    WhiteBoard* board = clients.connect();
    ASSERT_NE(board, nullptr);
    ASSERT_TRUE(board->setStringValue(CFG_WBD, "Versctrl_CVSPath", wrapper.c_str(), true));
    // The service has told cvsservice before it answers this: the change is there first.
    ASSERT_TRUE(clients.fetch(board, CFG_WBD));

    char* output = nullptr;
    char* errors = nullptr;
    STPStatus status;
    ASSERT_TRUE(vc->ExecuteCommandString("version", &output, &errors, session.waiter().get(),
                                         &status))
        << status.message;
    EXPECT_STREQ(output, "wrapper says version\n");
    EXPECT_STREQ(errors, "");
    EXPECT_EQ(readFile(wrapper + ".ran"), "version\n");
    gen_free(output);
    gen_free(errors);
}

TEST_F(ConfigurationEndToEnd, WithoutAWhiteBoardTheFilesStillCount) {
    ASSERT_TRUE(router.start(folder(), {"-stay", "-plugin", CVSSERVICE_PATH})) << router.errors();
    ASSERT_TRUE(waitFor([&] { return router.log(); }, "offers \"VC_CheckoutInfo.CVS\""))
        << router.log();
    ASSERT_TRUE(waitFor([&] { return router.errors(); }, "type: FromTheUserFile."))
        << router.errors();
    std::string errors = router.errors();
    EXPECT_LT(at(errors, "warning: Unable to get connection to WhiteBoard."),
              at(errors, "Unknown version control type: FromTheUserFile."))
        << errors;
}

} // namespace
