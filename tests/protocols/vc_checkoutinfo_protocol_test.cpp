// The two ends of VC_CheckoutInfo, each generated from its own table, over a loopback
// connection: the negotiation agrees on every tag and message by number and spec string, a
// request and its reply travel one way and a report event the other.
#include "checkout_records.h"
#include "gen_string.h"
#include "scratch_folder.h"
#include "stp_test_support.h"
#include "vc_checkoutinfo_client_impl.h"
#include "vc_checkoutinfo_server_impl.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

using namespace stptest;

namespace {

std::string str(const char* s) {
    return s ? s : "(null)";
}

class Server : public VC_CheckoutInfo_server_Impl {
public:
    void CreateCheckout(const char*, const char*, const char*, const char*, char**,
                        char**) override {}
    void HaltScan(const char* cookie, char** error_string) override {
        halted.push_back(str(cookie));
        *error_string = gen_strdup("unknown job");
    }
    void ModifyCheckout(int32_t, const char* const*, bool, const char*, bool, const char*, bool,
                        char**, char**) override {}
    void RequestCheckoutInfo(int32_t count, const char* const* list, bool local, char** cookie,
                             char**) override {
        for (int32_t i = 0; i < count; ++i)
            requested.push_back(str(list[i]));
        requestedLocal = local;
        *cookie = gen_strdup("CheckoutScan-1");
    }
    void RequestCheckoutUpdate(int32_t, const char* const*, char**, char**) override {}

    std::vector<std::string> halted, requested;
    bool requestedLocal = false;
};

class Client : public VC_CheckoutInfo_client_Impl {
public:
    void DisplayCheckoutInfo(const CheckoutInfoRecord& info) override {
        std::string text = str(info._checkout_dir) + ":";
        for (int32_t i = 0; i < info._num_items; ++i) {
            const CheckoutItemRecord& item = info._items[i];
            text += " " + std::to_string(item._type) + "," + str(item._filename) + "," +
                    str(item._local_version) + "," + str(item._tag) + "," + str(item._locked_by) +
                    "," + str(item._directory);
        }
        reports.push_back(text);
    }
    void FinishedGettingCheckoutInfo(const char* message) override {
        finished.push_back(str(message));
    }
    void ScanOutput(const char*, bool) override {}
    void StatusUpdate(const char*) override {}

    std::vector<std::string> reports, finished;
};

template <typename T> struct Unref {
    T* object;
    ~Unref() { object->unref(); }
};

// The rows of one section ("tags", "handled", "sent", or the lines of records and types) of a
// protocol table, blanks collapsed, comments dropped.
std::vector<std::string> section(const std::string& table, const std::string& name) {
    std::istringstream in(table);
    std::vector<std::string> rows;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string word, row;
        while (words >> word)
            row += (row.empty() ? "" : " ") + word;
        if (row.empty() || row[0] == '#')
            continue;
        if (name == "record" || name == "type") {
            if (row.compare(0, name.size() + 1, name + " ") == 0)
                rows.push_back(row);
        } else if (row == name) {
            inside = true;
        } else if (row == "end") {
            inside = false;
        } else if (inside) {
            rows.push_back(row);
        }
    }
    return rows;
}

TEST(VCCheckoutInfoProtocol, TheClientTableMirrorsTheServerTable) {
    std::string client =
        readFile(std::string(CVSS_SOURCE_DIR) + "/protocols/vc_checkoutinfo_client.stp");
    std::string server =
        readFile(std::string(CVSS_SOURCE_DIR) + "/protocols/vc_checkoutinfo_server.stp");
    ASSERT_FALSE(client.empty() || server.empty());
    for (const char* same : {"tags", "record", "type"})
        EXPECT_EQ(section(client, same), section(server, same)) << same;
    EXPECT_EQ(section(client, "sent"), section(server, "handled"));
    EXPECT_EQ(section(client, "handled"), section(server, "sent"));
    EXPECT_EQ(section(server, "handled").size(), 5u);
    EXPECT_EQ(section(server, "sent").size(), 4u);

    // The generated classes carry the same rows, as they stand before any negotiation.
    Client* c = new Client;
    Server* s = new Server;
    Unref<Client> holdClient{c};
    Unref<Server> holdServer{s};
    for (auto [receiver, sender] : {std::pair<STPSpecClass*, STPSpecClass*>{s, c},
                                    std::pair<STPSpecClass*, STPSpecClass*>{c, s}}) {
        const std::vector<STPMessageRow>& sent = sender->getSentTable();
        ASSERT_EQ(static_cast<size_t>(receiver->getHandledCount()), sent.size());
        for (size_t i = 0; i < sent.size(); ++i) {
            const STPMessageRow& row = receiver->getHandledTable()[i];
            EXPECT_STREQ(sent[i].name, row.name);
            EXPECT_EQ(sent[i].id, row.id) << row.name;
            EXPECT_EQ(sent[i].flags, row.flags) << row.name;
        }
    }
}

