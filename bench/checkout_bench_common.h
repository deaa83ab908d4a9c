// What the benchmarks of the checkout-info jobs share: generated repositories and checkouts,
// the service through svc_router with a recording client, one job run to its end, timing, and
// the summary of alternating rounds.
#pragma once

#include "checkout_info_client.h"
#include "cvs_repo.h"
#include "gen_string.h"
#include "service_session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace checkout_bench {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

[[noreturn]] inline void fail(const char* bench, const std::string& what) {
    std::fprintf(stderr, "%s: %s\n", bench, what.c_str());
    std::exit(1);
}

inline double seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// The value below which `fraction` of the sorted `values` lie (nearest rank).
inline double percentile(std::vector<double> values, double fraction) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    size_t rank = static_cast<size_t>(fraction * static_cast<double>(values.size()));
    return values[std::min(rank, values.size() - 1)];
}

// Prints the median of the per-round ratios with their minimum and maximum, and the last line
// "ratio NAME VALUE".
inline void summarise(const char* name, const char* what, std::vector<double> ratios) {
    std::sort(ratios.begin(), ratios.end());
    double median = ratios[ratios.size() / 2];
    std::printf("%s: %s median %.3f, min %.3f, max %.3f over %zu rounds\n", name, what, median,
                ratios.front(), ratios.back(), ratios.size());
    std::printf("ratio %s %.3f\n", name, median);
}

// A module "big" of `directories` directories (20 at the top, the rest below them) with
// `filesPerDirectory` files each, imported into a new repository in `folder`.
inline CvsFiles generatedModule(int directories, int filesPerDirectory) {
    CvsFiles files;
    for (int d = 0; d < directories; ++d) {
        std::string dir = "d" + std::to_string(d % 20) + "/e" + std::to_string(d / 20);
        for (int f = 0; f < filesPerDirectory; ++f)
            files[dir + "/f" + std::to_string(f) + ".c"] =
                "line 1 of " + std::to_string(f) + "\nline 2\nline 3\n";
    }
    return files;
}

// Writes `content` to `path` with a time an hour in the past: different from the checkout's, so
// cvs compares the text, and not in the future, which would make cvs wait for the clock.
inline void editInThePast(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::trunc) << content;
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(1));
}

// The service with a recording client on "VC_CheckoutInfo.CVS".
class Service {
public:
    Service(const char* bench, const ScratchFolder& folder, const std::string& cwd) : bench(bench) {
        if (!session.start(folder))
            fail(bench, session.error());
        client = session.connect(new RecordingCheckoutClient, "VC_CheckoutInfo.CVS", cwd);
        if (client == nullptr)
            fail(bench, session.error());
    }

    // Sends the request made by `send` and serves the connection until its job has ended;
    // the report of its one root.
    template <typename Send> CheckoutReport run(Send send) {
        client->events.clear();
        char* cookie = nullptr;
        char* error = nullptr;
        STPStatus status;
        if (!send(&cookie, &error, session.waiter().get(), &status))
            fail(bench, std::string("request failed: ") + (status.message ? status.message : ""));
        gen_free(cookie);
        gen_free(error);
        awaitEnd();
        auto reports = client->reports();
        if (reports.size() != 1 || !client->events.back().text.empty())
            fail(bench, "the job failed: " + client->events.back().text);
        return *reports[0];
    }
    void awaitEnd() {
        if (!session.pumpUntil([&] { return client->count(CheckoutEvent::finished) > 0; }, 600000))
            fail(bench, "the job did not end");
    }
    CheckoutReport scan(const std::string& root, bool local) {
        const char* list[] = {root.c_str()};
        return run([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->RequestCheckoutInfo(1, list, local, cookie, error, wait, status);
        });
    }
    CheckoutReport update(const std::string& root) {
        const char* list[] = {root.c_str()};
        return run([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->RequestCheckoutUpdate(1, list, cookie, error, wait, status);
        });
    }
    // The pid of cvsservice (a child of the router).
    long servicePid() {
        for (const auto& entry : fs::directory_iterator("/proc")) {
            if (std::atol(entry.path().filename().c_str()) <= 0)
                continue;
            std::ifstream stat(entry.path() / "stat");
            std::string text((std::istreambuf_iterator<char>(stat)),
                             std::istreambuf_iterator<char>());
            size_t close = text.rfind(')');
            if (close == std::string::npos || text.find("(cvsservice)") == std::string::npos)
                continue;
            long parent = std::atol(text.c_str() + close + 4);
            if (parent == session.router().pid())
                return std::atol(entry.path().filename().c_str());
        }
        fail(bench, "cvsservice is not running");
    }

    const char* bench;
    ServiceSession session;
    RecordingCheckoutClient* client = nullptr;
};

// A field of /proc/PID/status in KiB ("VmRSS", "VmHWM").
inline long statusKiB(long pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return std::atol(line.c_str() + field.size() + 1);
    return -1;
}

} // namespace checkout_bench
