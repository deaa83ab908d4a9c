// STP retry handlers and the per-call retry condition.
#include "stp_retryhandler.h"

#include "gen_string.h"
#include "indgen.h"
#include "plat_time.h"
#include "stp_specclass.h"
#include "stp_transport.h"
#include "ut_idle.h"

#include <cstdio>

namespace {
constexpr int32_t kNapMs = 50;

// One full turn of the notifier: idle jobs, timers, then every socket for up to `sliceMs`.
void turnNotifier(int32_t sliceMs) {
    IdleNotifier* notifier = IdleNotifier::get();
    if (notifier == nullptr) {
        plat_sleep_ms(sliceMs);
        return;
    }
    notifier->runIdlers(false);
    notifier->runTimers();
    notifier->pollSockets(sliceMs, true);
}
} // namespace

// ---- STP_RetryCondition ---------------------------------------------------------------------

STP_RetryCondition::STP_RetryCondition(STPSpecClass* spec) : spec(spec) {
    spec->ref();
}

STP_RetryCondition::~STP_RetryCondition() {
    spec->unref();
}

bool STP_RetryCondition::stillValid() {
    return !spec->isVirtualConnectionDown();
}

// ---- STPRetryHandler ------------------------------------------------------------------------

bool STPRetryHandler::canContinue() {
    if (!RetryHandler::canContinue())
        return false;
    return transport != nullptr && !transport->isDisconnected() && transport->getStatus().ok();
}

void STPRetryHandler::wait() {
    if (transport)
        transport->serviceOnce(STP_SERVICE_WAIT_MS);
    else
        plat_sleep_ms(kNapMs);
}

// ---- ServiceConnRetryHandler ----------------------------------------------------------------

ServiceConnRetryHandler::ServiceConnRetryHandler(STPSpecClass* spec, int32_t timeoutMs)
    : STPRetryHandler(spec ? spec->getTransport() : nullptr, timeoutMs + kExactBase), spec(spec) {}

bool ServiceConnRetryHandler::canContinue() {
    if (spec && spec->isVirtualConnectionDown())
        return false;
    return STPRetryHandler::canContinue();
}

// ---- IdleConnRetryHandler -------------------------------------------------------------------

IdleConnRetryHandler::IdleConnRetryHandler(STPSpecClass* spec, int32_t timeoutMs, int32_t sliceMs,
                                           STPTransport* transport)
    : TimeoutSTPRetryHandler(timeoutMs, spec ? spec->getTransport() : transport), sliceMs(sliceMs),
      spec(spec) {}

bool IdleConnRetryHandler::canContinue() {
    if (spec && spec->isVirtualConnectionDown())
        return false;
    return STPRetryHandler::canContinue();
}

void IdleConnRetryHandler::wait() {
    turnNotifier(sliceMs);
}

// ---- VCRetryHandler -------------------------------------------------------------------------

const char* const VCRetryHandler::kDefaultAbortMessage =
    "Version control operation timed out while waiting for a response from client. Aborting.\n";

VCRetryHandler::VCRetryHandler(STPSpecClass* spec, STPTransport* transport, int64_t timeoutMs,
                               const char* abortMessage)
    : timeoutMs64(timeoutMs), spec(spec), transport(transport),
      abortMessage(abortMessage ? gen_strdup(abortMessage) : nullptr) {}

VCRetryHandler::~VCRetryHandler() {
    gen_free(abortMessage);
}

void VCRetryHandler::setAbortMessage(const char* text) {
    gen_free(abortMessage);
    abortMessage = text ? gen_strdup(text) : nullptr;
}

STPTransport* VCRetryHandler::currentTransport() const {
    if (transport)
        return transport;
    return spec ? spec->getTransport() : nullptr;
}

void VCRetryHandler::begin() {
    startMs = plat_wall_clock_ms();
    expiryReported = false;
}

bool VCRetryHandler::canContinue() {
    STPTransport* t = currentTransport();
    if (t && t->isDisconnected())
        return false;
    if (spec && spec->isVirtualConnectionDown())
        return false;
    if (startMs + timeoutMs64 > plat_wall_clock_ms())
        return true;
    if (abortMessage && !expiryReported) {
        std::fputs(abortMessage, stderr);
        std::fflush(stderr);
    }
    expiryReported = true;
    return false;
}

void VCRetryHandler::end() {}

void VCRetryHandler::wait() {
    turnNotifier(kSliceMs);
}
