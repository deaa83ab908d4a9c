// Tests of the generated classes of the test protocols, both ends talking over loopback
// connections: requests and replies, one-way messages, lists, nested records, raw arrays,
// nested calls while the peer calls back, the log lines, and the ASCII wire text.
#include "child_mode.h"
#include "plat_process.h"
#include "scratch_folder.h"
#include "stp_log.h"
#include "stp_test_ends.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

using namespace stptest;

namespace {

// A file log over a temporary file, read back whole.
struct MemoryLog {
    FILE* file = std::tmpfile();
    STPFileLog log{file, true};
    std::string text() { return readStream(file); }
};

class BinaryConversationTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(c.open());
        ASSERT_TRUE(c.negotiate());
    }
    void TearDown() override {
        EXPECT_EQ(STPTransport::messageDepth(), 0);
        EXPECT_EQ(c.client->getBusyCount(), 0);
        EXPECT_EQ(c.server->getBusyCount(), 0);
        EXPECT_EQ(c.client->getRefCount(), 1);
        EXPECT_EQ(c.server->getRefCount(), 1);
    }
    Conversation<TestClient, TestServer> c;
    STPStatus status;
};

TEST_F(BinaryConversationTest, RequestsGetTheirReplies) {
    uint32_t sum = 0;
    ASSERT_TRUE(c.client->Add(2, 0xFFFFFFFFu, &sum, nullptr, &status)) << status.message;
    EXPECT_EQ(sum, 1u);
    EXPECT_EQ(c.server->adds, 1);

    char* text = nullptr;
    bool flag = false;
    ASSERT_TRUE(c.client->Echo("hi", true, &text, &flag, nullptr, &status)) << status.message;
    EXPECT_STREQ(text, "hi");
    EXPECT_TRUE(flag);
    gen_free(text);
    // A null string stays null, not empty; null out-parameters are allowed.
    ASSERT_TRUE(c.client->Echo(nullptr, false, &text, nullptr));
    EXPECT_EQ(text, nullptr);
    ASSERT_TRUE(c.client->Echo("", false, &text, &flag));
    EXPECT_STREQ(text, "");
    EXPECT_FALSE(flag);
    gen_free(text);
}

TEST_F(BinaryConversationTest, OneWayMessagesQueuedOrPushed) {
    // Not blocking: queued, nothing written yet.
    ASSERT_TRUE(c.client->Notify(false, "queued", nullptr, &status));
    EXPECT_GT(c.pair.client->getWriteLength(), 0);
    EXPECT_TRUE(c.server->notes.empty());
    // Blocking: pushed out, the queued one with it.
    ASSERT_TRUE(c.client->Notify(true, "pushed", nullptr, &status)) << status.message;
    EXPECT_EQ(c.pair.client->getWriteLength(), 0);
    ASSERT_TRUE(c.settle([&] { return c.server->notes.size() == 2; }));
    EXPECT_EQ(c.server->notes, (std::vector<std::string>{"queued", "pushed"}));

    // From the other end, a row with flags 0x12.
    ASSERT_TRUE(c.server->Progress(true, 50, "half", nullptr, &status)) << status.message;
    ASSERT_TRUE(c.settle([&] { return !c.client->progress.empty(); }));
    EXPECT_EQ(c.client->progress, std::vector<std::string>{"50 half"});
}

TEST_F(BinaryConversationTest, StringListsArriveWhole) {
    char a[] = "VersionControl.CVS";
    char b[] = "VC_CheckoutInfo.CVS";
    char* names[] = {a, b};
    ASSERT_TRUE(c.client->StoreNames(true, StringList{2, names}, nullptr, &status));
    ASSERT_TRUE(c.client->StoreNames(true, StringList{}, nullptr, &status));
    // A count larger than the array written: the receiver goes by the elements on the wire.
    ASSERT_TRUE(c.client->StoreNames(true, StringList{5, nullptr}, nullptr, &status));
    ASSERT_TRUE(c.settle([&] { return c.server->stored.size() == 3; }));
    EXPECT_EQ(c.server->stored[0],
              (std::vector<std::string>{"VersionControl.CVS", "VC_CheckoutInfo.CVS"}));
    EXPECT_TRUE(c.server->stored[1].empty());
    EXPECT_TRUE(c.server->stored[2].empty());
}

