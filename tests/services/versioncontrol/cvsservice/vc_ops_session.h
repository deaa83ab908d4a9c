// The fixture of the end-to-end tests of the operations on files: svc_router launches
// cvsservice, whose configured cvs client (from a configuration file in the test's own
// configuration folder) is a script in the scratch folder. The script logs every run with its
// directory and arguments, and then either hands the run to the real cvs client or, when the
// test has chosen a mode, misbehaves as cvs does on demand only: it waits for a lock, dies, hangs
// or prints remarks in the older wording. Comment files go to the scratch folder's "tmp"; the
// service's own directory is "service".
#pragma once

#include "cvs_repo.h"
#include "gen_string.h"
#include "indgen.h"
#include "service_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

class VcOpsSession : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cvsAvailable());
        ProgramRun which = runProgram({"/bin/sh", "-c", "command -v cvs"}, 10000);
        std::string realCvs = which.out.substr(0, which.out.find('\n'));
        ASSERT_FALSE(realCvs.empty());
        std::filesystem::create_directories(at("tmp"));
        writeExecutable(cvsPath(), fakeCvs(realCvs));
        // A cvs run that hangs ends within a minute.
        writeFile(at("config/ORT/ort.cfg"),
                  "Versctrl_CVSPath: \"" + cvsPath() + "\"\nVersctrl_CVSTimeLimit: 60\n");
        setenv("XDG_CONFIG_HOME", at("config").c_str(), 1);
        setenv("TMP", at("tmp").c_str(), 1);
        // The service works in "service" (the router's directory when it starts).
        std::filesystem::create_directories(at("service"));
        std::filesystem::path here = std::filesystem::current_path();
        std::filesystem::current_path(at("service"));
        bool started = session.start(folder);
        std::filesystem::current_path(here);
        ASSERT_TRUE(started) << session.error();
        vc = session.connectVersionControl(folder.root());
        ASSERT_NE(vc, nullptr) << session.error();
    }

    std::string at(const std::string& name) const { return folder.at(name); }
    std::string cvsPath() const { return at("bin/cvs"); }

    // What the script does on its next runs: "" hands them to cvs; "kill" kills itself;
    // "lockwait" and "oldlockwait" print the remarks of a wait for a lock first (in the
    // wording of cvs 1.12 or in the older one, with the older check-in report); "resurrect"
    // prints the older remark of `cvs add` that brings a file back, as version 1.4; "updating"
    // prints "cvs server: Updating ." first. With a `directory`, only runs in that directory
    // (its real path) misbehave.
    void mode(const std::string& name, const std::string& directory = std::string()) {
        writeFile(at("mode"), directory.empty()
                                  ? name
                                  : name + " " + std::filesystem::canonical(directory).string());
    }

    // The runs since the last call, one "DIRECTORY|ARGUMENTS" each.
    std::vector<std::string> runs() {
        std::string log = readFile(at("runs.log"));
        std::filesystem::remove(at("runs.log"));
        std::vector<std::string> lines;
        std::istringstream in(log);
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }

    // The comment files in the service's temporary folder, sorted.
    std::vector<std::string> commentFiles() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(at("tmp")))
            if (entry.path().filename().string().starts_with("vccomment"))
                names.push_back(entry.path().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    // The error_string of a reply, "(absent)" when there is none.
    static std::string text(char* error) {
        std::string s = error ? error : "(absent)";
        gen_free(error);
        return s;
    }

    // One request of a list of names, with its error_string as text.
    template <typename Call> std::string list(const std::vector<std::string>& names, Call call) {
        std::vector<char*> data;
        for (const std::string& n : names)
            data.push_back(const_cast<char*>(n.c_str()));
        StringList list{static_cast<int32_t>(data.size()), data.empty() ? nullptr : data.data()};
        char* error = nullptr;
        STPStatus status;
        EXPECT_TRUE(call(list, &error, session.waiter().get(), &status)) << status.message;
        return text(error);
    }

    std::string add(const std::vector<std::string>& names) {
        return list(names, [&](auto&&... a) { return vc->AddFilesToVC(a...); });
    }
    std::string commit(const std::vector<std::string>& names, const char* comments) {
        return list(names, [&](const StringList& l, char** e, RetryHandler* r, STPStatus* s) {
            StringList versions;
            bool sent = vc->CommitFiles(l, comments, &versions, e, r, s);
            EXPECT_EQ(versions.count, 0);
            StringList_free(&versions);
            return sent;
        });
    }
    std::string commitDirectories(const std::vector<std::string>& dirs, const char* comments) {
        return list(dirs, [&](const StringList& l, char** e, RetryHandler* r, STPStatus* s) {
            return vc->CommitDirectories(l, comments, e, r, s);
        });
    }
    std::string update(const std::vector<std::string>& names) {
        return list(names, [&](auto&&... a) { return vc->CheckOutFiles(a...); });
    }
    std::string remove(const std::vector<std::string>& names) {
        return list(names, [&](auto&&... a) { return vc->RemoveFiles(a...); });
    }
    // UnremoveFiles; the versions it gave, "(absent)" for each that it did not.
    std::string unremove(const std::vector<std::string>& names,
                         std::vector<std::string>* versions) {
        return list(names, [&](const StringList& l, char** e, RetryHandler* r, STPStatus* s) {
            StringList given;
            bool sent = vc->UnremoveFiles(l, &given, e, r, s);
            versions->clear();
            for (int32_t i = 0; i < given.count; ++i)
                versions->push_back(given.data[i] ? given.data[i] : "(absent)");
            StringList_free(&given);
            return sent;
        });
    }

    // A single-file request, with its error_string as text.
    template <typename Call> std::string one(Call call) {
        char* error = nullptr;
        STPStatus status;
        EXPECT_TRUE(call(&error, session.waiter().get(), &status)) << status.message;
        return text(error);
    }
    std::string checkIn(const std::string& name, const char* comments) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            char* version = nullptr;
            bool sent = vc->CheckInFile(name.c_str(), comments, &version, e, r, s);
            EXPECT_EQ(version, nullptr);
            gen_free(version);
            return sent;
        });
    }
    std::string place(const std::string& name, const char* comments) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            return vc->PlaceFileUnderVC(name.c_str(), false, comments, e, r, s);
        });
    }
    // CheckOutFile, GetFile or UncheckFile of `name`.
    enum class Update { checkOut, get, uncheck };
    std::string updateOne(Update which, const std::string& name) {
        return one([&](char** e, RetryHandler* r, STPStatus* s) {
            const char* n = name.c_str();
            return which == Update::get        ? vc->GetFile(n, e, r, s)
                   : which == Update::checkOut ? vc->CheckOutFile("log", n, e, r, s)
                                               : vc->UncheckFile("log", n, e, r, s);
        });
    }

    // The sentence behind the text of every failed commit, for the comment file `file`.
    static std::string keptIn(const std::string& file) {
        return "\n\nCommit log message has been left in file: " + file;
    }

    ScratchFolder folder;
    SavedEnvironment environment{{"XDG_CONFIG_HOME", "TMP"}, false};
    CvsRepo repo{folder.root()};
    ServiceSession session;
    VcClient* vc = nullptr;

