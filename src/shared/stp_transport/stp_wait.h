// The wait loop of every blocking operation on a transport (sends, replies, accepts, syncs,
// channels, negotiation, the router client's stores): one helper, so that its steps come in
// the same order everywhere.
#pragma once

#include "stp_transport.h"
#include "ut_retryhandler.h"

// How a wait ended.
enum class STPWaitEnd {
    done,   // what was waited for happened
    failed, // the transport's status went bad (a failure seen by anybody stops every wait)
    gaveUp, // the retry handler said canContinue false
};

// Waits until `done()` holds, on `transport` (not null), with `retry` (may be null):
//
//   if done(): return done, and nothing else happens (the handler is not touched);
//   retry->begin();
//   repeat: retry->wait(), or with no handler transport->serviceOnce(sliceMs);
//           the transport's status bad -> failed;  done() -> done;
//           retry->canContinue() false -> gaveUp;
//   retry->end().
//
// Without a handler only `done` or the status end the wait. Each turn re-enters: handlers of
// any transport may run, to any depth, so `done` must re-read everything it tests. The helper
// holds a reference on the transport throughout, so that a handler that drops the last other
// reference cannot destroy it under the loop; the caller's own objects are its own to keep.
template <typename Done>
STPWaitEnd stp_wait_until(STPTransport* transport, RetryHandler* retry, Done&& done,
                          int32_t sliceMs = STP_SERVICE_WAIT_MS) {
    if (done())
        return STPWaitEnd::done;
    STPTransportRef hold(transport);
    if (retry)
        retry->begin();
    STPWaitEnd end;
    for (;;) {
        if (retry)
            retry->wait();
        else
            transport->serviceOnce(sliceMs);
        if (!transport->getStatus().ok()) {
            end = STPWaitEnd::failed;
            break;
        }
        if (done()) {
            end = STPWaitEnd::done;
            break;
        }
        if (retry && !retry->canContinue()) {
            end = STPWaitEnd::gaveUp;
            break;
        }
    }
    if (retry)
        retry->end();
    return end;
}
