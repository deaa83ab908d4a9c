// The parsers of cvs output on golden files captured from the real cvs (local and :fork:
// roots), each again with "\r\n" line ends, beside hand-written texts in the older wording;
// version numbers; conflict markers in a file that a real merge left behind.
#include "cvs_parsers.h"

#include "cvs_remarks.h"
#include "cvs_repo.h"
#include "golden_files.h"
#include "indgen.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

namespace {

const std::string kData = CVSS_TEST_DATA_DIR;
constexpr size_t npos = std::string::npos;

std::string describeStatus(const std::string& text) {
    char* local = nullptr;
    char* remote = nullptr;
    char* word = nullptr;
    char* tag = nullptr;
    int32_t type = -1;
    bool ok = parseStatusOutput(text.c_str(), &local, &remote, &word, &type, &tag);
    std::ostringstream out;
    out << "result: " << (ok ? "true" : "false") << "\nstatus_type: " << type
        << "\nstatus_str: " << goldenText(word) << "\nlocal_version: " << goldenText(local)
        << "\nremote_version: " << goldenText(remote) << "\ntag: " << goldenText(tag)
        << "\nfailure_is_expected: " << statusFailureIsExpected(text.c_str())
        << "\nhad_conflicts: " << statusHadConflicts(word) << "\n";
    for (char* s : {local, remote, word, tag})
        gen_free(s);
    return out.str();
}

std::string describeLog(const std::string& text) {
    HistoryInfo info;
    info._num_items = parseLogOutput(text.c_str(), &info._items);
    std::ostringstream out;
    out << "items: " << info._num_items << "\n";
    for (int32_t i = 0; i < info._num_items; ++i) {
        const HistoryItem& item = info._items[i];
        out << i << ": version " << goldenText(item._version) << " branch " << item._is_branch
            << "\n   date " << goldenText(item._date) << " author " << goldenText(item._username)
            << "\n   tags";
        for (int32_t t = 0; t < item._numTags; ++t)
            out << " " << goldenText(item._tags[t]);
        out << "\n   comment " << goldenText(item._comments) << "\n";
    }
    HistoryInfo_free(&info);
    return out.str();
}

// Every file name a dry update mentions (status letters, quoted names, "conflicts found in"),
// each with what updateReportsConflict says of it.
std::string describeUpdate(const std::string& text) {
    std::set<std::string> names;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.size() > 2 && line[1] == ' ' && std::string("UPMCAR?").find(line[0]) != npos)
            names.insert(line.substr(2));
        size_t open = line.find('`');
        size_t close = line.find('\'', open + 1);
        if (open != npos && close != npos)
            names.insert(line.substr(open + 1, close - open - 1));
        size_t found = line.find("conflicts found in ");
        if (found != npos)
            names.insert(line.substr(found + 19));
    }
    std::string out;
    for (const std::string& name : names)
        out += name + (updateReportsConflict(text.c_str(), name.c_str()) ? ": conflict\n"
                                                                         : ": no conflict\n");
    return out;
}

// Runs `describe` on every case of `folder`, and on each again with "\r\n" line ends.
template <typename Describe> void checkGoldenFolder(const std::string& folder, Describe describe) {
    GoldenFolder golden(kData + "/" + folder);
    ASSERT_FALSE(golden.cases().empty()) << folder;
    for (const std::string& name : golden.cases()) {
        std::string text = golden.input(name);
        EXPECT_TRUE(golden.matches(name, describe(text))) << name;
        EXPECT_TRUE(golden.matches(name, describe(withCrLf(text)), false)) << name << " with CRLF";
    }
}

TEST(CvsParsersGolden, StatusOfEveryStateFromRealCvs) {
    checkGoldenFolder("cvs_status", describeStatus);
}

TEST(CvsParsersGolden, LogsWithBranchesTagsAndLongMessagesFromRealCvs) {
    checkGoldenFolder("cvs_log", describeLog);
}

TEST(CvsParsersGolden, DryUpdatesTellPredictedConflictsFromRealCvs) {
    checkGoldenFolder("cvs_update", describeUpdate);
}

