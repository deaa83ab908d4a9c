#include "cvs_parsers.h"

#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using std::string_view;
constexpr size_t npos = string_view::npos;

// The text with every "\r\n" as "\n", so that a text with either line end parses alike.
std::string withPlainLineEnds(const char* text) {
    std::string plain;
    size_t length = std::strlen(text);
    plain.reserve(length);
    for (size_t i = 0; i < length; ++i)
        if (!(text[i] == '\r' && text[i + 1] == '\n'))
            plain.push_back(text[i]);
    return plain;
}

char* newString(string_view text) {
    return gen_strndup(text.data(), static_cast<int>(text.size()));
}

bool contains(string_view text, string_view part) {
    return text.find(part) != npos;
}

size_t skipBlanks(string_view text, size_t at) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
        ++at;
    return at;
}

// The text from `at` up to the first of `stops` or the end.
string_view valueAt(string_view text, size_t at, const char* stops) {
    size_t end = text.find_first_of(stops, at);
    return text.substr(at, end == npos ? npos : end - at);
}

string_view cutAt(string_view value, char c) {
    size_t at = value.find(c);
    return at == npos ? value : value.substr(0, at);
}

struct StatusWord {
    const char* word;
    int32_t type;
};

// Exact status words and their numbers; every other word is 200. "Unresolved Conflict" is how
// cvs 1.12 names a file that still has the conflict of its last merge.
constexpr StatusWord kStatusWords[] = {
    {"Unknown", 2000},
    {"Locally Modified", 1200},
    {"Locally Removed", 1100},
    {"Locally Added", 1000},
    {"Needs Checkout", 1500},
    {"Entry Invalid", 1600},
    {"Needs Merge", 600},
    {"Up-to-date", 2300},
    {"Needs Patch", 1700},
    {"File had conflicts on merge", 700},
    {"Unresolved Conflict", 700},
};

int32_t statusTypeOf(string_view word) {
    for (const StatusWord& entry : kStatusWords)
        if (word == entry.word)
            return entry.type;
    return 200;
}

} // namespace

bool parseStatusOutput(const char* text, char** local_version, char** remote_version,
                       char** status_str, int32_t* status_type, char** tag) {
    *local_version = *remote_version = *status_str = *tag = nullptr;
    *status_type = 0;
    if (!text)
        return false;
    std::string plain = withPlainLineEnds(text);
    string_view all(plain);

    bool noFile = contains(all, "File: no file ");
    if (noFile &&
        (contains(all, "Status: Unknown") || (contains(all, "Status: Up-to-date") &&
                                              contains(all, "Working revision:\tNo entry for ")))) {
        *local_version = gen_strdup("N/A");
        *remote_version = gen_strdup("N/A");
        *tag = gen_strdup("N/A");
        *status_str = gen_strdup("File does not exist");
        *status_type = 2600;
        return true;
    }

    size_t at = all.find("Status:");
    if (at == npos)
        return false;
    at = skipBlanks(all, at + std::strlen("Status:"));
    // A lone `\r` (not part of a line end) is cut off here before the word is compared.
    string_view word = cutAt(valueAt(all, at, "\n"), '\r');

    string_view local = "N/A";
    string_view remote = "N/A";
    string_view sticky = "N/A";
    if (word != "Unknown") {
        size_t working = all.find("Working revision:", at);
        if (working == npos)
            return false;
        at = skipBlanks(all, working + std::strlen("Working revision:"));
        local = valueAt(all, at, "\n\t ");
        if (!local.empty() && local[0] == '-')
            local.remove_prefix(1);
        at += local.size();

        size_t repository = all.find("Repository revision:", at);
        if (repository == npos)
            return false;
        at = skipBlanks(all, repository + std::strlen("Repository revision:"));
        constexpr string_view kNoFile = "No revision control file";
        remote = all.substr(at).starts_with(kNoFile) ? kNoFile : valueAt(all, at, "\n\t ");
        at += remote.size();

        size_t stickyAt = all.find("Sticky Tag:", at);
        if (stickyAt != npos)
            sticky = valueAt(all, skipBlanks(all, stickyAt + std::strlen("Sticky Tag:")), "\n");
        local = cutAt(local, '\r');
        remote = cutAt(remote, '\r');
        sticky = cutAt(sticky, '\r');
        if (sticky == "(none)")
            sticky = "HEAD";
    }

    *status_type = statusTypeOf(word);
    switch (*status_type) {
    case 1000:
        local = "New file";
        remote = "N/A";
        break;
    case 1500:
        local = "N/A";
        break;
    case 1600: {
        size_t end = local.find_first_not_of("0123456789.");
        if (end != npos)
            local = local.substr(0, end);
        break;
    }
    default:
        break;
    }
    *local_version = newString(local);
    *remote_version = newString(remote);
    *status_str = newString(word);
    *tag = newString(sticky);
    return true;
}

