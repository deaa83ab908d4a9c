// RequestCheckoutInfo on a checkout of 20,000 files in 400 directories with 1% of them changed,
// against the line the job runs (cvs -nq update) run directly in the same tree. The service's
// walk and merge should hide behind the child's own time. The sides alternate after a warm-up;
// each round's ratio is direct time / service time (the service's from the request to the job's
// FinishedGettingCheckoutInfo). Last line: "ratio scan VALUE".
#include "checkout_bench_common.h"
#include "gen_process.h"

using namespace checkout_bench;

namespace {
constexpr const char* kBench = "scan_bench";
constexpr int kDirectories = 400;
constexpr int kFilesPerDirectory = 50;
constexpr int kRounds = 7;

// cvs -nq update in `wc`, run to its end; gives its standard output.
std::string runDirect(const std::string& wc) {
    char* line = cdCommandLine(wc.c_str(), "\"cvs.exe\" -nq update");
    char* out = nullptr;
    char* err = nullptr;
    if (!captureCommand(line, &out, &err, nullptr, nullptr, 0))
        fail(kBench, std::string("cvs failed: ") + err);
    std::string text = out;
    gen_free(line);
    gen_free(out);
    gen_free(err);
    return text;
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
    // 1%: every hundredth file.
    int changed = 0;
    for (int d = 0; d < kDirectories; ++d)
        for (int f = 0; f < kFilesPerDirectory; ++f)
            if ((d * kFilesPerDirectory + f) % 100 == 0) {
                editInThePast(wc + "/d" + std::to_string(d % 20) + "/e" + std::to_string(d / 20) +
                                  "/f" + std::to_string(f) + ".c",
                              "changed\n");
                ++changed;
            }

    Service service(kBench, folder, wc);
    // Warm-up, and both sides must agree.
    std::string direct = runDirect(wc);
    CheckoutReport report = service.scan(wc, false);
    int modified = 0;
    for (const CheckoutReportItem& item : report.items)
        modified += item.type == 1200;
    size_t printed = std::count(direct.begin(), direct.end(), '\n');
    if (modified != changed || printed != static_cast<size_t>(changed) ||
        report.items.size() != static_cast<size_t>(kDirectories * kFilesPerDirectory))
        fail(kBench, "the two sides disagree: " + std::to_string(modified) + " modified items, " +
                         std::to_string(printed) + " lines of cvs, " +
                         std::to_string(report.items.size()) + " items");

    std::vector<double> ratios;
    for (int round = 1; round <= kRounds; ++round) {
        auto start = Clock::now();
        runDirect(wc);
        double a = seconds(start);
        start = Clock::now();
        service.scan(wc, false);
        double b = seconds(start);
        ratios.push_back(a / b);
        std::printf("round %d: direct %.0f ms, service %.0f ms, ratio %.3f\n", round, a * 1e3,
                    b * 1e3, a / b);
    }
    std::printf("scan_bench: %d files in %d directories, %d changed\n",
                kDirectories * kFilesPerDirectory, kDirectories, changed);
    summarise("scan", "direct/service", ratios);
    return 0;
}
