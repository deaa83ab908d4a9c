// Golden files of parser tests: a folder of inputs `<case>.txt`, each with the parser's result
// in text form beside it as `<case>.expected`. With UPDATE_GOLDEN=1 in the environment the
// comparison rewrites the .expected files instead of failing, for review before a commit.
#pragma once

#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

class GoldenFolder {
public:
    explicit GoldenFolder(std::string dir) : dir_(std::move(dir)) {}

    // The names of the cases (the .txt files without extension), sorted.
    std::vector<std::string> cases() const {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(dir_, ignored))
            if (entry.path().extension() == ".txt")
                names.push_back(entry.path().stem().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string inputPath(const std::string& name) const { return dir_ + "/" + name + ".txt"; }
    std::string input(const std::string& name) const { return readFile(inputPath(name)); }

    // Whether `actual` equals the case's .expected. With UPDATE_GOLDEN=1 and `mayRewrite`, a
    // differing or missing file is rewritten and the result is success; without `mayRewrite`
    // (a variant of an input that must give the same result) it is only compared.
    ::testing::AssertionResult matches(const std::string& name, const std::string& actual,
                                       bool mayRewrite = true) const {
        std::string path = dir_ + "/" + name + ".expected";
        bool exists = std::filesystem::exists(path);
        std::string expected = exists ? readFile(path) : std::string();
        if (exists && expected == actual)
            return ::testing::AssertionSuccess();
        const char* update = std::getenv("UPDATE_GOLDEN");
        if (mayRewrite && update && std::string(update) == "1") {
            writeFile(path, actual);
            std::fprintf(stderr, "rewrote %s\n", path.c_str());
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << path << (exists ? " differs" : " is missing")
                                             << " (UPDATE_GOLDEN=1 rewrites it)\n--- expected\n"
                                             << expected << "--- actual\n"
                                             << actual;
    }

private:
    std::string dir_;
};

// A string of a result in the text form of .expected files: null, or the text in double quotes
// with `\`, `"`, newline, return, tab and other control bytes escaped.
inline std::string goldenText(const char* text) {
    if (!text)
        return "null";
    std::string result = "\"";
    for (const char* p = text; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '\\' || c == '"') {
            result += '\\';
            result += *p;
        } else if (c == '\n') {
            result += "\\n";
        } else if (c == '\r') {
            result += "\\r";
        } else if (c == '\t') {
            result += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            result += hex;
        } else {
            result += *p;
        }
    }
    return result + "\"";
}

// `text` with every "\n" as "\r\n", the line ends of a text from a Windows peer.
inline std::string withCrLf(const std::string& text) {
    std::string result;
    for (char c : text) {
        if (c == '\n')
            result += '\r';
        result += c;
    }
    return result;
}
