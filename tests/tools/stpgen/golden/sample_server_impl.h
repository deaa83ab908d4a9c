// Sample_server_Impl: generated — do not edit. Made by tools/stpgen/stpgen.py from
// tests/tools/stpgen/golden/sample_server.stp; change the table instead.
#pragma once

#include "indgen.h"
#include "stp_specclass.h"

#include <cstdint>

#ifndef STP_RECORD_VersionInfo
#define STP_RECORD_VersionInfo "_filename:char* _version:char*"
// {_filename:%str% _version:%str% }
struct VersionInfo {
    char* _filename = nullptr;
    char* _version = nullptr;
};
// Frees what the record owns and empties it; the record itself stays.
inline void VersionInfo_free(VersionInfo* stp_value) {
    gen_free(stp_value->_filename);
    gen_free(stp_value->_version);
    *stp_value = VersionInfo{};
}
#endif
static_assert(stp_same_text(STP_RECORD_VersionInfo, "_filename:char* _version:char*"),
              "record VersionInfo has another shape in another protocol");

// Protocol "Sample", role "server", ascii bodies.
// Handlers get the decoded request values, which belong to the dispatcher, and fill the
// reply values, which start empty; strings and arrays they return must come from
// gen_alloc and are freed by the dispatcher. A stub waits (re-entering the event loop)
// and returns true when the message went out and, for a request, its reply came; the
// reply values then belong to the caller. Any out-parameter may be null.
class Sample_server_Impl : public STPSpecClass {
public:
    Sample_server_Impl();

    uint32_t defaultLocalRN() override;
    uint32_t defaultRemoteRN() override;
    void handleAsciiMessage(STPMessage* message, STPMessage* reply, int32_t tag) override;

    // Send stubs.
    bool QueryUser(const char* request_str, char** response_str, RetryHandler* retry = nullptr,
                   STPStatus* status = nullptr);

    // Handlers.
    virtual void GetVersionInfo(const char* filename, bool forced, VersionInfo* info,
                                char** error_string) = 0;

private:
    void receive_GetVersionInfo(STPMessage* stp_message, STPMessage* stp_reply);
};
