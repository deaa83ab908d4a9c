// The response time of FileIsUnderVC on another connection while a scan of a checkout of 20,000
// files in 400 directories runs, against the same request on an idle service. Each round asks
// 50 times on the idle service, then starts a scan and asks back to back until the scan has
// ended. Printed: the median and the 99th percentile of both sides over all rounds (goal: a 99th
// percentile within 20 ms while the scan runs); each round's ratio is the idle median over the
// busy median. Last line: "ratio scan_response VALUE".
#include "checkout_bench_common.h"
#include "stp_transport.h"

using namespace checkout_bench;

namespace {
constexpr const char* kBench = "scan_response_bench";
constexpr int kDirectories = 400;
constexpr int kFilesPerDirectory = 50;
constexpr int kRounds = 7;
constexpr int kIdleRequests = 50;

// One FileIsUnderVC; its time in milliseconds.
double ask(Service& service, VcClient* vc, const std::string& file) {
    bool under = false;
    char* error = nullptr;
    STPStatus status;
    auto start = Clock::now();
    if (!vc->FileIsUnderVC(file.c_str(), &under, &error, service.session.waiter().get(), &status))
        fail(kBench, std::string("request failed: ") + (status.message ? status.message : ""));
    double ms = seconds(start) * 1e3;
    gen_free(error);
    return ms;
}
} // namespace

int main() {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    if (!repo.init() ||
        !repo.importModule("big", generatedModule(kDirectories, kFilesPerDirectory)))
        fail(kBench, repo.lastError());
    std::string wc = repo.checkout("big", "wc");
    if (wc.empty())
        fail(kBench, repo.lastError());
    std::string file = wc + "/d3/e7/f11.c";

    Service service(kBench, folder, wc);
    VcClient* vc = service.session.connectVersionControl(wc);
    if (vc == nullptr)
        fail(kBench, service.session.error());
    const char* list[] = {wc.c_str()};
    auto startScan = [&] {
        service.client->events.clear();
        char* cookie = nullptr;
        char* error = nullptr;
        if (!service.client->RequestCheckoutInfo(1, list, false, &cookie, &error,
                                                 service.session.waiter().get(), nullptr))
            fail(kBench, "the scan was not answered");
        gen_free(cookie);
        gen_free(error);
    };
    // Warm-up of both.
    ask(service, vc, file);
    startScan();
    service.awaitEnd();

    std::vector<double> idle, busy, ratios;
    for (int round = 1; round <= kRounds; ++round) {
        std::vector<double> a, b;
        for (int i = 0; i < kIdleRequests; ++i)
            a.push_back(ask(service, vc, file));
        startScan();
        while (service.client->count(CheckoutEvent::finished) == 0) {
            b.push_back(ask(service, vc, file));
            // The scan's events that came during the call are held back until the client
            // serves its connection outside a call: one short turn of it before the next.
            std::vector<STPTransport*> link{service.session.plugin()->getTransport()};
            STPTransport::serviceFirst(1, link);
        }
        double ratio = percentile(a, 0.5) / percentile(b, 0.5);
        ratios.push_back(ratio);
        std::printf("round %d: idle median %.2f ms p99 %.2f ms; during the scan (%zu requests) "
                    "median %.2f ms p99 %.2f ms max %.2f ms; ratio %.3f\n",
                    round, percentile(a, 0.5), percentile(a, 0.99), b.size(), percentile(b, 0.5),
                    percentile(b, 0.99), percentile(b, 1.0), ratio);
        idle.insert(idle.end(), a.begin(), a.end());
        busy.insert(busy.end(), b.begin(), b.end());
    }
    std::printf("scan_response_bench: idle median %.2f ms, p99 %.2f ms (%zu requests); during a "
                "scan of %d files median %.2f ms, p99 %.2f ms, max %.2f ms (%zu requests; goal p99 "
                "<= 20 ms)\n",
                percentile(idle, 0.5), percentile(idle, 0.99), idle.size(),
                kDirectories * kFilesPerDirectory, percentile(busy, 0.5), percentile(busy, 0.99),
                percentile(busy, 1.0), busy.size());
    summarise("scan_response", "idle/busy median", ratios);
    return 0;
}