// The newest revision of lines `from` to `to` of an annotated text, "(none)" when no line was
// looked at, "(ends early)" when the text ends before `to`.
std::string newest(const std::string& text, int32_t from, int32_t to) {
    char* version = nullptr;
    bool ok = newestAnnotatedVersion(text.c_str(), from, to, &version);
    std::string out = !ok ? "(ends early)" : version ? version : "(none)";
    EXPECT_TRUE(ok || version == nullptr);
    gen_free(version);
    return out;
}

// What the last-edit query makes of one captured annotate run: whether the run counts as clean
// (exit code 0 and only the header on the error stream), the newest revision of each line, of
// all lines, and that a range one line past the end is refused.
std::string describeAnnotate(const std::string& folder, const std::string& name,
                             const std::string& text) {
    std::string err = readFile(folder + "/" + name + ".err");
    bool exited = readFile(folder + "/" + name + ".rc") == "0\n";
    int32_t lines = static_cast<int32_t>(std::count(text.begin(), text.end(), '\n'));
    std::ostringstream out;
    out << "clean: " << (exited && annotateRemarksOnly(err.c_str()) ? "yes" : "no") << "\n";
    for (int32_t i = 1; i <= lines; ++i)
        out << "line " << i << ": " << newest(text, i, i) << "\n";
    out << "all: " << newest(text, 1, lines) << "\npast the end: " << newest(text, 1, lines + 1)
        << "\n";
    return out.str();
}

TEST(CvsParsersGolden, AnnotateOutputsGiveTheNewestRevisionOfARangeFromRealCvs) {
    std::string folder = kData + "/cvs_annotate";
    GoldenFolder golden(folder);
    ASSERT_FALSE(golden.cases().empty());
    for (const std::string& name : golden.cases()) {
        std::string text = golden.input(name);
        EXPECT_TRUE(golden.matches(name, describeAnnotate(folder, name, text))) << name;
        EXPECT_TRUE(golden.matches(name, describeAnnotate(folder, name, withCrLf(text)), false))
            << name << " with CRLF";
    }
}

