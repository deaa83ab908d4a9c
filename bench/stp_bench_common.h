// Shared parts of the transport benchmarks: a peer process that echoes every message it gets,
// over an STP transport or over a plain blocking socket, and a timer.
//
// Both variants are measured in the same run against a peer in a second process (this program
// again, started with "--peer stp PORT" or "--peer plain PORT SIZE"), so the process-wide state
// of the transport is never shared between threads.
#pragma once

#include "plat_process.h"
#include "plat_socket.h"
#include "stp_message.h"
#include "stp_transport.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace stpbench {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Sends or receives exactly `size` bytes on a blocking socket.
inline bool sendAll(plat_socket s, const char* data, size_t size) {
    while (size > 0) {
        long n = plat_send(s, data, size);
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}
inline bool recvAll(plat_socket s, char* data, size_t size) {
    while (size > 0) {
        long n = plat_recv(s, data, size);
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Echoes every request back as a reply with the same body.
class EchoListener : public ResponseListener {
public:
    explicit EchoListener(STPTransport* t) : transport(t) {}
    bool handle(STPMessage* m) override {
        STPMessage* reply = transport->newReply(m->remoteRN, m->localRN, m->serial, 0);
        reply->putRaw(m->data() + m->headerSize, m->dataSize);
        transport->sendWithAttempts(reply, 2);
        delete reply;
        return true;
    }
    STPTransport* transport;
};

// An STP peer on 127.0.0.1 `port` that echoes requests from route numbers (2, 1) until the
// connection closes; returns the exit code.
inline int runStpEchoPeer(uint16_t port) {
    STPTransport* t = new STPTransport;
    if (!t->connect("127.0.0.1", port))
        return 2;
    EchoListener echo(t);
    t->addListener(1, 2, &echo, KIND_BINARY);
    while (t->isBound())
        t->serviceOnce(10000);
    t->removeListener(&echo);
    t->unref();
    return 0;
}

// The peer's side; returns the exit code.
inline int runPeer(int argc, char** argv) {
    std::string kind = argv[2];
    uint16_t port = static_cast<uint16_t>(std::atoi(argv[3]));
    if (kind == "stp")
        return runStpEchoPeer(port);
    if (argc < 5)
        return 2;
    size_t size = static_cast<size_t>(std::atol(argv[4]));
    plat_socket s = plat_tcp_socket();
    if (!plat_connect(s, plat_loopback_address(), port))
        return 2;
    plat_set_nodelay(s, true);
    std::vector<char> buffer(size);
    while (recvAll(s, buffer.data(), size) && sendAll(s, buffer.data(), size)) {
    }
    plat_close_socket(s);
    return 0;
}

// Starts this program as a peer of `kind` on a fresh listening socket and accepts it.
inline PlatProcess* startPeer(const char* self, const char* kind, size_t size, plat_socket* out) {
    uint16_t port = 0;
    plat_socket listenFd = STPTransport::getEphemeralListenSocket(&port);
    std::string portText = std::to_string(port);
    std::string sizeText = std::to_string(size);
    const char* argv[] = {self, "--peer", kind, portText.c_str(), sizeText.c_str(), nullptr};
    PlatProcess* peer = plat_spawn(argv, nullptr, nullptr);
    *out = STPTransport::acceptClient(listenFd, true);
    return peer;
}

// Round trips per second of `payload`-byte messages echoed by a plain blocking socket.
inline double plainRoundTrips(const char* self, size_t payload, int rounds) {
    plat_socket s = PLAT_INVALID_SOCKET;
    PlatProcess* peer = startPeer(self, "plain", payload, &s);
    plat_set_nonblocking(s, false);
    std::vector<char> out(payload, 'p'), in(payload);
    for (int i = 0; i < rounds / 10; ++i) // warm-up
        sendAll(s, out.data(), payload), recvAll(s, in.data(), payload);
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < rounds; ++i)
        if (!sendAll(s, out.data(), payload) || !recvAll(s, in.data(), payload))
            std::fprintf(stderr, "plain round trip failed\n"), std::exit(1);
    double rate = rounds / secondsSince(start);
    plat_close_socket(s);
    plat_wait_process(peer, 10000);
    plat_close_process(peer);
    return rate;
}

// Round trips per second of `payload`-byte requests answered by an STP peer that echoes them:
// newMessage, sendMessage, awaitResponse, as a generated stub calls.
inline double stpRoundTrips(const char* self, size_t payload, int rounds) {
    plat_socket s = PLAT_INVALID_SOCKET;
    PlatProcess* peer = startPeer(self, "stp", payload, &s);
    STPTransport* t = new STPTransport;
    t->bindFD(s);
    std::string body(payload, 's');
    auto once = [&] {
        STPMessage* m = t->newMessage(1, 2, KIND_BINARY, 1, MSG_WANTS_REPLY);
        m->putRaw(body.data(), static_cast<int32_t>(payload));
        uint32_t serial = t->sendMessage(m);
        delete m;
        STPMessage* reply = serial ? t->awaitResponse(serial) : nullptr;
        if (reply == nullptr || static_cast<size_t>(reply->dataSize) < payload) {
            std::fprintf(stderr, "stp round trip failed: %s\n", t->getStatus().message);
            std::exit(1);
        }
        delete reply;
    };
    for (int i = 0; i < rounds / 10; ++i)
        once();
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < rounds; ++i)
        once();
    double rate = rounds / secondsSince(start);
    t->closeConnection();
    t->unref();
    plat_wait_process(peer, 10000);
    plat_close_process(peer);
    return rate;
}

// Runs both variants `repeats` times, alternating, and keeps the best of each.
inline void compare(const char* self, const char* name, size_t payload, int rounds, int repeats,
                    bool asThroughput) {
    double plain = 0, stp = 0;
    for (int r = 0; r < repeats; ++r) {
        plain = std::max(plain, plainRoundTrips(self, payload, rounds));
        stp = std::max(stp, stpRoundTrips(self, payload, rounds));
    }
    if (asThroughput) {
        // Each round trip carries the payload both ways.
        double mib = 2.0 * static_cast<double>(payload) / 1048576.0;
        std::printf("%s plain sockets: %.1f MiB/s\n", name, plain * mib);
        std::printf("%s stp transport: %.1f MiB/s\n", name, stp * mib);
    } else {
        std::printf("%s plain sockets: %.0f round trips/s\n", name, plain);
        std::printf("%s stp transport: %.0f round trips/s\n", name, stp);
    }
    std::printf("ratio %s %.3f\n", name, stp / plain);
    std::fflush(stdout);
}

} // namespace stpbench
