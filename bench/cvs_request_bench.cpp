// What the service adds to a cvs run: ExecuteCommandString("-n -q update") sent through
// svc_router to cvsservice, against the same cvs line run directly by this process, both in one
// checkout of about 2,000 files. The two sides alternate (A B A B ...) after a warm-up; each
// round's ratio is the direct time over the service's time. Prints the median of the rounds'
// ratios with their minimum and maximum, and ends with "ratio cvs_request VALUE".
#include "cvs_repo.h"
#include "gen_process.h"
#include "indgen.h"
#include "plat_files.h"
#include "service_session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int kDirectories = 40;
constexpr int kFilesPerDirectory = 50;
constexpr int kRounds = 11;
constexpr int kRunsPerSide = 5;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "cvs_request_bench: %s\n", what.c_str());
    std::exit(1);
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The direct side: the line the service runs, run to its end by this process.
double runDirect(const std::string& expected) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRunsPerSide; ++i) {
        char* out = nullptr;
        char* err = nullptr;
        if (!captureCommand("\"cvs.exe\" -n -q update", &out, &err, nullptr, nullptr, 0))
            fail(std::string("cvs failed: ") + err);
        if (expected != out)
            fail(std::string("unexpected output of the direct run: ") + out);
        gen_free(out);
        gen_free(err);
    }
    return seconds(start);
}

double runThroughService(ServiceSession& session, VcClient* vc, const std::string& expected) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRunsPerSide; ++i) {
        char* out = nullptr;
        char* err = nullptr;
        STPStatus status;
        if (!vc->ExecuteCommandString("-n -q update", &out, &err, session.waiter().get(), &status))
            fail(std::string("request failed: ") + (status.message ? status.message : ""));
        if (out == nullptr || expected != out)
            fail(std::string("unexpected output of the service: ") + (err ? err : ""));
        gen_free(out);
        gen_free(err);
    }
    return seconds(start);
}

} // namespace

int main() {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    if (!repo.init())
        fail(repo.lastError());
    CvsFiles files;
    for (int d = 0; d < kDirectories; ++d)
        for (int f = 0; f < kFilesPerDirectory; ++f)
            files["d" + std::to_string(d) + "/f" + std::to_string(f) + ".c"] =
                "line " + std::to_string(f) + "\n";
    if (!repo.importModule("m", files))
        fail(repo.lastError());
    std::string wc = repo.checkout("m", "wc");
    if (wc.empty())
        fail(repo.lastError());
    // Something for the update to report: one local change in every directory.
    for (int d = 0; d < kDirectories; ++d)
        writeFile(wc + "/d" + std::to_string(d) + "/f0.c", "changed\n");

    // The service and the direct runs share the working directory: the router starts the
    // service in the directory it was started in.
    if (plat_chdir(wc.c_str()) != 0)
        fail("cannot enter " + wc);
    ServiceSession session;
    if (!session.start(folder))
        fail(session.error());
    VcClient* vc = session.connectVersionControl(wc);
    if (vc == nullptr)
        fail(session.error());

    // Both sides must report the same: every changed file, nothing else.
    std::string firstOut;
    char* out = nullptr;
    if (!captureCommand("\"cvs.exe\" -n -q update", &out, nullptr, nullptr, nullptr, 0))
        fail("cvs does not run");
    firstOut = out;
    gen_free(out);
    for (int d = 0; d < kDirectories; ++d)
        if (firstOut.find("M d" + std::to_string(d) + "/f0.c\n") == std::string::npos)
            fail("cvs did not report the changed files: " + firstOut);

    // Warm-up of both sides, then alternating rounds.
    runDirect(firstOut);
    runThroughService(session, vc, firstOut);
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        double direct = runDirect(firstOut);
        double service = runThroughService(session, vc, firstOut);
        ratios.push_back(direct / service);
        std::printf("round %d: direct %.1f ms, service %.1f ms, ratio %.3f\n", round + 1,
                    direct * 1000 / kRunsPerSide, service * 1000 / kRunsPerSide, ratios.back());
    }
    std::vector<double> sorted = ratios;
    std::sort(sorted.begin(), sorted.end());
    double median = sorted[sorted.size() / 2];
    std::printf("median %.3f (min %.3f, max %.3f) over %d rounds of %d runs per side, %d files\n",
                median, sorted.front(), sorted.back(), kRounds, kRunsPerSide,
                kDirectories * kFilesPerDirectory);
    std::printf("ratio cvs_request %.3f\n", median);
    return 0;
}