namespace {

constexpr string_view kRevisionStart = "----------------------------\nrevision ";
constexpr string_view kDateStart = "\ndate: ";
constexpr string_view kAuthorStart = ";  author: ";
constexpr string_view kStateStart = ";  state:";
constexpr string_view kLogEnd = "\n=====================================================";

void appendTag(HistoryItem* item, string_view name) {
    item->_tags = static_cast<char**>(
        gen_realloc(item->_tags, sizeof(char*) * static_cast<size_t>(item->_numTags + 1)));
    item->_tags[item->_numTags++] = newString(name);
}

// One item per entry of each "branches:" line: the entries run to the line's end, each to the
// next `;`, blanks in front of it skipped.
void parseBranches(string_view text, std::vector<HistoryItem>& items) {
    constexpr string_view kBranches = "\nbranches:";
    for (size_t at = text.find(kBranches); at != npos; at = text.find(kBranches, at)) {
        at += kBranches.size();
        size_t lineEnd = text.find('\n', at);
        string_view line = text.substr(at, lineEnd == npos ? npos : lineEnd - at);
        size_t pos = 0;
        while (pos < line.size()) {
            pos = skipBlanks(line, pos);
            size_t semicolon = line.find(';', pos);
            string_view entry = line.substr(pos, semicolon == npos ? npos : semicolon - pos);
            if (!entry.empty()) {
                HistoryItem branch;
                branch._version = newString(entry);
                branch._is_branch = true;
                items.push_back(branch);
            }
            if (semicolon == npos)
                break;
            pos = semicolon + 1;
        }
    }
}

struct SymbolRow {
    string_view name;
    std::string revision;
};

// Gives each item the names of the symbol table that stand on its version, then gives each
// branch item the date, author and comment of the last revision on its branch.
void parseSymbolicNames(string_view text, std::vector<HistoryItem>& items) {
    if (items.empty())
        return;
    constexpr string_view kTableStart = "symbolic names:\n";
    size_t start = text.find(kTableStart);
    if (start == npos)
        return;
    start += kTableStart.size();
    size_t end = text.find("\nkeyword substitution", start);
    if (end == npos)
        return;
    string_view table = text.substr(start, end - start);

    std::vector<SymbolRow> rows;
    for (size_t at = 0; at < table.size();) {
        size_t lineEnd = table.find('\n', at);
        string_view line = table.substr(at, lineEnd == npos ? npos : lineEnd - at);
        at = lineEnd == npos ? table.size() : lineEnd + 1;
        size_t colon = line.find(": ");
        if (line.empty() || line[0] != '\t' || colon == npos)
            continue;
        SymbolRow row{line.substr(1, colon - 1), std::string(line.substr(colon + 2))};
        // The magic branch form: 1.2.0.4 names the branch 1.2.4.
        size_t magic = row.revision.rfind(".0.");
        if (magic != std::string::npos)
            row.revision.erase(magic, 2);
        rows.push_back(std::move(row));
    }
    if (rows.empty())
        return;

    std::vector<HistoryItem*> sorted;
    for (HistoryItem& item : items)
        sorted.push_back(&item);
    std::stable_sort(sorted.begin(), sorted.end(), [](const HistoryItem* a, const HistoryItem* b) {
        return compareVersions(a->_version, b->_version) < 0;
    });
    std::stable_sort(rows.begin(), rows.end(), [](const SymbolRow& a, const SymbolRow& b) {
        return compareVersions(a.revision.c_str(), b.revision.c_str()) < 0;
    });

    for (size_t i = 0, r = 0; i < sorted.size() && r < rows.size();) {
        int order = compareVersions(sorted[i]->_version, rows[r].revision.c_str());
        if (order == 0)
            appendTag(sorted[i], rows[r++].name);
        else if (order < 0)
            ++i;
        else
            ++r;
    }

    for (size_t i = 0; i < sorted.size(); ++i) {
        HistoryItem* branch = sorted[i];
        if (!branch->_is_branch)
            continue;
        size_t last = i;
        while (last + 1 < sorted.size() &&
               std::strstr(sorted[last + 1]->_version, branch->_version))
            ++last;
        if (last == i)
            continue;
        gen_free(branch->_date);
        gen_free(branch->_username);
        gen_free(branch->_comments);
        branch->_date = gen_strdup(sorted[last]->_date);
        branch->_username = gen_strdup(sorted[last]->_username);
        branch->_comments = gen_strdup(sorted[last]->_comments);
    }
}

} // namespace

