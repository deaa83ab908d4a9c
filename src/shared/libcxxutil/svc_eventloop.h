// The process's one event loop: per-turn actions, idle jobs, timers and sockets on one thread,
// and the exit tests that make the process ask the router to let it go.
#pragma once

#include "svc_routerlink.h"

#include <cstdint>
#include <vector>

// A reason the process may or must end. With `autoRegister` it joins the process-wide list
// that every Svc_EventLoop copies at construction; there is no removal.
class ExitCondition {
public:
    explicit ExitCondition(bool autoRegister);
    virtual ~ExitCondition() = default;
    virtual bool canExit() = 0;
    virtual bool mustExit() = 0;
};

// Run once when the loop is destroyed.
class CleanupAction {
public:
    virtual ~CleanupAction() = default;
    virtual void cleanup() = 0;
};

// Run on every turn of the loop. With `autoRegister` it joins the process-wide loop-action list
// and leaves it at destruction.
class LoopAction {
public:
    explicit LoopAction(bool autoRegister);
    virtual ~LoopAction();
    virtual void perform() = 0;

private:
    bool autoRegistered;
};

// How long a turn may wait for sockets. With `autoRegister` it becomes the process-wide current
// one (the last built wins; destroying the current one leaves none).
class SleepTime {
public:
    explicit SleepTime(bool autoRegister);
    virtual ~SleepTime();
    virtual int32_t getSleepTime() = 0;

private:
    bool autoRegistered;
};

class Svc_EventLoop {
public:
    using BoolFunc = bool (*)();
    using VoidFunc = void (*)();
    using SleepFunc = int32_t (*)();

    // Copies the exit conditions registered so far. `router` is the connection whose state
    // guards `run`; without one, `run` returns at once.
    explicit Svc_EventLoop(Svc_RouterLink* router = nullptr);
    // Runs the clean-up actions, then the clean-up functions, in order.
    virtual ~Svc_EventLoop();

    bool addExitCondition(ExitCondition* condition);
    bool installExitConditionFunc(BoolFunc func);
    bool addCleanupAction(CleanupAction* action);
    bool addCleanupFunc(VoidFunc func);
    bool addLoopAction(LoopAction* action);
    bool addLoopFunc(VoidFunc func);
    // Remove the first match; false if there is none.
    bool removeExitCondition(ExitCondition* condition);
    bool removeExitConditionFunc(BoolFunc func);
    bool removeLoopAction(LoopAction* action);
    bool removeLoopFunc(VoidFunc func);
    bool setSleepTime(SleepTime* sleepTime);
    bool setSleepFunc(SleepFunc func);

    // Turns until the router connection has gone. While shouldExit holds it asks the router to
    // disconnect, at once and then every 30000 ms. Returns true.
    virtual bool run();
    // A mustExit that is true wins; otherwise every canExit and every exit function must hold.
    virtual bool shouldExit();
    // One turn: loop actions, loop functions, process-wide loop actions, then the notifier's
    // idlers, timers and sockets. Each list is walked as it was when its walk began, minus the
    // entries that have left it since (an action may remove and delete another). May re-enter
    // anything that the callbacks do. Returns true.
    virtual bool runOnce();
    // The wait of one turn in milliseconds (default 1000).
    virtual int32_t sleepTime();

    // How long the loop waits between two disconnect requests while the exit test holds.
    static constexpr int32_t kDisconnectRepeatMs = 30000;

private:
    Svc_RouterLink* router;
    std::vector<ExitCondition*> exit_conditions;
    std::vector<BoolFunc> exit_funcs;
    std::vector<CleanupAction*> cleanup_actions;
    std::vector<VoidFunc> cleanup_funcs;
    std::vector<LoopAction*> loop_actions;
    std::vector<VoidFunc> loop_funcs;
    SleepTime* sleep_time = nullptr;
    SleepFunc sleep_func = nullptr;
};
