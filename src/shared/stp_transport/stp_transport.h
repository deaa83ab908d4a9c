// STPTransport: one STP connection (a TCP socket, a listening socket on its way to one, or an
// in-process link), its buffers, packet framing, message queues and the rules of what may be
// handled while a wait is in progress; and the process-wide registry and list of transports.
//
// Everything runs on the one event-loop thread. Bytes move only inside serviceOnce,
// serviceFirst, handleRead, handleWrite and the waits built on them. Any operation marked
// "re-enters" may run message handlers, which may send, wait and service this or another
// transport to any depth; callers re-check their own state afterwards. A handler may also drop
// the last reference to a transport: operations that dispatch hold a reference while they run.
//
// Failures are values: every operation records its outcome in the transport's own STPStatus
// (which every wait loop tests, so one failure stops all of them) and copies it to the optional
// `status` out-parameter given last.
#pragma once

#include "plat_socket.h"
#include "stp_packet.h"
#include "stp_status.h"

#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

class RetryHandler;
class STPChannel;
class STPMessage;
class STPTransport;

// Initial size of both buffers of every transport of this system.
inline constexpr int32_t STP_DEFAULT_BUFFER_SIZE = 32768;
// At most this many bytes go to one `send`.
inline constexpr int32_t STP_MAX_SEND_SIZE = 1048576;
// How long one serviceOnce of a wait without a retry handler waits for the socket.
inline constexpr int32_t STP_SERVICE_WAIT_MS = 10000;

// Where in a call tree a transport stands.
struct STPStamp {
    uint16_t originId = 0;  // the process that started the tree
    uint16_t originSeq = 0; // that process's number for the tree
    uint16_t depth = 0;     // how many calls deep
    uint32_t flags = 0;     // flags of the message that made this stamp
};

// The receiver of messages under a (localRN, remoteRN, kind) key. `handle` never owns the
// message; it returns false if the message has to be held back and offered again later.
class ResponseListener {
public:
    virtual bool handle(STPMessage* message) = 0;
    virtual ~ResponseListener();
};

// Routes packets between connections without parsing them. Not owned by the transport.
class STPForwarder {
public:
    enum class Route {
        handle,  // parse and dispatch it here
        forward, // copy it unread to the target's write buffer
        drop,    // discard it unread
    };
    virtual ~STPForwarder();
    // What becomes of a packet whose header words 2 and 3 are `localRN` and `remoteRN` (the
    // sender's numbers). For `forward`, *target is set; it must stay alive for the call.
    virtual Route route(uint32_t localRN, uint32_t remoteRN, STPTransport** target) = 0;
};

// A plain function and its argument that make a transport read now.
using STPReadCallback = void (*)(void* arg);

class STPTransport {
public:
    // Both buffers start at `initialCapacity` bytes. Enters the transport in the registry and
    // the list of all transports. The reference count starts at 1.
    explicit STPTransport(int32_t initialCapacity = STP_DEFAULT_BUFFER_SIZE);
    STPTransport(const STPTransport&) = delete;
    STPTransport& operator=(const STPTransport&) = delete;

    void ref();
    // Destroys the transport when the count falls below 1 (closing its connection).
    void unref();
    uint32_t getId() const { return transportId; }

