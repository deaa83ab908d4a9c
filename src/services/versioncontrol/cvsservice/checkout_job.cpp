#include "checkout_job.h"

#include "checkout_report.h"
#include "child_reaper.h"
#include "client_path.h"
#include "cvs_command.h"
#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_process.h"
#include "gen_string.h"
#include "indgen.h"
#include "mstring.h"
#include "plat_time.h"
#include "stp_retryhandler.h"
#include "vc_checkoutinfo_server.h"
#include "versctrl_defaultconfig.h"

#include <cstring>
#include <vector>

namespace {

const char* const kExecFailure = "cvsservice: fatal: Failed to exec";

// A formatted text as a ut_string.
template <typename... Args> ut_string format(const char* pattern, Args... args) {
    char* text = gen_asprintf(pattern, args...);
    ut_string result(text);
    gen_free(text);
    return result;
}

const char* orEmpty(const char* text) {
    return text ? text : "";
}

// The first failed check of ModifyCheckout's options, or null when they make sense.
const char* modifyOptionsFailure(bool do_tag, const char* tag, bool do_date, const char* date,
                                 bool do_head) {
    if (do_head && (do_tag || do_date))
        return "Cannot revert to HEAD with a tag or a date.";
    if (!do_head && !do_tag && !do_date)
        return "No revert option specified.";
    if (do_tag && (tag == nullptr || *tag == '\0'))
        return "Revert to tag selected, but no tag specified.";
    if (do_date && (date == nullptr || *date == '\0'))
        return "Revert to date selected, but no date specified.";
    return nullptr;
}

// The one command line of a ModifyCheckout, run in each of its directories. A date is quoted
// (it usually holds blanks); a tag goes in as it stands.
ut_string modifyCommandLine(bool do_tag, const char* tag, bool do_date, const char* date) {
    if (!do_tag && !do_date)
        return ut_string(cvsCommand()) + " -q update -dP -A .";
    char* quotedDate = do_date ? gen_quote(date) : nullptr;
    ut_string line = do_tag && do_date
                         ? format("%s -q update -dP -D %s -r %s .", cvsCommand(), quotedDate, tag)
                     : do_tag ? format("%s -q update -dP -r %s .", cvsCommand(), tag)
                              : format("%s -q update -dP -D %s .", cvsCommand(), quotedDate);
    gen_free(quotedDate);
    return line;
}

} // namespace

void CVS_Checkoutinfo_Idler::OutputBuffer::release() {
    gen_free(text);
    text = nullptr;
    capacity = length = 0;
}

CVS_Checkoutinfo_Idler::CVS_Checkoutinfo_Idler(CVS_VC_CheckoutInfo_Server* server,
                                               const char* cookie, Kind kind)
    : server(server), cookie(cookie), kind(kind) {
    server->ref();
    server->enterJob(this->cookie.c_str(), this);
    warnings = MString_new(256);
    // Until the request has set the job up, a halt only marks it (see halt()).
    idle_busy = true;
}

CVS_Checkoutinfo_Idler::~CVS_Checkoutinfo_Idler() {
    MString_delete(warnings);
}

void CVS_Checkoutinfo_Idler::startScan(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                                       int32_t checkout_count, const char* const* checkout_list,
                                       bool do_cvs_scan, bool update_mode) {
    Kind kind;
    kind.do_cvs_scan = do_cvs_scan;
    kind.update_mode = update_mode;
    auto* job = new CVS_Checkoutinfo_Idler(server, cookie, kind);
    for (int32_t i = 0; i < checkout_count; ++i) {
        // ClientPath may wait for the router; the job is not registered yet.
        char* resolved = ClientPath(server, checkout_list[i]);
        if (resolved == nullptr)
            continue; // the router client is going away
        char* absolute = gen_abspath(resolved);
        job->pending_dirs.emplace_back(absolute);
        gen_free(absolute);
        gen_free(resolved);
    }
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->addIdler(job);
    if (!job->startNextScan())
        job->finished = true;
    job->idle_busy = false;
}

