// STPSpecClass: reference counting, transports and route numbers, negotiation, the receiving
// side of kinds 12 to 15, and the steps shared by all generated send stubs.
#include "stp_specclass.h"

#include "indgen.h"
#include "stp_log.h"
#include "stp_message.h"
#include "stp_packet.h"
#include "stp_stream.h"
#include "stp_wait.h"

#include <cstring>

namespace {
// Tags of the negotiate packets (kind 12).
constexpr int32_t kNegotiateTables = 1;
constexpr int32_t kNegotiateFormats = 2;
constexpr int32_t kNegotiateAck = 3;
// Negotiate tags from this one on are ordered; those below are always delivered.
constexpr int32_t kFirstOrderedNegotiateTag = 9;

void setStatus(STPStatus* status, int32_t code, const char* text) {
    if (status)
        status->set(code, text);
}

// Plain byte order of a word of `length` bytes against a terminated name.
int compareWord(const char* word, int32_t length, const char* name) {
    size_t nameLength = std::strlen(name);
    size_t common =
        static_cast<size_t>(length) < nameLength ? static_cast<size_t>(length) : nameLength;
    int c = common ? std::memcmp(word, name, common) : 0;
    if (c != 0)
        return c;
    if (static_cast<size_t>(length) == nameLength)
        return 0;
    return static_cast<size_t>(length) < nameLength ? -1 : 1;
}

bool rowUsed(const STPMessageRow& row) {
    return row.name != nullptr && row.name[0] != '\0';
}
} // namespace

// ---- Listener -------------------------------------------------------------------------------

STPSpecClass_HandleMessages::STPSpecClass_HandleMessages(STPSpecClass* spec,
                                                         STPTransport* transport)
    : spec(spec), transport(transport) {}

STPSpecClass_HandleMessages::~STPSpecClass_HandleMessages() {
    transport->removeListener(this);
}

bool STPSpecClass_HandleMessages::handle(STPMessage* message) {
    return spec->handleMessage(message, message->kind, message->tag);
}

// ---- Life -----------------------------------------------------------------------------------

STPSpecClass::STPSpecClass() : retryHandler(new STPRetryHandler(nullptr)) {}

STPSpecClass::~STPSpecClass() {
    gen_assert(refCount == 0, "refCount == 0", __FILE__, __LINE__, 0);
    delete retryHandler;
    delete listener;
    if (transport)
        transport->unref();
}

void STPSpecClass::ref() {
    if (!deleted)
        ++refCount;
}

void STPSpecClass::unref() {
    if (deleted)
        return;
    if (--refCount <= 0) {
        deleted = true;
        delete this;
    }
}

void STPSpecClass::setRetryHandler(RetryHandler* rt) {
    gen_assert(rt != nullptr, "rt != NULL", __FILE__, __LINE__, 0);
    if (rt != retryHandler)
        delete retryHandler;
    retryHandler = rt;
    retryHandlerFixed = true;
}

RetryHandler* STPSpecClass::getRetryHandler() {
    return retryHandler;
}

void STPSpecClass::virtualConnectionDown() {}

void STPSpecClass::handleAsciiMessage(STPMessage*, STPMessage*, int32_t) {
    gen_error("unexpected stp ascii message");
}

void STPSpecClass::handleBinaryMessage(STPMessage*, STPMessage*, int32_t) {
    gen_error("unexpected stp binary message");
}

bool STPSpecClass::handleCommandMessage(STPMessage*, STPMessage*, int32_t, int32_t) {
    gen_error("unexpected stp command message");
    return false;
}

void STPSpecClass::setProtocol(const char* protocol, const char* role, const char* stamp,
                               uint32_t flags) {
    protocolName = protocol;
    roleName = role;
    vstamp = stamp;
    ownFlags = flags;
}

void STPSpecClass::setTables(const STPMessageRow* handled, int32_t handledRows,
                             const STPMessageRow* sent, int32_t sentRows, const char* const* tags,
                             int32_t tags_count) {
    handledTable = handled;
    handledCount = handledRows;
    sentTable.assign(sent, sent + sentRows);
    // A sent row's spec string is the peer's, known only once requestFormats has run.
    for (STPMessageRow& row : sentTable)
        row.fmt = "";
    tagTable = tags;
    tagCount = tags ? tags_count : 0;
    tagMap.assign(static_cast<size_t>(tagCount), -1);
}

