#include "ut_idle.h"

#include "indgen.h"
#include "plat_socket.h"
#include "plat_time.h"

#include <cstdlib>
#include <cstring>
#include <map>

namespace {
// The singletons destroyed at exit, by ascending priority.
std::multimap<float, DeleteAble*>* g_deleteAbles = nullptr;
bool g_deletingAll = false;

// The notifier singleton, and the flag that keeps get() null once its destruction has begun.
IdleNotifier* g_notifier = nullptr;
bool g_notifierGone = false;

constexpr float kNotifierPriority = 99.0f;
constexpr int32_t kInitialCapacity = 16;
constexpr size_t kLocalIdlers = 16;
} // namespace

struct TimerEntry {
    TimerListener* listener;
    int32_t periodMs;
    int32_t dueTick;
    TimerEntry* next;
    bool firing = false;  // its callback is running (at some depth)
    bool removed = false; // removed while firing; freed when the callback returns
};

DeleteAble::~DeleteAble() {
    // An object deleted by hand leaves the exit list, so it is never deleted twice.
    if (g_deleteAbles == nullptr || g_deletingAll)
        return;
    for (auto it = g_deleteAbles->begin(); it != g_deleteAbles->end(); ++it) {
        if (it->second == this) {
            g_deleteAbles->erase(it);
            break;
        }
    }
}

void DeleteAble::enter(DeleteAble* object, float priority) {
    if (g_deleteAbles == nullptr) {
        g_deleteAbles = new std::multimap<float, DeleteAble*>;
        std::atexit(deleteAll);
    }
    g_deleteAbles->emplace(priority, object);
}

void DeleteAble::deleteAll() {
    if (g_deleteAbles == nullptr || g_deletingAll)
        return;
    g_deletingAll = true;
    // Take entries one by one: a destructor may enter new objects, which are deleted as well.
    while (!g_deleteAbles->empty()) {
        auto first = g_deleteAbles->begin();
        DeleteAble* object = first->second;
        g_deleteAbles->erase(first);
        delete object;
    }
    delete g_deleteAbles;
    g_deleteAbles = nullptr;
    g_deletingAll = false;
}

IdleNotifier* IdleNotifier::get() {
    if (g_notifierGone)
        return nullptr;
    if (g_notifier == nullptr) {
        g_notifier = new IdleNotifier;
        DeleteAble::enter(g_notifier, kNotifierPriority);
    }
    return g_notifier;
}

IdleNotifier::IdleNotifier() : capacity(kInitialCapacity) {
    readReady = static_cast<unsigned char*>(gen_alloc(capacity, 1));
    writeReady = static_cast<unsigned char*>(gen_alloc(capacity, 1));
    exceptReady = static_cast<unsigned char*>(gen_alloc(capacity, 1));
    pumpReady = static_cast<unsigned char*>(gen_alloc(capacity, 1));
    listeners = static_cast<SocketListener**>(gen_alloc(capacity, sizeof(SocketListener*)));
}

IdleNotifier::~IdleNotifier() {
    g_notifierGone = true;
    if (g_notifier == this)
        g_notifier = nullptr;
    while (timerHead) {
        TimerEntry* next = timerHead->next;
        delete timerHead;
        timerHead = next;
    }
    gen_free(readReady);
    gen_free(writeReady);
    gen_free(exceptReady);
    gen_free(pumpReady);
    gen_free(listeners);
}

void IdleNotifier::addIdler(Idler* idler) {
    idlers.insert(idler);
}
void IdleNotifier::removeIdler(Idler* idler) {
    idlers.erase(idler);
}

void IdleNotifier::endWalk() {
    if (--iterating == 0)
        sweep();
}

void IdleNotifier::sweep() {
    for (int32_t i = 0; i < count; ++i) {
        while (i < count && listeners[i] == nullptr) {
            int32_t last = count - 1;
            listeners[i] = listeners[last];
            readReady[i] = readReady[last];
            writeReady[i] = writeReady[last];
            exceptReady[i] = exceptReady[last];
            pumpReady[i] = pumpReady[last];
            listeners[last] = nullptr;
            --count;
        }
    }
}

