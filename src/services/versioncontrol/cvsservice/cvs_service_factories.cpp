#include "cvs_service_factories.h"

#include "vc_checkoutinfo_server.h"

CVS_VC_CheckoutInfo_ServiceFactory::CVS_VC_CheckoutInfo_ServiceFactory()
    : ServiceFactory("VC_CheckoutInfo.CVS", -1, true) {}

STPSpecClass* CVS_VC_CheckoutInfo_ServiceFactory::createService(STPTransport* transport,
                                                                uint32_t serviceRN,
                                                                uint32_t remoteRN) {
    return new CVS_VC_CheckoutInfo_Server(transport, serviceRN, remoteRN);
}
