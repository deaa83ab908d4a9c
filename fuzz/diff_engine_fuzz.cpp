// Feeds pairs of texts to the diff engine and checks that its edit script rebuilds the new text
// and that its pairing is consistent.
//
// Input layout: one byte of options, then text A, a NUL byte, and text B (the rest, which may
// hold more NUL bytes). Options: bit 0 reads A from a file, bit 1 reads B from a stream, bit 2
// removes crossings, bit 3 announces more lines for the stream than it has. The engine leaves
// NUL bytes out of the lines it reads from files and streams; the texts given as strings are
// split without them, so every source sees the same lines.
//
// Checked, besides the sanitizers: reading the script from the top, copying ranges of A and the
// added lines, gives B line for line; paired lines have equal texts and each other as partner;
// the closing entries are paired; every symbol's counts and occurrence list describe exactly
// its unpaired lines; with crossings removed, partners rise along B.
#include "diff_engine.h"
#include "plat_process.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

Lines splitLines(const std::string& text) {
    Lines lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

std::string withoutNuls(const uint8_t* data, size_t size) {
    std::string text;
    for (size_t k = 0; k < size; ++k)
        if (data[k] != 0)
            text += static_cast<char>(data[k]);
    return text;
}

// The number at `*s`, moving past it; -1 when there is none.
long readNumber(const char** s) {
    char* end = nullptr;
    if (**s < '0' || **s > '9')
        return -1;
    long value = std::strtol(*s, &end, 10);
    *s = end;
    return value;
}

Lines rebuild(const Lines& a, int count, char** script) {
    Lines out;
    for (int k = 0; k < count;) {
        const char* s = script[k++];
        char op = *s++;
        long first = readNumber(&s), last = first;
        if (op == 'm' && *s == ',') {
            ++s;
            last = readNumber(&s);
            check(last > first);
        }
        check((op == 'm' || op == 'a') && first >= 1 && std::string(s) == "\n");
        if (op == 'm') {
            check(last <= static_cast<long>(a.size()));
            out.insert(out.end(), a.begin() + first - 1, a.begin() + last);
        } else {
            check(first <= count - k);
            for (long n = 0; n < first; ++n)
                out.emplace_back(script[k++]);
        }
    }
    return out;
}

void checkPairing(const DiffResult* r, const Lines& a, const Lines& b, bool ordered) {
    check(r->n_old == static_cast<int32_t>(a.size()) && r->n_new == static_cast<int32_t>(b.size()));
    const DiffLine* A = r->oldLines;
    const DiffLine* B = r->newLines;
    check(A[r->n_old + 1].paired && A[r->n_old + 1].other == r->n_new + 1);
    check(B[r->n_new + 1].paired && B[r->n_new + 1].other == r->n_old + 1);
    std::vector<int32_t> oldCount(static_cast<size_t>(r->tableSize));
    std::vector<int32_t> newCount(static_cast<size_t>(r->tableSize));
    for (int32_t i = 1; i <= r->n_old; ++i) {
        check(a[static_cast<size_t>(i) - 1] == r->symbols[A[i].symbol].text);
        if (A[i].paired)
            check(A[i].other >= 1 && A[i].other <= r->n_new && B[A[i].other].other == i);
        else
            ++oldCount[static_cast<size_t>(A[i].symbol)];
    }
    int32_t last = 0;
    for (int32_t j = 1; j <= r->n_new; ++j) {
        check(b[static_cast<size_t>(j) - 1] == r->symbols[B[j].symbol].text);
        if (!B[j].paired) {
            ++newCount[static_cast<size_t>(B[j].symbol)];
            continue;
        }
        int32_t i = B[j].other;
        check(i >= 1 && i <= r->n_old && A[i].paired && A[i].other == j);
        check(A[i].symbol == B[j].symbol);
        check(!ordered || i > last);
        last = i;
    }
    for (int32_t s = 0; s < r->tableSize; ++s) {
        const DiffSymbol& symbol = r->symbols[s];
        if (symbol.hash == -1)
            continue;
        check(symbol.oldCount == oldCount[static_cast<size_t>(s)]);
        check(symbol.newCount == newCount[static_cast<size_t>(s)]);
        int32_t listed = 0, previous = r->n_old + 1;
        for (int32_t at = symbol.occurrences; at != 0 && listed <= symbol.oldCount;) {
            const DiffNode& node = r->nodes[at];
            check(node.line == at && at < previous && !A[at].paired && A[at].symbol == s);
            check(r->nodes[node.next].prev == at);
            previous = at;
            ++listed;
            at = node.next == symbol.occurrences ? 0 : node.next;
        }
        check(listed == symbol.oldCount);
    }
}

std::vector<const char*> pointers(const Lines& lines) {
    std::vector<const char*> out;
    for (const std::string& line : lines)
        out.push_back(line.c_str());
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    uint8_t options = data[0];
    const uint8_t* rest = data + 1;
    size_t restSize = size - 1;
    size_t split = 0;
    while (split < restSize && rest[split] != 0)
        ++split;
    const uint8_t* rawB = rest + (split < restSize ? split + 1 : restSize);
    size_t rawBSize = restSize - static_cast<size_t>(rawB - rest);
    Lines a = splitLines(std::string(reinterpret_cast<const char*>(rest), split));
    Lines b = splitLines(withoutNuls(rawB, rawBSize));
    std::vector<const char*> pa = pointers(a), pb = pointers(b);

    DiffSource oldText{DIFF_SOURCE_STRINGS, pa.data(), nullptr, nullptr,
                       static_cast<int32_t>(a.size())};
    DiffSource newText{DIFF_SOURCE_STRINGS, pb.data(), nullptr, nullptr,
                       static_cast<int32_t>(b.size())};
    static const std::string oldFile =
        (std::filesystem::temp_directory_path() /
         ("diff_engine_fuzz_" + std::to_string(plat_current_process_id())))
            .string();
    if (options & 1) {
        std::ofstream(oldFile, std::ios::binary)
            .write(reinterpret_cast<const char*>(rest), static_cast<std::streamsize>(split));
        oldText = DiffSource{DIFF_SOURCE_FILE, nullptr, oldFile.c_str(), nullptr, 0};
    }
    FILE* stream = nullptr;
    if ((options & 2) && rawBSize > 0) {
        stream = fmemopen(const_cast<uint8_t*>(rawB), rawBSize, "r");
        check(stream != nullptr);
        int32_t announced = static_cast<int32_t>(b.size()) + ((options & 8) ? 3 : 0);
        newText = DiffSource{DIFF_SOURCE_STREAM, nullptr, nullptr, stream, announced};
    }

    bool uncrossing = (options & 4) != 0;
    int count = -1;
    char** script = nullptr;
    DiffResult* r = diffTexts(&oldText, &newText, uncrossing, &count, &script);
    check(r != nullptr && count >= 0);
    check(rebuild(a, count, script) == b);
    checkPairing(r, a, b, uncrossing);
    freeDiffScript(count, script);
    freeDiffResult(r);
    if (stream)
        std::fclose(stream);
    if (options & 1)
        std::filesystem::remove(oldFile);
    return 0;
}
