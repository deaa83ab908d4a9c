#include "cvs_service_factories.h"

#include "vc_checkoutinfo_server.h"
#include "versioncontrol_server.h"

CVS_VersionControl_ServiceFactory::CVS_VersionControl_ServiceFactory()
    : ServiceFactory("VersionControl.CVS", -1, true) {}

STPSpecClass* CVS_VersionControl_ServiceFactory::createService(STPTransport* transport,
                                                               uint32_t serviceRN,
                                                               uint32_t remoteRN) {
    return new CVS_VersionControl_Server(transport, serviceRN, remoteRN);
}

CVS_VC_CheckoutInfo_ServiceFactory::CVS_VC_CheckoutInfo_ServiceFactory()
    : ServiceFactory("VC_CheckoutInfo.CVS", -1, true) {}

STPSpecClass* CVS_VC_CheckoutInfo_ServiceFactory::createService(STPTransport* transport,
                                                                uint32_t serviceRN,
                                                                uint32_t remoteRN) {
    return new CVS_VC_CheckoutInfo_Server(transport, serviceRN, remoteRN);
}
