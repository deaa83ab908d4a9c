// The VC_CheckoutInfo service's server objects: the base with its life-cycle bookkeeping and the
// exit condition that counts live objects, and the object the factory of "VC_CheckoutInfo.CVS"
// makes for each client connection.
#pragma once

#include "stp_retryhandler.h"
#include "svc_eventloop.h"
#include "vc_checkoutinfo_server_impl.h"

#include <cstdint>
#include <map>
#include <string>

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

class CVS_Checkoutinfo_Idler;

// The server object of "VC_CheckoutInfo.CVS". Each of the four job requests makes a job
// (CVS_Checkoutinfo_Idler) under a fresh cookie and answers at once with the cookie and no
// error; all results and failures come later as events. Cookies are "CheckoutScan-N" from one
// counter of the process, shared by all connections and kinds of job. A request may re-enter the
// event loop while it resolves the client's paths, and a job's first events may go out before
// the reply.
class CVS_VC_CheckoutInfo_Server : public virtual VC_CheckoutInfo_Server {
public:
    CVS_VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    static const char* const kUnknownJob;

    void CreateCheckout(const char* dest_dir, const char* modules, const char* tag,
                        const char* repo_location, char** cookie, char** error_string) override;
    // Ends the job of `cookie` of this connection; kUnknownJob when there is none.
    void HaltScan(const char* cookie, char** error_string) override;
    void ModifyCheckout(int32_t checkouts_count, const char* const* checkouts, bool do_tag,
                        const char* tag, bool do_date, const char* date, bool do_head,
                        char** cookie, char** error_string) override;
    void RequestCheckoutInfo(int32_t checkout_list_count, const char* const* checkout_list,
                             bool local, char** cookie, char** error_string) override;
    void RequestCheckoutUpdate(int32_t checkout_list_count, const char* const* checkout_list,
                               char** cookie, char** error_string) override;

    // The job table, which does not own the jobs: a job enters itself when it is made and leaves
    // when it ends.
    void enterJob(const char* cookie, CVS_Checkoutinfo_Idler* job);
    void removeJob(const char* cookie);

protected:
    // By then no job is left: each holds a reference on its server.
    ~CVS_VC_CheckoutInfo_Server() override = default;

private:
    // A new cookie "CheckoutScan-N" (gen_free).
    static char* nextCookie();

    std::map<std::string, CVS_Checkoutinfo_Idler*> jobs; // byte order of the cookie
};
