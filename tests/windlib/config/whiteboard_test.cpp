// The WhiteBoard client against the service end of svc_whiteboard, in this process, over a
// loopback connection: what each operation sends, what the service's messages do to the local
// copy, and the wait for changes.
#include "whiteboard.h"

#include "fake_router.h"
#include "stp_test_support.h"
#include "whiteboard_server.h"
#include "whiteboard_store.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using stptest::LoopbackPair;
using stptest::serviceUntil;
using stptest::TurnAllRetryHandler;

// A second client of the same store: a peer that only writes down what it is told.
struct Listener : WhiteBoardPeer {
    std::vector<std::string> told;
    void tellBool(const char* g, const char* n, bool v) override {
        told.push_back(std::string("bool ") + g + "." + n + "=" + (v ? "1" : "0"));
    }
    void tellInt32(const char* g, const char* n, int32_t v) override {
        told.push_back(std::string("int32 ") + g + "." + n + "=" + std::to_string(v));
    }
    void tellString(const char* g, const char* n, const char* v) override {
        told.push_back(std::string("string ") + g + "." + n + "=" + v);
    }
    void tellStringList(const char* g, const char* n, const WBStringList& v) override {
        told.push_back(std::string("list ") + g + "." + n + "=" + std::to_string(v.size()));
    }
    void tellDelete(const char* g, const char* n, int32_t type) override {
        told.push_back(std::string("delete ") + g + "." + n + " " + std::to_string(type));
    }
};

class WhiteBoardClient : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pair.open());
        server = new WhiteBoardServer(&store, pair.server.get(), 2, 1);
        server->setRecvLog(&received);
        board = new WhiteBoard;
        board->attachTransport(pair.client.get(), 1, 2);
        ASSERT_TRUE(board->sendNegotiate(true));
        ASSERT_TRUE(server->sendNegotiate(true));
        ASSERT_TRUE(turnUntil([&] { return board->hasNegotiated() && server->hasNegotiated(); }));
    }
    void TearDown() override {
        store.forget(&other);
        board->unref();
        server->unref();
    }
    bool turnUntil(const std::function<bool()>& done) {
        return serviceUntil({pair.client.get(), pair.server.get()}, done);
    }
    // Lets everything sent so far arrive (the service's answers included): a round trip that
    // ends with a Changes.
    void settle() {
        TurnAllRetryHandler wait({pair.client.get(), pair.server.get()});
        ASSERT_TRUE(board->requestChangesInGroup("settle", &wait));
    }
    // The messages the service received, without the round trips of settle().
    std::vector<std::string> messages() {
        std::vector<std::string> out;
        for (const std::string& r : received.records)
            if (r.find("settle") == std::string::npos)
                out.push_back(r);
        return out;
    }

    LoopbackPair pair;
    WhiteBoardStore store;
    WhiteBoardServer* server = nullptr;
    WhiteBoard* board = nullptr;
    RecordingLog received;
    Listener other;
};

TEST_F(WhiteBoardClient, RegisteringAskedForTheGroupAndTheValuesArrive) {
    store.changeString(nullptr, "G", "path", "/usr/bin/cvs");
    store.changeStringList(nullptr, "G", "list", {"a", "b"});
    std::vector<std::string> heard;
    board->addStringListener("G", [&](const char*, const char* n, const char* v) {
        heard.push_back(std::string(n) + "=" + v);
    });
    ASSERT_TRUE(board->registerGroup("G", true, false, nullptr, false));
    GroupClient* group = board->findGroup("G");
    ASSERT_TRUE(board->registerGroup("G", false, false, nullptr, false));
    EXPECT_EQ(board->findGroup("G"), group) << "a second registration keeps the object";
    TurnAllRetryHandler wait({pair.client.get(), pair.server.get()});
    ASSERT_TRUE(board->requestChangesInGroup("G", &wait));
    ut_string path;
    EXPECT_TRUE(board->getStringValue("G", "path", &path));
    EXPECT_STREQ(path.c_str(), "/usr/bin/cvs");
    WBStringList list;
    EXPECT_TRUE(board->getStringListValue("G", "list", &list));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(heard, std::vector<std::string>{"path=/usr/bin/cvs"});
    EXPECT_EQ(messages(),
              (std::vector<std::string>{
                  "RECV: RegisterGroup: groupname:\"G\", broadcast_changes:0x1, use_disk:0x0, "
                  "use_filename:\"\"",
                  "RECV: RegisterGroup: groupname:\"G\", broadcast_changes:0x0, use_disk:0x0, "
                  "use_filename:\"\"",
                  "RECV: RequestChangesInGroup: groupname:\"G\""}));
}

TEST_F(WhiteBoardClient, AnEmptyChangesEndsTheWaitWithTrue) {
    TurnAllRetryHandler wait({pair.client.get(), pair.server.get()});
    EXPECT_TRUE(board->requestChangesInGroup("nobody-has-it", &wait));
    EXPECT_TRUE(board->requestAllChanges(&wait));
}

