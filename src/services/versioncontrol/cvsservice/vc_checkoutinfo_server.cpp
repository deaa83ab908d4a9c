#include "vc_checkoutinfo_server.h"

#include "gen_string.h"

namespace {
int32_t g_liveServers = 0;
VC_CheckoutInfo_Server_ExitCondition g_exitCondition;

void refuse(char** error_string) {
    *error_string = gen_strdup(CVS_VC_CheckoutInfo_Server::kNotAvailable);
}
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

const char* const CVS_VC_CheckoutInfo_Server::kNotAvailable =
    "This operation is not built yet: this version of the VC_CheckoutInfo service cannot scan "
    "checkouts.\n";

CVS_VC_CheckoutInfo_Server::CVS_VC_CheckoutInfo_Server(STPTransport* transport, uint32_t localRN,
                                                       uint32_t remoteRN)
    : VC_CheckoutInfo_Server(transport, localRN, remoteRN) {}

void CVS_VC_CheckoutInfo_Server::CreateCheckout(const char*, const char*, const char*, const char*,
                                                char**, char** error_string) {
    refuse(error_string);
}

void CVS_VC_CheckoutInfo_Server::HaltScan(const char*, char** error_string) {
    refuse(error_string);
}

void CVS_VC_CheckoutInfo_Server::ModifyCheckout(int32_t, const char* const*, bool, const char*,
                                                bool, const char*, bool, char**,
                                                char** error_string) {
    refuse(error_string);
}

void CVS_VC_CheckoutInfo_Server::RequestCheckoutInfo(int32_t, const char* const*, bool, char**,
                                                     char** error_string) {
    refuse(error_string);
}

void CVS_VC_CheckoutInfo_Server::RequestCheckoutUpdate(int32_t, const char* const*, char**,
                                                       char** error_string) {
    refuse(error_string);
}
