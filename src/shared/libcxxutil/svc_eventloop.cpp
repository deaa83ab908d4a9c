#include "svc_eventloop.h"

#include "plat_time.h"
#include "ut_idle.h"

#include <algorithm>

namespace {
// The process-wide registries, made at first registration.
std::vector<ExitCondition*>* g_exitConditions = nullptr;
std::vector<LoopAction*>* g_loopActions = nullptr;
SleepTime* g_currentSleepTime = nullptr;

template <typename T> bool removeFirst(std::vector<T>& list, T item) {
    auto it = std::find(list.begin(), list.end(), item);
    if (it == list.end())
        return false;
    list.erase(it);
    return true;
}

// Calls `call` on each entry of a copy of `list`, so that entries may add or remove entries
// while the walk goes on. An entry that has left `list` since the copy was made is skipped: an
// action may remove, and delete, another one during the walk. An empty list is skipped before
// anything is copied.
template <typename T, typename Call> void walkCopy(const std::vector<T>& list, Call call) {
    if (list.empty())
        return;
    std::vector<T> copy(list);
    for (T item : copy)
        if (std::find(list.begin(), list.end(), item) != list.end())
            call(item);
}
} // namespace

ExitCondition::ExitCondition(bool autoRegister) {
    if (!autoRegister)
        return;
    if (g_exitConditions == nullptr)
        g_exitConditions = new std::vector<ExitCondition*>;
    g_exitConditions->push_back(this);
}

LoopAction::LoopAction(bool autoRegister) : autoRegistered(autoRegister) {
    if (!autoRegister)
        return;
    if (g_loopActions == nullptr)
        g_loopActions = new std::vector<LoopAction*>;
    g_loopActions->push_back(this);
}

LoopAction::~LoopAction() {
    if (autoRegistered && g_loopActions)
        std::erase(*g_loopActions, this);
}

SleepTime::SleepTime(bool autoRegister) : autoRegistered(autoRegister) {
    if (autoRegister)
        g_currentSleepTime = this;
}

SleepTime::~SleepTime() {
    if (autoRegistered && g_currentSleepTime == this)
        g_currentSleepTime = nullptr;
}

Svc_EventLoop::Svc_EventLoop(Svc_RouterLink* router) : router(router) {
    if (g_exitConditions)
        exit_conditions = *g_exitConditions;
}

Svc_EventLoop::~Svc_EventLoop() {
    for (CleanupAction* action : cleanup_actions)
        action->cleanup();
    for (VoidFunc func : cleanup_funcs)
        func();
}

bool Svc_EventLoop::addExitCondition(ExitCondition* condition) {
    exit_conditions.push_back(condition);
    return true;
}
bool Svc_EventLoop::installExitConditionFunc(BoolFunc func) {
    exit_funcs.push_back(func);
    return true;
}
bool Svc_EventLoop::addCleanupAction(CleanupAction* action) {
    cleanup_actions.push_back(action);
    return true;
}
bool Svc_EventLoop::addCleanupFunc(VoidFunc func) {
    cleanup_funcs.push_back(func);
    return true;
}
bool Svc_EventLoop::addLoopAction(LoopAction* action) {
    loop_actions.push_back(action);
    return true;
}
bool Svc_EventLoop::addLoopFunc(VoidFunc func) {
    loop_funcs.push_back(func);
    return true;
}
bool Svc_EventLoop::removeExitCondition(ExitCondition* condition) {
    return removeFirst(exit_conditions, condition);
}
bool Svc_EventLoop::removeExitConditionFunc(BoolFunc func) {
    return removeFirst(exit_funcs, func);
}
bool Svc_EventLoop::removeLoopAction(LoopAction* action) {
    return removeFirst(loop_actions, action);
}
bool Svc_EventLoop::removeLoopFunc(VoidFunc func) {
    return removeFirst(loop_funcs, func);
}
bool Svc_EventLoop::setSleepTime(SleepTime* sleepTime) {
    sleep_time = sleepTime;
    return true;
}
bool Svc_EventLoop::setSleepFunc(SleepFunc func) {
    sleep_func = func;
    return true;
}

bool Svc_EventLoop::run() {
    bool asked = false;
    int32_t deadline = 0;
    while (router && router->isConnected()) {
        runOnce();
        if (!shouldExit()) {
            asked = false;
            continue;
        }
        // The deadline is compared directly with the tick count, as signed numbers.
        if (!asked || deadline < plat_tick_count()) {
            router->requestDisconnect();
            deadline = plat_tick_add(plat_tick_count(), kDisconnectRepeatMs);
            asked = true;
        }
    }
    return true;
}

bool Svc_EventLoop::shouldExit() {
    bool all = true;
    for (ExitCondition* condition : exit_conditions) {
        if (condition->mustExit())
            return true;
        if (!condition->canExit())
            all = false;
    }
    if (!all)
        return false;
    for (BoolFunc func : exit_funcs)
        if (!func())
            return false;
    return true;
}

bool Svc_EventLoop::runOnce() {
    walkCopy(loop_actions, [](LoopAction* action) { action->perform(); });
    walkCopy(loop_funcs, [](VoidFunc func) { func(); });
    if (g_loopActions)
        walkCopy(*g_loopActions, [](LoopAction* action) { action->perform(); });
    if (IdleNotifier* notifier = IdleNotifier::get()) {
        notifier->runIdlers(false);
        notifier->runTimers();
        notifier->pollSockets(sleepTime(), true);
    }
    return true;
}

int32_t Svc_EventLoop::sleepTime() {
    if (sleep_time)
        return sleep_time->getSleepTime();
    if (sleep_func)
        return sleep_func();
    if (g_currentSleepTime)
        return g_currentSleepTime->getSleepTime();
    return 1000;
}
