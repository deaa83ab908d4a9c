// Event loop: exit tests, the disconnect requests of run, actions and sleep times.
#include "svc_eventloop.h"

#include "plat_time.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

int32_t g_now = 0;
int32_t fakeClock() {
    return g_now;
}
int32_t noWait() {
    return 0;
}

struct FakeClock {
    explicit FakeClock(int32_t start) {
        g_now = start;
        plat_set_tick_source(fakeClock);
    }
    ~FakeClock() { plat_set_tick_source(nullptr); }
};

// A router link that stays up for a given number of isConnected answers and records when the
// loop asked it to disconnect.
struct FakeRouter : Svc_RouterLink {
    int roundsLeft = 0;
    std::vector<int32_t> requests;
    bool isConnected() override { return roundsLeft-- > 0; }
    void requestDisconnect() override { requests.push_back(g_now); }
};

struct Condition : ExitCondition {
    bool can = true, must = false;
    int asked = 0;
    Condition(bool can, bool must) : ExitCondition(false), can(can), must(must) {}
    bool canExit() override {
        ++asked;
        return can;
    }
    bool mustExit() override { return must; }
};

bool g_funcResult = true;
int g_funcCalls = 0;
bool exitFunc() {
    ++g_funcCalls;
    return g_funcResult;
}
bool neverExit() {
    return false;
}

TEST(EventLoopShouldExit, EmptyLoopMayExit) {
    Svc_EventLoop loop;
    EXPECT_TRUE(loop.shouldExit());
}

TEST(EventLoopShouldExit, MustExitWinsOverEarlierCanExitFalseAndOverFunctions) {
    Svc_EventLoop loop;
    Condition refuses(false, false), later(true, false), forces(true, true);
    loop.addExitCondition(&refuses);
    loop.addExitCondition(&later);
    loop.installExitConditionFunc(neverExit);
    EXPECT_FALSE(loop.shouldExit());
    loop.addExitCondition(&forces);
    EXPECT_TRUE(loop.shouldExit());
    // The walk went on past the refusal to find the forcing condition.
    EXPECT_EQ(later.asked, 2);
}

TEST(EventLoopShouldExit, FunctionsAreAskedOnlyWhenEveryConditionAgrees) {
    Svc_EventLoop loop;
    Condition refuses(false, false);
    loop.addExitCondition(&refuses);
    loop.installExitConditionFunc(exitFunc);
    g_funcCalls = 0;
    EXPECT_FALSE(loop.shouldExit());
    EXPECT_EQ(g_funcCalls, 0);
    EXPECT_TRUE(loop.removeExitCondition(&refuses));
    EXPECT_FALSE(loop.removeExitCondition(&refuses));
    g_funcResult = true;
    EXPECT_TRUE(loop.shouldExit());
    g_funcResult = false;
    EXPECT_FALSE(loop.shouldExit());
    EXPECT_TRUE(loop.removeExitConditionFunc(exitFunc));
    EXPECT_TRUE(loop.shouldExit());
    g_funcResult = true;
}

// Drives run with a clock that moves `stepMs` per turn and an exit test given per turn.
struct RunScript {
    static inline std::vector<bool> exitByTurn;
    static inline int turn = 0;
    static inline int32_t stepMs = 0;
    static void advance() {
        g_now += stepMs;
        ++turn;
    }
    static bool exitNow() {
        int i = turn - 1;
        return i < static_cast<int>(exitByTurn.size()) ? exitByTurn[i] : exitByTurn.back();
    }
};

std::vector<int32_t> runScript(std::vector<bool> exitByTurn, int32_t stepMs, int turns) {
    FakeClock clock(0);
    RunScript::exitByTurn = std::move(exitByTurn);
    RunScript::turn = 0;
    RunScript::stepMs = stepMs;
    FakeRouter router;
    router.roundsLeft = turns;
    Svc_EventLoop loop(&router);
    loop.setSleepFunc(noWait);
    loop.addLoopFunc(RunScript::advance);
    loop.installExitConditionFunc(RunScript::exitNow);
    EXPECT_TRUE(loop.run());
    return router.requests;
}

TEST(EventLoopRun, RepeatsTheDisconnectRequestEvery30SecondsWhileTheTestHolds) {
    // Turns end at 10 s, 20 s, ...: the first request at once, the next once 30 s have passed.
    auto requests = runScript({true}, 10000, 9);
    EXPECT_EQ(requests, (std::vector<int32_t>{10000, 50000, 90000}));
}

TEST(EventLoopRun, AClientThatComesAndGoesMakesANewRequestAtOnce) {
    // Request at 10 s; a client arrives at 20 s and leaves by 25 s: a new request then,
    // not 30 s after the first.
    auto requests = runScript({true, false, true}, 5000, 12);
    ASSERT_GE(requests.size(), 2u);
    EXPECT_EQ(requests[0], 5000);
    EXPECT_EQ(requests[1], 15000);
}

TEST(EventLoopRun, ReturnsWhenTheRouterConnectionIsGoneEvenWithARequestDue) {
    // A request is due at every turn (40 s apart); the link goes down after two turns.
    auto requests = runScript({true}, 40000, 2);
    EXPECT_EQ(requests, (std::vector<int32_t>{40000, 80000}));
    // Never connected: no turn at all.
    FakeRouter gone;
    Svc_EventLoop loop(&gone);
    EXPECT_TRUE(loop.run());
    EXPECT_TRUE(gone.requests.empty());
    EXPECT_EQ(gone.roundsLeft, -1);
}

struct SelfRemovingAction : LoopAction {
    Svc_EventLoop* loop = nullptr;
    int performed = 0;
    SelfRemovingAction() : LoopAction(false) {}
    void perform() override {
        ++performed;
        loop->removeLoopAction(this);
    }
};

