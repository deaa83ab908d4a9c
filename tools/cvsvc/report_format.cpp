#include "report_format.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace {
constexpr uint32_t kNoChanges = 2300;
}

// ---- JsonWriter -----------------------------------------------------------------------------

void JsonWriter::separate() {
    if (afterKey) {
        afterKey = false;
        return;
    }
    if (!firstInLevel.empty()) {
        if (!firstInLevel.back())
            out += ",";
        firstInLevel.back() = false;
    }
}

JsonWriter& JsonWriter::beginObject() {
    separate();
    out += "{";
    firstInLevel.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    out += "}";
    firstInLevel.pop_back();
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    separate();
    out += "[";
    firstInLevel.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    out += "]";
    firstInLevel.pop_back();
    return *this;
}

JsonWriter& JsonWriter::key(const std::string& name) {
    separate();
    out += jsonQuote(name) + ":";
    afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::value(const std::string& text) {
    separate();
    out += jsonQuote(text);
    return *this;
}

JsonWriter& JsonWriter::value(const char* text) {
    return text ? value(std::string(text)) : null();
}

JsonWriter& JsonWriter::value(int64_t number) {
    separate();
    out += std::to_string(number);
    return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
    separate();
    out += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    separate();
    out += "null";
    return *this;
}

std::string jsonQuote(const std::string& text) {
    std::string quoted = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\r':
            quoted += "\\r";
            break;
        case '\t':
            quoted += "\\t";
            break;
        default:
            if (c < 0x20) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", c);
                quoted += escape;
            } else {
                quoted += static_cast<char>(c);
            }
        }
    }
    return quoted + "\"";
}

// ---- Status words ---------------------------------------------------------------------------

const char* statusWord(int64_t statusType) {
    switch (statusType) {
    case 200:
        return "Unknown";
    case 500:
        return "Will Conflict";
    case 600:
        return "Needs Merge";
    case 700:
        return "Has Conflict";
    case 1000:
        return "Locally Added";
    case 1100:
        return "Locally Removed";
    case 1200:
        return "Locally Modified";
    case 1500:
        return "Remotely Added";
    case 1600:
        return "Remotely Removed";
    case 1700:
        return "Remotely Modified";
    case 2000:
        return "Not under VC";
    case 2050:
        return "Directory Not under VC";
    case 2300:
        return "No changes";
    case 2600:
        return "File does not exist";
    default:
        return "Error: Unknown Type";
    }
}

// ---- Report table ---------------------------------------------------------------------------

std::string shownPath(const std::string& cwd, const std::string& directory,
                      const std::string& file) {
    std::string path = directory.empty() ? file : directory + "/" + file;
    std::string base = cwd;
    while (base.size() > 1 && base.back() == '/')
        base.pop_back();
    if (path.size() > base.size() && path.compare(0, base.size(), base) == 0 &&
        (base == "/" || path[base.size()] == '/'))
        return path.substr(base == "/" ? 1 : base.size() + 1);
    return path;
}

std::string reportTable(std::vector<ReportRow> rows, bool all) {
    size_t unchanged = 0;
    if (!all) {
        unchanged = static_cast<size_t>(std::count_if(
            rows.begin(), rows.end(), [](const ReportRow& r) { return r.type == kNoChanges; }));
        std::erase_if(rows, [](const ReportRow& r) { return r.type == kNoChanges; });
    }
    std::stable_sort(rows.begin(), rows.end(), [](const ReportRow& a, const ReportRow& b) {
        return a.type != b.type ? a.type < b.type : a.path < b.path;
    });
    size_t pathWidth = 4, versionWidth = 7;
    for (const ReportRow& r : rows) {
        pathWidth = std::max(pathWidth, r.path.size());
        versionWidth = std::max(versionWidth, r.version.size());
    }
    std::map<uint32_t, size_t> counts;
    for (const ReportRow& r : rows)
        ++counts[r.type];
    std::string text;
    for (size_t i = 0; i < rows.size(); ++i) {
        const ReportRow& r = rows[i];
        if (i == 0 || rows[i - 1].type != r.type) {
            if (i != 0)
                text += "\n";
            text += std::string(statusWord(r.type)) + " (" + std::to_string(counts[r.type]) + ")\n";
        }
        std::string line = "  " + r.path;
        line.resize(2 + pathWidth + 2, ' ');
        line += r.version;
        line.resize(2 + pathWidth + 2 + versionWidth + 2, ' ');
        line += r.tag;
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        text += line + "\n";
    }
    if (unchanged > 0)
        text += (rows.empty() ? "" : "\n") + std::to_string(unchanged) +
                (unchanged == 1 ? " file has" : " files have") +
                " no changes (--all shows them).\n";
    return text;
}

std::string alignColumns(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i) {
            if (widths.size() <= i)
                widths.push_back(0);
            widths[i] = std::max(widths[i], row[i].size());
        }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size())
                line.resize(line.size() + widths[i] - row[i].size() + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        text += line + "\n";
    }
    return text;
}
