// What the service adds to a commit: CommitFiles of 100 modified files in 10 directories of one
// working copy, sent through svc_router to cvsservice, against the same `cvs commit` line run
// directly by this process in the same working copy. Before each run the files are modified
// anew (not timed). The two sides alternate (A B A B ...) after a warm-up of each; each round's
// ratio is the direct time over the service's time. Prints the median of the rounds' ratios with
// their minimum and maximum, and ends with "ratio commit VALUE".
#include "cvs_command.h"
#include "cvs_repo.h"
#include "gen_file.h"
#include "gen_process.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_files.h"
#include "service_session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int kDirectories = 10;
constexpr int kFilesPerDirectory = 10;
constexpr int kRounds = 9;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "commit_bench: %s\n", what.c_str());
    std::exit(1);
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Gives every file new content and a time of its own, so that cvs sees each as modified even
// when two runs fall within one second.
void modifyAll(const std::string& wc, const std::vector<std::string>& names, int run) {
    auto when = std::filesystem::file_time_type::clock::now() + std::chrono::seconds(run + 1);
    for (const std::string& name : names) {
        std::string path = wc + "/" + name;
        writeFile(path, name + " in run " + std::to_string(run) + "\n");
        std::filesystem::last_write_time(path, when);
    }
}

// The direct side: the line the service runs for this group, run to its end in the working copy.
double commitDirectly(const std::vector<std::string>& names) {
    char* commentFile = nullptr;
    if (!writeCommentFile(&commentFile, "direct commit\n"))
        fail("no comment file");
    char* word = cvsFileWord(commentFile);
    std::string options = std::string(" -Q commit -F ") + word + " ";
    gen_free(word);
    std::vector<const char*> group;
    for (const std::string& n : names)
        group.push_back(n.c_str());
    char* line = cvsGroupLine(options.c_str(), group);
    auto start = std::chrono::steady_clock::now();
    char* out = nullptr;
    char* err = nullptr;
    bool ok = captureCommand(line, &out, &err, nullptr, nullptr, 0);
    double elapsed = seconds(start);
    if (!ok || (err && *err))
        fail(std::string("direct commit failed: ") + (err ? err : ""));
    gen_free(out);
    gen_free(err);
    gen_free(line);
    gen_unlink(commentFile);
    gen_free(commentFile);
    return elapsed;
}

double commitThroughService(ServiceSession& session, VcClient* vc,
                            const std::vector<std::string>& names) {
    std::vector<char*> data;
    for (const std::string& n : names)
        data.push_back(const_cast<char*>(n.c_str()));
    StringList list{static_cast<int32_t>(data.size()), data.data()};
    StringList versions;
    char* error = nullptr;
    STPStatus status;
    auto start = std::chrono::steady_clock::now();
    if (!vc->CommitFiles(list, "service commit\n", &versions, &error, session.waiter().get(),
                         &status))
        fail(std::string("request failed: ") + (status.message ? status.message : ""));
    double elapsed = seconds(start);
    if (error)
        fail(std::string("the service's commit failed: ") + error);
    StringList_free(&versions);
    return elapsed;
}

} // namespace

int main() {
    ScratchFolder folder;
    CvsRepo repo(folder.root());
    if (!repo.init())
        fail(repo.lastError());
    CvsFiles files;
    std::vector<std::string> names;
    for (int d = 0; d < kDirectories; ++d)
        for (int f = 0; f < kFilesPerDirectory; ++f) {
            std::string name = "d" + std::to_string(d) + "/f" + std::to_string(f) + ".c";
            files[name] = "first\n";
            names.push_back(name);
        }
    if (!repo.importModule("m", files))
        fail(repo.lastError());
    std::string wc = repo.checkout("m", "wc");
    if (wc.empty())
        fail(repo.lastError());

    // Both sides work in the working copy: the direct runs in this process's directory, the
    // service with the client's directory as the base of the relative names.
    if (plat_chdir(wc.c_str()) != 0)
        fail("cannot enter " + wc);
    ServiceSession session;
    if (!session.start(folder))
        fail(session.error());
    VcClient* vc = session.connectVersionControl(wc);
    if (vc == nullptr)
        fail(session.error());

    int run = 0;
    modifyAll(wc, names, ++run);
    commitDirectly(names);
    modifyAll(wc, names, ++run);
    commitThroughService(session, vc, names);

    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        modifyAll(wc, names, ++run);
        double direct = commitDirectly(names);
        modifyAll(wc, names, ++run);
        double service = commitThroughService(session, vc, names);
        ratios.push_back(direct / service);
        std::printf("round %d: direct %.1f ms, service %.1f ms, ratio %.3f\n", round + 1,
                    direct * 1000, service * 1000, ratios.back());
    }
    // Every run committed every file: the revision counts the runs.
    std::string entries = readFile(wc + "/d9/CVS/Entries");
    std::string expected = "/f9.c/1." + std::to_string(run + 1) + "/";
    if (entries.find(expected) == std::string::npos)
        fail("not every run committed: " + entries);

    std::vector<double> sorted = ratios;
    std::sort(sorted.begin(), sorted.end());
    double median = sorted[sorted.size() / 2];
    std::printf("median %.3f (min %.3f, max %.3f) over %d rounds, %d files in %d directories\n",
                median, sorted.front(), sorted.back(), kRounds, kDirectories * kFilesPerDirectory,
                kDirectories);
    std::printf("ratio commit %.3f\n", median);
    return 0;
}