const char* STPSpecClass::keepText(const char* text, int32_t length) {
    texts.emplace_back(text ? text : "", text ? static_cast<size_t>(length) : 0);
    return texts.back().c_str();
}

// ---- Transport ------------------------------------------------------------------------------

void STPSpecClass::attachTransport(STPTransport* newTransport, uint32_t newLocalRN,
                                   uint32_t newRemoteRN) {
    // Messages held back for this object stay in the old transport's queue, where no listener
    // of this object will take them: the reference they kept on it is let go, last of all,
    // since it may be the last one.
    bool releaseHeld = transport != nullptr && transport != newTransport && heldCount > 0;
    if (releaseHeld)
        heldCount = 0;
    if (newTransport)
        newTransport->ref();
    if (transport) {
        delete listener;
        listener = nullptr;
        transport->unref();
    }
    transport = newTransport;
    localRN = newLocalRN ? newLocalRN : defaultLocalRN();
    remoteRN = newRemoteRN ? newRemoteRN : defaultRemoteRN();
    if (transport) {
        listener = new STPSpecClass_HandleMessages(this, transport);
        // The key is the route numbers as the peer writes them: its local number is our remote.
        for (int32_t kind : {KIND_NEGOTIATE, KIND_COMMAND, KIND_ASCII, KIND_BINARY})
            transport->addListener(remoteRN, localRN, listener, kind);
    }
    // The default handler follows the transport. It is re-pointed rather than replaced: a wait
    // further up the stack (this may run inside a handler) may still be using it.
    if (!retryHandlerFixed)
        static_cast<STPRetryHandler*>(retryHandler)->setTransport(transport);
    if (releaseHeld)
        unref();
}

// ---- Virtual connection ---------------------------------------------------------------------

void STPSpecClass::dropVirtualConnection() {
    if (!canSend && !canReceive)
        return;
    canSend = false;
    canReceive = false;
    virtualConnectionDown();
}

bool STPSpecClass::checkSend(bool needsReceive, bool peerKnowsMessage, STPStatus* status) {
    if (transport == nullptr || !tagsReceived) {
        setStatus(status, STP_ERR_USAGE, "Attempted send before negotiation is complete.");
        return false;
    }
    if (isSendDown() || (needsReceive && isReceiveDown())) {
        setStatus(status, STP_ERR_NETWORK, "[send]: virtual connection is down");
        return false;
    }
    if (peerKnowsMessage)
        return true;
    if (peerFlags & 1u)
        return true;
    setStatus(status, STP_ERR_UNSUPPORTED,
              "[send]: sending a message the other side does not support");
    return false;
}

// ---- Lookups --------------------------------------------------------------------------------

int32_t STPSpecClass::findMessageId(const char* name) const {
    return name ? findMessageIdN(name, static_cast<int32_t>(std::strlen(name))) : -1;
}

int32_t STPSpecClass::findMessageIdN(const char* text, int32_t length) const {
    if (text == nullptr || length <= 0)
        return -1;
    for (int32_t i = 0; i < handledCount; ++i)
        if (rowUsed(handledTable[i]) && compareWord(text, length, handledTable[i].name) == 0)
            return handledTable[i].id;
    return -1;
}

const STPMessageRow* STPSpecClass::findPeerMessage(const char* name) const {
    return name ? findPeerMessageN(name, static_cast<int32_t>(std::strlen(name))) : nullptr;
}

const STPMessageRow* STPSpecClass::findPeerMessageN(const char* text, int32_t length) const {
    if (text == nullptr || length <= 0)
        return nullptr;
    for (const STPMessageRow& row : sentTable)
        if (rowUsed(row) && compareWord(text, length, row.name) == 0)
            return &row;
    for (const STPMessageRow& row : extraTable)
        if (compareWord(text, length, row.name) == 0)
            return &row;
    return nullptr;
}

// ---- Negotiation ----------------------------------------------------------------------------

