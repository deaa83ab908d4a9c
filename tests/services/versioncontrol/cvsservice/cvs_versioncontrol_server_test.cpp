// The VersionControl.CVS server as a client meets it: svc_router launches cvsservice, and the
// requests travel through the router to the server object and back, running the real cvs
// client in a real repository.
#include "cvs_repo.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_folders.h"
#include "service_session.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string take(char* text) {
    std::string s = text ? text : "(absent)";
    gen_free(text);
    return s;
}

// The service runs in the directory that the router had when it started it, which is this
// test's directory while the session starts.
class InDirectory {
public:
    explicit InDirectory(const std::string& dir) {
        plat_getcwd(previous_, sizeof previous_);
        EXPECT_EQ(plat_chdir(dir.c_str()), 0);
    }
    ~InDirectory() { plat_chdir(previous_); }

private:
    char previous_[4096] = {};
};

// A repository with module "m" checked out as "wc", and a service session started in "wc".
class ServerSession : public ScratchTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(cvsAvailable());
        ASSERT_TRUE(repo.init()) << repo.lastError();
        ASSERT_TRUE(repo.importModule("m", {{"a.c", "one\n"}, {"sub/b.c", "two\n"}}))
            << repo.lastError();
        wc = repo.checkout("m", "wc", CvsRootKind::fork);
        ASSERT_NE(wc, "") << repo.lastError();
        InDirectory in(wc);
        ASSERT_TRUE(session.start(folder)) << session.error();
        vc = session.connectVersionControl(wc);
        ASSERT_NE(vc, nullptr) << session.error();
    }

    struct Executed {
        std::string output, error;
    };
    Executed execute(const char* command) {
        char* output = nullptr;
        char* error = nullptr;
        STPStatus status;
        EXPECT_TRUE(
            vc->ExecuteCommandString(command, &output, &error, session.waiter().get(), &status))
            << status.message;
        return {take(output), take(error)};
    }

    ScratchFolder folder;
    CvsRepo repo{folder.root()};
    std::string wc;
    ServiceSession session;
    VcClient* vc = nullptr;
};

TEST_F(ServerSession, QuestionsThatNeedNoCvsAnswerAtOnce) {
    bool optimistic = false;
    char* error = nullptr;
    STPStatus status;
    ASSERT_TRUE(vc->IsVCOptimistic(&optimistic, &error, session.waiter().get(), &status));
    EXPECT_TRUE(optimistic);
    EXPECT_EQ(error, nullptr);

    char* user = nullptr;
    ASSERT_TRUE(vc->GetVCUsername(&user, &error, session.waiter().get(), &status));
    EXPECT_EQ(user, nullptr);
    EXPECT_EQ(take(error), "GetVCUsername is not implemented.\n");

    char login[64];
    ASSERT_TRUE(plat_user_name(login, sizeof login));
    for (const char* file : {"a.c", "/no/such/file"}) {
        ASSERT_TRUE(vc->GetUserWhoOwnsFile(file, &user, &error, session.waiter().get(), &status));
        EXPECT_EQ(take(user), login);
        EXPECT_EQ(error, nullptr);
    }
}

TEST_F(ServerSession, ExecuteCommandStringRunsCvsWhereTheServiceRuns) {
    // A change of the working copy and one in the repository from another working copy.
    write(wc + "/a.c", "one, changed\n");
    std::string other = repo.checkout("m", "other");
    ASSERT_TRUE(repo.commitChange(other, "sub/b.c", "two, changed\n", "remote change"))
        << repo.lastError();

    struct Case {
        const char* command;
        std::vector<std::string> words;
    };
    for (const Case& c :
         {Case{"version", {"version"}}, Case{"-n -q update", {"-n", "-q", "update"}}}) {
        ProgramRun direct = repo.cvs(wc, c.words);
        ASSERT_TRUE(direct.finished);
        Executed executed = execute(c.command);
        EXPECT_EQ(executed.output, direct.out) << c.command;
        // Success: the standard error text, present even when empty.
        EXPECT_EQ(executed.error, direct.err) << c.command;
    }
    EXPECT_EQ(execute("-n -q update").output, "M a.c\nU sub/b.c\n");

    // cvs names itself by the name that runs, although the configured client is "cvs.exe".
    Executed unknown = execute("-n -q update no-such-file");
    EXPECT_EQ(unknown.output, "");
    EXPECT_EQ(unknown.error, "cvs update: nothing known about `no-such-file'\n");

    Executed failed = execute("no-such-command");
    EXPECT_EQ(failed.output, "(absent)");
    EXPECT_EQ(failed.error.rfind("Error: Unable to execute command string. Command "
                                 "reported:\nUnknown command: `no-such-command'",
                                 0),
              0u)
        << failed.error;
}

} // namespace