int32_t parseLogOutput(const char* text, HistoryItem** items) {
    *items = nullptr;
    if (!text)
        return 0;
    std::string plain = withPlainLineEnds(text);
    string_view all(plain);

    std::vector<HistoryItem> list;
    size_t at = all.find(kRevisionStart);
    while (at != npos) {
        size_t versionAt = at + kRevisionStart.size();
        size_t dateMark = all.find(kDateStart, versionAt);
        if (dateMark == npos)
            break;
        size_t dateAt = dateMark + kDateStart.size();
        size_t authorMark = all.find(kAuthorStart, dateAt);
        if (authorMark == npos)
            break;
        size_t authorAt = authorMark + kAuthorStart.size();
        size_t stateMark = all.find(kStateStart, authorAt);
        if (stateMark == npos)
            break;
        size_t commentAt = all.find('\n', stateMark);
        if (commentAt == npos)
            break;
        ++commentAt;
        size_t next = all.find(kRevisionStart, commentAt);
        size_t commentEnd = next != npos ? next : all.find(kLogEnd, commentAt);
        if (commentEnd == npos)
            break;

        HistoryItem item;
        item._version = newString(all.substr(versionAt, dateMark - versionAt));
        item._date = newString(all.substr(dateAt, authorMark - dateAt));
        item._username = newString(all.substr(authorAt, stateMark - authorAt));
        item._comments = newString(all.substr(commentAt, commentEnd - commentAt));
        list.push_back(item);
        at = next;
    }

    parseBranches(all, list);
    parseSymbolicNames(all, list);

    if (list.empty())
        return 0;
    *items = static_cast<HistoryItem*>(gen_alloc(list.size(), sizeof(HistoryItem)));
    std::copy(list.begin(), list.end(), *items);
    return static_cast<int32_t>(list.size());
}

namespace {

// The digits of a component from `*cursor`, without leading zeros, moving `*cursor` behind it
// and behind a `.` that ends it. False when the text doesn't begin with a digit there.
bool takeComponent(const char** cursor, string_view* digits) {
    const char* p = *cursor;
    if (*p < '0' || *p > '9')
        return false;
    while (*p == '0' && p[1] >= '0' && p[1] <= '9')
        ++p;
    const char* start = p;
    while (*p >= '0' && *p <= '9')
        ++p;
    *digits = string_view(start, static_cast<size_t>(p - start));
    *cursor = *p == '.' ? p + 1 : p;
    return true;
}

// The components of a version number (isVersionNumber holds), as digit strings.
std::vector<string_view> componentsOf(const char* s) {
    std::vector<string_view> parts;
    const char* start = s;
    for (const char* p = s;; ++p) {
        if (*p == '.' || *p == '\0') {
            parts.emplace_back(start, static_cast<size_t>(p - start));
            if (*p == '\0')
                break;
            start = p + 1;
        }
    }
    return parts;
}

// A decimal digit string raised or lowered by one (lowering never goes below 0). Leading zeros
// go; an empty string counts as 0.
std::string stepDecimal(string_view digits, int step) {
    std::string number(digits);
    size_t first = number.find_first_not_of('0');
    number = first == std::string::npos ? "0" : number.substr(first);
    if (step > 0) {
        size_t i = number.size();
        while (i > 0 && number[i - 1] == '9')
            number[--i] = '0';
        if (i == 0)
            number.insert(number.begin(), '1');
        else
            ++number[i - 1];
    } else if (step < 0 && number != "0") {
        size_t i = number.size();
        while (number[i - 1] == '0')
            number[--i] = '9';
        --number[i - 1];
        if (number.size() > 1 && number[0] == '0')
            number.erase(0, 1);
    }
    return number;
}

// `parts` joined by `.`, the first `count` of them, with `last` in place of the last one.
char* joinVersion(const std::vector<string_view>& parts, size_t count, const std::string* last) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0)
            text += '.';
        text += (last && i + 1 == count) ? string_view(*last) : parts[i];
    }
    return newString(text);
}

} // namespace

