// Tests of the message log sinks: file, time-stamped file and forwarding.
#include "stp_log.h"

#include "plat_time.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

namespace {

class RecordingSender : public STPLogSender {
public:
    void sendLogMessage(const char* text) override { sent.emplace_back(text); }
    std::vector<std::string> sent;
};

// "%d:%u: " of the wall clock now: both halves must be those of a time within the test.
void expectStamp(const std::string& text, int64_t before, int64_t after) {
    std::smatch m;
    ASSERT_TRUE(std::regex_search(text, m, std::regex("^(-?[0-9]+):([0-9]+): "))) << text;
    int64_t t = static_cast<int64_t>((static_cast<uint64_t>(std::stoll(m[1])) << 32) |
                                     static_cast<uint64_t>(std::stoull(m[2])));
    EXPECT_GE(t, before);
    EXPECT_LE(t, after);
}

TEST(STPFileLogTest, WritesRecordsAsPrinted) {
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        STPFileLog log(file, false);
        log.beginRecord(nullptr, true);
        log.print("SEND: Add: ");
        log.printf("a:0x%x", 26u);
        log.print(nullptr);
        log.write("\nxyz", 1);
        log.endRecord(nullptr, true);
    }
    EXPECT_EQ(readStream(file), "SEND: Add: a:0x1a\n");
    std::fclose(file);
}

TEST(TimestampedSTPFileLogTest, EveryRecordStartsWithSecondsAndThreeDigitMilliseconds) {
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    int64_t before = plat_wall_clock_ms();
    {
        TimestampedSTPFileLog log(file, false);
        for (int i = 0; i < 3; ++i) {
            log.beginRecord(nullptr, true);
            log.printf("RECV: Ping: n:0x%x", static_cast<unsigned>(i));
            log.print("\n");
            log.endRecord(nullptr, true);
        }
    }
    int64_t after = plat_wall_clock_ms();
    std::string text = readStream(file);
    std::fclose(file);
    std::regex line("([0-9]+)\\.([0-9]{3}): RECV: Ping: n:0x([0-9])\n");
    auto it = std::sregex_iterator(text.begin(), text.end(), line);
    int count = 0;
    size_t covered = 0;
    for (; it != std::sregex_iterator(); ++it, ++count) {
        const std::smatch& m = *it;
        EXPECT_EQ(m.position(0), static_cast<long>(covered)) << text;
        covered += static_cast<size_t>(m.length(0));
        int64_t t = std::stoll(m[1]) * 1000 + std::stoll(m[2]);
        EXPECT_GE(t, before);
        EXPECT_LE(t, after);
        EXPECT_EQ(m[3], std::to_string(count));
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(covered, text.size()) << text;
}

TEST(ForwardingSTPLogTest, SendsEachRecordWholeAndBracketsTheSession) {
    RecordingSender sender;
    int64_t before = plat_wall_clock_ms();
    {
        ForwardingSTPLog log(&sender);
        ASSERT_EQ(sender.sent.size(), 1u);
        expectStamp(sender.sent[0], before, plat_wall_clock_ms());
        EXPECT_NE(sender.sent[0].find(": Logging for ServiceRouter_Proxy plugin connection "
                                      "started.\n"),
                  std::string::npos);

        log.beginRecord(nullptr, true);
        log.print("SEND: Add: ");
        log.printf("a:0x%x", 1u);
        log.print("\n");
        EXPECT_EQ(sender.sent.size(), 1u) << "nothing goes out before the record ends";
        log.endRecord(nullptr, true);
        ASSERT_EQ(sender.sent.size(), 2u);
        expectStamp(sender.sent[1], before, plat_wall_clock_ms());
        EXPECT_EQ(sender.sent[1].substr(sender.sent[1].find(": ") + 2), "SEND: Add: a:0x1\n");
        EXPECT_FALSE(log.hasPendingLog());
    }
    ASSERT_EQ(sender.sent.size(), 3u);
    expectStamp(sender.sent[2], before, plat_wall_clock_ms());
    EXPECT_NE(sender.sent[2].find(": Logging for ServiceRouter_Proxy plugin connection ending.\n"),
              std::string::npos);
}

TEST(ForwardingSTPLogTest, MisusedRecordsAreSentWithWarnings) {
    RecordingSender sender;
    {
        ForwardingSTPLog log(&sender);
        sender.sent.clear();

        // Outside a record: an error line, then the data at once.
        log.write("loose text", 5);
        ASSERT_EQ(sender.sent.size(), 2u);
        EXPECT_EQ(sender.sent[0], "ERROR: pending_log not initialized, sending log message now "
                                  "rather than buffering into a single message.\n");
        EXPECT_EQ(sender.sent[1], "loose");

        // A record opened on top of an open one: the open one goes out first.
        sender.sent.clear();
        log.beginRecord(nullptr, true);
        log.print("first");
        log.beginRecord(nullptr, true);
        ASSERT_EQ(sender.sent.size(), 2u);
        EXPECT_EQ(sender.sent[0], "Warning: Starting new log bug pending log already exists, "
                                  "sending pending log now.\n");
        EXPECT_NE(sender.sent[1].find(": first"), std::string::npos);
        log.endRecord(nullptr, true);

        // Closing what is not open.
        sender.sent.clear();
        log.endRecord(nullptr, true);
        ASSERT_EQ(sender.sent.size(), 1u);
        EXPECT_EQ(sender.sent[0], "Warning: Log block ending but there is no pending log.\n");

        // Destroyed with a record open.
        sender.sent.clear();
        log.beginRecord(nullptr, false);
        log.print("unfinished");
    }
    ASSERT_EQ(sender.sent.size(), 3u);
    EXPECT_EQ(sender.sent[0],
              "Warning: shutting down logging on plugin but pending log still exists.\n");
    EXPECT_NE(sender.sent[1].find(": unfinished"), std::string::npos);
    EXPECT_NE(sender.sent[2].find("connection ending.\n"), std::string::npos);
}

} // namespace