void IdleNotifier::addListener(SocketListener* listener) {
    beginWalk();
    for (int32_t i = 0; i < count; ++i)
        if (listeners[i] == listener)
            listeners[i] = nullptr;
    if (count == capacity) {
        capacity *= 2;
        auto grow = [this](unsigned char* bytes) {
            auto* fresh = static_cast<unsigned char*>(gen_alloc(capacity, 1));
            std::memcpy(fresh, bytes, count);
            gen_free(bytes);
            return fresh;
        };
        readReady = grow(readReady);
        writeReady = grow(writeReady);
        exceptReady = grow(exceptReady);
        pumpReady = grow(pumpReady);
        auto* fresh = static_cast<SocketListener**>(gen_alloc(capacity, sizeof(SocketListener*)));
        std::memcpy(fresh, listeners, count * sizeof(SocketListener*));
        gen_free(listeners);
        listeners = fresh;
    }
    listeners[count] = listener;
    readReady[count] = writeReady[count] = exceptReady[count] = pumpReady[count] = 0;
    ++count;
    endWalk();
}

void IdleNotifier::removeListener(SocketListener* listener) {
    beginWalk();
    for (int32_t i = 0; i < count; ++i)
        if (listeners[i] == listener)
            listeners[i] = nullptr;
    endWalk();
}

void IdleNotifier::runIdlers(bool onlyUrgent) {
    if (idlers.empty())
        return;
    // Walk a copy: idlers may add and remove idlers, themselves included.
    Idler* local[kLocalIdlers];
    size_t n = idlers.size();
    Idler** copy = n < kLocalIdlers ? local : static_cast<Idler**>(gen_alloc(n, sizeof(Idler*)));
    size_t k = 0;
    for (Idler* idler : idlers)
        copy[k++] = idler;
    for (size_t i = 0; i < n; ++i) {
        Idler* idler = copy[i];
        if (idlers.find(idler) == idlers.end())
            continue;
        if (onlyUrgent && !idler->hasUrgentWork())
            continue;
        idler->idle(this);
    }
    if (copy != local)
        gen_free(copy);
}

// Due ticks are compared directly as signed numbers; around the wrap of the counter (every
// 49.7 days) a timer may fire early once.
void IdleNotifier::insertTimer(TimerEntry* entry) {
    // Behind every entry whose due tick is not later than this one's.
    entry->next = nullptr;
    if (timerHead == nullptr) {
        timerHead = timerTail = entry;
        return;
    }
    if (entry->dueTick < timerHead->dueTick) {
        entry->next = timerHead;
        timerHead = entry;
        return;
    }
    TimerEntry* at = timerHead;
    while (at->next && !(entry->dueTick < at->next->dueTick))
        at = at->next;
    entry->next = at->next;
    at->next = entry;
    if (entry->next == nullptr)
        timerTail = entry;
}

void IdleNotifier::addTimer(TimerListener* listener, int32_t periodMs) {
    auto* entry =
        new TimerEntry{listener, periodMs, plat_tick_add(plat_tick_count(), periodMs), nullptr};
    insertTimer(entry);
}

void IdleNotifier::unlinkTimer(TimerEntry* entry) {
    TimerEntry** link = &timerHead;
    TimerEntry* previous = nullptr;
    while (*link && *link != entry) {
        previous = *link;
        link = &(*link)->next;
    }
    if (*link == nullptr)
        return;
    *link = entry->next;
    if (timerTail == entry)
        timerTail = previous;
    entry->next = nullptr;
}

void IdleNotifier::removeTimer(TimerListener* listener) {
    TimerEntry** link = &timerHead;
    timerTail = nullptr;
    while (*link) {
        TimerEntry* entry = *link;
        if (entry->listener == listener && !entry->firing) {
            *link = entry->next;
            delete entry;
            continue;
        }
        // A running callback still holds its entry: runTimers frees it when the callback returns.
        if (entry->listener == listener)
            entry->removed = true;
        timerTail = entry;
        link = &entry->next;
    }
}

TimerEntry* IdleNotifier::firstIdleTimer() const {
    TimerEntry* e = timerHead;
    while (e && (e->firing || e->removed))
        e = e->next;
    return e;
}

int32_t IdleNotifier::nextTimerDelay() const {
    TimerEntry* first = firstIdleTimer();
    if (first == nullptr)
        return -1;
    int32_t delay = plat_tick_diff(first->dueTick, plat_tick_count());
    return delay > 0 ? delay : 0;
}

