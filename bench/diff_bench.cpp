// The diff engine against GNU diff on two generated texts with about 1% of the lines changed and
// a moved block: diffScriptFiles writing its edit script to a file, beside `diff` run as a child
// process writing its output to a file. Both at 100,000 and at 1,000,000 lines, alternated
// round by round, with the peak memory of each side. Last line: "ratio diff VALUE".
//
// Peak memory is read without system headers: the engine runs once more in a child process
// (this program with "--engine-once") that reports VmHWM from /proc/self/status, and GNU diff
// runs under /usr/bin/time -f %M when that exists.
#include "diff_engine.h"
#include "gen_file.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_memory.h"
#include "plat_process.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

double msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

std::string readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A line of a source-like text: blank lines and closing braces recur, the rest is mostly unique.
std::string makeLine(std::mt19937& rng) {
    static const char* const words[] = {"int",    "return", "if",    "else",  "for",
                                        "while",  "value",  "count", "index", "buffer",
                                        "result", "const",  "auto",  "size",  "next"};
    uint32_t k = rng() % 100;
    if (k < 8)
        return "\n";
    if (k < 12)
        return "}\n";
    std::string line(4 * (rng() % 4), ' ');
    for (uint32_t w = 2 + rng() % 6; w > 0; --w)
        line += std::string(words[rng() % 15]) + " ";
    return line + std::to_string(rng() % 100000) + ";\n";
}

// Writes A and B of `lines` lines: B has 1% of the lines replaced and a block of 0.5% of them
// moved from a fifth of the way to four fifths.
void makeTexts(int lines, const std::string& a, const std::string& b) {
    std::mt19937 rng(20240611u + static_cast<uint32_t>(lines));
    std::vector<std::string> text;
    for (int k = 0; k < lines; ++k)
        text.push_back(makeLine(rng));
    std::vector<std::string> changed = text;
    for (int k = 0; k < lines / 100; ++k)
        changed[rng() % changed.size()] = "changed " + makeLine(rng);
    size_t start = static_cast<size_t>(lines) / 5, length = static_cast<size_t>(lines) / 200;
    std::vector<std::string> block(changed.begin() + static_cast<long>(start),
                                   changed.begin() + static_cast<long>(start + length));
    changed.erase(changed.begin() + static_cast<long>(start),
                  changed.begin() + static_cast<long>(start + length));
    size_t to = static_cast<size_t>(lines) * 4 / 5;
    changed.insert(changed.begin() + static_cast<long>(to), block.begin(), block.end());
    std::ofstream(a, std::ios::binary) << [&] {
        std::string all;
        for (const std::string& line : text)
            all += line;
        return all;
    }();
    std::ofstream(b, std::ios::binary) << [&] {
        std::string all;
        for (const std::string& line : changed)
            all += line;
        return all;
    }();
}

// The engine's side of one round: compare, write the script, release everything.
bool runEngine(const std::string& a, const std::string& b, const std::string& out) {
    int count = 0;
    char** script = nullptr;
    DiffResult* result = diffScriptFiles(a.c_str(), b.c_str(), &count, &script);
    if (!result)
        return false;
    FILE* file = gen_fopen(out.c_str(), "we");
    if (!file)
        return false;
    for (int k = 0; k < count; ++k)
        std::fputs(script[k], file);
    std::fclose(file);
    freeDiffScript(count, script);
    freeDiffResult(result);
    return true;
}

// Runs argv as a child with its standard output in `out`; the exit code, or -1 when it could not
// start (`missing` tells whether the program was not found).
int runChild(const std::vector<std::string>& argv, const std::string& out, bool* missing) {
    std::vector<const char*> words;
    for (const std::string& w : argv)
        words.push_back(w.c_str());
    words.push_back(nullptr);
    int fd = plat_open(out.c_str(), PLAT_O_WRONLY | PLAT_O_CREAT | PLAT_O_TRUNC, 0644);
    PlatSpawnOptions options;
    options.stdoutFd = fd;
    PlatError error = PlatError::none;
    PlatProcess* child = plat_spawn(words.data(), &options, &error);
    plat_close(fd);
    if (missing)
        *missing = !child && error == PlatError::not_found;
    if (!child)
        return -1;
    int code = -1;
    if (plat_wait_process(child, -1) != PlatWait::exited || !plat_process_exit_code(child, &code))
        code = -1;
    plat_close_process(child);
    return code;
}

// Checks once that the engine's script rebuilds B from A, so that the timing is of real work.
bool scriptRebuilds(const std::string& a, const std::string& b, const std::string& scriptPath) {
    std::vector<std::string> old;
    std::ifstream in(a, std::ios::binary);
    for (std::string line; std::getline(in, line);)
        old.push_back(line + "\n");
    std::ifstream script(scriptPath, std::ios::binary);
    std::string rebuilt;
    for (std::string line; std::getline(script, line);) {
        long first = 0, last = 0;
        if (std::sscanf(line.c_str(), "m%ld,%ld", &first, &last) == 2 ||
            (std::sscanf(line.c_str(), "m%ld", &first) == 1 && (last = first))) {
            for (long k = first; k <= last; ++k)
                rebuilt += old.at(static_cast<size_t>(k - 1));
        } else if (std::sscanf(line.c_str(), "a%ld", &first) == 1) {
            for (long k = 0; k < first && std::getline(script, line); ++k)
                rebuilt += line + "\n";
        } else {
            return false;
        }
    }
    return rebuilt == readWhole(b);
}