bool STPSpecClass::sendNegotiate(bool blocking, RetryHandler*, STPStatus* status) {
    if (transport == nullptr) {
        setStatus(status, STP_ERR_USAGE, "[sendNegotiate]: cannot send with NULL transport");
        return false;
    }
    if (isSendDown()) {
        setStatus(status, STP_ERR_NETWORK, "[sendNegotiate]: virtual connection is down");
        return false;
    }
    STPSpecClassRef hold(this);
    STPTransport* t = transport;
    STPTransportRef holdTransport(t);
    STPMessage* message =
        t->newMessage(localRN, remoteRN, KIND_NEGOTIATE, kNegotiateTables, MSG_ONE_WAY);
    message->asciiPutNamedWord("name", roleName);
    message->asciiPutNamedString("vstamp", vstamp);
    message->asciiPutNamedNumber("flags", ownFlags);
    message->asciiBeginNamedArray("tags", tagCount);
    for (int32_t i = 0; i < tagCount; ++i)
        message->asciiPutWord(tagTable[i]);
    message->asciiEndArray();
    int32_t used = 0;
    for (int32_t i = 0; i < handledCount; ++i)
        used += rowUsed(handledTable[i]) ? 1 : 0;
    message->asciiBeginNamedArray("msgs", used);
    for (int32_t i = 0; i < handledCount; ++i) {
        const STPMessageRow& row = handledTable[i];
        if (!rowUsed(row))
            continue;
        message->asciiBeginStruct();
        message->asciiPutNamedNumber("id", static_cast<uint32_t>(row.id));
        message->asciiPutNamedWord("name", row.name);
        message->asciiPutNamedNumber("flags", row.flags);
        message->asciiEndStruct();
    }
    message->asciiEndArray();
    STPStatus result;
    uint32_t serial =
        blocking ? t->sendWithAttempts(message, 1, &result) : t->enqueueMessage(message, &result);
    delete message;
    if (status)
        *status = result;
    return serial != 0;
}

void STPSpecClass::receiveNegotiate(STPMessage* message) {
    int32_t length = 0;
    const char* word = message->asciiGetNamedWord("name", &length);
    peerName.assign(word ? word : "", word ? static_cast<size_t>(length) : 0);
    char* stamp = message->asciiGetNamedString("vstamp");
    peerVstamp = stamp ? stamp : "";
    gen_free(stamp);
    peerFlags = message->asciiGetNamedNumber("flags");

    // A repeated negotiation starts from nothing: what the peer no longer lists is unknown.
    tagMap.assign(static_cast<size_t>(tagCount), -1);
    for (STPMessageRow& row : sentTable)
        row.id = -1;
    extraTable.clear();

    // Both lists are sorted: one merge pass each, `i` standing still on a miss.
    STPAsciiScope scope;
    int32_t count = message->asciiEnterNamedArray(&scope, "tags");
    int32_t i = 0;
    for (int32_t k = 0; k < count; ++k) {
        word = message->asciiGetWord(&length);
        if (word == nullptr || length <= 0)
            continue;
        while (i < tagCount && compareWord(word, length, tagTable[i]) > 0)
            ++i;
        if (i < tagCount && compareWord(word, length, tagTable[i]) == 0)
            tagMap[static_cast<size_t>(i)] = k;
    }
    message->asciiLeaveArray(scope);

    count = message->asciiEnterNamedArray(&scope, "msgs");
    size_t j = 0;
    for (int32_t k = 0; k < count; ++k) {
        STPAsciiScope inner;
        message->asciiEnterStruct(&inner);
        int32_t id = static_cast<int32_t>(message->asciiGetNamedNumber("id"));
        word = message->asciiGetNamedWord("name", &length);
        uint32_t flags = message->asciiGetNamedNumber("flags");
        message->asciiLeaveStruct(inner);
        if (word == nullptr || length <= 0)
            continue;
        while (j < sentTable.size() && compareWord(word, length, sentTable[j].name) > 0)
            ++j;
        if (j < sentTable.size() && compareWord(word, length, sentTable[j].name) == 0) {
            sentTable[j].id = id;
            sentTable[j].flags = flags;
        } else {
            extraTable.push_back(STPMessageRow{keepText(word, length), "", id, flags});
        }
    }
    message->asciiLeaveArray(scope);
    tagsReceived = true;
}

