// What cvsvc prints: JSON text built piece by piece, the words of the status numbers, and the
// table of a checkout report grouped by state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A JSON document written in order. Commas and quoting are its business; the caller opens and
// closes objects and arrays in pairs and gives a key before each value inside an object.
class JsonWriter {
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(const std::string& name);
    JsonWriter& value(const std::string& text);
    // A string that the service may have left absent: null then.
    JsonWriter& value(const char* text);
    JsonWriter& value(int64_t number);
    JsonWriter& value(bool flag);
    JsonWriter& null();
    // The document, with a newline behind it.
    std::string text() const { return out + "\n"; }

private:
    void separate();
    std::string out;
    std::vector<bool> firstInLevel;
    bool afterKey = false;
};

// `text` as a JSON string literal, quotes included. Bytes of 0x80 and above pass unchanged.
std::string jsonQuote(const std::string& text);

// The word of a status number ("Remotely Modified"), or "Error: Unknown Type".
const char* statusWord(int64_t statusType);

// One file of a checkout report.
struct ReportRow {
    uint32_t type = 0;
    std::string path; // as shown: relative to the client's directory where it lies below it
    std::string version, tag;
};

// `directory`/`file` as the user at `cwd` would name it: relative when below `cwd`, else whole.
std::string shownPath(const std::string& cwd, const std::string& directory,
                      const std::string& file);

// The rows as a table: one block per state, the states in the order of their numbers, each
// headed by its word and count, the rows under it by path with version and tag in aligned
// columns. With `all` false the unchanged files ("No changes") are left out, and a last line
// says how many there were. Nothing at all for no rows.
std::string reportTable(std::vector<ReportRow> rows, bool all);

// Rows of cells as lines whose columns line up, two blanks apart, no blanks at line ends.
std::string alignColumns(const std::vector<std::vector<std::string>>& rows);
