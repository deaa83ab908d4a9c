// STPSpecClass: the base of every object that speaks a message protocol over an STPTransport;
// the exchange of message and tag tables by name (negotiation), the receiving side of kinds 12
// to 15, and the helpers that generated send stubs and dispatchers are built from.
#pragma once

#include "stp_retryhandler.h"
#include "stp_status.h"
#include "stp_transport.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

class RetryHandler;
class STPLog;
class STPMessage;
class STPSpecClass;
class STPTransport;

// Row flags of a message table.
enum : uint32_t {
    STP_ROW_REPLY = 0x01,          // the message has a reply
    STP_ROW_ONE_WAY = 0x02,        // one-way message
    STP_ROW_ORDERED = 0x04,        // copied to the header flags on receipt as MSG_ORDERED
    STP_ROW_ALWAYS_DELIVER = 0x10, // copied on receipt as MSG_ALWAYS_DELIVER
    STP_ROW_FOREGROUND = 0x80,     // bring the process to the foreground before the handler
};

// One row of a message table. Generated tables are static, sorted by name in plain byte order,
// indexed by message number; a number the protocol does not use is a row with an empty name
// (and id -1), which every lookup and the negotiation skip. Texts are not owned by the row.
struct STPMessageRow {
    const char* name;
    const char* fmt; // its spec string; in a sent row empty until requestFormats has run
    int32_t id;      // generated: the row's index; sent rows after negotiation: the peer's number
    uint32_t flags;
};

// The receiver of kinds 12 to 15 on one (remoteRN, localRN) pair of a transport: hands each
// message to its spec class. Leaves the transport's listener table when destroyed.
class STPSpecClass_HandleMessages : public ResponseListener {
public:
    STPSpecClass_HandleMessages(STPSpecClass* spec, STPTransport* transport);
    ~STPSpecClass_HandleMessages() override;
    STPSpecClass_HandleMessages(const STPSpecClass_HandleMessages&) = delete;
    STPSpecClass_HandleMessages& operator=(const STPSpecClass_HandleMessages&) = delete;

    bool handle(STPMessage* message) override;

private:
    STPSpecClass* spec;
    STPTransport* transport;
};

// Reference-counted (starts at 1; the last unref deletes it, so objects are made with `new`).
// Everything runs on the event-loop thread. Operations that "wait" re-enter the loop: handlers of
// this and other objects may run inside them, to any depth, and may drop references; every entry
// point holds a reference on the object (and its transport) across the wait. Failures are values
// in the optional `status` out-parameter given last; a null `retry` means the object's default
// handler for stubs, and serviceOnce(10000) turns for the negotiation waits.
class STPSpecClass {
public:
    STPSpecClass();
    STPSpecClass(const STPSpecClass&) = delete;
    STPSpecClass& operator=(const STPSpecClass&) = delete;

    void ref();
    // Deletes the object when the count falls to 0 or below; both do nothing once it is deleted.
    void unref();
    int32_t getRefCount() const { return refCount; }

    // Installs `rt` (owned from here on; not null: asserted "rt != NULL"), deleting the old one.
    // A handler set this way survives later attachTransport calls.
    virtual void setRetryHandler(RetryHandler* rt);
    virtual RetryHandler* getRetryHandler();
    // Called once when dropVirtualConnection takes the connection down; nothing here.
    virtual void virtualConnectionDown();
    // Route numbers used when attachTransport is given 0.
    virtual uint32_t defaultLocalRN() = 0;
    virtual uint32_t defaultRemoteRN() = 0;
    // Dispatchers of the body forms; the base only reports an unexpected message. `reply` is
    // null for a message that wants none. `tag` is this end's number of the message.
    virtual void handleAsciiMessage(STPMessage* message, STPMessage* reply, int32_t tag);
    virtual void handleBinaryMessage(STPMessage* message, STPMessage* reply, int32_t tag);
    virtual bool handleCommandMessage(STPMessage* message, STPMessage* reply, int32_t tag,
                                      int32_t action);

    // Attaches to `transport` (referenced; null detaches) under the given route numbers (0: the
    // defaults), listening for kinds 12 to 15 from the peer, and installs a new STPRetryHandler
    // on it unless the owner fixed the handler.
    void attachTransport(STPTransport* transport, uint32_t localRN = 0, uint32_t remoteRN = 0);
    STPTransport* getTransport() const { return transport; }
    uint32_t getLocalRN() const { return localRN; }
    uint32_t getRemoteRN() const { return remoteRN; }
    int32_t getBusyCount() const { return busyCount; }
    int32_t getHeldCount() const { return heldCount; }

