// Message log sinks: plain file, time-stamped file and forwarding of whole records.
#include "stp_log.h"

#include "gen_asprintf.h"
#include "gen_string.h"
#include "indgen.h"
#include "mstring.h"
#include "plat_time.h"

#include <cstring>

// ---- STPLog ---------------------------------------------------------------------------------

STPLog::~STPLog() = default;

void STPLog::print(const char* text) {
    if (text)
        write(text, std::strlen(text));
}

void STPLog::printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
}

void STPLog::vprintf(const char* format, va_list args) {
    char* text = gen_vasprintf(format, args);
    print(text);
    gen_free(text);
}

void STPLog::beginRecord(STPSpecClass*, bool) {}
void STPLog::endRecord(STPSpecClass*, bool) {}

// ---- File logs ------------------------------------------------------------------------------

STPFileLog::STPFileLog(FILE* file, bool ownsFile) : file(file), ownsFile(ownsFile) {}

STPFileLog::~STPFileLog() {
    if (file && ownsFile)
        std::fclose(file);
}

void STPFileLog::write(const char* data, size_t length) {
    if (file && length > 0)
        std::fwrite(data, length, 1, file);
}

void TimestampedSTPFileLog::beginRecord(STPSpecClass*, bool) {
    int64_t t = plat_wall_clock_ms();
    // The process's own printf engine has no 64-bit conversion, so the stamp is formatted by
    // the C library.
    char stamp[48];
    int n = std::snprintf(stamp, sizeof stamp, "%lld.%.3u: ", static_cast<long long>(t / 1000),
                          static_cast<unsigned>(t % 1000));
    if (n > 0)
        write(stamp, static_cast<size_t>(n));
}

// ---- Forwarding log -------------------------------------------------------------------------

STPLogSender::~STPLogSender() = default;

namespace {
char* stampedText(const char* text) {
    int64_t t = plat_wall_clock_ms();
    return gen_asprintf("%d:%u: %s", static_cast<int>(static_cast<uint64_t>(t) >> 32),
                        static_cast<unsigned>(static_cast<uint64_t>(t) & 0xFFFFFFFFu), text);
}
} // namespace

ForwardingSTPLog::ForwardingSTPLog(STPLogSender* proxy) : proxy(proxy) {
    sendStamped("Logging for ServiceRouter_Proxy plugin connection started.\n");
}

ForwardingSTPLog::~ForwardingSTPLog() {
    if (pendingLog) {
        send("Warning: shutting down logging on plugin but pending log still exists.\n");
        char* text = MString_peel(pendingLog);
        pendingLog = nullptr;
        send(text);
        gen_free(text);
    }
    sendStamped("Logging for ServiceRouter_Proxy plugin connection ending.\n");
}

void ForwardingSTPLog::send(const char* text) {
    if (proxy)
        proxy->sendLogMessage(text);
}

void ForwardingSTPLog::sendStamped(const char* text) {
    char* line = stampedText(text);
    send(line);
    gen_free(line);
}

void ForwardingSTPLog::write(const char* data, size_t length) {
    if (pendingLog) {
        MString_appendn(pendingLog, data, static_cast<int>(length));
        return;
    }
    send("ERROR: pending_log not initialized, sending log message now rather than buffering into "
         "a single message.\n");
    // The sender takes a terminated text; `data` need not be one.
    char* text = gen_strndup(data, static_cast<int>(length));
    send(text);
    gen_free(text);
}

void ForwardingSTPLog::beginRecord(STPSpecClass*, bool) {
    if (pendingLog) {
        send("Warning: Starting new log bug pending log already exists, sending pending log "
             "now.\n");
        char* text = MString_peel(pendingLog);
        pendingLog = nullptr;
        send(text);
        gen_free(text);
    }
    pendingLog = MString_new(32);
    int64_t t = plat_wall_clock_ms();
    printf("%d:%u: ", static_cast<int>(static_cast<uint64_t>(t) >> 32),
           static_cast<unsigned>(static_cast<uint64_t>(t) & 0xFFFFFFFFu));
}

void ForwardingSTPLog::endRecord(STPSpecClass*, bool) {
    if (pendingLog == nullptr) {
        send("Warning: Log block ending but there is no pending log.\n");
        return;
    }
    // The record is detached before sending: the send may re-enter and log again.
    char* text = MString_peel(pendingLog);
    pendingLog = nullptr;
    send(text);
    gen_free(text);
}
