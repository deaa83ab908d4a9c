// The local-only scan (RequestCheckoutInfo with `local`) of a checkout of 100,000 files in 400
// directories, through the service, against the same walk, report and wire record made in this
// process: what the job, its slices and its one large DisplayCheckoutInfo add. The sides
// alternate after a warm-up; each round's ratio is in-process time / service time. Also printed:
// the service's files per second, and its peak resident memory above what it used idle before
// the first scan (goal: at most 64 MiB). Last line: "ratio local_scan VALUE".
#include "checkout_bench_common.h"
#include "checkout_report.h"
#include "checkout_walk.h"
#include "plat_process.h"

using namespace checkout_bench;

namespace {
constexpr const char* kBench = "local_scan_bench";
constexpr int kDirectories = 400;
constexpr int kFilesPerDirectory = 250;
constexpr int kRounds = 7;

int32_t walkInProcess(const std::string& root) {
    CheckoutWalk state;
    state.scan_queue.push_back(root.c_str());
    while (visitReportItems(&state)) {
    }
    CheckoutInfo info = packLocalItems(root.c_str(), &state.local_items);
    CheckoutInfoRecord wire = info.wireRecord();
    int32_t count = wire._num_items;
    CheckoutInfo::releaseWireRecord(&wire);
    return count;
}
} // namespace

int main() {
    ScratchFolder folder;
    // A checkout needs nothing but CVS/Entries for a local scan: 20 directories at the top, each
    // with 19 below it.
    fs::path top = folder.at("co");
    for (int d = 0; d < kDirectories; ++d) {
        fs::path dir = top;
        if (d > 0)
            dir /= "d" + std::to_string((d - 1) / 20);
        if (d > 0 && (d - 1) % 20 > 0)
            dir /= "e" + std::to_string((d - 1) % 20);
        fs::create_directories(dir / "CVS");
        std::ofstream entries(dir / "CVS" / "Entries");
        for (int f = 0; f < kFilesPerDirectory; ++f) {
            std::string name = "file" + std::to_string(f) + ".c";
            entries << "/" << name << "/1." << 1 + f % 9 << "/Mon Jan  1 10:00:00 2001//\n";
            std::ofstream(dir / name) << "x\n";
        }
    }
    std::string root = top.string();
    const size_t files = static_cast<size_t>(kDirectories) * kFilesPerDirectory;

    Service service(kBench, folder, root);
    long pid = service.servicePid();
    long idleKiB = statusKiB(pid, "VmRSS");
    // Warm-up; both sides must see every file.
    CheckoutReport report = service.scan(root, true);
    long peakKiB = statusKiB(pid, "VmHWM");
    if (report.items.size() != files || walkInProcess(root) != static_cast<int32_t>(files))
        fail(kBench, "the scan saw " + std::to_string(report.items.size()) + " files");

    std::vector<double> ratios;
    double serviceSeconds = 0;
    for (int round = 1; round <= kRounds; ++round) {
        auto start = Clock::now();
        walkInProcess(root);
        double a = seconds(start);
        start = Clock::now();
        service.scan(root, true);
        double b = seconds(start);
        serviceSeconds += b / kRounds;
        ratios.push_back(a / b);
        std::printf("round %d: in process %.0f ms, service %.0f ms, ratio %.3f\n", round, a * 1e3,
                    b * 1e3, a / b);
    }
    std::printf("local_scan_bench: %zu files, %.0f files/s through the service; service idle "
                "%.1f MiB, peak %.1f MiB, peak above idle %.1f MiB (goal <= 64)\n",
                files, static_cast<double>(files) / serviceSeconds, idleKiB / 1024.0,
                peakKiB / 1024.0, (peakKiB - idleKiB) / 1024.0);
    summarise("local_scan", "in-process/service", ratios);
    return 0;
}
