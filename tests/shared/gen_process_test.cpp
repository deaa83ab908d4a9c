// Child processes: the command-line reader and its writers (round trips of every byte), real
// children run to their end (both streams, grandchildren, time limits, prompts), and pipes that
// a caller drains itself.
#include "gen_process.h"

#include "gen_string.h"
#include "indgen.h"
#include "plat_pipe.h"
#include "plat_time.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

std::string take(char* text) {
    std::string s = text ? text : "(absent)";
    gen_free(text);
    return s;
}

struct Capture {
    bool ok = false;
    std::string out, err;
    size_t outLength = 0, errLength = 0;
};

Capture capture(const std::string& command, int32_t limitSeconds = 60) {
    Capture c;
    char* out = nullptr;
    char* err = nullptr;
    c.ok = captureCommand(command.c_str(), &out, &err, &c.outLength, &c.errLength, limitSeconds);
    EXPECT_NE(out, nullptr);
    EXPECT_NE(err, nullptr);
    if (out)
        c.out.assign(out, c.outLength);
    if (err)
        c.err.assign(err, c.errLength);
    gen_free(out);
    gen_free(err);
    return c;
}

// ---- Reader ----

TEST(CommandLineReader, ReadsTheCdPrefixQuotedAndBareWords) {
    CommandLine line;
    ASSERT_TRUE(readCommandLine("  cd /tmp/x ; cvs -q update", &line));
    EXPECT_EQ(line.workingDirectory, "/tmp/x");
    EXPECT_EQ(line.words, (Words{"cvs", "-q", "update"}));

    ASSERT_TRUE(readCommandLine("\"My Tools/cvs\" -q", &line));
    EXPECT_EQ(line.workingDirectory, "");
    EXPECT_EQ(line.words, (Words{"My Tools/cvs", "-q"}));

    ASSERT_TRUE(readCommandLine("p 'a b\\' \"c\\\"d\\\\\"\te\"f\"  g'h", &line));
    EXPECT_EQ(line.words, (Words{"p", "a b\\", "c\"d\\", "e\"f\"", "g'h"}));

    // A bare directory runs to the `;` without its trailing blanks; a quoted one may hold `;`.
    ASSERT_TRUE(readCommandLine("cd /tmp/a b \t; x", &line));
    EXPECT_EQ(line.workingDirectory, "/tmp/a b");
    ASSERT_TRUE(readCommandLine("cd \"/a;b\"; x", &line));
    EXPECT_EQ(line.workingDirectory, "/a;b");
    EXPECT_EQ(line.words, (Words{"x"}));
}

