// Collects what the code under test reports through the general reporter, instead of letting
// it reach standard error, for as long as the object lives.
#pragma once

#include "gen_asprintf.h"
#include "indgen.h"

#include <string>
#include <vector>

class ReportCapture {
public:
    struct Report {
        int level;
        std::string text;
    };

    ReportCapture() { previous = gen_set_report_func(&ReportCapture::record); }
    ~ReportCapture() { gen_set_report_func(previous); }
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    // The reports so far, each as "<level word>: <text>" ("error: ...", "warning: ...",
    // "info: ..."; other levels as their number).
    static std::vector<std::string> texts() {
        std::vector<std::string> out;
        for (const Report& r : reports()) {
            const char* word = r.level == GEN_ERROR     ? "error"
                               : r.level == GEN_WARNING ? "warning"
                               : r.level == GEN_INFO    ? "info"
                                                        : nullptr;
            out.push_back((word ? std::string(word) : std::to_string(r.level)) + ": " + r.text);
        }
        return out;
    }
    // All reports joined, one to a line.
    static std::string joined() {
        std::string out;
        for (const std::string& t : texts())
            out += t + "\n";
        return out;
    }
    static void clear() { reports().clear(); }

private:
    static std::vector<Report>& reports() {
        static std::vector<Report> all;
        return all;
    }
    static void record(int level, const char* format, va_list args) {
        char* text = gen_vasprintf(format, args);
        std::string s = text ? text : "";
        gen_free(text);
        while (!s.empty() && s.back() == '\n')
            s.pop_back();
        reports().push_back({level, s});
    }

    gen_report_func previous;
};