    // ---- Connection set-up -------------------------------------------------------------------
    // Blocking connect to `host` (dotted quad or name) on `port`; the one blocking network call.
    bool connect(const char* host, uint16_t port, STPStatus* status = nullptr);
    // Opens a listening socket on `port` and waits for one client (re-enters).
    bool listen(uint16_t port, RetryHandler* retry = nullptr, STPStatus* status = nullptr);
    // Listens on `fd`, which already listens, and waits for one client (re-enters). Reports
    // "[listenOnFD]: timed out waiting for client" when `retry` gives up first.
    bool listenOnFD(plat_socket fd, bool closeListenSocket, RetryHandler* retry = nullptr,
                    STPStatus* status = nullptr);
    // Enters the listening state on `fd`, which already listens; returns at once.
    bool startListenOnFD(plat_socket fd, STPStatus* status = nullptr);
    // Accepts the pending client, if the listening socket turned readable. False with STP_OK:
    // nobody has called yet, and the transport stays listening.
    bool tryAccept(bool closeListenSocket, STPStatus* status = nullptr);
    // Adopts a connected socket (made non-blocking here).
    bool bindFD(plat_socket fd, STPStatus* status = nullptr);
    // Closes the connection and resets the transport; the status is cleared. A listening socket
    // stays open. An in-process end touches no socket.
    void closeConnection(STPStatus* status = nullptr);
    // Drops both buffers (and the bytes in them), the response queue and the waiter set, and
    // starts afresh: serial 1, no socket, not bound. Unclaimed and held-back messages,
    // listeners and channels survive.
    void reset();
    // listen or bindFD, then serviceOnce(10000) until the status is bad or the connection gone.
    bool listenAndService(uint16_t port, STPStatus* status = nullptr);
    bool bindAndService(plat_socket fd, STPStatus* status = nullptr);

    // ---- Static socket helpers (failures go to `status` only) ---------------------------------
    // The connected, non-blocking socket, or PLAT_INVALID_SOCKET (-1). Failure is -1, not 0:
    // 0 is a valid descriptor here (a process started with its standard input closed gets it).
    static plat_socket connectToServer(const char* host, uint16_t port,
                                       STPStatus* status = nullptr);
    // A blocking listening socket on all addresses, backlog 5, or PLAT_INVALID_SOCKET.
    static plat_socket getListenSocket(uint16_t port, STPStatus* status = nullptr);
    // getListenSocket(0); `*port` gets the port the system chose, in host order.
    static plat_socket getEphemeralListenSocket(uint16_t* port, STPStatus* status = nullptr);
    // The accepted, non-blocking socket, or PLAT_INVALID_SOCKET.
    static plat_socket acceptClient(plat_socket listenFD, bool closeListenSocket,
                                    STPStatus* status = nullptr);
    // shutdown and close; failures are printed on standard error and do not stop the close.
    static void closeSocket(plat_socket fd);
    // One turn over several transports with one select (re-enters); see serviceOnce. Stops at
    // the first transport that is neither bound nor listening; the status goes only to
    // `status`. No transport is closed by a select error.
    static void serviceFirst(int32_t timeoutMs, const std::vector<STPTransport*>& transports,
                             STPStatus* status = nullptr);

    // ---- Queries ------------------------------------------------------------------------------
    bool isBound() const { return bound; }
    bool isDisconnected() const { return !bound && !listening; }
    bool isListening() const { return listening; }
    const STPStatus& getStatus() const { return status; }
    // `fd` when bound, else the listening socket when listening, else -1.
    plat_socket getFD() const;
    // Bytes wait to go to a socket (never for an in-process link).
    bool hasPendingWrite() const { return !inProcess && bound && writeLength > 0; }
    // Bytes wait in the write buffer, also for an in-process link.
    bool hasWriteBytes() const { return bound && writeLength > 0; }
    bool wantsRead() const;
    bool isInProcess() const { return inProcess; }
    // Dotted quads, cached until the connection closes; null when not bound or unknown.
    const char* getPeerAddress();
    const char* getLocalAddress();
    // Worth a pump now: whole packets in hand, or a held-back message that may now run.
    bool hasDispatchableWork();
    // The kind and tag of the message last enqueued; false if none was.
    bool getLastMessage(int32_t* kind, int32_t* tag) const;
    // Buffer figures, for the socket listener and for diagnostics.
    int32_t getReadCapacity() const { return readCapacity; }
    int32_t getReadLength() const { return readLength; }
    int32_t getWriteCapacity() const { return writeCapacity; }
    int32_t getWriteLength() const { return writeLength; }
    uint32_t getLastSerial() const { return lastSerial; }
    // Puts the serial counter where a long-running connection would have it (tests of the wrap).
    void setLastSerial(uint32_t serial) { lastSerial = serial; }
    size_t responseQueueSize() const { return responseQueue.size(); }
    size_t unclaimedQueueSize() const { return unclaimedQueue.size(); }
    size_t heldBackQueueSize() const { return heldBackQueue.size(); }

