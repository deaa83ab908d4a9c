// Sample_plugin_Impl: generated — do not edit. Made by tools/stpgen/stpgen.py from
// tests/tools/stpgen/golden/sample_plugin.stp; change the table instead.
#pragma once

#include "indgen.h"
#include "stp_specclass.h"

#include <cstdint>

#ifndef STP_RECORD_StringList
#define STP_RECORD_StringList "count:int32_t data:char**"
// {count:%u4% data:*(count)[%str%] }
struct StringList {
    int32_t count = 0;
    char** data = nullptr;
};
// Frees what the record owns and empties it; the record itself stays.
inline void StringList_free(StringList* stp_value) {
    for (int32_t stp_i1 = 0; stp_i1 < stp_count(stp_value->data, stp_value->count); ++stp_i1) {
        auto& stp_e2 = stp_value->data[stp_i1];
        gen_free(stp_e2);
    }
    gen_free(stp_value->data);
    *stp_value = StringList{};
}
#endif
static_assert(stp_same_text(STP_RECORD_StringList, "count:int32_t data:char**"),
              "record StringList has another shape in another protocol");

// Protocol "Sample", role "plugin", binary bodies.
// Handlers get the decoded request values, which belong to the dispatcher, and fill the
// reply values, which start empty; strings and arrays they return must come from
// gen_alloc and are freed by the dispatcher. A stub waits (re-entering the event loop)
// and returns true when the message went out and, for a request, its reply came; the
// reply values then belong to the caller. Any out-parameter may be null.
class Sample_plugin_Impl : public virtual STPSpecClass {
public:
    Sample_plugin_Impl();

    uint32_t defaultLocalRN() override;
    uint32_t defaultRemoteRN() override;
    void handleBinaryMessage(STPMessage* message, STPMessage* reply, int32_t tag) override;

    // Send stubs.
    bool Query(uint32_t* port, RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    bool Register(bool blocking, const StringList& name_list, RetryHandler* retry = nullptr,
                  STPStatus* status = nullptr);

    // Handlers.
    virtual void Welcome(bool ok) = 0;
    virtual void Ping(uint32_t port) = 0;

private:
    void receive_Ping(STPMessage* stp_message, STPMessage* stp_reply);
    void receive_Welcome(STPMessage* stp_message, STPMessage* stp_reply);
};