int compareVersions(const char* a, const char* b) {
    if (!a || !b)
        return a == b ? 0 : (a ? 1 : -1);
    for (;;) {
        string_view left;
        string_view right;
        bool hasLeft = takeComponent(&a, &left);
        bool hasRight = takeComponent(&b, &right);
        if (!hasLeft || !hasRight)
            return hasLeft == hasRight ? 0 : (hasLeft ? 1 : -1);
        if (left.size() != right.size())
            return left.size() < right.size() ? -1 : 1;
        int order = left.compare(right);
        if (order != 0)
            return order < 0 ? -1 : 1;
    }
}

bool isVersionNumber(const char* s) {
    if (!s || !*s)
        return false;
    for (const char* p = s; *p; ++p) {
        if (*p == '.') {
            if (p[1] == '.')
                return false;
        } else if (*p < '0' || *p > '9') {
            return false;
        }
    }
    return true;
}

char* previousVersion(const char* s) {
    if (!isVersionNumber(s))
        return nullptr;
    std::vector<string_view> parts = componentsOf(s);
    std::string last = stepDecimal(parts.back(), 0);
    if (last.size() > 1 || last[0] >= '2') {
        std::string lower = stepDecimal(last, -1);
        return joinVersion(parts, parts.size(), &lower);
    }
    if (parts.size() < 3)
        return nullptr;
    return joinVersion(parts, parts.size() - 2, nullptr);
}

char* nextVersion(const char* s) {
    if (!isVersionNumber(s))
        return nullptr;
    std::vector<string_view> parts = componentsOf(s);
    std::string higher = stepDecimal(parts.back(), 1);
    return joinVersion(parts, parts.size(), &higher);
}

bool newestAnnotatedVersion(const char* text, int32_t from, int32_t to, char** newest) {
    *newest = nullptr;
    std::string best;
    bool found = false;
    string_view rest = text ? string_view(text) : string_view();
    for (int32_t number = 1; number <= to; ++number) {
        if (rest.empty()) {
            if (number >= from) {
                *newest = nullptr;
                return false;
            }
            continue; // lines before the range may be missing, as when `from` is above `to`
        }
        size_t end = rest.find('\n');
        string_view line = rest.substr(0, end);
        rest = end == string_view::npos ? string_view() : rest.substr(end + 1);
        if (number < from)
            continue;
        // The comparison stops by itself behind the revision at the head of the line.
        std::string whole(line);
        if (!found || compareVersions(whole.c_str(), best.c_str()) > 0) {
            best = std::string(line.substr(0, line.find_first_of(" \t")));
            found = true;
        }
    }
    if (found)
        *newest = newString(best);
    return true;
}

bool fileHasConflictMarkers(const char* path) {
    if (!path)
        return false;
    FILE* file = gen_fopen(path, "re");
    if (!file)
        return false;
    std::string start = std::string("<<<<<<< ") + gen_basename(path);
    int found = 0;
    char* line = nullptr;
    int capacity = 0;
    while (found < 3 && gen_readline(file, &line, &capacity)) {
        if ((found == 0 && start == line) || (found == 1 && std::strcmp(line, "=======") == 0) ||
            (found == 2 && std::strncmp(line, ">>>>>>> ", 8) == 0))
            ++found;
    }
    gen_free(line);
    std::fclose(file);
    return found == 3;
}

bool statusFailureIsExpected(const char* output) {
    return output && (std::strstr(output, "Status: Unknown") ||
                      std::strstr(output, "is no longer in the repository"));
}

bool updateReportsConflict(const char* output, const char* baseName) {
    if (!output || !baseName || !*baseName)
        return false;
    string_view text(output);
    for (string_view prefix :
         {"cvs server: conflicts found in ", "cvs update: conflicts found in "}) {
        std::string remark = std::string(prefix) + baseName;
        for (size_t at = text.find(remark); at != npos; at = text.find(remark, at + 1)) {
            size_t end = at + remark.size();
            if (end == text.size() || text[end] == '\n' || text[end] == '\r')
                return true;
        }
    }
    return false;
}

bool statusHadConflicts(const char* status_str) {
    return status_str && (std::strcmp(status_str, "File had conflicts on merge") == 0 ||
                          std::strcmp(status_str, "Unresolved Conflict") == 0);
}
