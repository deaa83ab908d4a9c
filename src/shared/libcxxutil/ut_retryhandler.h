// Retry handlers: how a blocking operation passes time while it waits and when it gives up.
#pragma once

#include <cstdint>
#include <vector>

// A reason a wait may have become pointless (a virtual connection that went down, ...).
class RetryCondition {
public:
    virtual ~RetryCondition();
    // False once the wait should end; asked on every turn of the wait.
    virtual bool stillValid() = 0;
};

// Base of every retry handler. A blocking operation calls `begin` once, then loops on
// `canContinue` and `wait`, then calls `end` once. A handler may serve many waits, in sequence
// or nested; `begin` restarts its clock, so a nested wait restarts the outer one's time too.
// Conditions are not owned and are added and removed strictly around one call, nesting like the
// stack.
class RetryHandler {
public:
    // The limit a `timeout` of -1 stands for.
    static constexpr int32_t kDefaultTimeoutMs = 15000;
    // A `timeout` above this is `timeout - kExactBase` exact milliseconds.
    static constexpr int32_t kExactBase = 1000000;

    // No limit.
    RetryHandler();
    // -1: the default 15000 ms. Above 1000000: `timeout - 1000000` exact milliseconds. 1 to
    // 1000000: `timeout` default periods of 15000 ms. 0 and other negative values set no limit
    // (no caller passes them).
    explicit RetryHandler(int32_t timeout);
    virtual ~RetryHandler();

    // Starts the clock when there is a limit.
    virtual void begin();
    // False as soon as a condition is no longer valid, or the limit (if any) has passed, or the
    // process-wide deadline tick (if set) has passed.
    virtual bool canContinue();
    // A hook; nothing in the base.
    virtual void end();
    // Lets time pass: one turn of whatever the handler drives. May re-enter the event loop and
    // so run message handlers to any depth.
    virtual void wait() = 0;

    void addCondition(RetryCondition* condition);
    // Removes the first entry equal to `condition`; false if there was none.
    bool removeCondition(RetryCondition* condition);

    // The limit in milliseconds, -1 for none.
    int32_t getTimeoutMs() const { return timeoutMs; }

    // One process-wide absolute tick past which every handler answers false; -1 (the initial
    // value) for none. Nothing in the service sets it; it is there for tools that must bound a
    // whole run.
    static void setDeadlineTick(int32_t tick);
    static int32_t getDeadlineTick();

protected:
    int32_t timeoutMs = -1;
    int32_t startTick = -1;
    std::vector<RetryCondition*> conditions;
};