TEST(CommandLineReader, RefusesWhatCannotBeCutUp) {
    CommandLine line;
    for (const char* bad :
         {"", "  \t", "cd /tmp/x", "cd /tmp/x ;", "cd /tmp/x ;  ", "cd ; x", "cd \"/tmp/x\" x",
          "\"cvs -q", "cvs 'a b", "cvs \"a\\\"", "cvs \"a\"b"}) {
        std::string error;
        EXPECT_FALSE(readCommandLine(bad, &line, &error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
}

// Every byte from 1 to 255, alone and inside text, as a word and as the "cd" directory.
TEST(CommandLineReader, EveryByteRoundTripsThroughTheWriters) {
    std::vector<std::string> texts;
    std::string all;
    for (int b = 1; b < 256; ++b) {
        std::string c(1, static_cast<char>(b));
        texts.insert(texts.end(), {c, "a" + c + "b", c + c, " " + c, c + "\\"});
        all += c;
    }
    texts.insert(texts.end(), {all, "", "it's a dir", "a b\\", "\\\"'"});
    for (const std::string& text : texts) {
        CommandLine line;
        char* word = commandWord(text.c_str());
        std::string command = std::string("prog ") + word + " last";
        gen_free(word);
        ASSERT_TRUE(readCommandLine(command.c_str(), &line)) << command;
        EXPECT_EQ(line.words, (Words{"prog", text, "last"})) << command;

        // gen_quote's own form reads back too.
        char* quoted = gen_quote(text.c_str());
        ASSERT_TRUE(readCommandLine((std::string("p ") + quoted).c_str(), &line));
        EXPECT_EQ(line.words.back(), text);
        gen_free(quoted);

        const char* argv[] = {"ignored", text.c_str(), "x y", nullptr};
        char* joined = argvCommandLine(("dir " + text + "/prog").c_str(), argv);
        ASSERT_TRUE(readCommandLine(joined, &line)) << joined;
        EXPECT_EQ(line.words, (Words{"dir " + text + "/prog", text, "x y"}));
        gen_free(joined);

        if (text.empty())
            continue;
        char* cd = cdCommandLine(text.c_str(), "pwd -P");
        ASSERT_TRUE(readCommandLine(cd, &line)) << cd;
        EXPECT_EQ(line.workingDirectory, text) << cd;
        EXPECT_EQ(line.words, (Words{"pwd", "-P"}));
        gen_free(cd);
    }
}

TEST(CommandLineReader, WritersLeaveOrdinaryWordsBareAndQuoteTheRestInDoubleQuotes) {
    EXPECT_EQ(take(commandWord("-Q")), "-Q");
    EXPECT_EQ(take(commandWord("a b\\")), "\"a b\\\\\"");
    EXPECT_EQ(take(commandWord("")), "\"\"");
    EXPECT_EQ(take(cdCommandLine("/w/it's here", "cvs")), "cd \"/w/it\\'s here\" ; cvs");
    EXPECT_EQ(take(cdCommandLine("/w/plain", "cvs")), "cd /w/plain ; cvs");
    const char* argv[] = {"cvs", "-q", "a b\\", nullptr};
    EXPECT_EQ(take(argvCommandLine("C:\\cvs\\cvs", argv)), "\"C:\\\\cvs\\\\cvs\" -q \"a b\\\\\"");
}

// ---- Real children ----

class Children : public ScratchTest {
protected:
    // A script that runs as a program of its own.
    std::string script(const std::string& name, const std::string& body) {
        writeExecutable(at(name), "#!/bin/sh\n" + body);
        return at(name);
    }
};

TEST_F(Children, EveryByteOfAnArgumentAndOfTheDirectoryReachesTheChild) {
    std::string all;
    for (int b = 1; b < 256; ++b)
        all += static_cast<char>(b);
    int fds[2];
    ASSERT_TRUE(plat_pipe(fds));
    const char* argv[] = {"ignored", "%s", all.c_str(), nullptr};
    PlatProcess* process = nullptr;
    ASSERT_TRUE(spawnArgv("printf", argv, &process, GEN_NO_HANDLE, fds[1], GEN_NO_HANDLE,
                          GEN_SPAWN_DETACHED));
    plat_close_fd(fds[1]);
    std::string received;
    char buffer[512];
    for (long n; (n = plat_read_fd(fds[0], buffer, sizeof buffer)) > 0;)
        received.append(buffer, static_cast<size_t>(n));
    plat_close_fd(fds[0]);
    EXPECT_EQ(plat_wait_process(process, 10000), PlatWait::exited);
    plat_close_process(process);
    EXPECT_EQ(received, all);

    for (int b = 1; b < 256; ++b) {
        if (b == '/')
            continue;
        std::string dir = at(std::string("d") + static_cast<char>(b) + "it's x");
        std::filesystem::create_directory(dir);
        char* cd = cdCommandLine(dir.c_str(), "pwd -P");
        Capture c = capture(cd);
        gen_free(cd);
        EXPECT_TRUE(c.ok) << b << c.err;
        EXPECT_EQ(c.out, dir + "\n") << b;
    }
}

TEST_F(Children, TheChildSeesTheNameThatRunsAndAnExistingExeNameStays) {
    // "sh" has no extension: "sh.exe" is looked for first, then "sh" runs, named "sh".
    Capture c = capture("sh -c 'printf %s \"$0\"'");
    EXPECT_TRUE(c.ok) << c.err;
    EXPECT_EQ(c.out, "sh");
    std::string exe = script("tool.exe", "printf %s \"$0\"\n");
    c = capture(exe);
    EXPECT_EQ(c.out, exe);
}

TEST_F(Children, AVectorRunsWithoutHandlesAndMayDropALeadingByte) {
    std::string made = at("made by the child");
    const char* argv[] = {"@touch", made.c_str(), nullptr};
    PlatProcess* process = nullptr;
    ASSERT_TRUE(spawnVector(argv, &process, true));
    EXPECT_EQ(plat_wait_process(process, 10000), PlatWait::exited);
    plat_close_process(process);
    EXPECT_TRUE(std::filesystem::exists(made));
    EXPECT_FALSE(spawnVector(argv, &process, false)); // "@touch" is no program
    EXPECT_EQ(process, nullptr);
}

TEST_F(Children, BothStreamsAreDrainedAtOnceWhateverTheirSize) {
    std::string big;
    for (int i = 0; big.size() < 3 * 1024 * 1024; ++i)
        big += std::to_string(i) + "\n";
    write(at("big"), big);
    // The standard error fills its pipe long before the standard output says anything.
    std::string file = "'" + at("big") + "'";
    Capture c =
        capture(script("loud", "cat " + file + " >&2; cat " + file + "; cat " + file + " >&2\n"));
    EXPECT_TRUE(c.ok);
    EXPECT_EQ(c.out, big);
    EXPECT_EQ(c.err, big + big);
}

TEST_F(Children, AGrandchildThatHoldsThePipeIsWaitedFor) {
    Capture c = capture(script("parent", "(sleep 1; echo late) &\necho early\n"));
    EXPECT_TRUE(c.ok);
    EXPECT_EQ(c.out, "early\nlate\n");
}

TEST_F(Children, TheTimeLimitKillsTheWholeGroupAndSaysSo) {
    std::string pidFile = at("grandchild.pid");
    std::string hang =
        script("cvs", "echo working >&2\nsleep 60 &\necho $! > '" + pidFile + "'\nsleep 60\n");
    int32_t start = plat_tick_count();
    Capture c = capture(hang, 1);
    int32_t took = plat_tick_diff(plat_tick_count(), start);
    EXPECT_FALSE(c.ok);
    EXPECT_EQ(c.err, "working\ncvs was stopped after 1 seconds because it had not finished "
                     "within the time limit.\n");
    EXPECT_LT(took, 30000) << "the limit did not stop the run";
    // The grandchild, in the same process group, was killed too: it ends (or is a zombie).
    int grandchild = std::atoi(readFile(pidFile).c_str());
    ASSERT_GT(grandchild, 0);
    std::string stat = "/proc/" + std::to_string(grandchild) + "/stat";
    auto ended = [&] {
        std::string text = readFile(stat);
        return text.empty() || text[text.rfind(')') + 2] == 'Z';
    };
    for (int i = 0; i < 1000 && !ended(); ++i)
        plat_sleep_ms(5);
    EXPECT_TRUE(ended()) << readFile(stat);
}

TEST_F(Children, APromptOnTheTerminalFailsAtOnceAndInputIsEmpty) {
    // Without a controlling terminal /dev/tty cannot be opened, so the prompt gives up at once
    // instead of waiting for a person.
    Capture prompt = capture(script("prompt", "printf 'Password: ' >&2\n"
                                              "read secret < /dev/tty || exit 1\necho got it\n"),
                             30);
    EXPECT_FALSE(prompt.ok);
    EXPECT_EQ(prompt.out, "");
    EXPECT_EQ(prompt.err.find("was stopped"), std::string::npos) << prompt.err;
    Capture input = capture("cat");
    EXPECT_TRUE(input.ok);
    EXPECT_EQ(input.out, "");
}

// A missing program is reported in the cvs layer's tests.
TEST_F(Children, WhatCannotStartIsReportedOnTheErrorText) {
    Capture noDir = capture("cd " + at("nowhere") + " ; true");
    EXPECT_FALSE(noDir.ok);
    EXPECT_EQ(noDir.err,
              "Unable to start true: the directory " + at("nowhere") + " cannot be entered.\n");
    Capture unbalanced = capture("cvs \"-q");
    EXPECT_FALSE(unbalanced.ok);
    EXPECT_EQ(unbalanced.err, "Unable to run the command: a quote is not closed.\n");
}

// Reads a ChildPipe as a caller's idle slice would, until it ends.
std::string drainPipe(ChildPipe* pipe) {
    std::string text;
    char buffer[100];
    int32_t start = plat_tick_count();
    while (pipe->open && plat_tick_diff(plat_tick_count(), start) < 20000) {
        size_t count = 0;
        if (!pipe->hasData()) {
            plat_sleep_ms(1);
            continue;
        }
        if (pipe->read(buffer, sizeof buffer, &count)) {
            EXPECT_LT(count, sizeof buffer);
            EXPECT_EQ(buffer[count], '\0');
            text.append(buffer, count);
        }
    }
    return text;
}

TEST_F(Children, PipesThatTheCallerDrainsInTheGivenDirectory) {
    std::string dir = at("a;b it's");
    std::filesystem::create_directory(dir);
    std::string prog = script("talk", "pwd -P; sleep 0.2; echo err >&2; echo done\n");
    PlatProcess* process = nullptr;
    ChildPipe* out = nullptr;
    ChildPipe* err = nullptr;
    ASSERT_TRUE(spawnWithPipes(prog.c_str(), dir.c_str(), &process, true, &out, true, &err, false));
    ASSERT_NE(out, err);
    EXPECT_EQ(drainPipe(out), dir + "\ndone\n");
    EXPECT_EQ(drainPipe(err), "err\n");
    size_t count = 1;
    char buffer[4];
    EXPECT_FALSE(out->read(buffer, sizeof buffer, &count));
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(plat_wait_process(process, 10000), PlatWait::exited);
    plat_close_process(process);
    out->close();
    err->close();
    delete out;
    delete err;

    // Merged: one pipe object carries both streams.
    ASSERT_TRUE(spawnWithPipes(prog.c_str(), dir.c_str(), &process, true, &out, true, &err, true));
    EXPECT_EQ(out, err);
    EXPECT_EQ(drainPipe(out), dir + "\nerr\ndone\n");
    EXPECT_EQ(plat_wait_process(process, 10000), PlatWait::exited);
    plat_close_process(process);
    out->close();
    delete out;

    EXPECT_FALSE(
        spawnWithPipes("no-such-program-here", nullptr, &process, true, &out, true, &err, false));
    EXPECT_EQ(process, nullptr);
    EXPECT_EQ(out, nullptr);
}

} // namespace
