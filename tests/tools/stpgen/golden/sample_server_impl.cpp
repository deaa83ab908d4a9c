// Sample_server_Impl: generated — do not edit. Made by tools/stpgen/stpgen.py from
// tests/tools/stpgen/golden/sample_server.stp; change the table instead.
#include "sample_server_impl.h"

#include "stp_log.h"
#include "stp_message.h"
#include "stp_packet.h"
#include "stp_stream.h"

namespace {
// Handled messages by number, sorted by name; unused numbers are empty rows.
const STPMessageRow kHandled[] = {
    {"GetVersionInfo", "filename:%str% forced:%num% | info:{_filename:%str% _version:%str% } error_string:%str% ", 0, 0x1},
};
constexpr int32_t kHandledCount = 1;
// Sent messages by number, sorted by name; unused numbers are empty rows.
const STPMessageRow kSent[] = {
    {"QueryUser", "request_str:%str% | response_str:%str% ", 0, 0x1},
};
constexpr int32_t kSentCount = 1;
} // namespace

Sample_server_Impl::Sample_server_Impl() {
    setProtocol("Sample", "server", "1", 0x0);
    setTables(kHandled, kHandledCount, kSent, kSentCount, nullptr, 0);
}

uint32_t Sample_server_Impl::defaultLocalRN() {
    return 2;
}

uint32_t Sample_server_Impl::defaultRemoteRN() {
    return 1;
}

void Sample_server_Impl::handleAsciiMessage(STPMessage* message, STPMessage* reply, int32_t tag) {
    // The body starts with the message's name: consumed here, and the number's source
    // when the sender did not know it.
    int32_t stp_length = 0;
    const char* stp_word = message->asciiGetWord(&stp_length);
    if (tag == -1)
        tag = findMessageIdN(stp_word, stp_length);
    switch (tag) {
    case 0:
        receive_GetVersionInfo(message, reply);
        break;
    default:
        // A number this end does not handle: nothing runs; a wanted reply goes out empty.
        (void)message;
        (void)reply;
        break;
    }
}

void Sample_server_Impl::receive_GetVersionInfo(STPMessage* stp_message, STPMessage* stp_reply) {
    char* filename{};
    bool forced{};
    filename = stp_message->asciiGetNamedString("filename");
    forced = stp_message->asciiGetNamedNumber("forced") != 0;
    if (STPLog* stp_log = openRecord(recvLog, true, "RECV: ", "GetVersionInfo")) {
        stp_log->printf("filename:\"%s\"", filename ? filename : "");
        stp_log->print(", ");
        stp_log->printf("forced:0x%x", static_cast<unsigned>(forced));
        closeRecord(stp_log, true);
    }
    VersionInfo info{};
    char* error_string{};
    GetVersionInfo(filename, forced, &info, &error_string);
    if (stp_reply) {
        stp_reply->asciiBeginNamedStruct("info");
        stp_reply->asciiPutNamedString("_filename", info._filename);
        stp_reply->asciiPutNamedString("_version", info._version);
        stp_reply->asciiEndStruct();
        stp_reply->asciiPutNamedString("error_string", error_string);
        if (STPLog* stp_log = openRecord(sendLog, true, "REPLY: ", "GetVersionInfo")) {
            stp_log->print("info:{");
            stp_log->printf("_filename:\"%s\"", info._filename ? info._filename : "");
            stp_log->print(" ");
            stp_log->printf("_version:\"%s\"", info._version ? info._version : "");
            stp_log->print("}");
            stp_log->print(", ");
            stp_log->printf("error_string:\"%s\"", error_string ? error_string : "");
            closeRecord(stp_log, true);
        }
    }
    gen_free(filename);
    VersionInfo_free(&info);
    gen_free(error_string);
}

bool Sample_server_Impl::QueryUser(const char* request_str, char** response_str,
                                   RetryHandler* retry, STPStatus* status) {
    STPStubCall stp_call(this, 0, retry, status);
    if (response_str)
        *response_str = {};
    if (!stp_call.mayBegin(false, true))
        return false;
    if (STPLog* stp_log = stp_call.openSendRecord()) {
        stp_log->printf("request_str:\"%s\"", request_str ? request_str : "");
        stp_call.closeRecord(stp_log, true);
    }
    STPMessage* stp_message = stp_call.newMessage(false, true);
    stp_message->asciiPutNamedString("request_str", request_str);
    STPMessage* stp_reply = stp_call.sendRequest();
    if (stp_reply == nullptr)
        return false;
    char* stp_r_response_str{};
    stp_r_response_str = stp_reply->asciiGetNamedString("response_str");
    if (STPLog* stp_log = stp_call.openRecvRecord()) {
        stp_log->printf("response_str:\"%s\"", stp_r_response_str ? stp_r_response_str : "");
        stp_call.closeRecord(stp_log, false);
    }
    delete stp_reply;
    if (response_str)
        *response_str = stp_r_response_str;
    else {
        gen_free(stp_r_response_str);
    }
    return true;
}