// Texts in the wording of an older cvs, whose client printed what its server said, and the
// cases the captured states can't reach.
TEST(CvsParsers, StatusTextsOfOlderCvsAndOddShapes) {
    const std::string header =
        "===================================================================\n";
    struct Case {
        const char* name;
        std::string text;
        const char* expected;
    } cases[] = {
        {"sticky branch tag and no commit identifier",
         header + "File: a.c              \tStatus: Needs Patch\n\n"
                  "   Working revision:\t1.2.2.1\n"
                  "   Repository revision:\t1.2.2.2\t/cvs/m/a.c,v\n"
                  "   Sticky Tag:\t\tb1 (branch: 1.2.2)\n   Sticky Date:\t\t(none)\n",
         "result: true\nstatus_type: 1700\nstatus_str: \"Needs Patch\"\nlocal_version: "
         "\"1.2.2.1\"\nremote_version: \"1.2.2.2\"\ntag: \"b1 (branch: 1.2.2)\"\n"
         "failure_is_expected: 0\nhad_conflicts: 0\n"},
        {"the server's prefix on a file gone from the repository",
         "cvs server: a.c is no longer in the repository\n" + header +
             "File: a.c              \tStatus: Entry Invalid\n\n"
             "   Working revision:\t1.4x\tResult of merge\n"
             "   Repository revision:\t1.5\t/cvs/m/Attic/a.c,v\n",
         "result: true\nstatus_type: 1600\nstatus_str: \"Entry Invalid\"\nlocal_version: "
         "\"1.4\"\nremote_version: \"1.5\"\ntag: \"N/A\"\nfailure_is_expected: 1\n"
         "had_conflicts: 0\n"},
        {"up to date, yet no file and no entry: a file that does not exist",
         header + "File: no file a.c\t\tStatus: Up-to-date\n\n"
                  "   Working revision:\tNo entry for a.c\n"
                  "   Repository revision:\t1.1\t/cvs/m/a.c,v\n",
         "result: true\nstatus_type: 2600\nstatus_str: \"File does not exist\"\nlocal_version: "
         "\"N/A\"\nremote_version: \"N/A\"\ntag: \"N/A\"\nfailure_is_expected: 0\n"
         "had_conflicts: 0\n"},
        {"the older word for a conflict still in the file, and an unknown word",
         header + "File: a.c\tStatus: File had conflicts on merge\n\n"
                  "   Working revision:\t1.3\tResult of merge+Mon Jan  1 10:00:00 2001\n"
                  "   Repository revision:\t1.3\t/cvs/m/a.c,v\n   Sticky Tag:\t\t(none)\n",
         "result: true\nstatus_type: 700\nstatus_str: \"File had conflicts on merge\"\n"
         "local_version: \"1.3\"\nremote_version: \"1.3\"\ntag: \"HEAD\"\n"
         "failure_is_expected: 0\nhad_conflicts: 1\n"},
        {"a word the table does not know",
         "Status: Strange\n   Working revision:\t1.1\n   Repository revision:\t1.1\n",
         "result: true\nstatus_type: 200\nstatus_str: \"Strange\"\nlocal_version: \"1.1\"\n"
         "remote_version: \"1.1\"\ntag: \"N/A\"\nfailure_is_expected: 0\nhad_conflicts: 0\n"},
        {"no Status: at all", "cvs [status aborted]: no repository\n",
         "result: false\nstatus_type: 0\nstatus_str: null\nlocal_version: null\n"
         "remote_version: null\ntag: null\nfailure_is_expected: 0\nhad_conflicts: 0\n"},
        {"a status without its revisions",
         "File: a.c\tStatus: Up-to-date\n\n   Working revision:\t1.1\n",
         "result: false\nstatus_type: 0\nstatus_str: null\nlocal_version: null\n"
         "remote_version: null\ntag: null\nfailure_is_expected: 0\nhad_conflicts: 0\n"},
        {"text ends inside the status word", "Status: Unkn",
         "result: false\nstatus_type: 0\nstatus_str: null\nlocal_version: null\n"
         "remote_version: null\ntag: null\nfailure_is_expected: 0\nhad_conflicts: 0\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(describeStatus(c.text), c.expected) << c.name;
        EXPECT_EQ(describeStatus(withCrLf(c.text)), c.expected) << c.name << " with CRLF";
    }
}

// A log in the older date format, where a branch has revisions and one tag on a magic branch
// number has no "branches:" line to land on.
TEST(CvsParsers, LogBranchItemsTakeTheirLastRevisionAndMagicTagsNeedABranchLine) {
    const std::string log = "\nRCS file: /cvs/m/a.c,v\nWorking file: a.c\nhead: 1.3\n"
                            "symbolic names:\n\tb1: 1.2.0.2\n\tb1_tip: 1.2.2.2\n\tb9: 1.3.0.4\n"
                            "\trel: 1.3\n\tgone: 1.9\nkeyword substitution: kv\n"
                            "description:\n"
                            "----------------------------\nrevision 1.3\n"
                            "date: 2004/01/15 13:04:05;  author: ann;  state: Exp;\nthree\n"
                            "----------------------------\nrevision 1.2\n"
                            "date: 2004/01/14 10:00:00;  author: bob;  state: Exp;\n"
                            "branches:  1.2.2;\ntwo\n"
                            "----------------------------\nrevision 1.2.2.2\n"
                            "date: 2004/01/17 09:00:00;  author: cy;  state: Exp;\non b1, "
                            "second\n----------------------------\nrevision 1.2.2.1\n"
                            "date: 2004/01/16 09:00:00;  author: cy;  state: Exp;\non b1\n"
                            "======================================================="
                            "======================\n";
    EXPECT_EQ(describeLog(log),
              "items: 5\n"
              "0: version \"1.3\" branch 0\n   date \"2004/01/15 13:04:05\" author \"ann\"\n"
              "   tags \"rel\"\n   comment \"three\\n\"\n"
              "1: version \"1.2\" branch 0\n   date \"2004/01/14 10:00:00\" author \"bob\"\n"
              "   tags\n   comment \"branches:  1.2.2;\\ntwo\\n\"\n"
              "2: version \"1.2.2.2\" branch 0\n   date \"2004/01/17 09:00:00\" author \"cy\"\n"
              "   tags \"b1_tip\"\n   comment \"on b1, second\\n\"\n"
              "3: version \"1.2.2.1\" branch 0\n   date \"2004/01/16 09:00:00\" author \"cy\"\n"
              "   tags\n   comment \"on b1\"\n"
              "4: version \"1.2.2\" branch 1\n   date \"2004/01/17 09:00:00\" author \"cy\"\n"
              "   tags \"b1\"\n   comment \"on b1, second\\n\"\n");
}

TEST(CvsParsers, LogWithoutRevisionsOrWithABrokenOneGivesWhatIsComplete) {
    HistoryItem* items = reinterpret_cast<HistoryItem*>(1);
    EXPECT_EQ(parseLogOutput("cvs log: nothing known about a.c\n", &items), 0);
    EXPECT_EQ(items, nullptr);
    EXPECT_EQ(parseLogOutput(nullptr, &items), 0);
    // The second revision has no author: the walk stops and drops it; a branch line without
    // revisions still gives its item, with absent strings.
    std::string broken = "----------------------------\nrevision 1.2\n"
                         "date: 2004/01/14 10:00:00;  author: bob;  state: Exp;\n"
                         "branches:  1.2.2;  1.2.4;\ntwo\n"
                         "----------------------------\nrevision 1.1\ndate: 2004/01/13\n"
                         "=====================================================";
    EXPECT_EQ(describeLog(broken),
              "items: 3\n"
              "0: version \"1.2\" branch 0\n   date \"2004/01/14 10:00:00\" author \"bob\"\n"
              "   tags\n   comment \"branches:  1.2.2;  1.2.4;\\ntwo\\n\"\n"
              "1: version \"1.2.2\" branch 1\n   date null author null\n   tags\n"
              "   comment null\n"
              "2: version \"1.2.4\" branch 1\n   date null author null\n   tags\n"
              "   comment null\n");
}

TEST(CvsParsers, ConflictRemarkNamesExactlyTheFile) {
    EXPECT_TRUE(updateReportsConflict("cvs server: conflicts found in a.c\nC a.c\n", "a.c"));
    EXPECT_TRUE(updateReportsConflict("cvs update: conflicts found in a.c\r\nC a.c\r\n", "a.c"));
    EXPECT_TRUE(updateReportsConflict("cvs update: conflicts found in a.c", "a.c"));
    EXPECT_FALSE(updateReportsConflict("cvs update: conflicts found in a.cc\n", "a.c"));
    EXPECT_TRUE(updateReportsConflict(
        "cvs update: conflicts found in a.cc\ncvs update: conflicts found in a.c\n", "a.c"));
    EXPECT_FALSE(updateReportsConflict("cvs commit: conflicts found in a.c\n", "a.c"));
    EXPECT_FALSE(updateReportsConflict("C a.c\n", "a.c"));
    EXPECT_FALSE(updateReportsConflict(nullptr, "a.c"));
    EXPECT_FALSE(updateReportsConflict("cvs update: conflicts found in \n", ""));
}

std::string orNull(char* text) {
    std::string result = text ? text : "null";
    gen_free(text);
    return result;
}

TEST(CvsVersions, CompareAsNumbersComponentByComponent) {
    struct {
        const char* a;
        const char* b;
        int expected;
    } cases[] = {
        {"1.10", "1.9", 1},
        {"1.2", "1.2.1", -1},
        {"1.2.2.1", "1.2.2.1", 0},
        {"1.02", "1.2", 0},
        {nullptr, nullptr, 0},
        {nullptr, "1.1", -1},
        {"1.1", nullptr, 1},
        {"", "1", -1},
        {"1.2x", "1.2", 0},
        {"1.x.3", "1.2", -1},
        {"1.123456789012345678901", "1.123456789012345678900", 1},
        {"1.99999999999999999999", "1.100000000000000000000", -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(compareVersions(c.a, c.b), c.expected)
            << (c.a ? c.a : "null") << " vs " << (c.b ? c.b : "null");
        EXPECT_EQ(compareVersions(c.b, c.a), -c.expected);
    }
}

TEST(CvsVersions, RecognisePreviousAndNext) {
    for (const char* good : {"1.1", "1.2.2.1", "10", "1."})
        EXPECT_TRUE(isVersionNumber(good)) << good;
    for (const char* bad : {"", "1..2", "1.2a", "New File", "-1.2", " 1.2"})
        EXPECT_FALSE(isVersionNumber(bad)) << bad;
    EXPECT_FALSE(isVersionNumber(nullptr));

    struct {
        const char* version;
        const char* previous;
        const char* next;
    } cases[] = {
        {"1.4", "1.3", "1.5"},
        {"1.9", "1.8", "1.10"},
        {"1.10", "1.9", "1.11"},
        {"1.1", "null", "1.2"},
        {"1.2.2.3", "1.2.2.2", "1.2.2.4"},
        {"1.4.2.1", "1.4", "1.4.2.2"},
        {"1.0", "null", "1.1"},
        {"2", "1", "3"},
        {"1.99999999999999999999", "1.99999999999999999998", "1.100000000000000000000"},
        {"New File", "null", "null"},
        {"", "null", "null"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(orNull(previousVersion(c.version)), c.previous) << c.version;
        EXPECT_EQ(orNull(nextVersion(c.version)), c.next) << c.version;
    }
    EXPECT_EQ(previousVersion(nullptr), nullptr);
    EXPECT_EQ(nextVersion(nullptr), nullptr);
}

class ConflictMarkers : public ScratchTest {};

TEST_F(ConflictMarkers, AllThreeInOrderUnderTheFilesOwnName) {
    const std::string markers = "<<<<<<< a.c\nmine\n=======\ntheirs\n>>>>>>> 1.2\n";
    struct {
        const char* name;
        std::string content;
        bool expected;
    } cases[] = {
        {"complete", "x\n" + markers + "y\n", true},
        {"CRLF", withCrLf(markers), true},
        {"last line without end", "<<<<<<< a.c\n=======\n>>>>>>> 1.2", true},
        {"another file's name", "<<<<<<< b.c\n=======\n>>>>>>> 1.2\n", false},
        {"out of order", "=======\n<<<<<<< a.c\n>>>>>>> 1.2\n", false},
        {"no end marker", "<<<<<<< a.c\nmine\n=======\ntheirs\n", false},
        {"marker not a whole line", "<<<<<<< a.c \n=======\n>>>>>>> 1.2\n", false},
        {"empty", "", false},
    };
    for (const auto& c : cases) {
        write(at("a.c"), c.content);
        EXPECT_EQ(fileHasConflictMarkers(at("a.c").c_str()), c.expected) << c.name;
    }
    EXPECT_FALSE(fileHasConflictMarkers(at("missing.c").c_str()));
    EXPECT_FALSE(fileHasConflictMarkers(nullptr));
}

// The markers exactly as a real merge of cvs writes them, and gone once resolved by hand.
TEST_F(ConflictMarkers, OfARealMergeUntilResolvedByHand) {
    if (!cvsAvailable())
        GTEST_SKIP() << "no cvs client";
    CvsRepo repo(root());
    ASSERT_TRUE(repo.init()) << repo.lastError();
    ASSERT_TRUE(repo.importModule("m", {{"a.c", "1\n2\n3\n"}})) << repo.lastError();
    std::string mine = repo.checkout("m", "mine", CvsRootKind::fork);
    std::string theirs = repo.checkout("m", "theirs");
    ASSERT_FALSE(mine.empty() || theirs.empty()) << repo.lastError();
    // Each edit gets a time apart from the checkout's, so that cvs sees it within one second.
    auto edit = [this](const std::string& path, const std::string& content) {
        write(path, content);
        std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) -
                                                   std::chrono::seconds(10));
    };
    edit(theirs + "/a.c", "1\ntheirs\n3\n");
    ASSERT_TRUE(repo.run(theirs, {"-Q", "commit", "-m", "theirs", "a.c"})) << repo.lastError();
    std::string file = mine + "/a.c";
    edit(file, "1\nmine\n3\n");
    repo.cvs(mine, {"-q", "update", "a.c"});
    ASSERT_NE(read(file).find("<<<<<<< a.c"), std::string::npos) << read(file);
    EXPECT_TRUE(fileHasConflictMarkers(file.c_str()));
    write(file, "1\nmine and theirs\n3\n");
    EXPECT_FALSE(fileHasConflictMarkers(file.c_str()));
}

} // namespace