    // ---- Servicing ----------------------------------------------------------------------------
    // One turn: pump what is already in hand, wait up to `timeoutMs` for the socket, then write
    // and read what it allows (re-enters). On an idle transport reports
    // "[serviceOnce]: not bound and not listening." An in-process link just reads.
    void serviceOnce(int32_t timeoutMs, STPStatus* status = nullptr);
    // One non-blocking read (or, when listening, notes the pending client) and a dispatch pass
    // (re-enters).
    void handleRead();
    // One non-blocking write of at most 1 MiB. Would-block leaves everything, status included,
    // as it was.
    void handleWrite();
    // Offers held-back messages again, then cuts whole packets from the read buffer and
    // dispatches them (re-enters). The only place where bytes become messages.
    void pumpMessages();
    // Queues a sync packet and waits for the peer's (re-enters).
    bool awaitSync(uint32_t localRN, uint32_t remoteRN, RetryHandler* retry = nullptr,
                   STPStatus* status = nullptr);

    // ---- Registry -----------------------------------------------------------------------------
    // The live transport with this id, or null.
    static STPTransport* findById(uint32_t id);
    // A function and argument such that fn(arg) finds this transport by id and runs handleRead
    // on it (doing nothing once it is gone). False if the transport is not registered.
    bool getReadCallback(STPReadCallback* fn, void** arg) const;
    // The first transport made that still lives, or null.
    static STPTransport* firstTransport();
    // How many transports live.
    static size_t transportCount();
    void setForwarder(STPForwarder* newForwarder) { forwarder = newForwarder; }
    void setFDIsFile() { fdIsFile = true; }

    // ---- In-process links ---------------------------------------------------------------------
    // Two new linked transports of the default size; false if an out-argument is null.
    static bool createPair(STPTransport** a, STPTransport** b);
    // Links two existing transports; false if either is null. Destroying one end closes the
    // other with "[handleRead]: peer has closed connection".
    static bool linkPair(STPTransport* a, STPTransport* b);
    // Links `transport` to the four write fields of another end, which may live in another
    // loaded module; `notify(notifyArg)` (optional) makes that end read now. The fields must
    // outlive the link. False if `transport` is null.
    static bool attachInProcess(STPTransport* transport, int32_t* peerOffset, int32_t* peerLength,
                                int32_t* peerCapacity, char** peerBuffer, STPReadCallback notify,
                                void* notifyArg);
    // The addresses of this transport's own four write fields, for the other end of a link.
    void getWriteFields(int32_t** offset, int32_t** length, int32_t** capacity, char*** buffer);

    // ---- Messages -----------------------------------------------------------------------------
    // A new message, owned by the caller, stamped for a new call one level below the current
    // stamp.
    STPMessage* newMessage(uint32_t localRN, uint32_t remoteRN, int32_t kind, int32_t tag,
                           uint32_t flags);
    // A new reply (kind and tag -1) at the depth of the current stamp, owned by the caller.
    STPMessage* newReply(uint32_t localRN, uint32_t remoteRN, uint32_t inReplyTo, uint32_t flags);
    // Gives the message a serial, closes it and copies its bytes to the write buffer; the
    // message stays the caller's. Returns the serial, or 0 ("[enqueueMessage]: invalid message
    // header" for kind 0). Writes nothing to the socket.
    uint32_t enqueueMessage(STPMessage* message, STPStatus* status = nullptr);
    // Queues and pushes the message out (re-enters: reads go on, no handler runs). Returns the
    // serial or 0. A request leaves depth and stamp raised for awaitResponse to take down; a
    // one-way message or a failure leaves them as they were.
    uint32_t sendMessage(STPMessage* message, RetryHandler* retry = nullptr,
                         STPStatus* status = nullptr);
    // Queues and tries at most `attempts` writes, leaving the rest for later turns; no wait, no
    // depth or stamp change. Returns the serial or 0. Replies go out this way.
    uint32_t sendWithAttempts(STPMessage* message, int attempts, STPStatus* status = nullptr);
    // Waits for the reply to `serial` (re-enters) and returns it, owned by the caller, or null
    // with a timeout or closed-connection status. Takes down the depth and stamp of the request.
    STPMessage* awaitResponse(uint32_t serial, RetryHandler* retry = nullptr,
                              STPStatus* status = nullptr);

