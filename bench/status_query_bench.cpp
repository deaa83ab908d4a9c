// What the service adds to the status of one file: GetStatusInfo sent through svc_router to
// cvsservice, against `cvs -n status FILE` run directly by this process in the same working
// directory. The two sides alternate (A B A B ...) after a warm-up; each round's ratio is the
// direct time over the service's time. Prints the median of the rounds' ratios with their
// minimum and maximum, and ends with "ratio status_query VALUE".
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

constexpr int kFiles = 200;
constexpr int kRounds = 11;
constexpr int kRunsPerSide = 50;
const char* const kFile = "f100.c";

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "status_query_bench: %s\n", what.c_str());
    std::exit(1);
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The direct side: the status of the file, run to its end by this process and searched for the
// word the service would report.
double runDirect() {
    std::string line = std::string("\"cvs.exe\" -n status ") + kFile;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRunsPerSide; ++i) {
        char* out = nullptr;
        char* err = nullptr;
        if (!captureCommand(line.c_str(), &out, &err, nullptr, nullptr, 0))
            fail(std::string("cvs failed: ") + (err ? err : ""));
        if (std::string(out).find("Status: Locally Modified") == std::string::npos)
            fail(std::string("unexpected output of the direct run: ") + out);
        gen_free(out);
        gen_free(err);
    }
    return seconds(start);
}

double runThroughService(ServiceSession& session, VcClient* vc) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRunsPerSide; ++i) {
        int32_t type = 0;
        char *word = nullptr, *local = nullptr, *remote = nullptr, *tag = nullptr, *lock = nullptr,
             *error = nullptr;
        STPStatus status;
        if (!vc->GetStatusInfo(kFile, &type, &word, &local, &remote, &tag, &lock, &error,
                               session.waiter().get(), &status))
            fail(std::string("request failed: ") + (status.message ? status.message : ""));
        if (type != 1200 || error)
            fail(std::string("unexpected answer of the service: ") + (error ? error : ""));
        for (char* s : {word, local, remote, tag, lock, error})
            gen_free(s);
    }
    return seconds(start);
}

// The part of the service's time that is the way there and back: the mean time of a request
// that runs nothing (IsVCOptimistic), in microseconds.
double roundTripMicroseconds(ServiceSession& session, VcClient* vc) {
    constexpr int kTrips = 200;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTrips; ++i) {
        bool optimistic = false;
        char* error = nullptr;
        STPStatus status;
        if (!vc->IsVCOptimistic(&optimistic, &error, session.waiter().get(), &status))
            fail("IsVCOptimistic failed");
        gen_free(error);
    }
    return seconds(start) * 1e6 / kTrips;
}

} // namespace

int main() {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    if (!repo.init())
        fail(repo.lastError());
    CvsFiles files;
    for (int f = 0; f < kFiles; ++f) {
        std::string name = "f";
        name += std::to_string(f);
        name += ".c";
        files[name] = name + "\n";
    }
    if (!repo.importModule("m", files))
        fail(repo.lastError());
    std::string wc = repo.checkout("m", "wc");
    if (wc.empty())
        fail(repo.lastError());
    writeFile(wc + "/" + kFile, "changed\n");

    // The router starts the service in its own directory, the working copy; the client's "cwd"
    // is the same, so the service resolves the bare name to the file the direct side names.
    if (plat_chdir(wc.c_str()) != 0)
        fail("cannot enter " + wc);
    ServiceSession session;
    if (!session.start(folder))
        fail(session.error());
    VcClient* vc = session.connectVersionControl(wc);
    if (vc == nullptr)
        fail(session.error());

    runDirect();
    runThroughService(session, vc);
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        double direct = runDirect();
        double service = runThroughService(session, vc);
        ratios.push_back(direct / service);
        std::printf("round %d: direct %.2f ms, service %.2f ms, ratio %.3f\n", round + 1,
                    direct * 1000 / kRunsPerSide, service * 1000 / kRunsPerSide, ratios.back());
    }
    std::vector<double> sorted = ratios;
    std::sort(sorted.begin(), sorted.end());
    double median = sorted[sorted.size() / 2];
    std::printf("median %.3f (min %.3f, max %.3f) over %d rounds of %d requests per side\n", median,
                sorted.front(), sorted.back(), kRounds, kRunsPerSide);
    std::printf("a request that runs nothing takes %.0f us there and back\n",
                roundTripMicroseconds(session, vc));
    std::printf("ratio status_query %.3f\n", median);
    return 0;
}