void STPSpecClass::negotiateLocally() {
    for (int32_t i = 0; i < tagCount; ++i)
        tagMap[static_cast<size_t>(i)] = i;
    for (size_t i = 0; i < sentTable.size(); ++i)
        sentTable[i].id = static_cast<int32_t>(i);
    tagsReceived = true;
}

bool STPSpecClass::awaitFlag(const bool* flag, RetryHandler* retry, STPStatus* status) {
    if (transport == nullptr) {
        setStatus(status, STP_ERR_USAGE, "[awaitTags]: cannot receive tags on NULL transport");
        return false;
    }
    if (isReceiveDown()) {
        setStatus(status, STP_ERR_NETWORK, "[awaitTags]: virtual connection is down");
        return false;
    }
    STPSpecClassRef hold(this);
    STPTransport* t = transport;
    STPTransportRef holdTransport(t);
    ++busyCount;
    // A negotiate packet that came before the listener was there waits among the unclaimed.
    t->redeliverUnclaimed(remoteRN, localRN, KIND_NEGOTIATE);
    STPWaitEnd end = stp_wait_until(t, retry, [&] { return *flag; });
    bool ok = end == STPWaitEnd::done;
    if (end == STPWaitEnd::failed && status)
        *status = t->getStatus();
    else if (end == STPWaitEnd::gaveUp)
        setStatus(status, STP_ERR_TIMEOUT, "awaitNegotiate: timed out waiting for reply.");
    --busyCount;
    if (ok && status)
        status->clear();
    return ok;
}

bool STPSpecClass::awaitTags(RetryHandler* retry, STPStatus* status) {
    return awaitFlag(&tagsReceived, retry, status);
}

bool STPSpecClass::negotiate(RetryHandler* retry, STPStatus* status) {
    STPStatus result;
    if (!sendNegotiate(true, retry, &result)) {
        if (status)
            *status = result;
        return false;
    }
    return awaitTags(retry, status);
}

bool STPSpecClass::awaitNegotiate(RetryHandler* retry, STPStatus* status) {
    if (!checkSend(false, true, status))
        return false;
    STPSpecClassRef hold(this);
    STPMessage* message =
        transport->newMessage(localRN, remoteRN, KIND_NEGOTIATE, kNegotiateAck, MSG_ONE_WAY);
    uint32_t serial = transport->enqueueMessage(message, status);
    delete message;
    if (serial == 0)
        return false;
    if (!awaitFlag(&negotiateAcked, retry, status))
        return false;
    negotiateAcked = false;
    return true;
}

void STPSpecClass::fillFormats(STPMessage* reply) {
    int32_t used = 0;
    for (int32_t i = 0; i < handledCount; ++i)
        used += rowUsed(handledTable[i]) ? 1 : 0;
    reply->asciiBeginNamedArray("msgs", used);
    for (int32_t i = 0; i < handledCount; ++i) {
        const STPMessageRow& row = handledTable[i];
        if (!rowUsed(row))
            continue;
        reply->asciiBeginStruct();
        reply->asciiPutNamedWord("name", row.name);
        reply->asciiPutNamedQuoted("fmt", row.fmt ? row.fmt : "");
        reply->asciiEndStruct();
    }
    reply->asciiEndArray();
}

void STPSpecClass::receiveFormats(STPMessage* reply) {
    STPAsciiScope scope;
    int32_t count = reply->asciiEnterNamedArray(&scope, "msgs");
    size_t j = 0;
    for (int32_t k = 0; k < count; ++k) {
        STPAsciiScope inner;
        reply->asciiEnterStruct(&inner);
        int32_t length = 0;
        int32_t fmtLength = 0;
        const char* word = reply->asciiGetNamedWord("name", &length);
        const char* fmt = reply->asciiGetNamedQuoted("fmt", &fmtLength);
        if (word && length > 0) {
            const char* kept = keepText(fmt, fmt ? fmtLength : 0);
            while (j < sentTable.size() && compareWord(word, length, sentTable[j].name) > 0)
                ++j;
            if (j < sentTable.size() && compareWord(word, length, sentTable[j].name) == 0) {
                sentTable[j].fmt = kept;
            } else {
                for (STPMessageRow& row : extraTable)
                    if (compareWord(word, length, row.name) == 0)
                        row.fmt = kept;
            }
        }
        reply->asciiLeaveStruct(inner);
    }
    reply->asciiLeaveArray(scope);
}

