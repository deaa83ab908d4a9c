// What the local-only walk of a checkout costs beside the file-system work it can't do without:
// visitReportItems over a tree of 100,000 files in 400 directories (each with its CVS/Entries),
// then packLocalItems and the wire record, against a bare listing of every directory with a
// stat of every file. The two sides alternate, 7 rounds after a warm-up; the result is the
// median of the per-round ratios bare time / walk time, so 1.0 means the walk costs no more
// than its listings and stats. Also printed: files per second of the walk, and the growth of the
// process's peak resident memory during the first walk (items, report and wire record at
// once). Last line: "ratio checkout_walk VALUE".
#include "checkout_report.h"
#include "checkout_walk.h"
#include "gen_file.h"
#include "plat_process.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kDirectories = 400;
constexpr int kFilesPerDirectory = 250;
constexpr int kRounds = 7;

// The peak resident set of the process so far, in KiB (VmHWM of /proc/self/status).
long peakResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

// One local-only walk of `root` into a report and its wire form; gives the number of items.
int32_t walk(const std::string& root) {
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

// Lists each directory and stats each file in it.
int32_t bare(const std::vector<std::string>& dirs) {
    int32_t count = 0;
    for (const std::string& dir : dirs) {
        GenDir listing;
        if (!gen_dir_open(&listing, dir.c_str()))
            continue;
        while (gen_dir_next(&listing)) {
            PlatFileStatus status;
            if (!listing.isDirectory && gen_stat(listing.entryPath, &status) == 0)
                ++count;
        }
        gen_dir_close(&listing);
    }
    return count;
}

double seconds(const std::chrono::steady_clock::time_point& start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main() {
    fs::path top = fs::temp_directory_path() /
                   ("cvss_checkout_walk_bench_" + std::to_string(plat_current_process_id()));
    fs::remove_all(top);
    // 20 directories at the top, each with 19 below it: 400 working directories.
    std::vector<std::string> dirs;
    for (int d = 0; d < kDirectories; ++d) {
        fs::path dir = top / "co";
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
        dirs.push_back(dir.string());
    }
    std::string root = (top / "co").string();

    long peakBefore = peakResidentKiB();
    int32_t items = walk(root);
    long peakAfter = peakResidentKiB();
    if (items != kDirectories * kFilesPerDirectory || bare(dirs) != items) {
        std::fprintf(stderr, "walk found %d items\n", items);
        return 1;
    }

    std::vector<double> ratios;
    double walkSeconds = 0;
    for (int r = 0; r < kRounds; ++r) {
        auto start = std::chrono::steady_clock::now();
        walk(root);
        double w = seconds(start);
        start = std::chrono::steady_clock::now();
        bare(dirs);
        double b = seconds(start);
        ratios.push_back(b / w);
        walkSeconds += w / kRounds;
        std::printf("round %d: walk %.1f ms, bare %.1f ms, ratio %.3f\n", r + 1, w * 1e3, b * 1e3,
                    b / w);
    }
    fs::remove_all(top);
    std::sort(ratios.begin(), ratios.end());
    std::printf("checkout_walk: %d files, %.0f files/s, peak memory +%.1f MiB during the first "
                "walk\n",
                items, items / walkSeconds, (peakAfter - peakBefore) / 1024.0);
    std::printf("checkout_walk: ratio bare/walk median %.3f, min %.3f, max %.3f\n",
                ratios[ratios.size() / 2], ratios.front(), ratios.back());
    std::printf("ratio checkout_walk %.3f\n", ratios[ratios.size() / 2]);
    return 0;
}
