// Start-up steps of cvsservice: the configuration and the two services.
#include "cvsservice.h"

#include "cvs_service_factories.h"
#include "cvs_versioncontrol_server.h"
#include "indgen.h"
#include "servicerouter_proxy.h"

namespace {
// Made once, live to the end of the process, never deleted.
CVS_VersionControl_ServiceFactory* g_versionControlFactory = nullptr;
CVS_VC_CheckoutInfo_ServiceFactory* g_checkoutInfoFactory = nullptr;
} // namespace

bool setupCVSServer() {
    g_versionControlFactory = new CVS_VersionControl_ServiceFactory();
    g_checkoutInfoFactory = new CVS_VC_CheckoutInfo_ServiceFactory();
    ServiceRouter_Proxy* proxy = ensureServiceRouterProxy();
    proxy->registerService(g_versionControlFactory, nullptr);
    proxy->registerService(g_checkoutInfoFactory, nullptr);
    return true;
}

ExitConditionFunc serviceCreatedExitFunc() {
    return ServiceFactory::createdAService;
}
