// Idle notifier: re-entrant walks over the socket table, timers, idlers and the singleton's end.
#include "ut_idle.h"

#include "plat_socket.h"
#include "plat_time.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

namespace {

// A listener whose answers are fields and whose callbacks count and run optional hooks.
struct FakeListener : SocketListener {
    bool active = true;
    int fd = -1;
    bool read = false, write = false, except = false, buffered = false, call = false;
    int wantsReadCalls = 0;
    int reads = 0, writes = 0, excepts = 0, pumps = 0, calls = 0;
    std::function<void()> onReadHook, onWriteHook;

    bool isActive() override { return active; }
    int getFD() override { return fd; }
    bool wantsRead() override {
        ++wantsReadCalls;
        return read;
    }
    bool wantsWrite() override { return write; }
    bool wantsExcept() override { return except; }
    bool hasBufferedWork() override { return buffered; }
    bool needsCall() override { return call; }
    void onRead() override {
        ++reads;
        if (onReadHook)
            onReadHook();
    }
    void onWrite() override {
        ++writes;
        if (onWriteHook)
            onWriteHook();
    }
    void onExcept() override { ++excepts; }
    void onBufferedWork() override {
        ++pumps;
        buffered = false;
    }
    void onCall() override {
        ++calls;
        call = false;
    }
};

// A pair of connected sockets, closed at the end of the test.
struct SocketPair {
    plat_socket fds[2] = {-1, -1};
    SocketPair() { EXPECT_TRUE(plat_socket_pair(fds)); }
    ~SocketPair() {
        plat_close_socket(fds[0]);
        plat_close_socket(fds[1]);
    }
};

// Registers listeners for the test's lifetime and removes them at its end, so that tests do not
// see each other's entries in the singleton.
struct Registered {
    std::vector<SocketListener*> listeners;
    void add(SocketListener* l) {
        IdleNotifier::get()->addListener(l);
        listeners.push_back(l);
    }
    ~Registered() {
        for (SocketListener* l : listeners)
            IdleNotifier::get()->removeListener(l);
    }
};

int32_t g_fakeNow = 0;
int32_t fakeClock() {
    return g_fakeNow;
}

struct FakeClock {
    explicit FakeClock(int32_t start) {
        g_fakeNow = start;
        plat_set_tick_source(fakeClock);
    }
    ~FakeClock() { plat_set_tick_source(nullptr); }
};

struct CountingTimer : TimerListener {
    std::vector<int32_t> fired;
    std::function<void()> hook;
    void timerFired(int32_t now) override {
        fired.push_back(now);
        if (hook)
            hook();
    }
};

TEST(IdleNotifierSockets, ListenerRemovedByAnotherListenerGetsNoFurtherCalls) {
    // Inactive listeners that want to read are ready without select, in table order.
    FakeListener first, second;
    first.active = second.active = false;
    first.read = second.read = true;
    second.write = true;
    first.onReadHook = [&] { IdleNotifier::get()->removeListener(&second); };
    Registered reg;
    reg.add(&first);
    reg.add(&second);

    IdleNotifier::get()->pollSockets(0, true);
    EXPECT_EQ(first.reads, 1);
    EXPECT_EQ(second.reads, 0);
    EXPECT_EQ(second.writes, 0);

    // After the walk the entry is gone for good.
    first.onReadHook = nullptr;
    IdleNotifier::get()->pollSockets(0, true);
    EXPECT_EQ(first.reads, 2);
    EXPECT_EQ(second.reads, 0);
}

TEST(IdleNotifierSockets, ListenerRemovingItselfInOnReadGetsNoOnWrite) {
    FakeListener self;
    self.active = false;
    self.read = self.write = true;
    self.onReadHook = [&] { IdleNotifier::get()->removeListener(&self); };
    Registered reg;
    reg.add(&self);
    IdleNotifier::get()->pollSockets(0, true);
    EXPECT_EQ(self.reads, 1);
    EXPECT_EQ(self.writes, 0);
}

TEST(IdleNotifierSockets, ZeroTimeoutWithoutDispatchDoesNotSelect) {
    SocketPair pair;
    FakeListener l;
    l.fd = pair.fds[0];
    l.read = true;
    Registered reg;
    reg.add(&l);
    // Nothing ready and no dispatch: the table is not even walked.
    IdleNotifier::get()->pollSockets(0, false);
    EXPECT_EQ(l.wantsReadCalls, 0);
    // With dispatch, exactly one select pass looks at the listener.
    IdleNotifier::get()->pollSockets(0, true);
    EXPECT_EQ(l.wantsReadCalls, 1);
    EXPECT_EQ(l.reads, 0);
}

TEST(IdleNotifierSockets, ReadableSocketIsDispatchedOnceAndReadyFlagsPersistWithoutDispatch) {
    SocketPair pair;
    FakeListener l;
    l.fd = pair.fds[0];
    l.read = true;
    char byte = 0;
    l.onReadHook = [&] { EXPECT_EQ(plat_recv(l.fd, &byte, 1), 1); };
    Registered reg;
    reg.add(&l);
    ASSERT_EQ(plat_send(pair.fds[1], "x", 1), 1);

    // A poll without dispatch records readiness in the table...
    IdleNotifier::get()->pollSockets(1000, false);
    EXPECT_EQ(l.reads, 0);
    EXPECT_TRUE(IdleNotifier::get()->anyReady());
    // ...and the next poll dispatches it before waiting again.
    IdleNotifier::get()->pollSockets(1000, true);
    EXPECT_EQ(l.reads, 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_FALSE(IdleNotifier::get()->anyReady());
}

TEST(IdleNotifierSockets, BufferedWorkIsPumpedWithoutWaiting) {
    FakeListener l;
    l.active = true;
    l.fd = -1;
    l.buffered = true;
    Registered reg;
    reg.add(&l);
    int32_t before = plat_tick_count();
    IdleNotifier::get()->pollSockets(20000, true);
    // A generous bound that only a wait for the full timeout would break.
    EXPECT_LT(plat_tick_diff(plat_tick_count(), before), 10000);
    EXPECT_EQ(l.pumps, 1);
}

TEST(IdleNotifierSockets, NeedsCallIsAnsweredInDispatch) {
    FakeListener l;
    l.call = true;
    Registered reg;
    reg.add(&l);
    EXPECT_TRUE(IdleNotifier::get()->anyReady());
    EXPECT_TRUE(IdleNotifier::get()->dispatchReady());
    EXPECT_EQ(l.calls, 1);
    EXPECT_FALSE(IdleNotifier::get()->dispatchReady());
}

TEST(IdleNotifierSockets, SixtyFourSocketsAreWatchedInOneTurnUnlessTheLimitIsLifted) {
    constexpr int kSockets = 70;
    std::vector<std::unique_ptr<SocketPair>> pairs;
    std::vector<std::unique_ptr<FakeListener>> ls;
    Registered reg;
    for (int i = 0; i < kSockets; ++i) {
        pairs.push_back(std::make_unique<SocketPair>());
        ASSERT_EQ(plat_send(pairs.back()->fds[1], "x", 1), 1);
        auto l = std::make_unique<FakeListener>();
        l->fd = pairs.back()->fds[0];
        l->read = true;
        reg.add(l.get());
        ls.push_back(std::move(l));
    }
    IdleNotifier::get()->pollSockets(1000, true);
    int reads = 0;
    for (auto& l : ls)
        reads += l->reads;
    EXPECT_EQ(reads, IdleNotifier::kMaxSelectSockets);

    // Without the limit (the router's setting) every socket is watched in one turn.
    IdleNotifier::get()->setSocketLimit(0);
    IdleNotifier::get()->pollSockets(1000, true);
    IdleNotifier::get()->setSocketLimit(IdleNotifier::kMaxSelectSockets);
    for (auto& l : ls)
        EXPECT_GE(l->reads, 1);
}

TEST(IdleNotifierSockets, AListenerAddedTwiceIsCalledOnce) {
    FakeListener l;
    l.active = false;
    l.read = true;
    Registered reg;
    reg.add(&l);
    IdleNotifier::get()->addListener(&l);
    IdleNotifier::get()->pollSockets(0, true);
    EXPECT_EQ(l.reads, 1);
}

TEST(IdleNotifierTimers, DueTimerFiresAtMostOncePerRunAndRepeats) {
    FakeClock clock(1000);
    CountingTimer fast, slow;
    IdleNotifier* n = IdleNotifier::get();
    n->addTimer(&fast, 1);
    n->addTimer(&slow, 50);
    EXPECT_EQ(n->nextTimerDelay(), 1);

    g_fakeNow = 1100; // both long due, the fast one by 99 periods
    n->runTimers();
    EXPECT_EQ(fast.fired, (std::vector<int32_t>{1100}));
    EXPECT_EQ(slow.fired, (std::vector<int32_t>{1100}));

    // Re-armed one period after the run's tick.
    EXPECT_EQ(n->nextTimerDelay(), 1);
    n->runTimers();
    EXPECT_EQ(fast.fired.size(), 1u);
    g_fakeNow = 1101;
    n->runTimers();
    EXPECT_EQ(fast.fired.size(), 2u);
    EXPECT_EQ(slow.fired.size(), 1u);
    EXPECT_EQ(n->nextTimerDelay(), 1);

    n->removeTimer(&fast);
    EXPECT_EQ(n->nextTimerDelay(), 49);
    n->removeTimer(&slow);
    EXPECT_EQ(n->nextTimerDelay(), -1);
}

TEST(IdleNotifierTimers, TimerRemovingItselfAndAnotherInItsCallback) {
    FakeClock clock(0);
    CountingTimer a, b, c;
    IdleNotifier* n = IdleNotifier::get();
    n->addTimer(&a, 10);
    n->addTimer(&b, 10);
    n->addTimer(&c, 20);
    a.hook = [&] {
        n->removeTimer(&a);
        n->removeTimer(&b);
    };
    g_fakeNow = 30;
    n->runTimers();
    EXPECT_EQ(a.fired.size(), 1u);
    EXPECT_EQ(b.fired.size(), 0u);
    // The entry that is first after a's callback (c) is the one re-armed, unfired, for 30 + 20.
    EXPECT_EQ(c.fired.size(), 0u);
    EXPECT_EQ(n->nextTimerDelay(), 20);
    g_fakeNow = 100;
    n->runTimers();
    EXPECT_EQ(a.fired.size(), 1u);
    EXPECT_EQ(b.fired.size(), 0u);
    EXPECT_EQ(c.fired, (std::vector<int32_t>{100}));
    n->removeTimer(&c);
    EXPECT_EQ(n->nextTimerDelay(), -1);
}

// A timer slice that sends and waits turns the notifier inside its own callback: its timer is
// not fired again there and does not make the nested turns spin, while other timers go on.
TEST(IdleNotifierTimers, ATimerWhoseCallbackWaitsIsNotFiredAgainInsideIt) {
    FakeClock clock(0);
    CountingTimer slice, other;
    IdleNotifier* n = IdleNotifier::get();
    n->addTimer(&slice, 1);
    n->addTimer(&other, 5);
    std::vector<int32_t> delaysInside;
    slice.hook = [&] {
        if (slice.fired.size() > 1)
            return;
        for (int turn = 0; turn < 3; ++turn) { // three turns of a wait, the clock going on
            g_fakeNow += 10;
            n->runTimers();
            delaysInside.push_back(n->nextTimerDelay());
        }
    };
    g_fakeNow = 1;
    n->runTimers();
    EXPECT_EQ(slice.fired, (std::vector<int32_t>{1}));
    EXPECT_EQ(other.fired, (std::vector<int32_t>{11, 21, 31}));
    EXPECT_EQ(delaysInside, (std::vector<int32_t>{5, 5, 5}));
    // Re-armed a period after the run that fired it, and so due again at once.
    EXPECT_EQ(n->nextTimerDelay(), 0);
    n->runTimers();
    EXPECT_EQ(slice.fired, (std::vector<int32_t>{1, 31}));
    n->removeTimer(&slice);
    n->removeTimer(&other);
    EXPECT_EQ(n->nextTimerDelay(), -1);
}

TEST(IdleNotifierTimers, TimerDueSoonerShortensThePoll) {
    CountingTimer t;
    IdleNotifier* n = IdleNotifier::get();
    n->addTimer(&t, 30);
    int32_t before = plat_tick_count();
    n->pollSockets(20000, true);
    // The poll ends when the timer falls due, not after 20 s.
    EXPECT_LT(plat_tick_diff(plat_tick_count(), before), 10000);
    n->removeTimer(&t);
}

struct TestIdler : Idler {
    int slices = 0;
    bool urgent = false;
    std::function<void()> hook;
    void idle(IdleNotifier*) override {
        ++slices;
        if (hook)
            hook();
    }
    bool hasUrgentWork() override { return urgent; }
};

TEST(IdleNotifierIdlers, IdlersMayRemoveAndAddIdlersDuringTheWalk) {
    IdleNotifier* n = IdleNotifier::get();
    std::vector<std::unique_ptr<TestIdler>> idlers;
    for (int i = 0; i < 20; ++i) // more than fit the walk's local array
        idlers.push_back(std::make_unique<TestIdler>());
    TestIdler late;
    for (auto& i : idlers) {
        i->hook = [&, self = i.get()] {
            // Each idler removes every other idler once it has run; the first also adds one.
            for (auto& other : idlers)
                if (other.get() != self)
                    n->removeIdler(other.get());
            n->addIdler(&late);
        };
        n->addIdler(i.get());
    }
    n->runIdlers(false);
    int ran = 0;
    for (auto& i : idlers)
        ran += i->slices;
    EXPECT_EQ(ran, 1);         // the first one removed all the others before their turn
    EXPECT_EQ(late.slices, 0); // added during the walk: not in this walk's copy
    n->runIdlers(false);
    EXPECT_EQ(late.slices, 1);
    for (auto& i : idlers)
        n->removeIdler(i.get());
    n->removeIdler(&late);
}

TEST(IdleNotifierIdlers, OnlyUrgentSkipsIdlersWithoutUrgentWork) {
    IdleNotifier* n = IdleNotifier::get();
    TestIdler calm, urgent;
    urgent.urgent = true;
    n->addIdler(&calm);
    n->addIdler(&urgent);
    n->runIdlers(true);
    EXPECT_EQ(calm.slices, 0);
    EXPECT_EQ(urgent.slices, 1);
    n->removeIdler(&calm);
    n->removeIdler(&urgent);
}

// Stops the child with the text of the first check that failed; the parent expects none.
void require(bool ok, const char* check) {
    if (!ok) {
        std::fprintf(stderr, "failed: %s\n", check);
        std::_Exit(1);
    }
}

// Destruction is for good, so it runs in a child process.
void childDestroysNotifier() {
    FakeListener l;
    IdleNotifier::get()->addListener(&l);
    DeleteAble::deleteAll();
    require(IdleNotifier::get() == nullptr, "get() is null once the notifier is destroyed");
    require(IdleNotifier::get() == nullptr, "get() stays null and makes no new notifier");
    if (IdleNotifier* n = IdleNotifier::get()) // what a late listener destructor does
        n->removeListener(&l);
    std::_Exit(0);
}

TEST(IdleNotifierLifetimeDeathTest, GetIsNullAfterDestructionAndLateRemovalsCope) {
    EXPECT_EXIT(childDestroysNotifier(), testing::ExitedWithCode(0), "^$");
}

struct Recorder : DeleteAble {
    std::vector<int>* order;
    int id;
    Recorder(std::vector<int>* o, int i) : order(o), id(i) {}
    ~Recorder() override { order->push_back(id); }
};

void childDeletesInPriorityOrder() {
    std::vector<int> order;
    DeleteAble::enter(new Recorder(&order, 3), 100.0f);
    DeleteAble::enter(new Recorder(&order, 1), 1.5f);
    DeleteAble::enter(new Recorder(&order, 2), 1.5f);
    auto* byHand = new Recorder(&order, 9);
    DeleteAble::enter(byHand, 50.0f);
    delete byHand; // leaves the list: not deleted twice
    order.clear();
    DeleteAble::deleteAll();
    require(order == std::vector<int>{1, 2, 3},
            "ascending priority, equal keys in order of entry, the one deleted by hand once");
    std::_Exit(0);
}

TEST(DeleteAbleDeathTest, DeletesInAscendingPriorityWithRepeatedKeys) {
    EXPECT_EXIT(childDeletesInPriorityOrder(), testing::ExitedWithCode(0), "^$");
}

} // namespace
