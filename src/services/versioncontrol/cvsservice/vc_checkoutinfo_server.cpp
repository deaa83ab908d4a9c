#include "vc_checkoutinfo_server.h"

#include "checkout_job.h"
#include "gen_asprintf.h"
#include "gen_string.h"

namespace {
int32_t g_liveServers = 0;
VC_CheckoutInfo_Server_ExitCondition g_exitCondition;

// The cookie counter of the process: raised before each use, so the first cookie is
// "CheckoutScan-1".
int32_t g_cookieCounter = 0;
} // namespace

VC_CheckoutInfo_Server::VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN,
                                               uint32_t remoteRN) {
    ++g_liveServers;
    attachTransport(transport, localRN, remoteRN);
    setRetryHandler(new VCRetryHandler(this, transport, VCRetryHandler::kDefaultLimitMs));
}

VC_CheckoutInfo_Server::~VC_CheckoutInfo_Server() {
    --g_liveServers;
}

int32_t VC_CheckoutInfo_Server::liveCount() {
    return g_liveServers;
}

bool VC_CheckoutInfo_Server_ExitCondition::canExit() {
    return VC_CheckoutInfo_Server::liveCount() == 0;
}

bool VC_CheckoutInfo_Server_ExitCondition::mustExit() {
    return false;
}

const char* const CVS_VC_CheckoutInfo_Server::kUnknownJob =
    "Attempt to halt an unknown job. This is probably caused\nby attempting to halt a job just as "
    "it was finishing.";

CVS_VC_CheckoutInfo_Server::CVS_VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN,
                                                       uint32_t remoteRN)
    : VC_CheckoutInfo_Server(transport, localRN, remoteRN) {}

char* CVS_VC_CheckoutInfo_Server::nextCookie() {
    return gen_asprintf("CheckoutScan-%d", ++g_cookieCounter);
}

void CVS_VC_CheckoutInfo_Server::enterJob(const char* cookie, CVS_Checkoutinfo_Idler* job) {
    jobs[cookie] = job;
}

void CVS_VC_CheckoutInfo_Server::removeJob(const char* cookie) {
    jobs.erase(cookie);
}

void CVS_VC_CheckoutInfo_Server::CreateCheckout(const char* dest_dir, const char* modules,
                                                const char* tag, const char* repo_location,
                                                char** cookie, char**) {
    *cookie = nextCookie();
    CVS_Checkoutinfo_Idler::startCreate(this, *cookie, dest_dir, modules, tag, repo_location);
}

void CVS_VC_CheckoutInfo_Server::HaltScan(const char* cookie, char** error_string) {
    auto found = jobs.find(cookie ? cookie : "");
    if (found == jobs.end()) {
        *error_string = gen_strdup(kUnknownJob);
        return;
    }
    // The job's end may drop the last reference but the dispatcher's.
    STPSpecClassRef hold(this);
    found->second->halt();
}

void CVS_VC_CheckoutInfo_Server::ModifyCheckout(int32_t checkouts_count,
                                                const char* const* checkouts, bool do_tag,
                                                const char* tag, bool do_date, const char* date,
                                                bool do_head, char** cookie, char**) {
    *cookie = nextCookie();
    CVS_Checkoutinfo_Idler::startModify(this, *cookie, checkouts_count, checkouts, do_tag, tag,
                                        do_date, date, do_head);
}

void CVS_VC_CheckoutInfo_Server::RequestCheckoutInfo(int32_t checkout_list_count,
                                                     const char* const* checkout_list, bool local,
                                                     char** cookie, char**) {
    *cookie = nextCookie();
    CVS_Checkoutinfo_Idler::startScan(this, *cookie, checkout_list_count, checkout_list, !local,
                                      false);
}

void CVS_VC_CheckoutInfo_Server::RequestCheckoutUpdate(int32_t checkout_list_count,
                                                       const char* const* checkout_list,
                                                       char** cookie, char**) {
    *cookie = nextCookie();
    CVS_Checkoutinfo_Idler::startScan(this, *cookie, checkout_list_count, checkout_list, true,
                                      true);
}