    // Listeners are not owned; a null listener is ignored. Several may share a key and are
    // called in insertion order.
    void addListener(uint32_t localRN, uint32_t remoteRN, ResponseListener* listener, int32_t kind);
    void removeListener(ResponseListener* listener);
    // Dispatches the first unclaimed message with these header values; false if none.
    bool redeliverUnclaimed(uint32_t localRN, uint32_t remoteRN, int32_t kind);
    // Whether `message` may be handled now, given the waits in progress.
    bool canDispatch(const STPMessage* message) const;
    // Takes ownership of `message` and hands it to its listener, a waiter or a queue
    // (re-enters).
    void dispatchMessage(STPMessage* message);

    // ---- Stamps and process-wide counters ----------------------------------------------------
    // `origin` is originId << 16 | originSeq; only the low 16 bits of `depth` count.
    void pushStamp(uint32_t origin, uint32_t depth, uint32_t flags);
    void popStamp();
    // The top of the stamp stack, or the base stamp when it is empty.
    STPStamp currentStamp() const;
    // messageDepth up or down by one; "negative message depth!" is fatal.
    void raiseDepth();
    void lowerDepth();
    void setOriginId(uint16_t id) { baseStamp.originId = id; }
    size_t stampDepth() const { return stampStack.size(); }

    // Calls being sent-and-awaited or handled right now, process-wide.
    static int32_t messageDepth();
    // Above 0 while a send is being pushed out.
    static int32_t writeBarrier();
    // How many awaitResponse calls on the stack wait under MSG_STRICT_WAIT.
    static int32_t strictWaits();

    // ---- Channels -----------------------------------------------------------------------------
    // Sends a create and waits for the peer's (re-enters). The channel is the caller's to
    // delete, before the transport goes; null on failure.
    STPChannel* createChannel(uint32_t localRN, uint32_t remoteRN, RetryHandler* retry = nullptr,
                              STPStatus* status = nullptr);
    STPChannel* findChannel(uint32_t localRN, uint32_t remoteRN) const;

private:
    friend class STPChannel;
    friend class MessageDepthGuard;
    using ListenerKey = std::tuple<int32_t, int32_t, int32_t>;

    ~STPTransport();

    // The registry and the list of all transports: entered at construction; the registry is
    // left early in destruction, the list last.
    void enterRegistry();
    void leaveRegistry();
    void leaveTransportList();
    void finish(STPStatus* out) const;
    void fail(int32_t code, const char* text);
    void allocateBuffers();
    void freeBuffers();
    // Appends `size` bytes at `data`, padded with zeros to a multiple of 4, to the write buffer.
    void queueBytes(const char* data, int32_t size);
    // One send of at most 1 MiB from `data`: the bytes taken, 0 when the socket would block,
    // -1 after a failure (the connection is then closed and the status says why).
    long sendChunk(const char* data, int32_t size);
    // Gives the message its serial and closes it (the first half of enqueueMessage); 0 for a
    // message that cannot be sent.
    uint32_t prepareMessage(STPMessage* message);
    // sendMessage's first write: straight from the message when nothing else waits to go out,
    // queuing only what the socket did not take. False if the write failed.
    bool writeMessage(STPMessage* message);
    // The next serial: never 0.
    uint32_t nextSerial();
    // Queues a body-less packet (a sync or channel operation) with the next serial.
    void queueControlPacket(uint32_t localRN, uint32_t remoteRN, int32_t kind, int32_t tag);
    bool pullInProcess();
    // Takes a connected socket as the transport's.
    void adoptSocket(plat_socket socket);
    // One read from the socket into the read buffer: without waiting (`waitMs` 0) or waiting up
    // to `waitMs` for the first bytes. Nothing to read is not a failure; a failure or the peer's
    // close closes the connection and returns false.
    bool receive(int32_t waitMs);
    // Moves the live read bytes to the start of a new buffer of `newCapacity` bytes.
    void moveReadBytes(int32_t newCapacity);
    void offerHeldBack();
    void appendHeldBack(STPMessage* message);
    void receiveChannelPacket(const STPMessage* message);
    bool takeSync(uint32_t localRN, uint32_t remoteRN);
    STPMessage* takeResponse(uint32_t serial);
    void dropResponses();
    void unlinkPeer();
    static void readCallback(void* arg);
    static void raiseCounter();
    static void lowerCounter();