// VmHWM of this process in KiB, -1 when unknown.
long peakKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

// The number on the last line of `text` (time puts a remark about the exit code in front).
long lastNumber(const std::string& text) {
    size_t end = text.find_last_not_of("\n");
    size_t start = text.find_last_of('\n', end);
    return std::atol(text.c_str() + (start == std::string::npos ? 0 : start + 1));
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Compares both sides on texts of `lines` lines; false when diff is missing. *ratio is the
// median of the per-round ratios diff/engine.
bool compare(const char* self, const fs::path& folder, int lines, int rounds, double* ratio) {
    std::string a = (folder / "a.txt").string(), b = (folder / "b.txt").string();
    std::string engineOut = (folder / "engine.out").string();
    std::string diffOut = (folder / "diff.out").string();
    makeTexts(lines, a, b);
    std::printf("%d lines: A %.1f MB, B %.1f MB, 1%% changed, %d lines moved\n", lines,
                static_cast<double>(fs::file_size(a)) / 1e6,
                static_cast<double>(fs::file_size(b)) / 1e6, lines / 200);

    bool missing = false;
    if (!runEngine(a, b, engineOut) || !scriptRebuilds(a, b, engineOut)) {
        std::printf("the engine's script does not rebuild B\n");
        std::exit(1);
    }
    if (runChild({"diff", a, b}, diffOut, &missing) < 0) {
        std::printf("GNU diff not found on PATH: comparison skipped\n");
        return false;
    }

    std::vector<double> ratios;
    double engineTotal = 0, diffTotal = 0;
    for (int round = 0; round < rounds; ++round) {
        auto start = std::chrono::steady_clock::now();
        runEngine(a, b, engineOut);
        double engineMs = msSince(start);
        start = std::chrono::steady_clock::now();
        runChild({"diff", a, b}, diffOut, nullptr);
        double diffMs = msSince(start);
        engineTotal += engineMs;
        diffTotal += diffMs;
        ratios.push_back(diffMs / engineMs);
        std::printf("  round %2d: engine %8.1f ms, diff %8.1f ms, ratio %.2f\n", round + 1,
                    engineMs, diffMs, diffMs / engineMs);
    }
    *ratio = median(ratios);
    std::printf("diff/engine at %d lines: median %.2f (min %.2f, max %.2f) over %d rounds; "
                "mean times engine %.1f ms, diff %.1f ms\n",
                lines, *ratio, *std::min_element(ratios.begin(), ratios.end()),
                *std::max_element(ratios.begin(), ratios.end()), rounds, engineTotal / rounds,
                diffTotal / rounds);

    std::string peakOut = (folder / "peak.out").string();
    std::string enginePeak = "unknown", diffPeak = "unknown (no /usr/bin/time)";
    if (runChild({self, "--engine-once", a, b, engineOut}, peakOut, nullptr) == 0)
        enginePeak = std::to_string(std::atol(readWhole(peakOut).c_str()) / 1024) + " MiB";
    if (fs::exists("/usr/bin/time") &&
        runChild({"/usr/bin/time", "-f", "%M", "-o", peakOut, "diff", a, b}, diffOut, nullptr) >= 0)
        diffPeak = std::to_string(lastNumber(readWhole(peakOut)) / 1024) + " MiB";
    std::printf("peak memory at %d lines: engine %s, GNU diff %s\n", lines, enginePeak.c_str(),
                diffPeak.c_str());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    gen_init(argv[0]);
    // The service's process keeps large blocks in the heap (its transport asks for that), so the
    // engine runs here with the allocator set up the same way.
    plat_keep_large_blocks_in_heap();
    if (argc == 5 && std::strcmp(argv[1], "--engine-once") == 0) {
        if (!runEngine(argv[2], argv[3], argv[4]))
            return 1;
        std::printf("%ld\n", peakKib());
        return 0;
    }
    fs::path folder =
        fs::temp_directory_path() / ("diff_bench_" + std::to_string(plat_current_process_id()));
    fs::create_directories(folder);
    double ratio100k = 0, ratio1m = 0;
    bool ran = compare(argv[0], folder, 100000, 11, &ratio100k) &&
               compare(argv[0], folder, 1000000, 7, &ratio1m);
    fs::remove_all(folder);
    if (!ran)
        return 0;
    std::printf("ratio diff_1000000 %.2f\n", ratio1m);
    std::printf("ratio diff %.2f\n", ratio100k);
    return 0;
}
