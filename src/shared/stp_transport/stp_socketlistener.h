// STPSocketListener: gives one STPTransport its turn in the IdleNotifier's socket table.
#pragma once

#include "ut_idle.h"

class STPTransport;

// Registers itself with the notifier on construction and leaves it on destruction (a notifier
// already destroyed at exit is left alone). Holds a reference on the transport for its life.
// Its callbacks run the transport's reads, writes and pumps, and so may re-enter.
class STPSocketListener : public SocketListener {
public:
    explicit STPSocketListener(STPTransport* transport);
    ~STPSocketListener() override;
    STPSocketListener(const STPSocketListener&) = delete;
    STPSocketListener& operator=(const STPSocketListener&) = delete;

    STPTransport* getTransport() const { return transport; }

    // Only a connected or listening socket goes to select; an in-process link never does.
    bool isActive() override;
    int getFD() override;
    bool wantsRead() override;
    bool wantsWrite() override;
    bool hasBufferedWork() override;
    bool needsCall() override { return false; }
    void onRead() override;
    void onWrite() override;
    void onBufferedWork() override;
    void onCall() override {}

private:
    STPTransport* transport;
};