TEST(EventLoopActions, ActionRemovingItselfRunsOnceInThatTurnAndNotInTheNext) {
    Svc_EventLoop loop;
    loop.setSleepFunc(noWait);
    SelfRemovingAction action;
    action.loop = &loop;
    loop.addLoopAction(&action);
    loop.runOnce();
    EXPECT_EQ(action.performed, 1);
    loop.runOnce();
    EXPECT_EQ(action.performed, 1);
}

// Removes (from its loop, if given) and deletes another action when it runs.
struct DeletingAction : LoopAction {
    LoopAction* victim = nullptr;
    Svc_EventLoop* loop = nullptr;
    explicit DeletingAction(bool autoRegister) : LoopAction(autoRegister) {}
    void perform() override {
        if (loop)
            loop->removeLoopAction(victim);
        delete victim;
        victim = nullptr;
    }
};

struct Victim : LoopAction {
    int* performed;
    Victim(bool autoRegister, int* count) : LoopAction(autoRegister), performed(count) {}
    void perform() override { ++*performed; }
};

// Under the sanitizers a call to the deleted action is a use after free.
TEST(EventLoopActions, AnActionDeletedByAnotherInTheSameTurnIsNotCalled) {
    Svc_EventLoop loop;
    loop.setSleepFunc(noWait);
    int performed = 0;
    DeletingAction killer(false);
    killer.loop = &loop;
    killer.victim = new Victim(false, &performed);
    loop.addLoopAction(&killer);
    loop.addLoopAction(killer.victim);
    loop.runOnce();
    EXPECT_EQ(performed, 0);
    loop.removeLoopAction(&killer);

    // The process-wide list: the victim leaves it in its destructor.
    DeletingAction globalKiller(true);
    globalKiller.victim = new Victim(true, &performed);
    loop.runOnce();
    EXPECT_EQ(performed, 0);
}

std::vector<int>* g_cleanups = nullptr;
void cleanupFunc() {
    g_cleanups->push_back(99);
}

struct Cleanup : CleanupAction {
    int id;
    explicit Cleanup(int id) : id(id) {}
    void cleanup() override { g_cleanups->push_back(id); }
};

TEST(EventLoopActions, CleanupActionsThenFunctionsRunAtDestructionInOrder) {
    std::vector<int> order;
    g_cleanups = &order;
    Cleanup a(1), b(2);
    {
        Svc_EventLoop loop;
        loop.addCleanupFunc(cleanupFunc);
        loop.addCleanupAction(&a);
        loop.addCleanupAction(&b);
        EXPECT_TRUE(order.empty());
    }
    EXPECT_EQ(order, (std::vector<int>{1, 2, 99}));
}

struct FixedSleep : SleepTime {
    int32_t ms;
    FixedSleep(int32_t ms, bool reg) : SleepTime(reg), ms(ms) {}
    int32_t getSleepTime() override { return ms; }
};

int32_t sleep7() {
    return 7;
}

TEST(EventLoopSleepTime, MemberThenFunctionThenCurrentThenDefault) {
    Svc_EventLoop loop;
    EXPECT_EQ(loop.sleepTime(), 1000);
    {
        FixedSleep first(11, true);
        EXPECT_EQ(loop.sleepTime(), 11);
        {
            FixedSleep second(22, true);
            EXPECT_EQ(loop.sleepTime(), 22);
        }
        // Destroying the current one leaves none, not the first one.
        EXPECT_EQ(loop.sleepTime(), 1000);
        FixedSleep local(33, false);
        loop.setSleepFunc(sleep7);
        EXPECT_EQ(loop.sleepTime(), 7);
        loop.setSleepTime(&local);
        EXPECT_EQ(loop.sleepTime(), 33);
        loop.setSleepTime(nullptr);
        loop.setSleepFunc(nullptr);
    }
    EXPECT_EQ(loop.sleepTime(), 1000);
}

// Registrations are process-wide and permanent, so these run in a child process.
struct RegisteredCondition : ExitCondition {
    bool can;
    explicit RegisteredCondition(bool can) : ExitCondition(true), can(can) {}
    bool canExit() override { return can; }
    bool mustExit() override { return false; }
};

struct CountingAction : LoopAction {
    int performed = 0;
    CountingAction() : LoopAction(true) {}
    void perform() override { ++performed; }
};

// Stops the child with the text of the first check that failed; the parent expects none.
void require(bool ok, const char* check) {
    if (!ok) {
        std::fprintf(stderr, "failed: %s\n", check);
        std::_Exit(1);
    }
}

void childRegistersConditionsAndActions() {
    static RegisteredCondition refuses(false);
    Svc_EventLoop early;
    early.setSleepFunc(noWait);
    static RegisteredCondition lateRefusal(false);
    require(!early.shouldExit(), "a registered condition that refuses holds the loop");
    refuses.can = true;
    require(early.shouldExit(), "a condition registered after the loop is not seen by it");
    Svc_EventLoop later;
    require(!later.shouldExit(), "a loop made later sees the later condition");
    int performed = 0;
    {
        CountingAction action;
        early.runOnce();
        performed = action.performed;
    }
    early.runOnce(); // the destroyed action left the list
    require(performed == 1, "a registered action runs once per turn");
    std::_Exit(0);
}

TEST(EventLoopRegistryDeathTest, LoopCopiesConditionsRegisteredBeforeItAndRunsRegisteredActions) {
    EXPECT_EXIT(childRegistersConditionsAndActions(), testing::ExitedWithCode(0), "^$");
}

} // namespace
