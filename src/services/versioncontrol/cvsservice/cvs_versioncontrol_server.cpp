#include "cvs_versioncontrol_server.h"

#include "gen_string.h"

const char* const CVS_VersionControl_Server::kNotBuiltYet =
    "This operation is not built yet: this version of the VersionControl service cannot carry "
    "it out.\n";

CVS_VersionControl_Server::CVS_VersionControl_Server(STPTransport* transport, uint32_t localRN,
                                                     uint32_t remoteRN)
    : VersionControl_Server(transport, localRN, remoteRN) {}

void CVS_VersionControl_Server::notBuiltYet(char** error_string) {
    *error_string = gen_strdup(kNotBuiltYet);
}

CVS_VersionControl_ServiceFactory::CVS_VersionControl_ServiceFactory()
    : ServiceFactory("VersionControl.CVS", -1, true) {}

STPSpecClass* CVS_VersionControl_ServiceFactory::createService(STPTransport* transport,
                                                               uint32_t serviceRN,
                                                               uint32_t remoteRN) {
    return new CVS_VersionControl_Server(transport, serviceRN, remoteRN);
}