bool STPSpecClass::requestFormats(RetryHandler* retry, STPStatus* status) {
    if (transport == nullptr) {
        setStatus(status, STP_ERR_USAGE, "[requestFormats]: cannot send with NULL transport");
        return false;
    }
    if (isSendDown() || isReceiveDown()) {
        setStatus(status, STP_ERR_NETWORK, "[requestFormats]: virtual connection is down");
        return false;
    }
    STPSpecClassRef hold(this);
    STPTransport* t = transport;
    STPTransportRef holdTransport(t);
    STPMessage* message =
        t->newMessage(localRN, remoteRN, KIND_NEGOTIATE, kNegotiateFormats, MSG_WANTS_REPLY);
    ++busyCount;
    uint32_t serial = t->sendMessage(message, retry, status);
    delete message;
    STPMessage* reply = serial ? t->awaitResponse(serial, retry, status) : nullptr;
    --busyCount;
    if (reply == nullptr)
        return false;
    receiveFormats(reply);
    delete reply;
    formatsReceived = true;
    return true;
}

// ---- Receiving ------------------------------------------------------------------------------

bool STPSpecClass::handleMessage(STPMessage* message, int32_t kind, int32_t tag) {
    STPSpecClassRef hold(this);
    if (tag == -1 && (kind == KIND_COMMAND || kind == KIND_ASCII)) {
        int32_t length = 0;
        const char* word = message->asciiPeekWord(&length);
        tag = findMessageIdN(word, length);
        message->tag = tag;
    }
    const STPMessageRow* row = nullptr;
    if (kind == KIND_NEGOTIATE) {
        message->flags |= tag >= kFirstOrderedNegotiateTag ? MSG_ORDERED : MSG_ALWAYS_DELIVER;
    } else if (tag >= 0 && tag < handledCount) {
        row = &handledTable[tag];
        message->flags |= row->flags & (STP_ROW_ORDERED | STP_ROW_ALWAYS_DELIVER);
    }
    STPTransport* t = transport;
    if (t == nullptr)
        return true;
    if (!t->canDispatch(message)) {
        // Counted once per message, however often it is offered and declined again; the extra
        // reference keeps this object alive while it has messages in the held-back queue.
        if (!message->heldBack) {
            message->heldBack = true;
            if (++heldCount == 1)
                ref();
        }
        return false;
    }
    STPTransportRef holdTransport(t);
    t->raiseDepth();
    t->pushStamp(message->origin, message->depth, message->flags);
    STPMessage* reply = (message->flags & MSG_WANTS_REPLY)
                            ? t->newReply(localRN, remoteRN, message->serial, 0)
                            : nullptr;
    // Rows with STP_ROW_FOREGROUND would raise the process's window here; there is no window
    // system to ask on this platform.
    ++busyCount;
    switch (kind) {
    case KIND_NEGOTIATE:
        if (tag == kNegotiateTables)
            receiveNegotiate(message);
        else if (tag == kNegotiateFormats && reply)
            fillFormats(reply);
        else if (tag == kNegotiateAck)
            negotiateAcked = true;
        break;
    case KIND_COMMAND: {
        // The message name, if the body starts with one, comes before the fields.
        int32_t length = 0;
        const char* word = message->asciiPeekWord(&length);
        if (word && length > 0 && std::memchr(word, ':', static_cast<size_t>(length)) == nullptr)
            message->asciiGetWord(&length);
        int32_t action = static_cast<int32_t>(message->asciiGetNamedNumber("__action"));
        bool result = handleCommandMessage(message, reply, tag, action);
        if (reply)
            reply->asciiPutNamedNumber("__ret", result ? 1u : 0u);
        break;
    }
    case KIND_ASCII:
        handleAsciiMessage(message, reply, tag);
        break;
    case KIND_BINARY:
        handleBinaryMessage(message, reply, tag);
        break;
    default:
        break;
    }
    --busyCount;
    if (reply) {
        if (!isSendDown())
            t->sendWithAttempts(reply, 2);
        delete reply;
    }
    t->popStamp();
    t->lowerDepth();
    if (heldCount > 0 && message->heldBack) {
        message->heldBack = false;
        if (--heldCount == 0)
            unref();
    }
    return true;
}

