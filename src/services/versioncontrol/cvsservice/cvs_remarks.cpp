#include "cvs_remarks.h"

#include "gen_string.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace {

using std::string_view;

bool holds(string_view text, string_view part) {
    return text.find(part) != string_view::npos;
}

bool holdsAny(string_view text, std::initializer_list<string_view> parts) {
    for (string_view part : parts)
        if (holds(text, part))
            return true;
    return false;
}

bool beginsWithAny(string_view line, std::initializer_list<string_view> prefixes) {
    for (string_view prefix : prefixes)
        if (line.starts_with(prefix))
            return true;
    return false;
}

// Calls `each` with every line of `text` (without its "\n"), up to the first empty line or the
// end; false as soon as `each` is.
template <typename Each> bool everyLine(string_view text, Each each) {
    while (!text.empty()) {
        size_t end = text.find('\n');
        string_view line = text.substr(0, end);
        if (line.empty())
            return true;
        if (!each(line))
            return false;
        if (end == string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
    return true;
}

// The remark of `cvs add` or `cvs remove` about the commit that makes it permanent.
bool scheduledRemarks(const char* output, string_view verb) {
    if (!output)
        return false;
    string_view text(output);
    std::string old = "use 'cvs commit' to " + std::string(verb) + " ";
    std::string now = "use `cvs commit' to " + std::string(verb) + " ";
    std::string how = std::string(verb) + ": ";
    if (!holdsAny(text, {how + old, "server: " + old, how + now, "server: " + now}))
        return false;
    std::string tail = "cvs commit' to " + std::string(verb);
    for (const char* opening : {"'", "`"})
        for (const char* what : {" these files permanently", " this file permanently"})
            if (holds(text, opening + tail + what))
                return true;
    return false;
}

bool isLockRemark(string_view line) {
    return (holds(line, "waiting for ") && holds(line, " lock in ")) ||
           holds(line, "obtained lock in ");
}

bool isCheckInReport(string_view line) {
    return holds(line, "  <--  ") ||
           beginsWithAny(line, {"new revision: ", "initial revision: ", "Checking in "}) ||
           line == "done";
}

} // namespace

bool addRemarksOnly(const char* output) {
    return scheduledRemarks(output, "add");
}

bool removeRemarksOnly(const char* output) {
    return scheduledRemarks(output, "remove");
}

bool commitRemarksOnly(const char* output) {
    if (!output)
        return false;
    string_view text(output);
    if (!holds(text, "waiting for") || !holds(text, "lock in") || !holds(text, "obtained lock in"))
        return false;
    if (holds(text, "Up-to-date check failed for") || holds(text, "server aborted"))
        return false;
    if (holds(text, "Checking in") && holds(text, "new revision:") && holds(text, "done"))
        return true;
    return everyLine(text, [](string_view line) {
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        return isLockRemark(line) || isCheckInReport(line);
    });
}

bool updateRemarksOnly(const char* output) {
    if (!output)
        return false;
    return everyLine(output, [](string_view line) {
        if (beginsWithAny(line, {"cvs server: warning: ", "cvs update: warning: "}))
            return holds(line, " is not (any longer) pertinent");
        return beginsWithAny(
            line, {"rcsmerge: warning: conflicts during merge", "cvs server: conflicts found in ",
                   "cvs update: conflicts found in ", "RCS file: ", "retrieving revision ",
                   "Merging differences between "});
    });
}

char* resurrectedVersion(const char* output, const char* baseName) {
    if (!output || !baseName)
        return nullptr;
    string_view text(output);
    if (text.starts_with("cvs server: "))
        text.remove_prefix(12);
    else if (text.starts_with("cvs add: "))
        text.remove_prefix(9);
    else
        return nullptr;
    string_view name(baseName);
    std::string quoted = "`" + std::string(name) + "'";
    if (text.starts_with(quoted))
        text.remove_prefix(quoted.size());
    else if (text.starts_with(name))
        text.remove_prefix(name.size());
    else
        return nullptr;
    constexpr string_view kVersion = ", version ";
    if (!text.starts_with(kVersion))
        return nullptr;
    text.remove_prefix(kVersion.size());
    size_t end = text.find(", resurrected");
    if (end == string_view::npos)
        return nullptr;
    return gen_strndup(text.data(), static_cast<int>(end));
}

bool annotateRemarksOnly(const char* errorText) {
    return errorText == nullptr || *errorText == '\0' ||
           string_view(errorText).find("Annotations for") != string_view::npos;
}
