// Idle notification: the one place that knows every socket, timer and idle job of the process,
// and DeleteAble, the base of singletons destroyed in priority order at exit.
#pragma once

#include "plat_socket.h"

#include <cstdint>
#include <set>
#include <vector>

// Base of process-wide singletons destroyed at exit in ascending order of priority.
class DeleteAble {
public:
    virtual ~DeleteAble();
    // Enters `object` (owned from here on) with `priority`; equal priorities may repeat. The
    // first entry registers, once, the atexit handler that deletes them all.
    static void enter(DeleteAble* object, float priority);
    // Deletes every entered object in ascending priority; what the atexit handler runs.
    static void deleteAll();
};

class IdleNotifier;

// A job that runs in slices whenever the process is idle.
class Idler {
public:
    virtual ~Idler() = default;
    virtual void idle(IdleNotifier* notifier) = 0;
    virtual bool hasUrgentWork() = 0;
};

// A periodic timer's callback; `nowTick` is the tick count of the run that fired it.
class TimerListener {
public:
    virtual ~TimerListener() = default;
    virtual void timerFired(int32_t nowTick) = 0;
};

// One socket (or socket-like source) watched by the notifier. An inactive listener is never
// handed to select: what it wants is taken as ready at once.
class SocketListener {
public:
    virtual ~SocketListener() = default;
    virtual bool isActive() = 0;
    virtual int getFD() = 0;
    virtual bool wantsRead() = 0;
    virtual bool wantsWrite() = 0;
    virtual bool wantsExcept() { return false; }
    virtual bool hasBufferedWork() = 0;
    virtual bool needsCall() = 0;
    virtual void onRead() = 0;
    virtual void onWrite() = 0;
    virtual void onExcept() {}
    virtual void onBufferedWork() = 0;
    virtual void onCall() = 0;
};

// The singleton of sockets, timers and idle jobs. Every call may re-enter: a callback can run a
// wait that turns the notifier again, to any depth. Removal during a walk only clears the entry;
// the table is compacted when the outermost walk ends. Nothing added here is owned.
class IdleNotifier : public DeleteAble {
public:
    // The singleton, made on first use. Null once its destruction has begun, for good: callers
    // that may run late (destructors of listeners) must test for that.
    static IdleNotifier* get();

    // How many sockets one select of a plug-in watches per kind (read, write, exception);
    // those beyond are not watched in that turn. A plug-in serves a handful of connections and
    // keeps the rule; a process that serves many (the router) lifts it with setSocketLimit.
    static constexpr int kMaxSelectSockets = 64;
    // The limit per kind; 0 for none. kMaxSelectSockets until set.
    void setSocketLimit(int32_t perKind) { socketLimit = perKind; }

    void addIdler(Idler* idler);
    void removeIdler(Idler* idler);
    void addListener(SocketListener* listener);
    void removeListener(SocketListener* listener);
    // Fires `listener` every `periodMs` milliseconds from now until removed.
    void addTimer(TimerListener* listener, int32_t periodMs);
    // Removes every timer entry of `listener`. An entry whose callback is running is only
    // marked, and freed when the callback returns.
    void removeTimer(TimerListener* listener);

    // Gives each idler a slice (only those with urgent work when `onlyUrgent`).
    void runIdlers(bool onlyUrgent);
    // Fires each due timer at most once and re-arms it a period after this run's tick.
    //
    // A timer is never fired from inside its own callback. A callback may wait, and a wait
    // turns the notifier (runTimers and pollSockets run nested in it, to any depth): while the
    // callback runs, its timer counts as not due in those nested turns. It does not fire there,
    // and it neither shortens their polls nor makes them spin, however long the wait lasts.
    // Other timers fire in the nested turns as usual. When the callback returns, its timer is
    // re-armed a period after the tick of the run that fired it (a timer removed by its own
    // callback is freed instead, and the first other timer is re-armed in its place, unfired).
    void runTimers();
    // Waits up to `timeoutMs` (shortened by a due timer, 0 when work is already pending) for
    // sockets to become ready and, with `dispatch`, calls their listeners.
    void pollSockets(int32_t timeoutMs, bool dispatch);

    // -1 without timers, 0 when the first is due, else the milliseconds until it is. A timer
    // whose callback is running does not count.
    int32_t nextTimerDelay() const;
    // True if a listener has a ready flag set or needs a call.
    bool anyReady();
    // Calls the listeners whose flags are set; true if anything was called.
    bool dispatchReady();

    ~IdleNotifier() override;

private:
    IdleNotifier();
    void beginWalk() { ++iterating; }
    void endWalk();
    void sweep();
    void insertTimer(struct TimerEntry* entry);
    // Takes `entry` out of the list (it stays allocated).
    void unlinkTimer(struct TimerEntry* entry);
    // The first entry that is neither firing nor removed, or null.
    struct TimerEntry* firstIdleTimer() const;

    std::set<Idler*> idlers;

    unsigned char* readReady = nullptr;
    unsigned char* writeReady = nullptr;
    unsigned char* exceptReady = nullptr;
    unsigned char* pumpReady = nullptr;
    SocketListener** listeners = nullptr;
    int32_t count = 0;
    int32_t capacity = 0;
    int32_t iterating = 0;
    int32_t socketLimit = kMaxSelectSockets;
    // The sockets of one poll and the table index of each; kept to reuse their memory.
    std::vector<PlatPollEntry> pollEntries;
    std::vector<int32_t> pollIndexes;

    struct TimerEntry* timerHead = nullptr;
    struct TimerEntry* timerTail = nullptr;
};
