// Helpers of the transport tests: loopback pairs of transports, a raw peer socket for hand-made
// frames, listeners that record what they get, and waits that fail at a deadline.
#pragma once

#include "plat_socket.h"
#include "plat_time.h"
#include "stp_message.h"
#include "stp_transport.h"
#include "ut_retryhandler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace stptest {

// No wait of these tests takes longer; a hang fails here instead of stalling the run.
inline constexpr int32_t kDeadlineMs = 10000;

struct TransportDeleter {
    void operator()(STPTransport* t) const {
        if (t)
            t->unref();
    }
};
using TransportPtr = std::unique_ptr<STPTransport, TransportDeleter>;

inline TransportPtr makeTransport() {
    return TransportPtr(new STPTransport);
}

inline bool pastDeadline(int32_t startTick, int32_t ms = kDeadlineMs) {
    return plat_tick_diff(plat_tick_count(), startTick) >= ms;
}

// One short turn of every transport that is bound or listening.
inline void turn(const std::vector<STPTransport*>& transports, int32_t timeoutMs = 5) {
    for (STPTransport* t : transports)
        if (!t->isDisconnected())
            t->serviceOnce(timeoutMs);
}

// Turns the transports until `done` holds; false if the deadline came first.
inline bool serviceUntil(const std::vector<STPTransport*>& transports,
                         const std::function<bool()>& done, int32_t ms = kDeadlineMs) {
    int32_t start = plat_tick_count();
    while (!done()) {
        if (pastDeadline(start, ms))
            return false;
        turn(transports);
    }
    return true;
}

// A wait that turns every transport of a set, as the whole-process handlers do, and gives up
// at the test deadline (or `ms`).
class TurnAllRetryHandler : public RetryHandler {
public:
    explicit TurnAllRetryHandler(std::vector<STPTransport*> all, int32_t ms = kDeadlineMs)
        : RetryHandler(kExactBase + ms), transports(std::move(all)) {}
    void wait() override {
        ++waits;
        turn(transports);
    }
    std::vector<STPTransport*> transports;
    int waits = 0;
};

// What a listener saw of one message.
struct Seen {
    int32_t kind = 0, tag = 0, headerSize = 0;
    uint32_t localRN = 0, remoteRN = 0, serial = 0, inReplyTo = 0, flags = 0, origin = 0, depth = 0;
    std::string body; // dataSize bytes from headerSize
};

inline Seen seenOf(const STPMessage* m) {
    Seen s;
    s.kind = m->kind;
    s.tag = m->tag;
    s.headerSize = m->headerSize;
    s.localRN = m->localRN;
    s.remoteRN = m->remoteRN;
    s.serial = m->serial;
    s.inReplyTo = m->inReplyTo;
    s.flags = m->flags;
    s.origin = m->origin;
    s.depth = m->depth;
    s.body.assign(m->data() + m->headerSize, static_cast<size_t>(m->dataSize));
    return s;
}

// Records every message it is handed; `hook` (optional) runs inside handle and decides the
// answer.
class RecordingListener : public ResponseListener {
public:
    bool handle(STPMessage* message) override {
        ++calls;
        if (hook && !hook(message))
            return false;
        seen.push_back(seenOf(message));
        return true;
    }
    std::vector<Seen> seen;
    int calls = 0;
    std::function<bool(STPMessage*)> hook;
};

// Two transports joined over 127.0.0.1: `server` accepted what `client` connected.
struct LoopbackPair {
    TransportPtr server = makeTransport();
    TransportPtr client = makeTransport();
    uint16_t port = 0;

    bool open() {
        plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
        if (listenFd == PLAT_INVALID_SOCKET || !server->startListenOnFD(listenFd))
            return false;
        if (!client->connect("127.0.0.1", port))
            return false;
        return serviceUntil({server.get()}, [&] { return server->tryAccept(true); });
    }
};

// A transport whose peer is a raw socket driven by the test.
struct RawPeer {
    TransportPtr transport = makeTransport();
    plat_socket raw = PLAT_INVALID_SOCKET;

    bool open() {
        uint16_t port = 0;
        plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
        if (listenFd == PLAT_INVALID_SOCKET)
            return false;
        raw = plat_tcp_socket();
        if (!plat_connect(raw, plat_loopback_address(), port))
            return false;
        plat_socket accepted = STPTransport::acceptClient(listenFd, true);
        plat_set_nonblocking(raw, true);
        return accepted != PLAT_INVALID_SOCKET && transport->bindFD(accepted);
    }
    ~RawPeer() { closeRaw(); }
    void closeRaw() {
        if (raw != PLAT_INVALID_SOCKET)
            plat_close_socket(raw);
        raw = PLAT_INVALID_SOCKET;
    }

    // Sends all of `bytes`, letting the transport read whenever the socket is full, so that a
    // large frame never stalls the one thread. The transport is not read after the last byte.
    bool feed(const std::string& bytes) {
        size_t done = 0;
        int32_t start = plat_tick_count();
        while (done < bytes.size()) {
            long n = plat_send(raw, bytes.data() + done, bytes.size() - done);
            if (n > 0)
                done += static_cast<size_t>(n);
            else if (pastDeadline(start))
                return false;
            else
                transport->serviceOnce(5);
        }
        return true;
    }
    // Reads what the raw socket has, waiting up to `ms` for the first bytes.
    std::string drain(int32_t ms = 200) {
        std::string out;
        plat_fd_set set;
        for (;;) {
            plat_fd_zero(&set);
            plat_fd_add(&set, raw);
            if (plat_select(raw + 1, &set, nullptr, nullptr, out.empty() ? ms : 0) <= 0)
                return out;
            char buf[65536];
            long n = plat_recv(raw, buf, sizeof buf);
            if (n <= 0)
                return out;
            out.append(buf, static_cast<size_t>(n));
        }
    }
};

inline void appendWord(std::string& out, uint32_t v) {
    char b[4];
    stp_put_u32(b, v);
    out.append(b, 4);
}

// A packet image with a header of `headerSize` bytes (words beyond the eleven are filled with
// 0xEEEEEEEE, so that a reader that fails to skip them shows it) and `body`, padded to 4.
struct RawPacket {
    int32_t headerSize = STP_HEADER_SIZE;
    int32_t dataSize = -2; // -2: the body's length
    uint32_t localRN = 1, remoteRN = 2, serial = 2, inReplyTo = 0;
    int32_t kind = KIND_BINARY, tag = 7;
    uint32_t flags = 0, origin = 0, depth = 1;
    std::string body;

    std::string bytes() const {
        std::string out;
        const uint32_t words[STP_HEADER_WORDS] = {
            static_cast<uint32_t>(headerSize),
            static_cast<uint32_t>(dataSize == -2 ? static_cast<int32_t>(body.size()) : dataSize),
            localRN,
            remoteRN,
            serial,
            inReplyTo,
            static_cast<uint32_t>(kind),
            static_cast<uint32_t>(tag),
            flags,
            origin,
            depth};
        for (int i = 0; i < headerSize / 4; ++i)
            appendWord(out, i < STP_HEADER_WORDS ? words[i] : 0xEEEEEEEEu);
        out += body;
        while (out.size() % 4)
            out.push_back('\0');
        return out;
    }
};

} // namespace stptest