    bool deleted = false;
    int32_t refCount = 1;
    STPStatus status;
    uint32_t lastSerial = 1;

    bool listening = false;
    plat_socket listenFD = PLAT_INVALID_SOCKET;
    bool acceptPending = false;

    bool bound = false;
    plat_socket fd = PLAT_INVALID_SOCKET;
    bool fdIsFile = false;
    // The receive time-out set on `fd`, 0 while none is.
    int32_t receiveTimeoutMs = 0;

    char* peerAddress = nullptr;
    char* localAddress = nullptr;

    bool lastMessageValid = false;
    int32_t lastKind = 0;
    int32_t lastTag = 0;

    int32_t writeOffset = 0;
    int32_t writeLength = 0;
    int32_t writeInitialCapacity = 0;
    int32_t writeCapacity = 0;
    char* writeBuffer = nullptr;

    int32_t readOffset = 0;
    int32_t readLength = 0;
    int32_t readInitialCapacity = 0;
    int32_t readCapacity = 0;
    char* readBuffer = nullptr;
    bool readShort = false;
    // Padding bytes of a delivered packet that had not arrived yet; dropped as they come.
    int32_t readSkip = 0;

    std::list<STPMessage*> responseQueue;
    std::list<STPMessage*> unclaimedQueue;
    std::list<STPMessage*> heldBackQueue;
    // Number of the latest walk over the held-back queue; a walk does not re-offer what was
    // held back again while it ran.
    uint32_t heldBackWalk = 0;

    STPStamp baseStamp;
    // A vector keeps its capacity, so pushing a stamp normally allocates nothing.
    std::vector<STPStamp> stampStack;
    std::multiset<uint32_t> waiters;
    std::multimap<ListenerKey, ResponseListener*> listenerTable;
    std::list<std::pair<uint32_t, uint32_t>> syncReceived;
    STPForwarder* forwarder = nullptr;

    bool inProcess = false;
    int32_t* peerWriteOffset = nullptr;
    int32_t* peerWriteLength = nullptr;
    int32_t* peerWriteCapacity = nullptr;
    char** peerWriteBuffer = nullptr;
    STPReadCallback peerNotify = nullptr;
    void* peerNotifyArg = nullptr;
    // The other end when linked by linkPair, so that each can let go of the other.
    STPTransport* linkedPeer = nullptr;

    std::map<std::pair<uint32_t, uint32_t>, STPChannel*> channels;

    uint32_t transportId = 0;
};

// Holds a reference on a transport for as long as it lives: around calls that may run handlers,
// one of which may drop what would otherwise be the last reference.
class STPTransportRef {
public:
    explicit STPTransportRef(STPTransport* transport) : held(transport) { held->ref(); }
    ~STPTransportRef() { held->unref(); }
    STPTransportRef(const STPTransportRef&) = delete;
    STPTransportRef& operator=(const STPTransportRef&) = delete;

private:
    STPTransport* held;
};

// Marks a blocking section for canDispatch: messageDepth is one higher while it lives. Without
// a transport it counts only if some transport exists.
class MessageDepthGuard {
public:
    explicit MessageDepthGuard(STPTransport* transport = nullptr);
    ~MessageDepthGuard();
    MessageDepthGuard(const MessageDepthGuard&) = delete;
    MessageDepthGuard& operator=(const MessageDepthGuard&) = delete;

private:
    bool raised = false;
};