void CVS_Checkoutinfo_Idler::startCreate(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                                         const char* dest_dir, const char* modules, const char* tag,
                                         const char* repo_location) {
    Kind kind;
    kind.do_cvs_scan = kind.update_mode = kind.creating = true;
    auto* job = new CVS_Checkoutinfo_Idler(server, cookie, kind);
    char* dest = gen_strdup(orEmpty(dest_dir));
    gen_path_normalise(dest);
    if (*dest == '\0' || gen_mkdir_parents(dest, 0777) != 0) {
        job->finish_message =
            format("Error: Unable to create directory %s, checkout creation aborted.", dest);
        job->finished = true;
    } else {
        bool withTag = tag && *tag && std::strcmp(tag, "HEAD") != 0;
        ut_string command = withTag ? format("%s -d %s -q co -r %s %s", cvsCommand(),
                                             orEmpty(repo_location), tag, orEmpty(modules))
                                    : format("%s -d %s -q co %s", cvsCommand(),
                                             orEmpty(repo_location), orEmpty(modules));
        if (job->spawnChild(command.c_str(), dest)) {
            job->current_dir = dest;
            job->child_running = true;
        } else {
            job->finish_message = format("Error: Failed to execute: %s", command.c_str());
            job->finished = true;
        }
    }
    gen_free(dest);
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->addIdler(job);
    job->idle_busy = false;
}

void CVS_Checkoutinfo_Idler::startModify(CVS_VC_CheckoutInfo_Server* server, const char* cookie,
                                         int32_t checkout_count, const char* const* checkouts,
                                         bool do_tag, const char* tag, bool do_date,
                                         const char* date, bool do_head) {
    Kind kind;
    kind.do_cvs_scan = kind.update_mode = kind.modifying = true;
    auto* job = new CVS_Checkoutinfo_Idler(server, cookie, kind);
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->addIdler(job);
    if (const char* failure = modifyOptionsFailure(do_tag, tag, do_date, date, do_head)) {
        // No cvs is run and no directory touched.
        job->finish_message = failure;
        job->finished = true;
    } else {
        job->modify_command = modifyCommandLine(do_tag, tag, do_date, date);
        for (int32_t i = 0; i < checkout_count; ++i) {
            char* dir = gen_strdup(orEmpty(checkouts[i]));
            gen_path_normalise(dir);
            job->pending_dirs.emplace_back(dir);
            gen_free(dir);
        }
        if (!job->startNextModify())
            job->finished = true;
    }
    job->idle_busy = false;
}

bool CVS_Checkoutinfo_Idler::isCheckoutRoot(const char* dir) {
    ut_string admin = localPathOf(dir, "CVS");
    return gen_is_directory(admin.c_str()) == 1;
}

void CVS_Checkoutinfo_Idler::setFinishMessage(const char* text) {
    if (finish_message.isNull())
        finish_message = text;
}

void CVS_Checkoutinfo_Idler::addTimer() {
    if (IdleNotifier* notifier = IdleNotifier::get())
        notifier->addTimer(this, kTimerPeriodMs);
}

// The working directory is handed to the spawn itself rather than set for the whole process
// around it: the child starts in `dir` and this process's directory never changes. A directory
// that cannot be entered therefore fails the spawn, and is reported as a failed command.
bool CVS_Checkoutinfo_Idler::spawnChild(const char* command, const char* dir) {
    PlatProcess* process = nullptr;
    ChildPipe* out = nullptr;
    ChildPipe* err = nullptr;
    // Standard input is /dev/null and the child has no terminal: a cvs that would prompt for a
    // password fails at once instead of waiting for an answer nobody can give.
    if (!spawnWithPipes(command, dir, &process, true, &out, true, &err, false))
        return false;
    child_process = process;
    stdout_pipe = out;
    stderr_pipe = err;
    // The pipes wake the loop when output arrives, unless this job's idle slice is the one
    // running further up the stack and could not read them anyway.
    stdout_wakeup = std::make_unique<ReadableWakeup>(out->fd, [this] { return !idle_busy; });
    stderr_wakeup = std::make_unique<ReadableWakeup>(err->fd, [this] { return !idle_busy; });
    child_command = command;
    child_start_tick = plat_tick_count();
    return true;
}

