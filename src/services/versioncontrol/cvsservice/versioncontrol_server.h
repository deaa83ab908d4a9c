// The base of the VersionControl service's server objects, with its life-cycle bookkeeping, and
// the exit condition that counts live objects.
#pragma once

#include "stp_retryhandler.h"
#include "svc_eventloop.h"
#include "versioncontrol_server_impl.h"

#include <cstdint>

// The server of one client connection. Made with one reference (the factory's caller holds it)
// and bound to `transport` under the connection's route numbers at once; its default retry
// handler is a VCRetryHandler with a limit of 300000 ms. Adds one to the process-wide live count
// while it exists.
class VersionControl_Server : public virtual VersionControl_server_Impl {
public:
    VersionControl_Server(STPTransport* transport, uint32_t localRN, uint32_t remoteRN);

    // Refusals of the base, for servers that cannot do these.
    void CommitDirectories(const StringList& directories, const char* comments,
                           char** error_string) override;
    void UnremoveFiles(const StringList& filenames, StringList* new_versions,
                       char** error_string) override;

    // How many objects of this class live in the process.
    static int32_t liveCount();

protected:
    ~VersionControl_Server() override;
};

// Lets the process end once no VersionControl server object is left.
class VersionControl_Server_ExitCondition : public ExitCondition {
public:
    VersionControl_Server_ExitCondition() : ExitCondition(true) {}
    bool canExit() override;
    bool mustExit() override;
};
