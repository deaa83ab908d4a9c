// Shared parts of the transport benchmarks: a peer process that echoes every message it gets,
// over an STP transport or over a plain blocking socket, and the alternating comparison of two
// sides (A B A B ..., the median of the per-round ratios).
//
// Both variants are measured in the same run against a peer in a second process (this program
// again, started with "--peer stp PORT" or "--peer plain PORT SIZE"), so the process-wide state
// of the transport is never shared between threads.
#pragma once

#include "plat_process.h"
#include "plat_socket.h"
#include "stp_echo_listener.h"
#include "stp_message.h"
#include "stp_transport.h"
#include "ut_retryhandler.h"

#include <algorithm>
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

using EchoListener = StpEchoListener;

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

// One side of a comparison: a connection to a peer that is set up once and measured in many
// short runs, so that both sides of a round meet the same load of the machine.
class Side {
public:
    virtual ~Side() = default;
    // Round trips per second over `rounds` round trips.
    virtual double rate(int rounds) = 0;
};

// A plain blocking socket to a peer that echoes `payload` bytes.
class PlainSide : public Side {
public:
    PlainSide(const char* self, size_t payload) : out(payload, 'p'), in(payload) {
        peer = startPeer(self, "plain", payload, &s);
        plat_set_nonblocking(s, false);
    }
    ~PlainSide() override {
        plat_close_socket(s);
        plat_wait_process(peer, 10000);
        plat_close_process(peer);
    }
    double rate(int rounds) override {
        auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < rounds; ++i)
            if (!sendAll(s, out.data(), out.size()) || !recvAll(s, in.data(), in.size()))
                std::fprintf(stderr, "plain round trip failed\n"), std::exit(1);
        return rounds / secondsSince(start);
    }

private:
    plat_socket s = PLAT_INVALID_SOCKET;
    PlatProcess* peer = nullptr;
    std::vector<char> out, in;
};

// Requests of `payload` bytes on an STP transport, answered by a peer that echoes them:
// newMessage, sendMessage, awaitResponse, as a generated stub calls.
inline double stpRate(STPTransport* t, uint32_t localRN, uint32_t remoteRN, size_t payload,
                      RetryHandler* retry, int rounds) {
    std::string body(payload, 's');
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < rounds; ++i) {
        STPMessage* m = t->newMessage(localRN, remoteRN, KIND_BINARY, 1, MSG_WANTS_REPLY);
        m->putRaw(body.data(), static_cast<int32_t>(payload));
        uint32_t serial = t->sendMessage(m, retry);
        delete m;
        STPMessage* reply = serial ? t->awaitResponse(serial, retry) : nullptr;
        if (reply == nullptr || static_cast<size_t>(reply->dataSize) < payload) {
            std::fprintf(stderr, "stp round trip failed: %s\n", t->getStatus().message);
            std::exit(1);
        }
        delete reply;
    }
    return rounds / secondsSince(start);
}

// An STP transport to a peer that echoes.
class StpSide : public Side {
public:
    StpSide(const char* self, size_t payload) : payload(payload) {
        plat_socket s = PLAT_INVALID_SOCKET;
        peer = startPeer(self, "stp", payload, &s);
        t = new STPTransport;
        t->bindFD(s);
    }
    ~StpSide() override {
        t->closeConnection();
        t->unref();
        plat_wait_process(peer, 10000);
        plat_close_process(peer);
    }
    double rate(int rounds) override { return stpRate(t, 1, 2, payload, nullptr, rounds); }

private:
    size_t payload;
    STPTransport* t = nullptr;
    PlatProcess* peer = nullptr;
};

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Compares `b` with `a`: one warm-up run of each, then `rounds` rounds of a run of `a` and a
// run of `b` (`trips` round trips each), in that order. Prints each side's median rate (as
// MiB/s when `mibPerTrip` is above 0), the median of the per-round ratios b/a with their
// minimum and maximum, and last "ratio NAME MEDIAN".
inline void alternate(const char* name, const char* labelA, Side& a, const char* labelB, Side& b,
                      int trips, int rounds, double mibPerTrip) {
    a.rate(trips / 2 + 1);
    b.rate(trips / 2 + 1);
    std::vector<double> rateA, rateB, ratios;
    for (int r = 0; r < rounds; ++r) {
        rateA.push_back(a.rate(trips));
        rateB.push_back(b.rate(trips));
        ratios.push_back(rateB.back() / rateA.back());
    }
    double scale = mibPerTrip > 0 ? mibPerTrip : 1;
    const char* unit = mibPerTrip > 0 ? "MiB/s" : "round trips/s";
    std::printf("%s %s: %.1f %s (median of %d runs)\n", name, labelA, median(rateA) * scale, unit,
                rounds);
    std::printf("%s %s: %.1f %s (median of %d runs)\n", name, labelB, median(rateB) * scale, unit,
                rounds);
    std::printf("%s ratio per round: median %.3f, min %.3f, max %.3f (%d rounds)\n", name,
                median(ratios), *std::min_element(ratios.begin(), ratios.end()),
                *std::max_element(ratios.begin(), ratios.end()), rounds);
    std::printf("ratio %s %.3f\n", name, median(ratios));
    std::fflush(stdout);
}

// The transport against plain sockets, alternating (see alternate).
inline void compare(const char* self, const char* name, size_t payload, int trips, int rounds,
                    bool asThroughput) {
    PlainSide plain(self, payload);
    StpSide stp(self, payload);
    // Each round trip carries the payload both ways.
    double mib = asThroughput ? 2.0 * static_cast<double>(payload) / 1048576.0 : 0;
    alternate(name, "plain sockets", plain, "stp transport", stp, trips, rounds, mib);
}

} // namespace stpbench
