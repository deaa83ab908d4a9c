// The client end of VC_CheckoutInfo against the server end: the two tables mirror each other
// row for row, and over a loopback connection a request with its reply and a report event
// travel between the generated classes.
#include "checkout_records.h"
#include "gen_string.h"
#include "scratch_folder.h"
#include "stp_test_support.h"
#include "vc_checkoutinfo_client_impl.h"
#include "vc_checkoutinfo_server_impl.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace stptest;

namespace {

class Server : public VC_CheckoutInfo_server_Impl {
public:
    void CreateCheckout(const char*, const char*, const char*, const char*, char**,
                        char**) override {}
    void HaltScan(const char*, char**) override {}
    void ModifyCheckout(int32_t, const char* const*, bool, const char*, bool, const char*, bool,
                        char**, char**) override {}
    void RequestCheckoutInfo(int32_t count, const char* const* list, bool local, char** cookie,
                             char**) override {
        for (int32_t i = 0; i < count; ++i)
            requested += std::string(list[i]) + " ";
        requested += local ? "local" : "with cvs";
        *cookie = gen_strdup("CheckoutScan-1");
    }
    void RequestCheckoutUpdate(int32_t, const char* const*, char**, char**) override {}

    std::string requested;
};

class Client : public VC_CheckoutInfo_client_Impl {
public:
    void DisplayCheckoutInfo(const CheckoutInfoRecord& info) override {
        report = std::string(info._checkout_dir) + ":";
        for (int32_t i = 0; i < info._num_items; ++i) {
            const CheckoutItemRecord& item = info._items[i];
            report += " " + std::to_string(item._type) + "," + item._filename + "," +
                      item._local_version + "," + item._tag + "," + item._locked_by + "," +
                      item._directory;
        }
    }
    void FinishedGettingCheckoutInfo(const char*) override {}
    void ScanOutput(const char*, bool) override {}
    void StatusUpdate(const char*) override {}

    std::string report;
};

// The rows of a section of a protocol table ("tags", "handled", "sent" up to "end"; "record"
// and "type" lines), blanks collapsed.
std::vector<std::string> section(const std::string& table, const std::string& name) {
    std::istringstream in(table);
    std::vector<std::string> rows;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string row;
        for (std::string word; words >> word;)
            row += (row.empty() ? "" : " ") + word;
        if (row == name || row == "end")
            inside = row == name;
        else if (inside || row.compare(0, name.size() + 1, name + " ") == 0)
            rows.push_back(row);
    }
    return rows;
}

TEST(VCCheckoutInfoProtocol, TheClientTableMirrorsTheServerTable) {
    std::string client = readFile(CVSS_SOURCE_DIR "/protocols/vc_checkoutinfo_client.stp");
    std::string server = readFile(CVSS_SOURCE_DIR "/protocols/vc_checkoutinfo_server.stp");
    for (const char* same : {"tags", "record", "type"})
        EXPECT_EQ(section(client, same), section(server, same)) << same;
    EXPECT_EQ(section(client, "sent"), section(server, "handled"));
    EXPECT_EQ(section(client, "handled"), section(server, "sent"));
    EXPECT_EQ(section(server, "tags").size(), 26u);
    EXPECT_EQ(section(server, "handled").size(), 5u);
    EXPECT_EQ(section(server, "sent").size(), 4u);
}

TEST(VCCheckoutInfoProtocol, ARequestAndAnEventTravel) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.open());
    Client* client = new Client;
    Server* server = new Server;
    client->attachTransport(pair.client.get());
    server->attachTransport(pair.server.get());
    std::vector<STPTransport*> both{pair.client.get(), pair.server.get()};
    client->setRetryHandler(new TurnAllRetryHandler(both));
    server->setRetryHandler(new TurnAllRetryHandler(both));
    TurnAllRetryHandler retry(both);
    ASSERT_TRUE(client->sendNegotiate(true) && server->sendNegotiate(true));
    ASSERT_TRUE(client->awaitTags(&retry) && server->awaitTags(&retry));
    // Every message found by name under the number it has on this side.
    for (STPSpecClass* end : {static_cast<STPSpecClass*>(client), (STPSpecClass*)server}) {
        for (size_t i = 0; i < end->getSentTable().size(); ++i)
            EXPECT_EQ(end->getSentTable()[i].id, static_cast<int32_t>(i));
        EXPECT_TRUE(end->getExtraTable().empty());
    }

    const char* roots[] = {"/a", "/b"};
    char* cookie = nullptr;
    char* error = nullptr;
    STPStatus status;
    ASSERT_TRUE(client->RequestCheckoutInfo(2, roots, true, &cookie, &error, nullptr, &status))
        << status.message;
    EXPECT_STREQ(cookie, "CheckoutScan-1");
    EXPECT_EQ(server->requested, "/a /b local");
    gen_free(cookie);
    gen_free(error);

    CheckoutInfo info("/co");
    info.add(CheckoutItem(1200, "/co/sub", "a.c", "1.2", "HEAD"));
    info[0]._locked_by = "nobody"; // never on the wire
    info.add(CheckoutItem(2050, "/co", "plain", "N/A", "N/A"));
    CheckoutInfoRecord wire = info.wireRecord();
    ASSERT_TRUE(server->DisplayCheckoutInfo(true, wire, nullptr, &status)) << status.message;
    CheckoutInfo::releaseWireRecord(&wire);
    ASSERT_TRUE(serviceUntil(both, [&] { return !client->report.empty(); }));
    EXPECT_EQ(client->report, "/co: 1200,a.c,1.2,HEAD,,/co/sub 2050,plain,N/A,N/A,,/co");
    client->unref();
    server->unref();
}

} // namespace
