// The factories of the two services of cvsservice: one server object per client connection.
#pragma once

#include "service_factory.h"

// "VersionControl.CVS", no instance limit, self-registering; makes CVS_VersionControl_Server.
class CVS_VersionControl_ServiceFactory : public ServiceFactory {
public:
    CVS_VersionControl_ServiceFactory();
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override;
};

// "VC_CheckoutInfo.CVS", no instance limit, self-registering; makes CVS_VC_CheckoutInfo_Server.
class CVS_VC_CheckoutInfo_ServiceFactory : public ServiceFactory {
public:
    CVS_VC_CheckoutInfo_ServiceFactory();
    STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                uint32_t remoteRN) override;
};
