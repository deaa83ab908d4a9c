// The commands served by jobs of "VC_CheckoutInfo.CVS": scan, update, checkout and switch.
// Each asks for one job and follows its events to the last: on a terminal a progress line from
// StatusUpdate and the output of cvs as it streams; then the reports as a table (or JSON).
// Ctrl-C halts the job through the service, and the command ends after the job's last event.
#pragma once

#include "cvsvc_options.h"
#include "service_link.h"
#include "vc_commands.h"

// Runs `invocation` (one of the commands above) over `link`. Returns the exit code
// (CvsvcExit): kExitServiceError when the job ended with a failure message, kExitHalted when
// it was halted.
int runCheckoutJob(ServiceLink* link, const Invocation& invocation, const OutputMode& mode);