void CVS_Checkoutinfo_Idler::closePipes() {
    stdout_wakeup.reset();
    stderr_wakeup.reset();
    for (ChildPipe** pipe : {&stdout_pipe, &stderr_pipe}) {
        if (*pipe) {
            (*pipe)->close();
            delete *pipe;
            *pipe = nullptr;
        }
    }
}

void CVS_Checkoutinfo_Idler::stopChild() {
    if (child_process == nullptr)
        return;
    // The whole group: a cvs that started a server process of its own (":fork:") takes it along.
    // Nothing waits here; the reaper collects the child once it has gone.
    plat_kill_process_group(child_process);
    reapChildLater(child_process);
    child_process = nullptr;
}

bool CVS_Checkoutinfo_Idler::startNextScan() {
    closePipes();
    current_dir = ut_string();
    dirs_scanned = 0;
    while (!pending_dirs.empty()) {
        ut_string root = pending_dirs.front();
        if (!isCheckoutRoot(root.c_str())) {
            pending_dirs.pop_front();
            if (!expandNonCheckout(root))
                server->ScanOutput(
                    false, format("Directory %s is not under CVS.\n", root.c_str()).c_str(), true);
            continue;
        }
        if (kind.do_cvs_scan) {
            server->StatusUpdate(false, format(kind.update_mode ? "Starting update of directory: %s"
                                                                : "Starting scan of directory: %s",
                                               root.c_str())
                                            .c_str());
            ut_string command =
                ut_string(cvsCommand()) + (kind.update_mode ? " -q update -dP" : " -nq update");
            if (!spawnChild(command.c_str(), root.c_str())) {
                // This root gets no report; the job goes on with the next one.
                pending_dirs.pop_front();
                setFinishMessage(
                    format("Error: Failed to run CVS command: %s", command.c_str()).c_str());
                continue;
            }
            child_running = true;
        } else {
            child_running = false;
        }
        current_dir = root;
        pending_dirs.pop_front();
        timer_busy = false;
        walk.scan_queue.push_front(current_dir);
        addTimer();
        local_scan_running = true;
        return true;
    }
    return false;
}

bool CVS_Checkoutinfo_Idler::startNextModify() {
    closePipes();
    current_dir = ut_string();
    dirs_scanned = 0;
    while (!pending_dirs.empty()) {
        ut_string dir = pending_dirs.front();
        pending_dirs.pop_front();
        server->StatusUpdate(false,
                             format("Starting modification of directory: %s", dir.c_str()).c_str());
        if (spawnChild(modify_command.c_str(), dir.c_str())) {
            child_running = true;
            current_dir = dir;
            timer_busy = false;
            // The walk starts once the child has done its work.
            return true;
        }
        setFinishMessage(
            format("Error: Failed to run CVS command: %s", modify_command.c_str()).c_str());
    }
    return false;
}

void CVS_Checkoutinfo_Idler::startLocalScanAfterChild() {
    // The walk begins below current_dir: its own files have no entries read.
    queueSubdirectories(&walk, current_dir.c_str());
    addTimer();
    local_scan_running = true;
}

bool CVS_Checkoutinfo_Idler::expandNonCheckout(const ut_string& dir) {
    GenDir listing;
    if (!gen_dir_open(&listing, dir.c_str()))
        return false;
    gen_dir_options(&listing, false, true, true);
    std::vector<ut_string> plain;
    bool found = false;
    while (const char* name = gen_dir_next(&listing)) {
        if (!listing.isDirectory)
            continue;
        ut_string path = localPathOf(dir.c_str(), name);
        if (isCheckoutRoot(path.c_str())) {
            pending_dirs.push_front(path);
            found = true;
        } else {
            plain.emplace_back(name);
        }
    }
    gen_dir_close(&listing);
    if (!found)
        return false;
    const ut_string notApplicable("N/A");
    CheckoutInfo info(dir, static_cast<int32_t>(plain.size()));
    for (const ut_string& name : plain)
        info.add(CheckoutItem(checkout_type::DirectoryNotUnderVC, dir, name, notApplicable,
                              notApplicable));
    CheckoutInfoRecord record = info.wireRecord();
    server->DisplayCheckoutInfo(false, record);
    CheckoutInfo::releaseWireRecord(&record);
    return true;
}

