// RequestCheckoutUpdate of a checkout in which 2,000 of its 4,000 files changed in the
// repository, against the line the job runs (cvs -q update -dP) run directly. The service reads
// the child's output as it comes, so it should take no longer than the child. Every run gets a
// fresh out-of-date copy (cp -a of one stale checkout, all made before the rounds). The sides
// alternate after a warm-up; each round's ratio is direct time / service time. Last line:
// "ratio update VALUE".
#include "checkout_bench_common.h"
#include "gen_process.h"
#include "run_program.h"

using namespace checkout_bench;

namespace {
constexpr const char* kBench = "update_bench";
constexpr int kDirectories = 80;
constexpr int kFilesPerDirectory = 50;
constexpr int kRounds = 7;

std::string fileOf(int d, int f) {
    return "d" + std::to_string(d % 20) + "/e" + std::to_string(d / 20) + "/f" + std::to_string(f) +
           ".c";
}

// cvs -q update -dP in `wc`, run to its end; gives its standard output.
std::string runDirect(const std::string& wc) {
    char* line = cdCommandLine(wc.c_str(), "\"cvs.exe\" -q update -dP");
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
    std::string stale = repo.checkout("big", "stale");
    std::string other = repo.checkout("big", "other");
    if (stale.empty() || other.empty())
        fail(kBench, repo.lastError());
    int changed = 0;
    for (int d = 0; d < kDirectories; ++d)
        for (int f = 0; f < kFilesPerDirectory; f += 2, ++changed)
            editInThePast(other + "/" + fileOf(d, f), "changed in the repository\n");
    if (!repo.run(other, {"-Q", "commit", "-m", "many changes"}))
        fail(kBench, repo.lastError());

    std::vector<std::string> copies;
    for (int i = 0; i < 2 * (kRounds + 1); ++i) {
        copies.push_back(folder.at("copy" + std::to_string(i)));
        ProgramRun cp = runProgram({"cp", "-a", stale, copies.back()}, 120000);
        if (!cp.finished || cp.exitCode != 0)
            fail(kBench, "cp -a failed: " + cp.err);
    }
    Service service(kBench, folder, stale);
    auto check = [&](const std::string& wc) {
        std::ifstream in(wc + "/" + fileOf(kDirectories - 1, 0));
        std::string line;
        std::getline(in, line);
        if (line != "changed in the repository")
            fail(kBench, "not updated: " + wc);
    };
    // Warm-up, and both sides must do the work.
    std::string direct = runDirect(copies[0]);
    if (std::count(direct.begin(), direct.end(), '\n') != changed)
        fail(kBench, "cvs printed:\n" + direct);
    service.update(copies[1]);
    check(copies[0]);
    check(copies[1]);
    size_t output = service.client->output(false).size();

    std::vector<double> ratios;
    for (int round = 1; round <= kRounds; ++round) {
        auto start = Clock::now();
        runDirect(copies[2 * round]);
        double a = seconds(start);
        start = Clock::now();
        service.update(copies[2 * round + 1]);
        double b = seconds(start);
        check(copies[2 * round + 1]);
        ratios.push_back(a / b);
        std::printf("round %d: direct %.0f ms, service %.0f ms, ratio %.3f\n", round, a * 1e3,
                    b * 1e3, a / b);
    }
    std::printf("update_bench: %d files, %d changed in the repository, %zu bytes of output\n",
                kDirectories * kFilesPerDirectory, changed, output);
    summarise("update", "direct/service", ratios);
    return 0;
}
