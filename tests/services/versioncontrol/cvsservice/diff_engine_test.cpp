// The diff engine: its edit script rebuilds the new text from the old one over many generated
// pairs, through strings, files and streams; its pairing is a consistent partial bijection, kept
// in order when crossings are removed; the pairing rules on small texts; and its failures.
#include "diff_engine.h"

#include "gen_file.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

std::string joinLines(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

// Takes the script out of the engine's hands.
Lines takeScript(int count, char** script) {
    Lines copy;
    for (int k = 0; k < count; ++k)
        copy.emplace_back(script[k]);
    freeDiffScript(count, script);
    return copy;
}

// Reads a number at `*at` of `text`; false if there is none.
bool readNumber(const std::string& text, size_t* at, long* value) {
    size_t start = *at;
    while (*at < text.size() && text[*at] >= '0' && text[*at] <= '9')
        ++*at;
    if (*at == start || *at - start > 9)
        return false;
    *value = std::stol(text.substr(start, *at - start));
    return true;
}

// Reads the script from the top, copying the named ranges of `old` and the added lines.
testing::AssertionResult rebuild(const Lines& old, const Lines& script, Lines* out) {
    out->clear();
    size_t k = 0;
    while (k < script.size()) {
        const std::string& s = script[k++];
        size_t at = 1;
        long first = 0, last = 0;
        if (s.empty() || (s[0] != 'm' && s[0] != 'a') || !readNumber(s, &at, &first))
            return testing::AssertionFailure() << "bad script line " << testing::PrintToString(s);
        last = first;
        if (s[0] == 'm' && at < s.size() && s[at] == ',') {
            ++at;
            if (!readNumber(s, &at, &last) || last <= first)
                return testing::AssertionFailure() << "bad range " << testing::PrintToString(s);
        }
        if (s.substr(at) != "\n")
            return testing::AssertionFailure() << "bad ending " << testing::PrintToString(s);
        if (s[0] == 'm') {
            if (first < 1 || last > static_cast<long>(old.size()))
                return testing::AssertionFailure() << "range outside A: " << s;
            out->insert(out->end(), old.begin() + first - 1, old.begin() + last);
        } else {
            if (first < 1 || k + static_cast<size_t>(first) > script.size())
                return testing::AssertionFailure() << "add runs past the script: " << s;
            out->insert(out->end(), script.begin() + static_cast<long>(k),
                        script.begin() + static_cast<long>(k) + first);
            k += static_cast<size_t>(first);
        }
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult rebuildsNew(const Lines& old, const Lines& script, const Lines& fresh) {
    Lines rebuilt;
    if (testing::AssertionResult ok = rebuild(old, script, &rebuilt); !ok)
        return ok;
    if (rebuilt != fresh)
        return testing::AssertionFailure() << "rebuilt " << testing::PrintToString(rebuilt)
                                           << " for " << testing::PrintToString(fresh);
    return testing::AssertionSuccess();
}

// The pairing is a partial bijection between equal lines, the closing entries are paired, the
// symbols are shared by equal texts, and every symbol's counts and occurrence list describe
// exactly its unpaired lines. With `ordered`, partners rise along B.
testing::AssertionResult consistent(const DiffResult* r, const Lines& a, const Lines& b,
                                    bool ordered) {
    if (!r)
        return testing::AssertionFailure() << "no result";
    if (r->n_old != static_cast<int32_t>(a.size()) || r->n_new != static_cast<int32_t>(b.size()))
        return testing::AssertionFailure() << "line counts " << r->n_old << "/" << r->n_new;
    const DiffLine* A = r->oldLines;
    const DiffLine* B = r->newLines;
    if (!A[r->n_old + 1].paired || A[r->n_old + 1].other != r->n_new + 1 ||
        !B[r->n_new + 1].paired || B[r->n_new + 1].other != r->n_old + 1)
        return testing::AssertionFailure() << "closing entries not paired";
    std::map<std::string, int32_t> symbolOf;
    std::map<int32_t, std::pair<int32_t, int32_t>> unpaired; // symbol: old, new
    std::map<int32_t, std::vector<int32_t>> occurrences;     // unpaired lines of A, descending
    for (int32_t i = r->n_old; i >= 1; --i) {
        auto [it, fresh] = symbolOf.emplace(a[i - 1], A[i].symbol);
        if (it->second != A[i].symbol || a[i - 1] != r->symbols[A[i].symbol].text)
            return testing::AssertionFailure() << "symbol of A line " << i;
        if (A[i].paired) {
            int32_t j = A[i].other;
            if (j < 1 || j > r->n_new || !B[j].paired || B[j].other != i)
                return testing::AssertionFailure() << "A line " << i << " has partner " << j;
        } else {
            ++unpaired[A[i].symbol].first;
            occurrences[A[i].symbol].push_back(i);
        }
    }
    int32_t lastPartner = 0;
    for (int32_t j = 1; j <= r->n_new; ++j) {
        auto [it, fresh] = symbolOf.emplace(b[j - 1], B[j].symbol);
        if (it->second != B[j].symbol || b[j - 1] != r->symbols[B[j].symbol].text)
            return testing::AssertionFailure() << "symbol of B line " << j;
        if (!B[j].paired) {
            ++unpaired[B[j].symbol].second;
            continue;
        }
        int32_t i = B[j].other;
        if (i < 1 || i > r->n_old || !A[i].paired || A[i].other != j || a[i - 1] != b[j - 1])
            return testing::AssertionFailure() << "B line " << j << " has partner " << i;
        if (ordered && i <= lastPartner)
            return testing::AssertionFailure() << "B line " << j << " crosses: " << i;
        lastPartner = i;
    }
    for (const auto& [text, s] : symbolOf) {
        const DiffSymbol& symbol = r->symbols[s];
        if (symbol.oldCount != unpaired[s].first || symbol.newCount != unpaired[s].second)
            return testing::AssertionFailure() << "counts of " << testing::PrintToString(text);
        std::vector<int32_t> listed;
        for (int32_t at = symbol.occurrences, steps = 0; at && steps <= r->n_old; ++steps) {
            listed.push_back(r->nodes[at].line);
            if (r->nodes[r->nodes[at].next].prev != at)
                return testing::AssertionFailure() << "broken link at " << at;
            at = r->nodes[at].next;
            if (at == symbol.occurrences)
                break;
        }
        if (listed != occurrences[s])
            return testing::AssertionFailure() << "occurrences of " << testing::PrintToString(text)
                                               << ": " << testing::PrintToString(listed);
    }
    return testing::AssertionSuccess();
}

// The partner of each line of B, 0 when unpaired.
std::vector<int32_t> partners(const DiffResult* r) {
    std::vector<int32_t> out;
    for (int32_t j = 1; r && j <= r->n_new; ++j)
        out.push_back(r->newLines[j].paired ? r->newLines[j].other : 0);
    return out;
}

std::vector<const char*> pointers(const Lines& lines) {
    std::vector<const char*> out;
    for (const std::string& line : lines)
        out.push_back(line.c_str());
    return out;
}

class DiffEngine : public ScratchTest {
protected:
    // The script of diffScriptStrings, after checking the pairing behind it.
    Lines scriptOfStrings(const Lines& a, const Lines& b) {
        std::vector<const char*> pa = pointers(a), pb = pointers(b);
        int count = -1;
        char** script = nullptr;
        DiffResult* r = diffScriptStrings(pa.data(), static_cast<int32_t>(a.size()), pb.data(),
                                          static_cast<int32_t>(b.size()), &count, &script);
        EXPECT_TRUE(consistent(r, a, b, false));
        freeDiffResult(r);
        return takeScript(count, script);
    }
    // diffFiles on the two texts written to files.
    DiffResult* pairFiles(const Lines& a, const Lines& b) {
        write(at("old.txt"), joinLines(a));
        write(at("new.txt"), joinLines(b));
        return diffFiles(at("old.txt").c_str(), at("new.txt").c_str());
    }
};

// ---- Pairing rules on small texts ----

TEST_F(DiffEngine, EqualTextsPairEveryLineWithTheSameNumber) {
    Lines text = {"int x;\n", "\n", "}\n", "\n", "}\n"};
    EXPECT_EQ(scriptOfStrings(text, text), Lines{"m1,5\n"});
    DiffResult* r = pairFiles(text, text);
    EXPECT_TRUE(consistent(r, text, text, true));
    EXPECT_EQ(partners(r), (std::vector<int32_t>{1, 2, 3, 4, 5}));
    freeDiffResult(r);
    EXPECT_EQ(scriptOfStrings({"only\n"}, {"only\n"}), Lines{"m1\n"});
}

TEST_F(DiffEngine, EmptyTextsAddEverythingOrNothing) {
    write(at("empty"), "");
    write(at("three"), "one\ntwo\nthree\n");
    int count = -1;
    char** script = nullptr;
    DiffResult* r = diffScriptFiles(at("empty").c_str(), at("three").c_str(), &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(takeScript(count, script), (Lines{"a3\n", "one\n", "two\n", "three\n"}));
    freeDiffResult(r);

    r = diffScriptFiles(at("three").c_str(), at("empty").c_str(), &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(script, nullptr);
    EXPECT_EQ(r->n_old, 3);
    EXPECT_EQ(r->n_new, 0);
    freeDiffResult(r);

    r = diffScriptFiles(at("empty").c_str(), at("empty").c_str(), &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(count, 0);
    freeDiffResult(r);
}

TEST_F(DiffEngine, BlockMovedToTheEnd) {
    Lines a = {"a\n", "b\n", "c\n", "d\n", "e\n", "f\n", "g\n"};
    Lines b = {"d\n", "e\n", "f\n", "g\n", "a\n", "b\n", "c\n"};
    // Kept crossing: two copies, in the order of B.
    EXPECT_EQ(scriptOfStrings(a, b), (Lines{"m4,7\n", "m1,3\n"}));
    // Uncrossed: the shorter run (a b c) loses its pairs, the rest stays in order.
    DiffResult* r = pairFiles(a, b);
    EXPECT_TRUE(consistent(r, a, b, true));
    EXPECT_EQ(partners(r), (std::vector<int32_t>{4, 5, 6, 7, 0, 0, 0}));
    freeDiffResult(r);
}

TEST_F(DiffEngine, RepeatedLinesPairFromTheEndAndTheNearestOccurrences) {
    // Five equal lines against three: nothing is unique, so the pairs grow backwards from the
    // ends of the texts.
    Lines five(5, "x\n"), three(3, "x\n");
    EXPECT_EQ(scriptOfStrings(five, three), Lines{"m3,5\n"});
    // The backward run stops at the new line; the first x then takes the lowest occurrence
    // between the start and the partner of the next paired line.
    Lines a = {"x\n", "x\n", "x\n"}, b = {"x\n", "new\n", "x\n", "x\n"};
    DiffResult* r = pairFiles(a, b);
    EXPECT_EQ(partners(r), (std::vector<int32_t>{1, 0, 2, 3}));
    freeDiffResult(r);
    EXPECT_EQ(scriptOfStrings(a, b), (Lines{"m1\n", "a1\n", "new\n", "m2,3\n"}));
}

// Small texts, one letter per line, whose pairings were worked out by hand from the rules: the
// partner of each line of B, crossings kept and then removed.
struct PairingCase {
    const char* rule;
    const char* old;
    const char* fresh;
    std::vector<int32_t> kept, uncrossed;
};

class DiffPairingRules : public testing::TestWithParam<PairingCase> {};

TEST_P(DiffPairingRules, PartnersAsWorkedOut) {
    const PairingCase& c = GetParam();
    Lines a, b;
    for (const char* p = c.old; *p; ++p)
        a.push_back(std::string(1, *p) + "\n");
    for (const char* p = c.fresh; *p; ++p)
        b.push_back(std::string(1, *p) + "\n");
    std::vector<const char*> pa = pointers(a), pb = pointers(b);
    DiffSource sa{DIFF_SOURCE_STRINGS, pa.data(), nullptr, nullptr, static_cast<int32_t>(a.size())};
    DiffSource sb{DIFF_SOURCE_STRINGS, pb.data(), nullptr, nullptr, static_cast<int32_t>(b.size())};
    for (bool uncrossing : {false, true}) {
        DiffResult* r = diffTexts(&sa, &sb, uncrossing, nullptr, nullptr);
        EXPECT_TRUE(consistent(r, a, b, uncrossing));
        EXPECT_EQ(partners(r), uncrossing ? c.uncrossed : c.kept) << c.rule;
        freeDiffResult(r);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(DiffEngine, DiffPairingRules, testing::Values(
    PairingCase{"unique in A but not in B is no anchor; the end pairs the last",
                "a", "aa", {0, 1}, {0, 1}},
    PairingCase{"forward extension from the first line",
                "xyy", "xy", {1, 2}, {1, 2}},
    PairingCase{"remaining occurrences take the lowest; a tie drops the run met in B",
                "xyy", "yx", {2, 1}, {0, 1}},
    PairingCase{"the line where an extension stopped is not tried again",
                "ycbc", "ccy", {2, 0, 1}, {0, 0, 1}},
    PairingCase{"no paired line: the occurrence nearest to the start",
                "xyxy", "xxx", {1, 0, 3}, {1, 0, 3}},
    PairingCase{"extension again after uncrossing",
                "xy", "yxyx", {2, 1, 0, 0}, {0, 1, 2, 0}},
    PairingCase{"neighbours in order: the lowest occurrence strictly between them",
                "xaxb", "anxmb", {2, 0, 3, 0, 4}, {2, 0, 3, 0, 4}},
    PairingCase{"neighbours out of order: the occurrence nearest to an anchor; uncrossed, "
                "two ties each drop the run met in B",
                "xqambx", "bnxa", {5, 0, 6, 3}, {0, 0, 0, 3}},
    PairingCase{"the nearest walk passes lines between the anchors",
                "abcaxxdz", "xxbda", {5, 6, 2, 7, 1}, {5, 6, 0, 7, 0}},
    PairingCase{"an extension passes paired lines; prev_old is the partner before the stop",
                "xyyz", "xzxy", {1, 4, 0, 3}, {1, 0, 0, 3}},
    PairingCase{"next_old is looked for again behind the stop",
                "xzcyax", "zazyxd", {2, 5, 0, 4, 6, 0}, {2, 0, 0, 4, 6, 0}},
    PairingCase{"a tie between runs of four drops the run met in B",
                "abcdefgh", "efghabcd", {5, 6, 7, 8, 1, 2, 3, 4}, {0, 0, 0, 0, 1, 2, 3, 4}}));
// clang-format on

TEST_F(DiffEngine, LastLineWithoutNewlineIsAnotherLine) {
    write(at("old"), "a\nb\nc");
    write(at("new"), "a\nb\nc\n");
    int count = 0;
    char** script = nullptr;
    DiffResult* r = diffScriptFiles(at("old").c_str(), at("new").c_str(), &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(takeScript(count, script), (Lines{"m1,2\n", "a1\n", "c\n"}));
    EXPECT_NE(r->oldLines[3].symbol, r->newLines[3].symbol);
    freeDiffResult(r);
}

// ---- Generated pairs ----

std::string makeLine(std::mt19937& rng, uint32_t vocabulary) {
    uint32_t k = rng() % vocabulary;
    if (k == 0)
        return "\n";
    if (k == 1)
        return "}\n";
    if (rng() % 40 == 0) // long lines around the reader's first buffer sizes and beyond
        return std::string(std::vector<size_t>{510, 511, 512, 1023, 1024, 3000}[rng() % 6],
                           static_cast<char>('a' + k % 26)) +
               "\n";
    return "line " + std::to_string(k) + "\n";
}

Lines makeText(std::mt19937& rng, uint32_t lines, uint32_t vocabulary) {
    Lines text;
    for (uint32_t k = 0; k < lines; ++k)
        text.push_back(makeLine(rng, vocabulary));
    return text;
}

// A pair of the kind chosen by `seed`: random edits, moved blocks, repeated lines (a tiny
// vocabulary), an empty side, or everything at once; each last line may lose its newline.
std::pair<Lines, Lines> makePair(uint32_t seed) {
    std::mt19937 rng(seed);
    uint32_t kind = seed % 5;
    uint32_t vocabulary = kind == 2 ? 3 + rng() % 3 : 20 + rng() % 400;
    Lines a = makeText(rng, rng() % 160, vocabulary);
    Lines b = a;
    if (kind == 0 || kind == 2 || kind == 4)
        for (uint32_t e = rng() % 12; e > 0; --e) {
            size_t at = b.empty() ? 0 : rng() % b.size();
            uint32_t op = rng() % 3;
            if (op == 0 && !b.empty())
                b.erase(b.begin() + static_cast<long>(at));
            else if (op == 1 || b.empty())
                b.insert(b.begin() + static_cast<long>(at), makeLine(rng, vocabulary * 2));
            else
                b[at] = makeLine(rng, vocabulary * 2);
        }
    if ((kind == 1 || kind == 4) && b.size() > 2)
        for (uint32_t m = 1 + rng() % 3; m > 0; --m) {
            size_t start = rng() % b.size();
            size_t length = 1 + rng() % (b.size() - start);
            Lines block(b.begin() + static_cast<long>(start),
                        b.begin() + static_cast<long>(start + length));
            b.erase(b.begin() + static_cast<long>(start),
                    b.begin() + static_cast<long>(start + length));
            b.insert(b.begin() + static_cast<long>(rng() % (b.size() + 1)), block.begin(),
                     block.end());
        }
    if (kind == 3) {
        if (rng() % 2)
            a.clear();
        else
            b = makeText(rng, rng() % 3 == 0 ? 0 : rng() % 30, vocabulary);
    }
    for (Lines* text : {&a, &b})
        if (!text->empty() && rng() % 2) {
            text->back().pop_back();
            if (text->back().empty()) // a file has no empty last line
                text->pop_back();
        }
    return {a, b};
}

TEST_F(DiffEngine, ScriptRebuildsTheNewTextOverGeneratedPairs) {
    for (uint32_t seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        auto [a, b] = makePair(seed);
        Lines fromStrings = scriptOfStrings(a, b);
        ASSERT_TRUE(rebuildsNew(a, fromStrings, b));

        std::string oldPath = at("old.txt"), newPath = at("new.txt");
        write(oldPath, joinLines(a));
        write(newPath, joinLines(b));
        int count = -1;
        char** script = nullptr;
        DiffResult* r = diffScriptFiles(oldPath.c_str(), newPath.c_str(), &count, &script);
        ASSERT_TRUE(consistent(r, a, b, false));
        freeDiffResult(r);
        Lines fromFiles = takeScript(count, script);
        ASSERT_TRUE(rebuildsNew(a, fromFiles, b));
        EXPECT_EQ(fromFiles, fromStrings);

        FILE* stream = gen_fopen(newPath.c_str(), "r");
        ASSERT_NE(stream, nullptr);
        r = diffScriptStream(oldPath.c_str(), stream, static_cast<int32_t>(b.size()), &count,
                             &script);
        std::fclose(stream);
        ASSERT_TRUE(consistent(r, a, b, false));
        freeDiffResult(r);
        Lines fromStream = takeScript(count, script);
        ASSERT_TRUE(rebuildsNew(a, fromStream, b));
        EXPECT_EQ(fromStream, fromStrings);

        r = diffFiles(oldPath.c_str(), newPath.c_str());
        ASSERT_TRUE(consistent(r, a, b, true));
        freeDiffResult(r);
    }
}

// ---- Sources, limits and failures ----

TEST_F(DiffEngine, StreamGivesOnlyTheCountedLines) {
    write(at("old"), "one\ntwo\n");
    write(at("new"), "one\ntwo\nthree\nfour\n");
    FILE* stream = gen_fopen(at("new").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    int count = 0;
    char** script = nullptr;
    DiffResult* r = diffScriptStream(at("old").c_str(), stream, 3, &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(takeScript(count, script), (Lines{"m1,2\n", "a1\n", "three\n"}));
    char rest[16] = {};
    EXPECT_STREQ(std::fgets(rest, sizeof rest, stream), "four\n");
    freeDiffResult(r);
    // A count beyond the stream's end gives the lines there are.
    std::rewind(stream);
    r = diffScriptStream(at("old").c_str(), stream, 10, &count, &script);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->n_new, 4);
    freeDiffScript(count, script);
    freeDiffResult(r);
    std::fclose(stream);
}

// Files and streams are read over many blocks, with lines that run across block ends, lines
// far longer than the reader's first buffer, and NUL bytes, which the engine leaves out. Both
// readers must see exactly the lines that the same text gives as strings.
TEST_F(DiffEngine, FilesAndStreamsGiveTheLinesOfTheirBytes) {
    std::mt19937 rng(7);
    std::string raw;
    Lines expected;
    for (int k = 0; k < 6000; ++k) {
        size_t length = k % 997 == 0 ? 70000 + rng() % 1000 : rng() % 120;
        std::string line, bytes;
        for (size_t c = 0; c < length; ++c) {
            char byte = static_cast<char>(' ' + rng() % 90);
            bytes += byte;
            line += byte;
            if (k % 50 == 7 && c % 9 == 0)
                bytes += '\0';
        }
        raw += bytes + (k % 13 == 0 ? "\r\n" : "\n");
        expected.push_back(line + (k % 13 == 0 ? "\r\n" : "\n"));
    }
    raw += std::string("\0last", 5);
    expected.push_back("last");
    std::string path = at("blocks");
    write(path, raw);
    std::vector<const char*> pe = pointers(expected);
    int32_t n = static_cast<int32_t>(expected.size());
    DiffSource strings{DIFF_SOURCE_STRINGS, pe.data(), nullptr, nullptr, n};
    FILE* stream = gen_fopen(path.c_str(), "r");
    ASSERT_NE(stream, nullptr);
    DiffSource sources[] = {{DIFF_SOURCE_FILE, nullptr, path.c_str(), nullptr, 0},
                            {DIFF_SOURCE_STREAM, nullptr, nullptr, stream, n}};
    for (const DiffSource& source : sources) {
        int count = 0;
        char** script = nullptr;
        DiffResult* r = diffTexts(&source, &strings, false, &count, &script);
        ASSERT_TRUE(consistent(r, expected, expected, true)) << "kind " << source.kind;
        EXPECT_EQ(takeScript(count, script), Lines{"m1," + std::to_string(n) + "\n"});
        freeDiffResult(r);
    }
    std::fclose(stream);
}

TEST_F(DiffEngine, TableSizeAndHash) {
    // The first size greater than the lines of both texts.
    Lines many(519, "same\n");
    DiffResult* r = pairFiles(many, many);
    EXPECT_EQ(r->tableSize, 1039);
    freeDiffResult(r);
    many.push_back("same\n");
    r = pairFiles(many, Lines(many.begin(), many.end() - 1));
    EXPECT_EQ(r->tableSize, 3301);
    freeDiffResult(r);
    // A lone text sits in the slot of its hash; values worked out by hand from the formula.
    struct Case {
        const char* text;
        int32_t hash;
    } cases[] = {{"a\n", 1590528},
                 {"hello, world\n", 418555929},
                 {"\xff\xfe\x80 long line of text that wraps the shifts many times\n", 721746698}};
    for (const Case& c : cases) {
        r = diffScriptStrings(&c.text, 1, nullptr, 0, nullptr, nullptr);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->oldLines[1].symbol, c.hash % 1039) << c.text;
        EXPECT_EQ(r->symbols[r->oldLines[1].symbol].hash, c.hash) << c.text;
        freeDiffResult(r);
    }
}

TEST_F(DiffEngine, FailuresSayWhyAndGiveNothing) {
    std::string old = at("old"), missing = at("missing");
    write(old, "one\n");
    struct Case {
        DiffSource a, b;
        std::string said;
    } cases[] = {
        {{DIFF_SOURCE_FILE, nullptr, missing.c_str(), nullptr, 0},
         {DIFF_SOURCE_FILE, nullptr, old.c_str(), nullptr, 0},
         "Error opening file - " + missing + "\n"},
        {{DIFF_SOURCE_FILE, nullptr, old.c_str(), nullptr, 0},
         {DIFF_SOURCE_FILE, nullptr, missing.c_str(), nullptr, 0},
         "Error opening file - " + missing + "\n"},
        {{DIFF_SOURCE_FILE, nullptr, old.c_str(), nullptr, 0},
         {7, nullptr, nullptr, nullptr, 0},
         "Error - unknown file type 7\n"},
        // 16777215 lines between the two texts: no table size is large enough. The count of a
        // stream is taken as given, so nothing is read.
        {{DIFF_SOURCE_FILE, nullptr, old.c_str(), nullptr, 0},
         {DIFF_SOURCE_STREAM, nullptr, nullptr, stdin, 16777214},
         "Out of memory in diff.\n"},
    };
    for (Case& c : cases) {
        int count = -1;
        char* stale[1] = {};
        char** script = stale;
        testing::internal::CaptureStdout();
        DiffResult* r = diffTexts(&c.a, &c.b, false, &count, &script);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.said);
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(script, nullptr);
        freeDiffResult(r);
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(diffFiles(missing.c_str(), missing.c_str()), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error opening file - " + missing + "\n");
}

} // namespace
