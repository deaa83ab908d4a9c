// What the event loop needs of the process's connection to the service router.
#pragma once

// The router client implements this; the loop keeps turning while isConnected holds and asks
// for the end through requestDisconnect. An interface, so that the loop's library does not
// depend on the router client built above it.
class Svc_RouterLink {
public:
    virtual ~Svc_RouterLink() = default;
    // True while the router connection is being set up, and afterwards while it is up.
    virtual bool isConnected() = 0;
    // Sends the router a request to close this process's connection; does not wait.
    virtual void requestDisconnect() = 0;
};