TEST_F(WhiteBoardClient, SetsSendOnlyWhatChangesAndOthersHearOfIt) {
    store.registerGroup(&other, "G", true, false, nullptr);
    int fired = 0;
    board->addInt32Listener("G", [&](const char*, const char*, int32_t) { ++fired; });
    EXPECT_TRUE(board->setInt32Value("G", "n", 5, true));
    EXPECT_TRUE(board->setInt32Value("G", "n", 5, true)) << "the present value: nothing sent";
    EXPECT_TRUE(board->setBoolValue("G", "b", true, true));
    EXPECT_TRUE(board->setStringValue("G", "s", "text", true));
    EXPECT_TRUE(board->setStringListValue("G", "l", {"x"}, true));
    EXPECT_TRUE(board->setStringValue("G", "local", "only", false));
    EXPECT_TRUE(board->deleteName("G", "missing", WB_TYPE_ANY, true)) << "nothing to delete";
    EXPECT_TRUE(board->deleteName("G", "b", WB_TYPE_BOOL, true));
    settle();
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(messages(),
              (std::vector<std::string>{
                  "RECV: ChangeInt32Value: info:{_group:\"G\" _name:\"n\" _value:0x5}",
                  "RECV: ChangeBoolValue: info:{_group:\"G\" _name:\"b\" _value:0x1}",
                  "RECV: ChangeStringValue: info:{_group:\"G\" _name:\"s\" _value:\"text\"}",
                  "RECV: ChangeStringListValue: info:{_group:\"G\" _name:\"l\" _value:[ \"x\"  ]}",
                  "RECV: DeleteName: group:\"G\", name:\"b\", type:0x1"}));
    EXPECT_EQ(other.told, (std::vector<std::string>{"int32 G.n=5", "bool G.b=1", "string G.s=text",
                                                    "list G.l=1", "delete G.b 1"}));
    ut_string local;
    EXPECT_FALSE(store.findGroup("G")->getString("local", &local));
}

TEST_F(WhiteBoardClient, TheServicesMessagesChangeTheLocalCopy) {
    ASSERT_TRUE(board->registerGroup("G", true, false, nullptr, false));
    store.registerGroup(&other, "G", true, false, nullptr);
    settle();
    std::vector<std::string> order;
    board->addBoolListener("New", [&](const char*, const char* n, bool) { order.push_back(n); });
    // Another client's changes, told to this one by the service.
    store.changeBool(&other, "G", "b", true);
    store.changeStringList(&other, "G", "l", {"1", "2", "3"});
    server->SetBoolValue(
        false, WhiteBoardNumberInfo{const_cast<char*>("New"), const_cast<char*>("created"), 1});
    settle();
    bool b = false;
    EXPECT_TRUE(board->getBoolValue("G", "b", &b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(board->getBoolValue("New", "created", &b)) << "an unknown group is made";
    EXPECT_EQ(order, std::vector<std::string>{"created"});
    WBStringList l;
    EXPECT_TRUE(board->getStringListValue("G", "l", &l));
    EXPECT_EQ(l.size(), 3u);

    board->setStringValue("G", "b", "also a string", false);
    server->DeleteEvent(false, const_cast<char*>("G"), const_cast<char*>("b"), 5);
    settle();
    EXPECT_TRUE(board->getBoolValue("G", "b", &b)) << "type 5 is dropped";
    server->DeleteEvent(false, const_cast<char*>("G"), const_cast<char*>("b"), WB_TYPE_ANY);
    settle();
    EXPECT_FALSE(board->getBoolValue("G", "b", &b));
    EXPECT_FALSE(board->getStringValue("G", "b", nullptr));
}

TEST_F(WhiteBoardClient, SavingSendsTheNameUnchangedAndOnlyForAKnownGroup) {
    EXPECT_TRUE(board->saveGroupToFile("unknown", "x.wbd"));
    board->setInt32Value("Known", "n", 1, false);
    EXPECT_TRUE(board->saveGroupToFile("Known", "relative/name.wbd"));
    settle();
    EXPECT_EQ(messages(), std::vector<std::string>{"RECV: SaveGroupChangesToFile: "
                                                   "groupname:\"Known\", filename:\"relative/"
                                                   "name.wbd\""});
}

TEST_F(WhiteBoardClient, WithTheConnectionGoneTheLocalCopyStaysAndSendsFail) {
    board->setInt32Value("G", "n", 1, false);
    // What the router client does when the router says the connection was dropped.
    board->dropVirtualConnection();
    EXPECT_FALSE(board->setInt32Value("G", "n", 2, true));
    int32_t n = 0;
    EXPECT_TRUE(board->getInt32Value("G", "n", &n));
    EXPECT_EQ(n, 2);
    EXPECT_FALSE(board->waitForChanges(nullptr)) << "ends at once";
    EXPECT_FALSE(board->registerGroup("G", false, false, nullptr, true));
    EXPECT_NE(board->findGroup("G"), nullptr);
}

TEST_F(WhiteBoardClient, AWaitWithoutRetryHandlerEndsWhenTheTransportCloses) {
    pair.server->closeConnection();
    EXPECT_FALSE(board->requestAllChanges(nullptr));
    EXPECT_TRUE(pair.client->isDisconnected());
}

TEST_F(WhiteBoardClient, AWaitWithoutAnswerEndsWhenTheRetryHandlerGivesUp) {
    // The service's transport is not turned: no answer can come.
    TurnAllRetryHandler wait({pair.client.get()}, 300);
    EXPECT_FALSE(board->requestAllChanges(&wait));
    EXPECT_GT(wait.waits, 0);
}

} // namespace