void IdleNotifier::runTimers() {
    int32_t n = 0;
    for (TimerEntry* e = timerHead; e; e = e->next)
        if (!e->firing && !e->removed)
            ++n;
    if (n == 0)
        return;
    int32_t now = plat_tick_count();
    for (int32_t i = 0; i < n; ++i) {
        // Timers of callbacks that are running further up the stack are passed over.
        TimerEntry* entry = firstIdleTimer();
        if (entry == nullptr || now < entry->dueTick)
            break;
        entry->firing = true;
        entry->listener->timerFired(now);
        entry->firing = false;
        if (entry->removed) {
            unlinkTimer(entry);
            delete entry;
        }
        // The callback may have removed or added timers: re-arm whatever is first now, which is
        // the entry that fired unless the callback removed it.
        TimerEntry* first = firstIdleTimer();
        if (first == nullptr)
            break;
        unlinkTimer(first);
        first->dueTick = plat_tick_add(now, first->periodMs);
        insertTimer(first);
    }
}

bool IdleNotifier::anyReady() {
    for (int32_t i = 0; i < count; ++i) {
        if (listeners[i] == nullptr)
            continue;
        if (readReady[i] || writeReady[i] || exceptReady[i] || pumpReady[i] ||
            listeners[i]->needsCall())
            return true;
    }
    return false;
}

bool IdleNotifier::dispatchReady() {
    bool called = false;
    beginWalk();
    for (int32_t i = 0; i < count; ++i) {
        SocketListener* l = listeners[i];
        if (l == nullptr)
            continue;
        if (readReady[i]) {
            readReady[i] = pumpReady[i] = 0;
            l->onRead();
            called = true;
            if (listeners[i] != l)
                continue;
        }
        if (exceptReady[i]) {
            exceptReady[i] = 0;
            l->onExcept();
            called = true;
            if (listeners[i] != l)
                continue;
        }
        if (writeReady[i]) {
            writeReady[i] = 0;
            l->onWrite();
            called = true;
            if (listeners[i] != l)
                continue;
        }
        if (pumpReady[i]) {
            pumpReady[i] = 0;
            l->onBufferedWork();
            called = true;
            if (listeners[i] != l)
                continue;
        }
        if (l->needsCall()) {
            l->onCall();
            called = true;
        }
    }
    endWalk();
    return called;
}

void IdleNotifier::pollSockets(int32_t timeoutMs, bool dispatch) {
    if (dispatch) {
        if (dispatchReady())
            return;
    } else if (anyReady()) {
        timeoutMs = 0;
    }
    if (timeoutMs > 0) {
        int32_t delay = nextTimerDelay();
        if (delay >= 0 && delay < timeoutMs)
            timeoutMs = delay;
    }
    if (!dispatch && timeoutMs < 1)
        return;

    beginWalk();
    pollEntries.clear();
    pollIndexes.clear();
    int32_t watched[3] = {0, 0, 0}; // read, write, exception
    // An active listener's socket is watched for a kind while that kind has room left under
    // the limit; an inactive one is ready at once.
    auto watch = [&](int32_t i, int kind, unsigned char* ready, PlatPollEntry* entry) {
        SocketListener* l = listeners[i];
        if (!l->isActive()) {
            timeoutMs = 0;
            ready[i] = 1;
            return entry;
        }
        if (socketLimit > 0 && watched[kind] >= socketLimit)
            return entry;
        ++watched[kind];
        if (entry == nullptr) {
            pollEntries.emplace_back();
            pollIndexes.push_back(i);
            entry = &pollEntries.back();
            entry->fd = l->getFD();
        }
        (kind == 0 ? entry->wantRead : kind == 1 ? entry->wantWrite : entry->wantExcept) = true;
        return entry;
    };
    for (int32_t i = 0; i < count; ++i) {
        SocketListener* l = listeners[i];
        if (l == nullptr)
            continue;
        PlatPollEntry* entry = nullptr;
        if (l->wantsWrite())
            entry = watch(i, 1, writeReady, entry);
        if (l->wantsExcept())
            entry = watch(i, 2, exceptReady, entry);
        if (l->wantsRead())
            entry = watch(i, 0, readReady, entry);
        if (l->hasBufferedWork()) {
            timeoutMs = 0;
            pumpReady[i] = 1;
        }
    }
    int result = plat_poll(pollEntries.data(), pollEntries.size(), timeoutMs < 0 ? 0 : timeoutMs);
    for (size_t k = 0; result >= 1 && k < pollEntries.size(); ++k) {
        const PlatPollEntry& entry = pollEntries[k];
        int32_t i = pollIndexes[k];
        if (entry.readable) {
            readReady[i] = 1;
            pumpReady[i] = 0;
        }
        if (entry.excepted)
            exceptReady[i] = 1;
        if (entry.writable)
            writeReady[i] = 1;
    }
    if (dispatch)
        dispatchReady();
    endWalk();
}
