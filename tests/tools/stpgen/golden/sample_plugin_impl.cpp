// Sample_plugin_Impl: generated — do not edit. Made by tools/stpgen/stpgen.py from
// tests/tools/stpgen/golden/sample_plugin.stp; change the table instead.
#include "sample_plugin_impl.h"

#include "stp_log.h"
#include "stp_message.h"
#include "stp_packet.h"
#include "stp_stream.h"

namespace {
// Handled messages by number, sorted by name; unused numbers are empty rows.
const STPMessageRow kHandled[] = {
    {"Ping", "port:%u4% ", 0, 0x12},
    {"", "", -1, 0x0},
    {"Welcome", "ok:%u1% ", 2, 0x2},
};
constexpr int32_t kHandledCount = 3;
// Sent messages by number, sorted by name; unused numbers are empty rows.
const STPMessageRow kSent[] = {
    {"Query", "| port:%u4% ", 0, 0x1},
    {"Register", "name_list:{count:%u4% data:*(count)[%str%] } ", 1, 0x2},
};
constexpr int32_t kSentCount = 2;
// Field tags by number; a word ending in '!' holds an unused number.
const char* const kTags[] = {
    "count", "data", "data!", "name_list", "ok", "port",
};
// This end's index of each field name.
constexpr int32_t kTag_count = 0;
constexpr int32_t kTag_data = 1;
constexpr int32_t kTag_name_list = 3;
constexpr int32_t kTag_ok = 4;
constexpr int32_t kTag_port = 5;
} // namespace

Sample_plugin_Impl::Sample_plugin_Impl() {
    setProtocol("Sample", "plugin", "1", 0x0);
    setTables(kHandled, kHandledCount, kSent, kSentCount, kTags, 6);
}

uint32_t Sample_plugin_Impl::defaultLocalRN() {
    return 1;
}

uint32_t Sample_plugin_Impl::defaultRemoteRN() {
    return 2;
}

void Sample_plugin_Impl::handleBinaryMessage(STPMessage* message, STPMessage* reply, int32_t tag) {
    switch (tag) {
    case 0:
        receive_Ping(message, reply);
        break;
    case 2:
        receive_Welcome(message, reply);
        break;
    default:
        // A number this end does not handle: nothing runs; a wanted reply goes out empty.
        (void)message;
        (void)reply;
        break;
    }
}

void Sample_plugin_Impl::receive_Ping(STPMessage* stp_message, STPMessage* stp_reply) {
    uint32_t port{};
    port = static_cast<uint32_t>(stp_message->getInt32(peerTag(kTag_port)));
    if (STPLog* stp_log = openRecord(recvLog, true, "RECV: ", "Ping")) {
        stp_log->printf("port:0x%x", static_cast<unsigned>(port));
        closeRecord(stp_log, true);
    }
    Ping(port);
    (void)stp_reply;
}

void Sample_plugin_Impl::receive_Welcome(STPMessage* stp_message, STPMessage* stp_reply) {
    bool ok{};
    ok = stp_message->getInt8(peerTag(kTag_ok)) != 0;
    if (STPLog* stp_log = openRecord(recvLog, true, "RECV: ", "Welcome")) {
        stp_log->printf("ok:0x%x", static_cast<unsigned>(ok));
        closeRecord(stp_log, true);
    }
    Welcome(ok);
    (void)stp_reply;
}

bool Sample_plugin_Impl::Query(uint32_t* port, RetryHandler* retry, STPStatus* status) {
    STPStubCall stp_call(this, 0, retry, status);
    if (port)
        *port = {};
    if (!stp_call.mayBegin(true, true))
        return false;
    if (STPLog* stp_log = stp_call.openSendRecord()) {
        stp_call.closeRecord(stp_log, true);
    }
    stp_call.newMessage(true, true);
    STPMessage* stp_reply = stp_call.sendRequest();
    if (stp_reply == nullptr)
        return false;
    uint32_t stp_r_port{};
    stp_r_port = static_cast<uint32_t>(stp_reply->getInt32(peerTag(kTag_port)));
    if (STPLog* stp_log = stp_call.openRecvRecord()) {
        stp_log->printf("port:0x%x", static_cast<unsigned>(stp_r_port));
        stp_call.closeRecord(stp_log, false);
    }
    delete stp_reply;
    if (port)
        *port = stp_r_port;
    return true;
}

bool Sample_plugin_Impl::Register(bool blocking, const StringList& name_list, RetryHandler* retry,
                                  STPStatus* status) {
    STPStubCall stp_call(this, 1, retry, status);
    if (!stp_call.mayBegin(true, false))
        return false;
    if (STPLog* stp_log = stp_call.openSendRecord()) {
        stp_log->print("name_list:{");
        stp_log->printf("count:0x%x", static_cast<unsigned>(name_list.count));
        stp_log->print(" ");
        stp_log->print("data:");
        for (int32_t stp_i1 = 0; stp_i1 < stp_count(name_list.data, name_list.count); ++stp_i1) {
            const auto& stp_e2 = name_list.data[stp_i1];
            stp_log->printf("\"%s\"", stp_e2 ? stp_e2 : "");
            stp_log->print(", ");
        }
        stp_log->print("}");
        stp_call.closeRecord(stp_log, true);
    }
    STPMessage* stp_message = stp_call.newMessage(true, false);
    {
        int32_t stp_mark3 = 0;
        stp_message->beginStruct(kTag_name_list, &stp_mark3);
        stp_message->putInt32(kTag_count, static_cast<int32_t>(name_list.count));
        {
            int32_t stp_n4 = stp_count(name_list.data, name_list.count);
            stp_message->putListCount(stp_n4);
            for (int32_t stp_i5 = 0; stp_i5 < stp_n4; ++stp_i5) {
                const auto& stp_e6 = name_list.data[stp_i5];
                stp_message->putStringField(STP_TAG_LIST_ELEMENT, stp_e6);
            }
        }
        stp_message->endStruct(stp_mark3);
    }
    return stp_call.sendOneWay(blocking);
}