    // Logs are not owned; null for none.
    void setLogs(STPLog* log) { sendLog = recvLog = log; }
    void setSendLog(STPLog* log) { sendLog = log; }
    void setRecvLog(STPLog* log) { recvLog = log; }
    STPLog* getSendLog() const { return sendLog; }
    STPLog* getRecvLog() const { return recvLog; }

    // Sends this end's tables (kind 12, tag 1). `blocking`: one write attempt now; otherwise the
    // packet is only queued. Does not wait.
    bool sendNegotiate(bool blocking, RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // Waits until the peer's tables have arrived (waits). Code 7 when `retry` gives up.
    bool awaitTags(RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // sendNegotiate(true) and awaitTags (waits).
    bool negotiate(RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // For two ends built from the same tables in one process: identity maps, nothing sent.
    void negotiateLocally();
    // Asks the peer to confirm that it has this end's tables (kind 12, tag 3) and waits (waits).
    bool awaitNegotiate(RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // Fetches spec strings of the peer's messages into the sent and extra tables (waits).
    bool requestFormats(RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    bool hasNegotiated() const { return tagsReceived; }
    bool hasFormats() const { return formatsReceived; }

    // The id of the handled row with this name, or -1. The N form compares exactly `length`
    // bytes against the whole name.
    int32_t findMessageId(const char* name) const;
    int32_t findMessageIdN(const char* text, int32_t length) const;
    // The row of the peer's message with this name: in the sent table, then the extra table; or
    // null. Valid until the next negotiation.
    const STPMessageRow* findPeerMessage(const char* name) const;
    const STPMessageRow* findPeerMessageN(const char* text, int32_t length) const;

    // The two directions of the virtual connection; both up at first.
    void setCanSend(bool on) { canSend = on; }
    void setCanReceive(bool on) { canReceive = on; }
    // Takes both directions down and calls virtualConnectionDown, if either was up.
    void dropVirtualConnection();
    bool isVirtualConnectionDown() const { return !canSend && !canReceive; }
    bool isSendDown() const { return !canSend; }
    bool isReceiveDown() const { return !canReceive; }

    // Whether a stub may send: negotiated, the connection up (both ways for a request), and the
    // peer knowing the message or accepting everything. Failures go to `status` only.
    bool checkSend(bool needsReceive, bool peerKnowsMessage, STPStatus* status = nullptr);

    // Handles one received message of kind 12 to 15 (re-enters through the handlers). False if
    // it must be held back for now. The tag of a kind 13 or 14 message of tag -1 is found by
    // the name that begins its body.
    bool handleMessage(STPMessage* message, int32_t kind, int32_t tag);

    // Lets the peer bring its window to the front while it answers this call, so that a dialog
    // it opens is not hidden behind ours. A console service has no window system to ask, so it
    // does nothing.
    static void allowForeground() {}

    // Table access, for tests and diagnostics.
    const char* getProtocolName() const { return protocolName; }
    const char* getRoleName() const { return roleName; }
    const char* getPeerName() const { return peerName.c_str(); }
    const char* getPeerVstamp() const { return peerVstamp.c_str(); }
    uint32_t getPeerFlags() const { return peerFlags; }
    int32_t getTagCount() const { return tagCount; }
    const char* const* getTagTable() const { return tagTable; }
    const std::vector<int32_t>& getTagMap() const { return tagMap; }
    int32_t getHandledCount() const { return handledCount; }
    const STPMessageRow* getHandledTable() const { return handledTable; }
    const std::vector<STPMessageRow>& getSentTable() const { return sentTable; }
    const std::vector<STPMessageRow>& getExtraTable() const { return extraTable; }

protected:
    // Only the last unref destroys; asserts "refCount == 0".
    virtual ~STPSpecClass();

    // Filled by the generated constructor. The tables are static and not copied, except the
    // sent table, whose ids and flags negotiation overwrites. `tags` is null for ASCII protocols.
    void setProtocol(const char* protocol, const char* role, const char* stamp, uint32_t flags);
    void setTables(const STPMessageRow* handled, int32_t handledRows, const STPMessageRow* sent,
                   int32_t sentRows, const char* const* tags, int32_t tags_count);

    // Opens a log record of a generated stub or dispatcher: beginRecord, then `prefix`, the name,
    // ": ". Returns `log`, or null when there is no log.
    STPLog* openRecord(STPLog* log, bool outgoing, const char* prefix, const char* name);
    // Ends the line and the record.
    void closeRecord(STPLog* log, bool outgoing);
    // The peer's tag for this end's tag `index` (-1: the peer lacks it).
    int32_t peerTag(int32_t index) const {
        return index >= 0 && index < static_cast<int32_t>(tagMap.size()) ? tagMap[index] : -1;
    }

    bool tagsReceived = false;
    bool formatsReceived = false;
    bool negotiateAcked = false;
    STPTransport* transport = nullptr;
    uint32_t localRN = 0;
    uint32_t remoteRN = 0;
    STPLog* sendLog = nullptr;
    STPLog* recvLog = nullptr;
    int32_t busyCount = 0;

private:
    friend class STPStubCall;

    void receiveNegotiate(STPMessage* message);
    void fillFormats(STPMessage* reply);
    void receiveFormats(STPMessage* reply);
    // Waits until `flag` is set, the way awaitTags does.
    bool awaitFlag(const bool* flag, RetryHandler* retry, STPStatus* status);
    // Text kept alive for the table rows (peer names, spec strings).
    const char* keepText(const char* text, int32_t length);

    int32_t refCount = 1;
    bool deleted = false;
    bool retryHandlerFixed = false;
    RetryHandler* retryHandler = nullptr;
    const char* protocolName = "";
    int32_t tagCount = 0;
    const char* const* tagTable = nullptr;
    const char* roleName = "";
    const char* vstamp = "";
    uint32_t ownFlags = 0;
    int32_t handledCount = 0;
    const STPMessageRow* handledTable = nullptr;
    std::string peerName;
    std::string peerVstamp;
    uint32_t peerFlags = 0;
    std::vector<int32_t> tagMap;
    std::vector<STPMessageRow> sentTable;
    std::vector<STPMessageRow> extraTable;
    // Owner of the texts of extra rows and of received spec strings; a list keeps them in place.
    std::list<std::string> texts;
    bool canSend = true;
    bool canReceive = true;
    int32_t heldCount = 0;
    STPSpecClass_HandleMessages* listener = nullptr;
};

// Holds a reference on a spec class for as long as it lives.
class STPSpecClassRef {
public:
    explicit STPSpecClassRef(STPSpecClass* spec) : held(spec) { held->ref(); }
    ~STPSpecClassRef() { held->unref(); }
    STPSpecClassRef(const STPSpecClassRef&) = delete;
    STPSpecClassRef& operator=(const STPSpecClassRef&) = delete;

private:
    STPSpecClass* held;
};

// One call of a generated send stub, the steps every stub shares. It holds a reference on the
// object, an STP_RetryCondition (so every wait of the call ends when the virtual connection goes
// down) and, once sending has begun, a reference on the transport. The stub writes the fields
// itself. Sending and awaiting wait (re-enter); the object may have changed afterwards.
class STPStubCall {
public:
    // `sentIndex` is the message's row in the sent table. A null `retry` takes the object's
    // default handler (asserted "rt != NULL").
    STPStubCall(STPSpecClass* spec, int32_t sentIndex, RetryHandler* retry, STPStatus* status);
    ~STPStubCall();
    STPStubCall(const STPStubCall&) = delete;
    STPStubCall& operator=(const STPStubCall&) = delete;

    // checkSend with the arguments of the stub's form: false means the stub stops here.
    bool mayBegin(bool binary, bool request);
    // The "SEND: <name>: " record to print the fields into, or null (no log; or the transport
    // has failed, in which case the "SEND FAILED: <name>" line has been written whole).
    STPLog* openSendRecord();
    // The "RECV: <name>: " record of a reply, or null without a log.
    STPLog* openRecvRecord();
    // Ends the line and the record.
    void closeRecord(STPLog* log, bool outgoing);
    // The new message of this call, with the peer's number for it (the ASCII form writes the
    // name first). Owned by the call.
    STPMessage* newMessage(bool binary, bool request);
    // Sends a one-way message: with `blocking` pushes it out (waits), else only queues it.
    bool sendOneWay(bool blocking);
    // Sends a request and waits for its reply, which is returned (owned by the caller: delete
    // it), or null on failure (the status tells why).
    STPMessage* sendRequest();

private:
    STPSpecClass* spec;
    STP_RetryCondition condition;
    int32_t sentIndex;
    RetryHandler* rt;
    STPStatus* status;
    STPTransport* transport = nullptr; // referenced from mayBegin on
    STPMessage* message = nullptr;
    bool conditionAdded = false;
};

// Compile-time comparison of two texts: generated headers use it to check that a record type
// defined by two protocols has the same shape in both.
constexpr bool stp_same_text(const char* a, const char* b) {
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

// The number of elements generated code writes or walks for an array and its count: `count`,
// or 0 when the array is absent or the count is not positive.
template <typename T, typename C> constexpr int32_t stp_count(const T* data, C count) {
    return data != nullptr && count > 0 ? static_cast<int32_t>(count) : 0;
}