// ---- Log records ----------------------------------------------------------------------------

STPLog* STPSpecClass::openRecord(STPLog* log, bool outgoing, const char* prefix, const char* name) {
    if (log == nullptr)
        return nullptr;
    log->beginRecord(this, outgoing);
    log->print(prefix);
    log->print(name);
    log->print(": ");
    return log;
}

void STPSpecClass::closeRecord(STPLog* log, bool outgoing) {
    log->print("\n");
    log->endRecord(this, outgoing);
}

// ---- Stub calls -----------------------------------------------------------------------------

STPStubCall::STPStubCall(STPSpecClass* spec, int32_t sentIndex, RetryHandler* retry,
                         STPStatus* status)
    : spec(spec), condition(spec), sentIndex(sentIndex),
      rt(retry ? retry : spec->getRetryHandler()), status(status) {
    spec->ref();
    gen_assert(rt != nullptr, "rt != NULL", __FILE__, __LINE__, 0);
    gen_assert(sentIndex >= 0 && sentIndex < static_cast<int32_t>(spec->sentTable.size()),
               "sentIndex in table", __FILE__, __LINE__, 0);
}

STPStubCall::~STPStubCall() {
    if (conditionAdded)
        rt->removeCondition(&condition);
    delete message;
    if (transport)
        transport->unref();
    spec->unref();
}

bool STPStubCall::mayBegin(bool binary, bool request) {
    const STPMessageRow& row = spec->sentTable[static_cast<size_t>(sentIndex)];
    // An ASCII message is found by its name, so the peer need not have announced it.
    bool known = binary ? row.id != -1 : true;
    if (!spec->checkSend(request, known, status))
        return false;
    transport = spec->transport;
    transport->ref();
    return true;
}

STPLog* STPStubCall::openSendRecord() {
    STPLog* log = spec->sendLog;
    if (log == nullptr)
        return nullptr;
    const char* name = spec->sentTable[static_cast<size_t>(sentIndex)].name;
    log->beginRecord(spec, true);
    if (!transport->getStatus().ok()) {
        log->print("SEND FAILED: ");
        log->print(name);
        log->print("\n");
        log->endRecord(spec, true);
        return nullptr;
    }
    log->print("SEND: ");
    log->print(name);
    log->print(": ");
    return log;
}

STPLog* STPStubCall::openRecvRecord() {
    return spec->openRecord(spec->recvLog, false,
                            "RECV: ", spec->sentTable[static_cast<size_t>(sentIndex)].name);
}

void STPStubCall::closeRecord(STPLog* log, bool outgoing) {
    spec->closeRecord(log, outgoing);
}

STPMessage* STPStubCall::newMessage(bool binary, bool request) {
    const STPMessageRow& row = spec->sentTable[static_cast<size_t>(sentIndex)];
    uint32_t flags = MSG_ONE_WAY;
    if (request)
        flags = binary ? MSG_WANTS_REPLY : (MSG_WANTS_REPLY | MSG_STRICT_WAIT);
    delete message;
    message = transport->newMessage(spec->localRN, spec->remoteRN,
                                    binary ? KIND_BINARY : KIND_ASCII, row.id, flags);
    if (!binary)
        message->asciiPutWord(row.name);
    return message;
}

bool STPStubCall::sendOneWay(bool blocking) {
    uint32_t serial;
    if (blocking) {
        rt->addCondition(&condition);
        conditionAdded = true;
        ++spec->busyCount;
        serial = transport->sendMessage(message, rt, status);
        --spec->busyCount;
        rt->removeCondition(&condition);
        conditionAdded = false;
    } else {
        serial = transport->enqueueMessage(message, status);
    }
    delete message;
    message = nullptr;
    return serial != 0;
}

STPMessage* STPStubCall::sendRequest() {
    rt->addCondition(&condition);
    conditionAdded = true;
    ++spec->busyCount;
    uint32_t serial = transport->sendMessage(message, rt, status);
    --spec->busyCount;
    delete message;
    message = nullptr;
    STPMessage* reply = nullptr;
    if (serial != 0) {
        ++spec->busyCount;
        reply = transport->awaitResponse(serial, rt, status);
        --spec->busyCount;
    }
    rt->removeCondition(&condition);
    conditionAdded = false;
    return reply;
}