TEST_F(BinaryConversationTest, NestedRecordsRoundTrip) {
    Inventory items;
    ASSERT_TRUE(c.client->Describe("me", &items, nullptr, &status)) << status.message;
    EXPECT_STREQ(items.owner, "me");
    ASSERT_EQ(items.num_items, 2);
    EXPECT_STREQ(items.items[0].label, "pen");
    EXPECT_EQ(items.items[0].qty, 3u);
    EXPECT_EQ(strings(items.items[0].tags.data, items.items[0].tags.count),
              (std::vector<std::string>{"blue", "cheap"}));
    EXPECT_STREQ(items.items[1].label, "ink");
    EXPECT_EQ(items.items[1].qty, 0xFFFFFFFFu);
    EXPECT_EQ(items.items[1].tags.count, 0);
    EXPECT_EQ(items.items[1].tags.data, nullptr);
    Inventory_free(&items);
    EXPECT_EQ(items.items, nullptr);
    EXPECT_EQ(items.num_items, 0);
}

TEST_F(BinaryConversationTest, RawArraysAndListsWithoutCount) {
    const uint32_t numbers[] = {7, 0, 0x80000000u};
    int32_t count = -1;
    char** words = nullptr;
    ASSERT_TRUE(c.client->Numbers(3, numbers, &count, &words, nullptr, &status));
    EXPECT_EQ(strings(words, count), (std::vector<std::string>{"n7", "n0", "n2147483648"}));
    for (int32_t i = 0; i < count; ++i)
        gen_free(words[i]);
    gen_free(words);

    ASSERT_TRUE(c.client->Numbers(0, nullptr, &count, &words, nullptr, &status));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(words, nullptr);
}

TEST_F(BinaryConversationTest, NestedCallsWhileThePeerCallsBack) {
    int maxClientBusy = 0;
    int maxClientRefs = 0;
    c.server->onNest = [&](uint32_t depth, char** trace) {
        char* answer = nullptr;
        STPStatus s;
        EXPECT_TRUE(c.server->Ask(("q" + std::to_string(depth)).c_str(),
                                  static_cast<int32_t>(depth), &answer, nullptr, &s))
            << s.message;
        *trace = gen_strdup(("nest" + std::to_string(depth) + "(" + str(answer) + ")").c_str());
        gen_free(answer);
    };
    c.client->onAsk = [&](const char*, int32_t level, char** answer) {
        maxClientBusy = std::max(maxClientBusy, c.client->getBusyCount());
        maxClientRefs = std::max(maxClientRefs, c.client->getRefCount());
        if (level <= 0) {
            *answer = gen_strdup("leaf");
            return;
        }
        // A stub of the same object, called from inside its own handler.
        char* trace = nullptr;
        STPStatus s;
        EXPECT_TRUE(c.client->Nest(static_cast<uint32_t>(level - 1), &trace, nullptr, &s))
            << s.message;
        *answer = gen_strdup(("ask" + std::to_string(level) + "[" + str(trace) + "]").c_str());
        gen_free(trace);
    };
    char* trace = nullptr;
    ASSERT_TRUE(c.client->Nest(2, &trace, nullptr, &status)) << status.message;
    EXPECT_STREQ(trace, "nest2(ask2[nest1(ask1[nest0(leaf)])])");
    gen_free(trace);
    // Inside the deepest handler: three stubs and handlers of the client were active, each
    // holding references on it.
    EXPECT_GE(maxClientBusy, 4);
    EXPECT_GE(maxClientRefs, 5);
}