void CVS_Checkoutinfo_Idler::readPipe(ChildPipe** pipe, std::unique_ptr<ReadableWakeup>* wakeup,
                                      OutputBuffer* buffer, bool is_stderr) {
    if (*pipe == nullptr || !(*pipe)->hasData())
        return;
    size_t count = 0;
    char* at = buffer->text + buffer->length;
    if ((*pipe)->read(at, buffer->capacity - buffer->length, &count)) {
        if (count > 0) {
            // As the bytes stand, without regard to lines.
            server->ScanOutput(false, at, is_stderr);
            buffer->length += count;
        }
        return;
    }
    // A failed read is how the end of the pipe shows.
    wakeup->reset();
    (*pipe)->close();
    delete *pipe;
    *pipe = nullptr;
}

bool CVS_Checkoutinfo_Idler::pollChild() {
    if (stdout_pipe == nullptr && stderr_pipe == nullptr)
        return false;
    for (OutputBuffer* buffer : {&stderr_text, &stdout_text}) {
        if (buffer->text == nullptr) {
            buffer->text = static_cast<char*>(gen_alloc(kBufferSize, 1));
            buffer->capacity = kBufferSize;
            buffer->length = 0;
        } else if (buffer->length >= buffer->capacity - kBufferLowWater) {
            buffer->capacity += kBufferSize;
            buffer->text = static_cast<char*>(gen_realloc(buffer->text, buffer->capacity));
        }
    }
    readPipe(&stderr_pipe, &stderr_wakeup, &stderr_text, true);
    readPipe(&stdout_pipe, &stdout_wakeup, &stdout_text, false);
    return stdout_pipe != nullptr || stderr_pipe != nullptr;
}

// A child polled from slices has nobody waiting on it with a limit, so the job enforces the
// configured limit of one cvs run itself. A child that hangs (a repository that does not answer)
// ends the whole job: the next roots would most likely hang the same way. Its text replaces any
// earlier failure, since it is what ended the job.
bool CVS_Checkoutinfo_Idler::childTimedOut() {
    int64_t limitSeconds = versctrlCVSTimeLimitSeconds();
    if (limitSeconds <= 0 ||
        plat_tick_diff(plat_tick_count(), child_start_tick) < limitSeconds * 1000)
        return false;
    stopChild();
    closePipes();
    child_running = false;
    finish_message = format("Error: The cvs command was stopped after %d seconds because it had "
                            "not finished within the time limit: %s",
                            static_cast<int>(limitSeconds), child_command.c_str());
    finished = true;
    return true;
}

void CVS_Checkoutinfo_Idler::idle(IdleNotifier*) {
    if (idle_busy)
        return;
    idle_busy = true;
    if (finished) {
        destroy();
        return;
    }
    if (child_running) {
        if (childTimedOut()) {
            destroy();
            return;
        }
        if (pollChild()) {
            idle_busy = false;
            return;
        }
        childEnded();
        if (finished) {
            // An exec failure, or a halt that came during the wait of childEnded.
            if (halted)
                destroy();
            else
                idle_busy = false;
            return;
        }
    }
    if (local_scan_running) {
        idle_busy = false;
        return;
    }
    reportRoot();
    if (kind.creating)
        finished = true;
    else if (kind.modifying ? !startNextModify() : !startNextScan())
        finished = true;
    if (finished) {
        idle_busy = true;
        destroy();
    }
}

