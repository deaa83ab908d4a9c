// svc_whiteboard as a process under svc_router, with clients in this process: no setting is
// lost when the service is killed in the middle of a stream of changes, and a group file that
// does not parse is reported and left alone while the other groups are served.
#include "group_files.h"
#include "router_process.h"
#include "run_program.h"
#include "ut_options_database.h"
#include "whiteboard_clients.h"
#include "whiteboard_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#ifndef SVC_WHITEBOARD_PATH
#error "SVC_WHITEBOARD_PATH must name the svc_whiteboard program"
#endif
#ifndef SVC_WBCLIENT_PATH
#error "SVC_WBCLIENT_PATH must name the svc_wbclient program"
#endif

namespace {

constexpr int32_t kWaitMs = WhiteBoardClients::kWaitMs;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// A router on a port of its own, services started by the test (so that it can kill them), and
// WhiteBoard clients on virtual connections of one test plug-in. The service's folders lie in
// the scratch folder (XDG_CONFIG_HOME).
class WhiteBoardProcess : public ScratchTest {
protected:
    void SetUp() override {
        setenv("XDG_CONFIG_HOME", root().c_str(), 1);
        ASSERT_TRUE(router.start(folder(), {"-stay"})) << router.errors();
        std::string error;
        ASSERT_TRUE(clients.open(router.port, root(), &error)) << error;
    }
    void TearDown() override {
        clients.drop();
        service.kill();
        router.kill();
    }
    const ScratchFolder& folder() const { return scratch; }

    // Starts svc_whiteboard and waits until it is the `nth` to offer "WhiteBoard".
    void startService(int nth, const std::vector<std::string>& extra = {}) {
        std::vector<std::string> words{SVC_WHITEBOARD_PATH, "-connect_servicerouter",
                                       std::to_string(router.port)};
        words.insert(words.end(), extra.begin(), extra.end());
        ASSERT_TRUE(service.start(words, at("service.out"), at("service.err")));
        int32_t begin = plat_tick_count();
        while (count(router.log(), "offers \"WhiteBoard\"") < static_cast<size_t>(nth)) {
            ASSERT_TRUE(service.running()) << service.errors();
            ASSERT_LT(plat_tick_diff(plat_tick_count(), begin), kWaitMs) << router.log();
            plat_sleep_ms(5);
        }
    }

