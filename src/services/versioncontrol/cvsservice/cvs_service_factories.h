// The factory of "VC_CheckoutInfo.CVS": one server object per client connection. The factory of
// "VersionControl.CVS" is in cvs_versioncontrol_server.h.
#pragma once

#include "service_factory.h"

// "VC_CheckoutInfo.CVS", no instance limit, self-registering; makes CVS_VC_CheckoutInfo_Server.
class CVS_VC_CheckoutInfo_ServiceFactory : public ServiceFactory {
public:
    CVS_VC_CheckoutInfo_ServiceFactory();
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override;
};
