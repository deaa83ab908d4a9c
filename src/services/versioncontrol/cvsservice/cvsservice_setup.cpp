// Start-up steps that stand on layers still to come. Each says plainly what it does not do yet.
#include "cvsservice.h"

#include "indgen.h"

bool loadDefaultConfig() {
    // No WhiteBoard client in this build: go on with the compiled defaults.
    gen_warning("Unable to get connection to WhiteBoard.\n");
    return false;
}

bool setupCVSServer() {
    // The service factories and their registration arrive with the service-connection layer.
    gen_error("no services to register: this build has no service factories yet");
    return false;
}

namespace {
bool noServiceCreatedYet() {
    return false;
}
} // namespace

ExitConditionFunc serviceCreatedExitFunc() {
    return noServiceCreatedYet;
}
