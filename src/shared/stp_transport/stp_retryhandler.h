// Retry handlers of the STP layer: waits that turn one connection (STPRetryHandler and its
// timed variants) or the whole process (IdleConnRetryHandler, VCRetryHandler), and the
// condition that ends a call's waits when its virtual connection goes down.
#pragma once

#include "ut_retryhandler.h"

#include <cstdint>

class STPSpecClass;
class STPTransport;

// Holds a reference on `spec` for as long as it lives; valid while that object's virtual connection
// is not down in both directions. Generated stubs put one on the stack for each call.
class STP_RetryCondition : public RetryCondition {
public:
    explicit STP_RetryCondition(STPSpecClass* spec);
    ~STP_RetryCondition() override;
    STP_RetryCondition(const STP_RetryCondition&) = delete;
    STP_RetryCondition& operator=(const STP_RetryCondition&) = delete;

    bool stillValid() override;

private:
    STPSpecClass* spec;
};

// Waits by turning its own transport: serviceOnce(10000), so only that connection's messages
// are handled during the wait (re-enters). `transport` may be null and is not referenced: the
// owner keeps it alive. Without a transport canContinue is false and wait naps 50 ms.
class STPRetryHandler : public RetryHandler {
public:
    explicit STPRetryHandler(STPTransport* transport = nullptr) : transport(transport) {}
    // `timeout` as the RetryHandler constructor reads it.
    STPRetryHandler(STPTransport* transport, int32_t timeout)
        : RetryHandler(timeout), transport(transport) {}

    // The base answer, and a transport that is there, connected (or listening) and without a
    // failure in its status.
    bool canContinue() override;
    void wait() override;

    STPTransport* getTransport() const { return transport; }
    void setTransport(STPTransport* newTransport) { transport = newTransport; }

protected:
    STPTransport* transport;
};

// An STPRetryHandler with a limit of exactly `timeoutMs` milliseconds (at least 1).
class TimeoutSTPRetryHandler : public STPRetryHandler {
public:
    explicit TimeoutSTPRetryHandler(int32_t timeoutMs, STPTransport* transport = nullptr)
        : STPRetryHandler(transport, timeoutMs + kExactBase) {}
};

// A timed handler for a service connection: also gives up when the connection's virtual
// connection is down. Waits on `spec`'s transport as it was at construction. `spec` is not
// referenced and must outlive the handler.
class ServiceConnRetryHandler : public STPRetryHandler {
public:
    ServiceConnRetryHandler(STPSpecClass* spec, int32_t timeoutMs);
    bool canContinue() override;

protected:
    STPSpecClass* spec;
};

// A timed handler whose wait is one full turn of the IdleNotifier (idlers, timers, every socket
// for up to `sliceMs`): the whole process goes on while the caller waits (re-enters). Gives up
// on the limit, on a bad or lost transport, or when `spec` (if given) has its virtual connection
// down. The transport is `spec`'s at construction, or `transport` when there is no spec.
class IdleConnRetryHandler : public TimeoutSTPRetryHandler {
public:
    IdleConnRetryHandler(STPSpecClass* spec, int32_t timeoutMs, int32_t sliceMs,
                         STPTransport* transport = nullptr);
    bool canContinue() override;
    void wait() override;

    int32_t getSliceMs() const { return sliceMs; }

protected:
    int32_t sliceMs;
    STPSpecClass* spec;
};

// The handler of a version-control server's calls to its client: a limit in wall-clock
// milliseconds (not ticks; RetryHandler's limit stays unset and its conditions are not asked),
// and a wait that is one full IdleNotifier turn of 500 ms, so the service keeps serving other
// clients while it waits (re-enters). When the limit passes, `abortMessage` (if any) is printed
// on standard error once, by the canContinue call that finds it; later calls until the next
// begin answer false in silence (a wait nested in another with the same handler ends both).
class VCRetryHandler : public RetryHandler {
public:
    static constexpr int64_t kDefaultLimitMs = 300000;
    static constexpr int32_t kSliceMs = 500;
    static const char* const kDefaultAbortMessage;

    // `spec` and `transport` are not referenced. A null `transport` means `spec`'s transport at
    // the time of each check (the handler is usually made before the transport is attached).
    // `abortMessage` is copied; null prints nothing.
    explicit VCRetryHandler(STPSpecClass* spec, STPTransport* transport = nullptr,
                            int64_t timeoutMs = kDefaultLimitMs,
                            const char* abortMessage = kDefaultAbortMessage);
    ~VCRetryHandler() override;
    VCRetryHandler(const VCRetryHandler&) = delete;
    VCRetryHandler& operator=(const VCRetryHandler&) = delete;

    void begin() override;
    bool canContinue() override;
    void end() override;
    void wait() override;

    int64_t getTimeoutMs64() const { return timeoutMs64; }
    void setAbortMessage(const char* text);

private:
    STPTransport* currentTransport() const;

    int64_t timeoutMs64;
    int64_t startMs = 0;
    bool expiryReported = false;
    STPSpecClass* spec;
    STPTransport* transport;
    char* abortMessage = nullptr;
};