TEST_F(BinaryConversationTest, LogLinesOfStubsAndDispatchers) {
    MemoryLog clientLog, serverLog;
    c.client->setLogs(&clientLog.log);
    c.server->setLogs(&serverLog.log);
    uint32_t sum = 0;
    ASSERT_TRUE(c.client->Add(2, 3, &sum));
    char x[] = "a";
    char y[] = "b";
    char* names[] = {x, y};
    ASSERT_TRUE(c.client->StoreNames(true, StringList{2, names}));
    ASSERT_TRUE(c.settle([&] { return !c.server->stored.empty(); }));
    const uint32_t numbers[] = {5};
    int32_t count = 0;
    char** words = nullptr;
    ASSERT_TRUE(c.client->Numbers(1, numbers, &count, &words));
    gen_free(words[0]);
    gen_free(words);
    Inventory items;
    ASSERT_TRUE(c.client->Describe("me", &items));
    Inventory_free(&items);
    c.client->setLogs(nullptr);
    c.server->setLogs(nullptr);

    const std::string describe =
        "items:{owner:\"me\" num_items:0x2 items:{label:\"pen\" qty:0x3 tags:{count:0x2 "
        "data:\"blue\", \"cheap\", }}, {label:\"ink\" qty:0xffffffff tags:{count:0x0 data:}}, }";
    EXPECT_EQ(clientLog.text(), "SEND: Add: a:0x2, b:0x3\n"
                                "RECV: Add: sum:0x5\n"
                                "SEND: StoreNames: names:{count:0x2 data:\"a\", \"b\", }\n"
                                "SEND: Numbers: count:0x1, numbers:0x5, \n"
                                "RECV: Numbers: words:[ \"n5\"  ]\n"
                                "SEND: Describe: owner:\"me\"\n"
                                "RECV: Describe: " +
                                    describe + "\n");
    EXPECT_EQ(serverLog.text(), "RECV: Add: a:0x2, b:0x3\n"
                                "REPLY: Add: sum:0x5\n"
                                "RECV: StoreNames: names:{count:0x2 data:\"a\", \"b\", }\n"
                                "RECV: Numbers: count:0x1, numbers:0x5, \n"
                                "REPLY: Numbers: words:[ \"n5\"  ]\n"
                                "RECV: Describe: owner:\"me\"\n"
                                "REPLY: Describe: " +
                                    describe + "\n");
}

TEST_F(BinaryConversationTest, TimestampedLogRecords) {
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    TimestampedSTPFileLog log(file, true);
    c.client->setLogs(&log);
    uint32_t sum = 0;
    ASSERT_TRUE(c.client->Add(2, 3, &sum));
    c.client->setLogs(nullptr);
    std::string text = readStream(file);
    EXPECT_TRUE(std::regex_match(text, std::regex("[0-9]+\\.[0-9]{3}: SEND: Add: a:0x2, b:0x3\n"
                                                  "[0-9]+\\.[0-9]{3}: RECV: Add: sum:0x5\n")))
        << text;
}

TEST_F(BinaryConversationTest, SendFailedLineOnABrokenConnection) {
    MemoryLog log;
    c.client->setLogs(&log.log);
    c.pair.server->closeConnection();
    ASSERT_TRUE(c.settle([&] { return !c.pair.client->getStatus().ok(); }));
    // Whether the write itself fails depends on what the kernel still takes; the line does not.
    c.client->Notify(true, "late", nullptr, &status);
    c.client->setLogs(nullptr);
    EXPECT_EQ(log.text(), "SEND FAILED: Notify\n");
}

// ---- ASCII ----------------------------------------------------------------------------------
// ASCII requests wait strictly: while one waits, only its own call tree is handled in the
// process. So the server end runs in a child process (this program again, running
// AsciiServerChild.DISABLED_Run), as it would in the system.

constexpr int32_t kChildDeadlineMs = 30000;

// The server end of the child: asking for the key "ask" makes it call its client back, once
// with a request and once with a one-way message, from inside the handler.
class ChildServer : public AsciiServer {
public:
    void Lookup(const char* key, bool forced, char** value, bool* found,
                char** error_string) override {
        if (str(key) != "ask") {
            AsciiServer::Lookup(key, forced, value, found, error_string);
            return;
        }
        STPStatus status;
        *found = QueryUser("Proceed?", value, nullptr, &status) && Tick(true, 7, nullptr, &status);
        if (!status.ok())
            *error_string = gen_strdup(status.message);
    }
};

