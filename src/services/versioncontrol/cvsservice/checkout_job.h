// One running job of the VC_CheckoutInfo service: a scan, an update, the creation or the
// modification of checkouts. A job works in two kinds of short call from the event loop, so the
// service's one thread is never held up for long: an idle slice that reads what its cvs child
// has written so far and does everything that comes once (the end of the child, the merge, the
// report), and a timer slice that walks at most 15 directories of the local tree. It goes
// through its roots one after the other and sends one DisplayCheckoutInfo for each, then exactly
// one FinishedGettingCheckoutInfo, which ends it.
//
// Ownership: a job owns itself. It is made by a request of its server, holds a reference on that
// server for its whole life, enters itself in the server's job table and deletes itself at its
// end (or through halt()). Events go through the server; a server whose connection is down
// drops them.
//
// Re-entrancy: the only wait is the blocking StatusUpdate that ends the child's phase; it runs
// whole turns of the event loop, in which requests (a HaltScan among them) and the slices of
// every job run. `idle_busy` and `timer_busy` turn a slice of a job that is already inside one
// into nothing, and a halt that comes while a slice runs only marks the job, which the running
// slice then ends.
#pragma once

#include "checkout_walk.h"
#include "ut_idle.h"
#include "ut_string.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

class CVS_VC_CheckoutInfo_Server;
struct ChildPipe;
struct MString;
struct PlatProcess;

class CVS_Checkoutinfo_Idler : public Idler, public TimerListener {
public:
    // Directories per timer slice, the timer's period, and how often the walk reports progress.
    static constexpr int kDirectoriesPerSlice = 15;
    static constexpr int32_t kTimerPeriodMs = 1;
    static constexpr int kProgressEvery = 25;
    // The output buffers: their first size, and the growth when 8192 bytes or less are free.
    static constexpr size_t kBufferSize = 16384;
    static constexpr size_t kBufferLowWater = 8192;
    // The blocking StatusUpdate at the end of a child: its limit and the slice of its wait.
    static constexpr int32_t kFinishSendLimitMs = 500;
    static constexpr int32_t kFinishSendSliceMs = 300;

    // RequestCheckoutInfo (`do_cvs_scan` false for a local-only scan) and RequestCheckoutUpdate
    // (`update_mode`): the roots of `checkout_list`, each resolved against the client's working
    // directory. Starts the first root at once, so its first events may precede the reply.
    static void startScan(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                          int32_t checkout_count, const char* const* checkout_list,
                          bool do_cvs_scan, bool update_mode);
    // CreateCheckout: makes `dest_dir` (with its parents) and runs the checkout in it.
    static void startCreate(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                            const char* dest_dir, const char* modules, const char* tag,
                            const char* repo_location);
    // ModifyCheckout: checks the options, then runs one update per directory of `checkouts`.
    static void startModify(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                            int32_t checkout_count, const char* const* checkouts, bool do_tag,
                            const char* tag, bool do_date, const char* date, bool do_head);

    // HaltScan: kills the child's process group at once and ends the job with its
    // FinishedGettingCheckoutInfo, followed by ScanOutput "Halted scan.\n". A job inside one of
    // its own slices (the halt came during that slice's wait) is only marked: the slice ends it
    // when its wait returns, with the same two events.
    void halt();

    // The slices (IdleNotifier callbacks).
    void idle(IdleNotifier* notifier) override;
    bool hasUrgentWork() override { return false; }
    void timerFired(int32_t nowTick) override;

    // Whether `dir` joined with "CVS" is a directory.
    static bool isCheckoutRoot(const char* dir);

private:
    // What the four kinds of job set.
    struct Kind {
        bool do_cvs_scan = false;
        bool update_mode = false;
        bool creating = false;
        bool modifying = false;
    };
    // A growing byte buffer for one output stream of the child, kept NUL-terminated.
    struct OutputBuffer {
        char* text = nullptr;
        size_t capacity = 0;
        size_t length = 0;
        void release();
    };

    // Takes a reference on `server`, copies the cookie and enters the job in the job table.
    CVS_Checkoutinfo_Idler(CVS_VC_CheckoutInfo_Server* server, const char* cookie, Kind kind);
    ~CVS_Checkoutinfo_Idler() override;

    bool startNextScan();
    bool startNextModify();
    void startLocalScanAfterChild();
    bool expandNonCheckout(const ut_string& dir);
    // Reads what the child has written (at most one read per pipe). True while a pipe is open.
    bool pollChild();
    void readPipe(ChildPipe** pipe, std::unique_ptr<ReadableWakeup>* wakeup, OutputBuffer* buffer,
                  bool is_stderr);

    // Spawns `command` in `dir` with both output streams on pipes that the wait set watches.
    bool spawnChild(const char* command, const char* dir);
    void closePipes();
    // Kills the child's group (if there is a child) and hands it to the reaper.
    void stopChild();
    // Whether the child has outrun the configured time limit; if so, stops it and finishes.
    bool childTimedOut();
    void addTimer();
    void setFinishMessage(const char* text);

    // Idle slice, steps after the child has ended: the report of the current root and what
    // comes next.
    void childEnded();
    void reportRoot();
    // Ends the job: every step of its destruction, its last events, and the delete.
    void destroy();

    CVS_VC_CheckoutInfo_Server* server;
    ut_string cookie;
    Kind kind;
    bool finished = false;
    // Set by a halt that must wait for the running slice; the destruction then adds the
    // "Halted scan." output.
    bool halted = false;

    ChildPipe* stdout_pipe = nullptr;
    ChildPipe* stderr_pipe = nullptr;
    std::unique_ptr<ReadableWakeup> stdout_wakeup, stderr_wakeup;
    PlatProcess* child_process = nullptr;
    ut_string child_command; // the line the child runs, for the texts of its failures
    int32_t child_start_tick = 0;
    OutputBuffer stderr_text, stdout_text;
    char* cvs_output = nullptr; // standard error then standard output, once the child has ended

    ut_string current_dir;
    bool timer_busy = false;
    int32_t dirs_scanned = 0;
    bool idle_busy = false;
    bool child_running = false;
    bool local_scan_running = false;
    ut_string finish_message; // null: none
    ut_string modify_command;
    std::deque<ut_string> pending_dirs;
    MString* warnings = nullptr;
    CheckoutWalk walk; // scan_queue, entries_read, local_items
};
