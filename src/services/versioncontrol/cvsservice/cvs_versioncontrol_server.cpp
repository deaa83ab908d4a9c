#include "cvs_versioncontrol_server.h"

CVS_VersionControl_Server::CVS_VersionControl_Server(STPTransport* transport, uint32_t localRN,
                                                     uint32_t remoteRN)
    : VersionControl_Server(transport, localRN, remoteRN) {}

CVS_VersionControl_ServiceFactory::CVS_VersionControl_ServiceFactory()
    : ServiceFactory("VersionControl.CVS", -1, true) {}

STPSpecClass* CVS_VersionControl_ServiceFactory::createService(STPTransport* transport,
                                                               uint32_t serviceRN,
                                                               uint32_t remoteRN) {
    return new CVS_VersionControl_Server(transport, serviceRN, remoteRN);
}