TEST(AsciiServerChild, DISABLED_Run) {
    uint16_t port = static_cast<uint16_t>(std::stoi(childArgument("stp-port")));
    STPTransport* transport = new STPTransport;
    ASSERT_TRUE(transport->connect("127.0.0.1", port));
    ChildServer* server = new ChildServer;
    server->attachTransport(transport);
    server->setRetryHandler(new TimeoutSTPRetryHandler(kChildDeadlineMs, transport));
    STPFileLog log(std::fopen(childArgument("stp-log").c_str(), "wb"), true);
    server->setSendLog(&log);
    STPStatus status;
    EXPECT_TRUE(server->negotiate(server->getRetryHandler(), &status)) << status.message;
    int32_t start = plat_tick_count();
    while (!transport->isDisconnected() && !pastDeadline(start, kChildDeadlineMs))
        transport->serviceOnce(100);
    server->setSendLog(nullptr);
    server->unref();
    transport->unref();
}

class AsciiConversationTest : public testing::Test {
protected:
    void SetUp() override {
        logPath = folder.at("child.log");
        uint16_t port = 0;
        plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
        ASSERT_NE(listenFd, PLAT_INVALID_SOCKET);
        child = startProgram(
            childCommand("AsciiServerChild.DISABLED_Run",
                         {"--stp-port=" + std::to_string(port), "--stp-log=" + logPath}));
        ASSERT_NE(child, nullptr);
        transport = new STPTransport;
        ASSERT_TRUE(transport->startListenOnFD(listenFd));
        ASSERT_TRUE(serviceUntil(
            {transport}, [&] { return transport->tryAccept(true); }, kChildDeadlineMs));
        client = new AsciiClient;
        client->attachTransport(transport);
        client->setRetryHandler(new TimeoutSTPRetryHandler(kDeadlineMs, transport));
        ASSERT_TRUE(client->negotiate(client->getRetryHandler(), &status)) << status.message;
    }
    // Closes the connection and returns the child's exit code.
    int finish() {
        if (client) {
            client->unref();
            client = nullptr;
        }
        if (transport) {
            transport->closeConnection();
            transport->unref();
            transport = nullptr;
        }
        int code = -1;
        if (child) {
            if (plat_wait_process(child, kChildDeadlineMs) != PlatWait::exited)
                plat_terminate_process(child, 99);
            plat_process_exit_code(child, &code);
            plat_close_process(child);
            child = nullptr;
        }
        return code;
    }
    void TearDown() override {
        EXPECT_EQ(STPTransport::messageDepth(), 0);
        EXPECT_EQ(STPTransport::strictWaits(), 0);
        if (child) {
            EXPECT_EQ(finish(), 0);
        }
    }
    std::string childLog() { return readFile(logPath); }

    PlatProcess* child = nullptr;
    STPTransport* transport = nullptr;
    AsciiClient* client = nullptr;
    ScratchFolder folder;
    std::string logPath;
    STPStatus status;
};

TEST_F(AsciiConversationTest, RequestsRepliesAndOneWayMessages) {
    char* value = nullptr;
    char* error = nullptr;
    bool found = false;
    ASSERT_TRUE(client->Lookup("k", true, &value, &found, &error, nullptr, &status))
        << status.message;
    EXPECT_STREQ(value, "value of k");
    EXPECT_TRUE(found);
    EXPECT_EQ(error, nullptr);
    gen_free(value);
    ASSERT_TRUE(client->Lookup("missing", false, &value, &found, &error));
    EXPECT_EQ(value, nullptr);
    EXPECT_FALSE(found);
    EXPECT_STREQ(error, "no such key");
    gen_free(error);

    char a[] = "a.c";
    char b[] = "b \"quoted\"\\path\n";
    char* names[] = {a, b};
    ASSERT_TRUE(client->Post(true, StringList{2, names}, nullptr, &status));

    int32_t count = 0;
    char** words = nullptr;
    ASSERT_TRUE(client->Words(&count, &words, nullptr, &status));
    EXPECT_EQ(strings(words, count), (std::vector<std::string>{"alpha", "beta"}));
    for (int32_t i = 0; i < count; ++i)
        gen_free(words[i]);
    gen_free(words);

    // The server calls back while it handles this request: the calls belong to the call tree
    // being waited for, so they are handled inside the strict wait.
    ASSERT_TRUE(client->Lookup("ask", false, &value, &found, &error, nullptr, &status))
        << status.message;
    EXPECT_STREQ(value, "yes");
    EXPECT_TRUE(found);
    EXPECT_EQ(error, nullptr) << error;
    gen_free(value);
    EXPECT_EQ(client->queries, std::vector<std::string>{"Proceed?"});
    EXPECT_EQ(client->ticks, std::vector<int32_t>{7});
    EXPECT_EQ(finish(), 0);
    EXPECT_EQ(childLog(), "REPLY: Lookup: value:\"value of k\", found:0x1, error_string:\"\"\n"
                          "REPLY: Lookup: value:\"\", found:0x0, error_string:\"no such key\"\n"
                          "REPLY: Words: words:[ \"alpha\" \"beta\"  ]\n"
                          "SEND: QueryUser: request_str:\"Proceed?\"\n"
                          "SEND: Tick: n:0x7\n"
                          "REPLY: Lookup: value:\"yes\", found:0x1, error_string:\"\"\n");
}

