// Fuzzes the packet reader: arbitrary bytes arrive on an in-process link in pieces of varying
// size and go through handleRead and pumpMessages into dispatch, listeners, the three queues,
// channels and syncs. Whatever the bytes, the reader must not read outside what it holds, leak,
// or stop the process; bad framing must only close the connection.
//
// Input: byte 0 chooses the piece sizes, byte 1 the listeners' behaviour; the rest is the stream.
#include "stp_message.h"
#include "stp_transport.h"
#include "ut_retryhandler.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Reads fields the way generated dispatchers do, and declines some messages so that the
// held-back queue is exercised.
class FuzzListener : public ResponseListener {
public:
    FuzzListener(STPTransport* t, uint8_t mode) : transport(t), mode(mode) {}
    bool handle(STPMessage* m) override {
        if (!transport->canDispatch(m))
            return false;
        if ((mode & 1) && (m->serial & 3) == 0 && !m->heldBack)
            return false;
        if (m->kind == KIND_ASCII || m->kind == KIND_COMMAND || m->kind == KIND_NEGOTIATE) {
            int32_t length = 0;
            m->asciiPeekWord(&length);
            m->asciiGetWord(&length);
            char* s = m->asciiGetNamedString("name");
            std::free(s);
            STPAsciiScope scope;
            int32_t count = m->asciiEnterNamedArray(&scope, "data");
            for (int32_t i = 0; i < count && i < 64; ++i)
                std::free(m->asciiGetString());
            m->asciiLeaveArray(scope);
            m->asciiGetNamedNumber("count");
        } else {
            m->getInt32(6);
            STPFieldScope scope;
            m->enterScope(28, &scope);
            int32_t n = m->getListCount();
            for (int32_t i = 0; i < n && i < 64; ++i)
                std::free(m->getString(STP_TAG_LIST_ELEMENT));
            m->leaveScope(scope);
            int32_t count = 0;
            std::free(m->getCountedArray(9, &count, 4));
        }
        if (mode & 2) { // answer, as a server would
            STPMessage* reply = transport->newReply(m->remoteRN, m->localRN, m->serial, 0);
            reply->putInt32(1, static_cast<int32_t>(m->dataSize));
            transport->sendWithAttempts(reply, 2);
            delete reply;
        }
        return true;
    }
    STPTransport* transport;
    uint8_t mode;
};

// Gives up at once: a wait that looks into the queue one time.
class NoWait : public RetryHandler {
public:
    void wait() override {}
    bool canContinue() override { return false; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    uint8_t pieces = data[0];
    uint8_t mode = data[1];
    data += 2;
    size -= 2;

    // The far end of the link: four write fields that the fuzzer fills piece by piece.
    int32_t offset = 0, length = 0, capacity = static_cast<int32_t>(size);
    char* buffer = static_cast<char*>(std::malloc(size + 1));
    std::memcpy(buffer, data, size);

    STPTransport* t = new STPTransport;
    STPTransport::attachInProcess(t, &offset, &length, &capacity, &buffer, nullptr, nullptr);
    FuzzListener binary(t, mode), ascii(t, mode);
    t->addListener(1, 2, &binary, KIND_BINARY);
    t->addListener(1, 2, &ascii, KIND_ASCII);
    if (mode & 4)
        t->addListener(1, 2, &ascii, KIND_BINARY); // two listeners under one key

    // With a wait in progress part of the time, canDispatch holds messages back.
    MessageDepthGuard* guard = (mode & 8) ? new MessageDepthGuard(t) : nullptr;
    size_t at = 0;
    size_t step = 1 + (pieces & 0x3F);
    while (at < size && t->isBound()) {
        size_t n = (pieces & 0x40) ? step : std::min(size - at, step * 97);
        n = std::min(n, size - at);
        offset = static_cast<int32_t>(at);
        length = static_cast<int32_t>(n);
        t->handleRead();
        at += n;
        if (guard && at > size / 2) {
            delete guard;
            guard = nullptr;
            t->pumpMessages(); // held-back messages may run now
        }
    }
    delete guard;
    t->pumpMessages();
    t->redeliverUnclaimed(1, 2, KIND_BINARY);
    if (t->responseQueueSize() > 0) {
        t->raiseDepth();
        t->pushStamp(0, 1, 0);
        NoWait once;
        delete t->awaitResponse(2, &once);
    }
    t->removeListener(&binary);
    t->removeListener(&ascii);
    t->unref();
    std::free(buffer);
    return 0;
}
