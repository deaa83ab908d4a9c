// What the question "is this file under version control?" costs beside the one look at the
// modification time it can't do without: FileIsUnderVC of a server object of the service,
// called in-process (the path resolved through the router client, the cached image of the
// directory's CVS/Entries, the lookup of the name) on a directory whose CVS/Entries has 10,000
// lines, against a bare stat of that CVS/Entries. The server's cache holds 21 images, as a busy
// server's would. The two sides alternate, 9 rounds after a warm-up; the result is the median
// of the per-round ratios stat time / query time, so 1.0 means the query costs no more than its
// stat. Last line: "ratio entries_query VALUE".
#include "cvs_versioncontrol_server.h"
#include "plat_files.h"
#include "plat_process.h"
#include "servicerouter_proxy.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kLines = 10000;
constexpr int kCallsPerSide = 200000;
constexpr int kRounds = 9;

// A server object without a connection: the router client then takes its paths as they are.
class Server : public CVS_VersionControl_Server {
public:
    Server() : VersionControl_Server(nullptr, 0, 0), CVS_VersionControl_Server(nullptr, 0, 0) {}
};

double secondsOf(void (*side)(const std::string&, const std::string&, Server&),
                 const std::string& dir, const std::string& path, Server& server) {
    auto start = std::chrono::steady_clock::now();
    side(dir, path, server);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void query(const std::string&, const std::string& path, Server& server) {
    for (int i = 0; i < kCallsPerSide; ++i) {
        bool result = false;
        char* error = nullptr;
        server.FileIsUnderVC(path.c_str(), &result, &error);
        if (!result || error)
            std::fprintf(stderr, "query lost the file\n"), std::exit(1);
    }
}

void bareStat(const std::string& dir, const std::string&, Server&) {
    std::string entries = dir + "/CVS/Entries";
    for (int i = 0; i < kCallsPerSide; ++i) {
        PlatFileStatus status;
        if (plat_stat(entries.c_str(), &status) != 0)
            std::fprintf(stderr, "stat failed\n"), std::exit(1);
    }
}

} // namespace

int main() {
    fs::path top = fs::temp_directory_path() /
                   ("cvss_entries_query_bench_" + std::to_string(plat_current_process_id()));
    fs::remove_all(top);
    fs::path dir = top / "work";
    fs::create_directories(dir / "CVS");
    {
        std::ofstream out(dir / "CVS" / "Entries");
        char line[96];
        for (int i = 0; i < kLines; ++i) {
            std::snprintf(line, sizeof line, "/file%05d.c/1.%d/Mon Jan  1 10:00:00 2001//\n", i,
                          1 + i % 7);
            out << line;
        }
        out << "D\n";
    }
    // Written long ago, as a working copy's Entries usually is.
    fs::last_write_time(dir / "CVS" / "Entries",
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    std::string name = "file05000.c";
    std::ofstream(dir / name) << "x\n";

    ensureServiceRouterProxy();
    Server* server = new Server;
    for (int i = 0; i < 20; ++i) {
        fs::path other = top / ("other" + std::to_string(i));
        fs::create_directories(other);
        bool result = true;
        char* error = nullptr;
        server->FileIsUnderVC((other / "x.c").string().c_str(), &result, &error);
    }
    std::string dirText = dir.string();
    std::string path = (dir / name).string();
    query(dirText, path, *server);
    bareStat(dirText, path, *server);

    std::vector<double> ratios;
    double queryNs = 0, statNs = 0;
    for (int r = 0; r < kRounds; ++r) {
        double q = secondsOf(query, dirText, path, *server);
        double s = secondsOf(bareStat, dirText, path, *server);
        ratios.push_back(s / q);
        queryNs += q * 1e9 / kCallsPerSide / kRounds;
        statNs += s * 1e9 / kCallsPerSide / kRounds;
        std::printf("round %d: query %.0f ns, stat %.0f ns, ratio %.3f\n", r + 1,
                    q * 1e9 / kCallsPerSide, s * 1e9 / kCallsPerSide, s / q);
    }
    server->unref();
    destroyGlobalServiceRouterProxy(false);
    fs::remove_all(top);
    std::sort(ratios.begin(), ratios.end());
    std::printf("entries_query: query %.0f ns, stat %.0f ns on average over %d rounds\n", queryNs,
                statNs, kRounds);
    std::printf("entries_query: ratio stat/query median %.3f, min %.3f, max %.3f\n",
                ratios[ratios.size() / 2], ratios.front(), ratios.back());
    std::printf("ratio entries_query %.3f\n", ratios[ratios.size() / 2]);
    return 0;
}