TEST_F(AsciiConversationTest, NestedRecordWithListsOfRecordsAndLogLines) {
    HistoryInfo info;
    char* error = nullptr;
    ASSERT_TRUE(client->History("f.c", &info, &error, nullptr, &status)) << status.message;
    EXPECT_TRUE(info._display_tags);
    EXPECT_STREQ(info._version, "f.c");
    ASSERT_EQ(info._num_items, 2);
    EXPECT_STREQ(info._items[0]._version, "1.2");
    EXPECT_EQ(strings(info._items[0]._tags, info._items[0]._numTags),
              (std::vector<std::string>{"REL_1", "say \"hi\"\n"}));
    EXPECT_FALSE(info._items[0]._is_branch);
    EXPECT_STREQ(info._items[1]._version, "1.1.2.1");
    EXPECT_EQ(info._items[1]._numTags, 0);
    EXPECT_TRUE(info._items[1]._is_branch);
    EXPECT_EQ(error, nullptr);
    HistoryInfo_free(&info);
    EXPECT_EQ(finish(), 0);
    EXPECT_EQ(childLog(),
              "REPLY: History: history_info:{_display_tags:0x1 _version:\"f.c\" "
              "_num_items:0x2 _items:{_version:\"1.2\" _numTags:0x2 _tags:\"REL_1\", "
              "\"say \"hi\"\n\",  _is_branch:0x0}, {_version:\"1.1.2.1\" _numTags:0x0 _tags: "
              "_is_branch:0x1}, }, error_string:\"\"\n");
}

TEST(AsciiWireTest, RequestTextAndFlags) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    AsciiClient* client = new AsciiClient;
    client->attachTransport(peer.transport.get());
    client->negotiateLocally();
    char a[] = "a.c";
    char b[] = "b.c";
    char* names[] = {a, b};
    ASSERT_TRUE(client->Post(true, StringList{2, names}));
    std::string bytes = peer.drain();
    ASSERT_GE(bytes.size(), static_cast<size_t>(STP_HEADER_SIZE));
    EXPECT_EQ(stp_get_u32(bytes.data() + 4 * STP_WORD_KIND), static_cast<uint32_t>(KIND_ASCII));
    EXPECT_EQ(stp_get_u32(bytes.data() + 4 * STP_WORD_TAG), 2u);
    EXPECT_EQ(stp_get_u32(bytes.data() + 4 * STP_WORD_FLAGS), MSG_ONE_WAY);
    std::string body = bytes.substr(STP_HEADER_SIZE);
    EXPECT_EQ(body.substr(0, body.find('\0')),
              "Post names:{ count:0x2 data:(0x2 )[ \"a.c\" \"b.c\"  ]  } ");
    client->unref();
}

TEST(AsciiWireTest, NonZeroNumberDecodesAsTrue) {
    RawPeer peer;
    ASSERT_TRUE(peer.open());
    AsciiServer* server = new AsciiServer;
    server->attachTransport(peer.transport.get());
    RawPacket p;
    p.localRN = 1;
    p.remoteRN = 2;
    p.kind = KIND_ASCII;
    p.tag = -1;
    p.flags = MSG_ONE_WAY;
    p.body = std::string("Lookup key:\"z\" forced:0x2 ") + std::string(8, '\0');
    ASSERT_TRUE(peer.feed(p.bytes()));
    ASSERT_TRUE(serviceUntil({peer.transport.get()}, [&] { return !server->lookups.empty(); }));
    EXPECT_EQ(server->lookups, std::vector<std::string>{"z forced"});
    server->unref();
}

} // namespace
