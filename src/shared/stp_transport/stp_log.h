// STPLog: sinks of the text records that generated stubs and dispatchers print about each
// message ("SEND:", "RECV:", "REPLY:"): a plain file, a time-stamped file, and forwarding of
// whole records over the router connection.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>

struct MString;
class STPSpecClass;

// A record is opened with beginRecord, filled with write/print/printf and closed with
// endRecord; records do not nest. Nothing here waits or re-enters the loop, except what a
// forwarding log's sender does when it sends. Write failures are ignored: a log never reports.
class STPLog {
public:
    virtual ~STPLog();
    // Appends `length` bytes of `data` to the current record (or the sink).
    virtual void write(const char* data, size_t length) = 0;
    // write(text, strlen(text)); a null text is ignored.
    virtual void print(const char* text);
    // Formats with the process's printf engine (gen_vasprintf) and writes the text.
    virtual void printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    virtual void vprintf(const char* format, va_list args);
    // `spec` is the object that logs; `outgoing` the flag its stub or dispatcher passes.
    virtual void beginRecord(STPSpecClass* spec, bool outgoing);
    virtual void endRecord(STPSpecClass* spec, bool outgoing);
};

// Writes to a stdio file. A log without a file swallows everything; the file is closed by the
// destructor only when `ownsFile` is set.
class STPFileLog : public STPLog {
public:
    STPFileLog(FILE* file, bool ownsFile);
    ~STPFileLog() override;
    STPFileLog(const STPFileLog&) = delete;
    STPFileLog& operator=(const STPFileLog&) = delete;

    void write(const char* data, size_t length) override;
    FILE* getFile() const { return file; }

protected:
    FILE* file;
    bool ownsFile;
};

// A file log that starts each record with the wall-clock time, "%lld.%.3u: ": seconds since
// 1 January 1601 UTC, a point, three digits of milliseconds.
class TimestampedSTPFileLog : public STPFileLog {
public:
    TimestampedSTPFileLog(FILE* file, bool ownsFile) : STPFileLog(file, ownsFile) {}
    void beginRecord(STPSpecClass* spec, bool outgoing) override;
};

// Where a forwarding log sends its texts: the router proxy, which sends each one as a one-way,
// non-blocking LogMessageEvent with its default retry handler. A send that fails loses the text.
class STPLogSender {
public:
    virtual ~STPLogSender();
    virtual void sendLogMessage(const char* text) = 0;
};

// Collects each record whole and sends it as one message through `proxy` (not owned, must
// outlive the log). Sends a start line on construction and an end line on destruction.
class ForwardingSTPLog : public STPLog {
public:
    explicit ForwardingSTPLog(STPLogSender* proxy);
    ~ForwardingSTPLog() override;
    ForwardingSTPLog(const ForwardingSTPLog&) = delete;
    ForwardingSTPLog& operator=(const ForwardingSTPLog&) = delete;

    // Appends to the open record; outside a record sends an error line and the data at once.
    void write(const char* data, size_t length) override;
    // Opens a record ("%d:%u: " stamp first), sending a record still open with a warning.
    void beginRecord(STPSpecClass* spec, bool outgoing) override;
    // Sends the record as one text.
    void endRecord(STPSpecClass* spec, bool outgoing) override;

    bool hasPendingLog() const { return pendingLog != nullptr; }

private:
    void send(const char* text);
    // "%d:%u: " of the two halves of the wall-clock milliseconds, then `text`, sent at once.
    void sendStamped(const char* text);

    STPLogSender* proxy;
    MString* pendingLog = nullptr;
};