private:
    std::string fakeCvs(const std::string& realCvs) const {
        return "#!/bin/sh\n"
               "printf '%s|%s\\n' \"$(pwd -P)\" \"$*\" >> '" +
               at("runs.log") +
               "'\n"
               "for last; do :; done\n"
               "m=$(cat '" +
               at("mode") +
               "' 2>/dev/null)\n"
               "case \"$m\" in *' '*) [ \"$(pwd -P)\" = \"${m#* }\" ] && m=${m%% *} || m= ;; esac\n"
               "case \"$m\" in\n"
               "kill) kill -9 $$ ;;\n"
               "lockwait)\n"
               "  echo \"cvs commit: [10:00:00] waiting for dev's lock in /repo/m\" >&2\n"
               "  echo \"cvs commit: [10:00:30] obtained lock in /repo/m\" >&2 ;;\n"
               "oldlockwait)\n"
               "  echo \"cvs server: [10:00:00] waiting for dev's lock in /repo/m\" >&2\n"
               "  echo \"cvs server: [10:00:30] obtained lock in /repo/m\" >&2\n"
               "  printf 'Checking in %s;\\n/repo/m/%s,v  <--  %s\\nnew revision: 1.9; previous "
               "revision: 1.8\\ndone\\n' \"$last\" \"$last\" \"$last\" ;;\n"
               "resurrect) echo \"cvs server: $last, version 1.4, resurrected\" >&2 ;;\n"
               "updating) echo 'cvs server: Updating .' >&2 ;;\n"
               "esac\n"
               "exec '" +
               realCvs + "' \"$@\"\n";
    }
};