    ScratchFolder scratch;
    RouterProcess router;
    ChildProcess service;
    WhiteBoardClients clients;
};

// The payload of change k: its number many times over, so that a file with half of one
// change's bytes shows.
std::string payloadOf(int k) {
    std::string one = std::to_string(k) + ":";
    std::string out;
    while (out.size() < 2000)
        out += one;
    return out;
}
// The number a payload repeats, or -1 when it is not one number repeated whole.
int numberOf(const std::string& payload) {
    size_t colon = payload.find(':');
    if (colon == std::string::npos)
        return -1;
    int k = std::stoi(payload.substr(0, colon));
    return payload == payloadOf(k) ? k : -1;
}

TEST_F(WhiteBoardProcess, KilledInTheMiddleOfAStreamOfChangesItLosesNoSetting) {
    std::mt19937 rng(20240611);
    std::string file = at("ORT/WhiteBoard/Stream.wbd");
    int counter = 0; // the last value the file held at the start of a round
    int written = 0; // the highest value the writer sent
    for (int round = 1; round <= 40; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        startService(round);
        WhiteBoard* writer = clients.connect();
        WhiteBoard* observer = clients.connect();
        ASSERT_TRUE(writer && observer);
        int heard = 0;
        observer->addInt32Listener("Stream", [&](const char*, const char* name, int32_t v) {
            if (std::string(name) == "counter")
                heard = v;
        });
        ASSERT_TRUE(observer->registerGroup("Stream", true, false, nullptr, false));
        ASSERT_TRUE(writer->registerGroup("Stream", false, true, nullptr, false));
        ASSERT_TRUE(clients.fetch(writer, "Stream"));
        int32_t start = 0;
        writer->getInt32Value("Stream", "counter", &start);
        EXPECT_EQ(start, counter) << "the service read back what the last round left";

        // A stream of changes, sent without waiting, then a kill at some moment of it.
        int changes = 20 + static_cast<int>(rng() % 60);
        for (int k = start + 1; k <= start + changes; ++k) {
            ASSERT_TRUE(writer->setStringValue("Stream", "payload", payloadOf(k).c_str(), true));
            ASSERT_TRUE(writer->setInt32Value("Stream", "counter", k, true));
        }
        written = start + changes;
        int32_t killAfterMs = static_cast<int32_t>(rng() % 40);
        clients.pumpUntil([] { return false; }, killAfterMs);
        service.kill();

        // The file is the old one or the new one, whole: it parses, and its payload is one
        // change's, with the counter of that change or of the one before.
        if (!std::filesystem::exists(file)) {
            EXPECT_EQ(heard, 0) << "a change was told before it was written";
            ASSERT_EQ(start, 0);
        } else {
            ut_options_database db("check");
            ASSERT_TRUE(db.read(file.c_str())) << readFile(file);
            Group group("Stream");
            takeGroupFileValues(&group, db);
            int32_t n = 0; // none yet: written after the very first payload
            ut_string payload;
            group.getInt32("counter", &n);
            ASSERT_TRUE(group.getString("payload", &payload)) << readFile(file);
            int m = numberOf(payload.c_str());
            EXPECT_TRUE(n == m || n == m - 1) << "counter " << n << ", payload of " << m;
            EXPECT_GE(n, heard) << "a change was told before it was on disk";
            EXPECT_LE(m, written);
            EXPECT_GE(n, start);
            PlatFileStatus status;
            ASSERT_EQ(plat_stat(file.c_str(), &status), 0);
            EXPECT_EQ(status.mode & 0777, 0600u);
            counter = n;
        }
        clients.drop();
    }
    EXPECT_GT(counter, 0) << "no round got any change to the disk";
}

TEST_F(WhiteBoardProcess, ABrokenGroupFileIsReportedLeftAloneAndTheOthersServed) {
    std::string broken = "String {\n    path = /no/quotes\n}\n";
    writeFile(at("ORT/WhiteBoard/Broken.wbd"), broken);
    writeFile(at("ORT/WhiteBoard/Fine.wbd"), "String {\n    path = \"/usr/bin/cvs\"\n}\n");
    startService(1);
    WhiteBoard* client = clients.connect();
    ASSERT_NE(client, nullptr);
    ASSERT_TRUE(clients.fetch(client, "Fine"));
    ut_string path;
    EXPECT_TRUE(client->getStringValue("Fine", "path", &path));
    EXPECT_STREQ(path.c_str(), "/usr/bin/cvs");
    ASSERT_TRUE(client->setStringValue("Broken", "path", "/new", true));
    ASSERT_TRUE(client->setStringValue("Fine", "path", "/opt/cvs", true));
    ASSERT_TRUE(clients.fetch(client, "Broken"));
    EXPECT_EQ(readFile(at("ORT/WhiteBoard/Broken.wbd")), broken);
    EXPECT_EQ(readFile(at("ORT/WhiteBoard/Fine.wbd")), "String {\n    path = \"/opt/cvs\"\n}\n");
    // A file name of the client is taken against the client's "cwd".
    ASSERT_TRUE(client->registerGroup("Mine", false, false, "mine.wbd", false));
    ASSERT_TRUE(client->setInt32Value("Mine", "n", 3, true));
    ASSERT_TRUE(clients.fetch(client, "Mine"));
    EXPECT_EQ(readFile(at("mine.wbd")), "Int32 {\n    n = 3\n}\n");
    std::string errors = service.errors();
    EXPECT_TRUE(contains(errors, "\"" + at("ORT/WhiteBoard/Broken.wbd") +
                                     "\", line 2: parse "
                                     "error: expected a number: \"/\""))
        << errors;
    EXPECT_TRUE(contains(errors, "group \"Broken\": the file " + at("ORT/WhiteBoard/Broken.wbd") +
                                     " cannot be read"))
        << errors;
}

TEST_F(WhiteBoardProcess, TheCommandLineClientSetsAndShowsValues) {
    startService(1, {"-stay"});
    std::string port = std::to_string(router.port);
    auto client = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {SVC_WBCLIENT_PATH, "-connect_servicerouter", port});
        return runProgram(words, kWaitMs);
    };
    ProgramRun set = client({"-disk", "-set", "GeneralConfiguration", "Versctrl_CVSPath", "/x"});
    EXPECT_EQ(set.exitCode, 0) << set.err;
    ProgramRun number =
        client({"-set_int32", "GeneralConfiguration", "Versctrl_CVSTimeLimit", "0x20"});
    EXPECT_EQ(number.exitCode, 0) << number.err;
    ProgramRun get = client({"-get", "GeneralConfiguration"});
    EXPECT_EQ(get.exitCode, 0) << get.err;
    std::string expected = "Int32 {\n    \"Versctrl_CVSTimeLimit\" = 32\n}\nString {\n"
                           "    \"Versctrl_CVSPath\" = \"/x\"\n}\n";
    EXPECT_EQ(get.out, expected);
    EXPECT_EQ(readFile(at("ORT/WhiteBoard/GeneralConfiguration.wbd")), expected);
    EXPECT_EQ(client({"-get"}).exitCode, 2);
    service.kill();
    EXPECT_EQ(client({"-get", "GeneralConfiguration"}).exitCode, 1);
}

} // namespace
