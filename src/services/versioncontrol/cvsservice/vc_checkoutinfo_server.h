// The VC_CheckoutInfo service's server objects: the base with its life-cycle bookkeeping and the
// exit condition that counts live objects, and the object the factory of "VC_CheckoutInfo.CVS"
// makes for each client connection.
#pragma once

#include "stp_retryhandler.h"
#include "svc_eventloop.h"
#include "vc_checkoutinfo_server_impl.h"

#include <cstdint>

// The server of one client connection, bound to `transport` under the connection's route
// numbers at construction, with a VCRetryHandler of 300000 ms as its default retry handler.
// Adds one to the process-wide live count while it exists.
class VC_CheckoutInfo_Server : public virtual VC_CheckoutInfo_server_Impl {
public:
    VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    static int32_t liveCount();

protected:
    ~VC_CheckoutInfo_Server() override;
};

// Lets the process end once no VC_CheckoutInfo server object is left.
class VC_CheckoutInfo_Server_ExitCondition : public ExitCondition {
public:
    VC_CheckoutInfo_Server_ExitCondition() : ExitCondition(true) {}
    bool canExit() override;
    bool mustExit() override;
};

// The server object of "VC_CheckoutInfo.CVS". This build negotiates the protocol and answers
// every request with an error text and no job cookie: the scans of checkouts are not part of
// it yet.
class CVS_VC_CheckoutInfo_Server : public virtual VC_CheckoutInfo_Server {
public:
    CVS_VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    static const char* const kNotAvailable;

    void CreateCheckout(const char* dest_dir, const char* modules, const char* tag,
                        const char* repo_location, char** cookie, char** error_string) override;
    void HaltScan(const char* cookie, char** error_string) override;
    void ModifyCheckout(int32_t checkouts_count, const char* const* checkouts, bool do_tag,
                        const char* tag, bool do_date, const char* date, bool do_head,
                        char** cookie, char** error_string) override;
    void RequestCheckoutInfo(int32_t checkout_list_count, const char* const* checkout_list,
                             bool local, char** cookie, char** error_string) override;
    void RequestCheckoutUpdate(int32_t checkout_list_count, const char* const* checkout_list,
                               char** cookie, char** error_string) override;

protected:
    ~CVS_VC_CheckoutInfo_Server() override = default;
};