TEST(VCCheckoutInfoProtocol, ARequestAndAnEventTravel) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    Client* client = new Client;
    Server* server = new Server;
    Unref<Client> holdClient{client};
    Unref<Server> holdServer{server};
    client->attachTransport(pair.client.get());
    server->attachTransport(pair.server.get());
    std::vector<STPTransport*> both{pair.client.get(), pair.server.get()};
    client->setRetryHandler(new TurnAllRetryHandler(both));
    server->setRetryHandler(new TurnAllRetryHandler(both));
    TurnAllRetryHandler retry(both);
    ASSERT_TRUE(client->sendNegotiate(true) && server->sendNegotiate(true));
    ASSERT_TRUE(client->awaitTags(&retry) && server->awaitTags(&retry));
    // Every tag and message found by name under the same number on the other side.
    for (STPSpecClass* end :
         {static_cast<STPSpecClass*>(client), static_cast<STPSpecClass*>(server)}) {
        ASSERT_EQ(end->getTagMap().size(), 26u);
        for (size_t i = 0; i < 26; ++i)
            EXPECT_EQ(end->getTagMap()[i], static_cast<int32_t>(i));
        for (size_t i = 0; i < end->getSentTable().size(); ++i)
            EXPECT_EQ(end->getSentTable()[i].id, static_cast<int32_t>(i));
        EXPECT_TRUE(end->getExtraTable().empty());
    }
    STPStatus status;

    // A request and its reply.
    const char* roots[] = {"/a", "/b"};
    char* cookie = nullptr;
    char* error = nullptr;
    ASSERT_TRUE(client->RequestCheckoutInfo(2, roots, true, &cookie, &error, nullptr, &status))
        << status.message;
    EXPECT_STREQ(cookie, "CheckoutScan-1");
    EXPECT_TRUE(error == nullptr || *error == '\0');
    EXPECT_EQ(server->requested, (std::vector<std::string>{"/a", "/b"}));
    EXPECT_TRUE(server->requestedLocal);
    gen_free(cookie);
    gen_free(error);
    cookie = nullptr;
    error = nullptr;
    ASSERT_TRUE(client->HaltScan("CheckoutScan-9", &error, nullptr, &status)) << status.message;
    EXPECT_STREQ(error, "unknown job");
    EXPECT_EQ(server->halted, std::vector<std::string>{"CheckoutScan-9"});
    gen_free(error);

    // A report in the wire form of the records, and an empty one, then the end of the job.
    CheckoutInfo info("/co");
    info.add(CheckoutItem(1200, "/co/sub", "a.c", "1.2", "HEAD"));
    info[0]._locked_by = "nobody";
    info.add(CheckoutItem(2050, "/co", "plain", "N/A", "N/A"));
    CheckoutInfoRecord wire = info.wireRecord();
    ASSERT_TRUE(server->DisplayCheckoutInfo(true, wire, nullptr, &status)) << status.message;
    CheckoutInfo::releaseWireRecord(&wire);
    CheckoutInfo empty("/none", 0);
    wire = empty.wireRecord();
    ASSERT_TRUE(server->DisplayCheckoutInfo(true, wire, nullptr, &status)) << status.message;
    CheckoutInfo::releaseWireRecord(&wire);
    ASSERT_TRUE(server->FinishedGettingCheckoutInfo(true, "", nullptr, &status));
    ASSERT_TRUE(serviceUntil(both, [&] { return !client->finished.empty(); }));
    EXPECT_EQ(client->reports,
              (std::vector<std::string>{"/co: 1200,a.c,1.2,HEAD,,/co/sub 2050,plain,N/A,N/A,,/co",
                                        "/none:"}));
    EXPECT_EQ(client->finished, std::vector<std::string>{""});
}

} // namespace