void CVS_Checkoutinfo_Idler::childEnded() {
    // Both pipes are at their end, so the child has normally ended too.
    stopChild();
    child_running = false;
    if (stdout_text.text &&
        std::strncmp(stdout_text.text, kExecFailure, std::strlen(kExecFailure)) == 0) {
        finish_message = "Failed to execute cvs process, is it in your PATH?";
        finished = true;
        return;
    }
    cvs_output = gen_concat2(orEmpty(stderr_text.text), orEmpty(stdout_text.text));
    stderr_text.release();
    stdout_text.release();

    ut_string message;
    if (kind.creating) {
        message = "Finished creating checkout, starting local scan.";
        startLocalScanAfterChild();
    } else if (kind.modifying) {
        message = "Finished modifying checkout, starting local scan.";
        startLocalScanAfterChild();
    } else {
        message = format("Finished cvs scan of %s.", current_dir.c_str());
    }
    // The one wait of a job: whole turns of the loop, in which this job's timer slice goes on
    // walking and a HaltScan may come (it then only marks the job, see halt()).
    IdleConnRetryHandler wait(server, kFinishSendLimitMs, kFinishSendSliceMs);
    server->StatusUpdate(true, message.c_str(), &wait);
}

void CVS_Checkoutinfo_Idler::reportRoot() {
    auto statusUpdate = [this](const char* message) { server->StatusUpdate(false, message); };
    CheckoutInfo info = kind.do_cvs_scan
                            ? mergeCheckoutInfo(warnings, current_dir.c_str(), orEmpty(cvs_output),
                                                kind.update_mode, &walk.entries_read, statusUpdate)
                            : packLocalItems(current_dir.c_str(), &walk.local_items);
    CheckoutInfoRecord record = info.wireRecord();
    server->DisplayCheckoutInfo(false, record);
    CheckoutInfo::releaseWireRecord(&record);
    idle_busy = false;
    gen_free(cvs_output);
    cvs_output = nullptr;
    current_dir = ut_string();
}

void CVS_Checkoutinfo_Idler::timerFired(int32_t) {
    if (timer_busy)
        return;
    timer_busy = true;
    bool over = false;
    for (int i = 0; i < kDirectoriesPerSlice; ++i) {
        bool stepped = kind.do_cvs_scan ? visitKeepEntries(&walk) : visitReportItems(&walk);
        if (!stepped) {
            over = true;
            break;
        }
        if (++dirs_scanned % kProgressEvery == 0)
            server->StatusUpdate(false,
                                 format("Scanned %d directories so far...", dirs_scanned).c_str());
    }
    timer_busy = false;
    if (!over)
        return;
    server->StatusUpdate(
        false,
        format(child_running ? "Finished scanning %d directories, waiting for cvs scan to complete."
                             : "Finished scanning %d directories, merging checkout information.",
               dirs_scanned)
            .c_str());
    local_scan_running = false;
    if (IdleNotifier* notifier = IdleNotifier::get()) {
        notifier->removeTimer(this);
        // Without a child the report is due, and only the idle slice at the start of the next
        // turn makes it: that turn should not wait for the poll's full time.
        if (!child_running)
            notifier->wakeUp();
    }
}

void CVS_Checkoutinfo_Idler::halt() {
    stopChild();
    halted = true;
    // A slice of this job is running further up the stack (a halt can only come during its
    // wait): destroying the job now would pull it from under that slice. The slice ends the job
    // as soon as its wait returns; the child is gone already.
    if (idle_busy || timer_busy) {
        finished = true;
        return;
    }
    idle_busy = true;
    destroy();
}

void CVS_Checkoutinfo_Idler::destroy() {
    if (IdleNotifier* notifier = IdleNotifier::get()) {
        notifier->removeTimer(this);
        notifier->removeIdler(this);
    }
    stopChild();
    server->removeJob(cookie.c_str());
    stderr_text.release();
    stdout_text.release();
    gen_free(cvs_output);
    cvs_output = nullptr;
    current_dir = ut_string();
    pending_dirs.clear();
    walk.clear();
    closePipes();
    // What the merge could not place would otherwise go unseen: the user gets it as error
    // output before the end of the job.
    if (MString_length(warnings) > 0)
        server->ScanOutput(false, warnings->text, true);
    server->FinishedGettingCheckoutInfo(false, orEmpty(finish_message.c_str()));
    if (halted)
        server->ScanOutput(false, "Halted scan.\n", true);
    CVS_VC_CheckoutInfo_Server* owner = server;
    delete this;
    // May destroy the server, when its connection has gone and this was its last job.
    owner->unref();
}
