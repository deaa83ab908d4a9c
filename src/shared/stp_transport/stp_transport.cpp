// The connection half of STPTransport: sockets, buffers, framing, servicing and sync packets.
// The registry and the in-process links are in stp_transport_links.cpp, the messages in
// stp_dispatch.cpp.
#include "stp_transport.h"

#include "indgen.h"
#include "plat_memory.h"
#include "plat_sockerror.h"
#include "stp_channel.h"
#include "stp_message.h"
#include "stp_wait.h"
#include "ut_retryhandler.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {
// Room kept free behind the live bytes before a read; below it the buffer grows.
constexpr int32_t kReadHeadroom = 1024;
// A drained read buffer this many times its initial size goes back to it.
constexpr int32_t kReadShrinkFactor = 10;
// hasDispatchableWork's cheap test of "a header may be in hand".
constexpr int32_t kDispatchableBytes = 40;
// The most a packet's announced size grows the read buffer by before its bytes are in hand.
constexpr int64_t kMaxPresize = 16 << 20;

char* allocBuffer(int32_t size) {
    return static_cast<char*>(gen_realloc(nullptr, size));
}

// Capacity arithmetic in 64 bits, clamped to what the 32-bit fields hold. A clamped size is
// still larger than any packet can need: a packet's size itself fits a signed 32-bit sum.
int32_t clampCapacity(int64_t wanted) {
    return static_cast<int32_t>(std::min<int64_t>(wanted, INT32_MAX));
}

const char* handleWriteText(int wsaError) {
    switch (wsaError) {
    case PLAT_WSANOTINITIALISED:
        return "[handleWrite]: WSA not initialized";
    case PLAT_WSAENETDOWN:
        return "[handleWrite]: Network subsystem has failed";
    case PLAT_WSAEACCES:
        return "[handleWrite]: Cannot broadcast";
    case PLAT_WSAEINTR:
        return "[handleWrite]: Call cancelled";
    case PLAT_WSAEINPROGRESS:
        return "[handleWrite]: Call in progress";
    case PLAT_WSAEFAULT:
        return "[handleWrite]: Page fault";
    case PLAT_WSAENETRESET:
        return "[handleWrite]: Keep-alive failed";
    case PLAT_WSAENOBUFS:
        return "[handleWrite]: No buffer space is available";
    case PLAT_WSAENOTCONN:
        return "[handleWrite]: Not connected";
    case PLAT_WSAENOTSOCK:
        return "[handleWrite]: Not a valid socket";
    case PLAT_WSAEOPNOTSUPP:
        return "[handleWrite]: Operation not supported";
    case PLAT_WSAESHUTDOWN:
        return "[handleWrite]: The socket has been shut down";
    case PLAT_WSAEMSGSIZE:
        return "[handleWrite]: Too big for message-type socket";
    case PLAT_WSAEHOSTUNREACH:
        return "[handleWrite]: Host unreachable";
    case PLAT_WSAEINVAL:
        return "[handleWrite]: Socket is not bound";
    case PLAT_WSAECONNABORTED:
        return "[handleWrite]: Virtual circuit terminated";
    case PLAT_WSAECONNRESET:
        return "[handleWrite]: Virtual circuit reset";
    case PLAT_WSAETIMEDOUT:
        return "[handleWrite]: Low-level timeout failure";
    default:
        return "[handleWrite]: write failed";
    }
}

void copyOut(STPStatus* out, const STPStatus& value) {
    if (out)
        *out = value;
}

} // namespace

ResponseListener::~ResponseListener() = default;
STPForwarder::~STPForwarder() = default;

// ---- Life

STPTransport::STPTransport(int32_t initialCapacity)
    : writeInitialCapacity(initialCapacity), readInitialCapacity(initialCapacity) {
    // Messages of a megabyte come and go with every bulk transfer: keep such blocks in the heap.
    plat_keep_large_blocks_in_heap();
    allocateBuffers();
    enterRegistry();
    plat_sockets_startup(1, 0);
}

STPTransport::~STPTransport() {
    closeConnection();
    if (listening && listenFD != PLAT_INVALID_SOCKET)
        closeSocket(listenFD);
    unlinkPeer();
    leaveRegistry();
    freeBuffers();
    dropResponses();
    for (STPMessage* m : unclaimedQueue)
        delete m;
    for (STPMessage* m : heldBackQueue)
        delete m;
    unclaimedQueue.clear();
    heldBackQueue.clear();
    // Channels still in the table go with the transport, without a close packet: there is no
    // connection left to carry it.
    auto remaining = std::move(channels);
    channels.clear();
    for (auto& entry : remaining) {
        entry.second->closeSent = true;
        entry.second->transport = nullptr;
        delete entry.second;
    }
    plat_sockets_cleanup();
    leaveTransportList();
}

void STPTransport::ref() {
    if (!deleted)
        ++refCount;
}

void STPTransport::unref() {
    if (deleted)
        return;
    if (--refCount < 1) {
        deleted = true;
        delete this;
    }
}

void STPTransport::finish(STPStatus* out) const {
    if (out && out != &status)
        *out = status;
}

void STPTransport::fail(int32_t code, const char* text) {
    status.set(code, text);
}

void STPTransport::allocateBuffers() {
    writeCapacity = writeInitialCapacity;
    writeBuffer = allocBuffer(writeCapacity);
    writeOffset = writeLength = 0;
    readCapacity = readInitialCapacity;
    readBuffer = allocBuffer(readCapacity);
    readOffset = readLength = 0;
    readShort = false;
    readSkip = 0;
}

void STPTransport::freeBuffers() {
    gen_free(writeBuffer);
    gen_free(readBuffer);
    writeBuffer = readBuffer = nullptr;
    writeOffset = writeLength = writeCapacity = 0;
    readOffset = readLength = readCapacity = 0;
}

// ---- Static socket helpers

plat_socket STPTransport::connectToServer(const char* host, uint16_t port, STPStatus* out) {
    uint32_t address = plat_inet_addr(host);
    if (address == PLAT_INADDR_NONE && !plat_resolve_host(host, &address)) {
        copyOut(out, STPStatus{"[connectToServer]: Unable to resolve host", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    plat_socket s = plat_tcp_socket();
    if (s == PLAT_INVALID_SOCKET) {
        copyOut(out, STPStatus{"[ConnectToServer]: connection failed", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    if (!plat_connect(s, address, port)) {
        const char* text = "[ConnectToServer]: connection failed";
        switch (plat_last_wsa_error()) {
        case PLAT_WSANOTINITIALISED:
            text = "[ConnectToServer]: WSA not initialized";
            break;
        case PLAT_WSAEADDRINUSE:
            text = "[ConnectToServer]: address in use";
            break;
        case PLAT_WSAECONNREFUSED:
            text = "[ConnectToServer]: connection refused";
            break;
        default:
            break;
        }
        plat_close_socket(s);
        copyOut(out, STPStatus{text, STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    plat_set_nonblocking(s, true);
    plat_set_reuseaddr(s, true);
    plat_set_nodelay(s, true);
    copyOut(out, STPStatus{});
    return s;
}

plat_socket STPTransport::getListenSocket(uint16_t port, STPStatus* out) {
    plat_socket s = plat_tcp_socket();
    if (s == PLAT_INVALID_SOCKET) {
        copyOut(out, STPStatus{"[GetListenSocket]: Could not create socket", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    plat_set_reuseaddr(s, true);
    plat_set_nodelay(s, true);
    if (!plat_bind(s, PLAT_INADDR_ANY, port)) {
        plat_close_socket(s);
        copyOut(out, STPStatus{"[getListenSocket]: Could not bind to port", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    if (!plat_listen(s, 5)) {
        plat_close_socket(s);
        copyOut(out, STPStatus{"[getListenSocket]: Could not listen on socket", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    copyOut(out, STPStatus{});
    return s;
}

plat_socket STPTransport::getEphemeralListenSocket(uint16_t* port, STPStatus* out) {
    plat_socket s = getListenSocket(0, out);
    if (s != PLAT_INVALID_SOCKET && port)
        plat_local_address(s, nullptr, port);
    return s;
}

plat_socket STPTransport::acceptClient(plat_socket listenFD, bool closeListenSocket,
                                       STPStatus* out) {
    plat_socket s = plat_accept(listenFD);
    // The listening socket is closed when asked, also after a failed accept: the transport
    // leaves the listening state either way and nobody else holds it.
    if (closeListenSocket)
        plat_close_socket(listenFD);
    if (s == PLAT_INVALID_SOCKET) {
        copyOut(out, STPStatus{"[acceptClient]: Could not accept", STP_ERR_NETWORK});
        return PLAT_INVALID_SOCKET;
    }
    plat_set_nonblocking(s, true);
    plat_set_reuseaddr(s, true);
    plat_set_nodelay(s, true);
    copyOut(out, STPStatus{});
    return s;
}

void STPTransport::closeSocket(plat_socket socket) {
    if (!plat_shutdown(socket, PlatShutdown::both)) {
        int error = plat_last_wsa_error();
        if (error != PLAT_WSAENOTCONN)
            std::fprintf(stderr, "shutdown of socket %d failed with error: %d\n", socket, error);
    }
    if (!plat_close_socket(socket))
        std::fprintf(stderr, "close of socket %d failed with error: %d\n", socket,
                     plat_last_wsa_error());
}

// ---- Connection set-up

bool STPTransport::connect(const char* host, uint16_t port, STPStatus* out) {
    status.clear();
    if (bound)
        fail(STP_ERR_USAGE, "[connect]: Already connected");
    else if (listening)
        fail(STP_ERR_USAGE, "[connect]: Already listening as server");
    else {
        plat_socket s = connectToServer(host, port, &status);
        if (s != PLAT_INVALID_SOCKET)
            adoptSocket(s);
    }
    finish(out);
    return status.ok();
}

bool STPTransport::listen(uint16_t port, RetryHandler* retry, STPStatus* out) {
    status.clear();
    if (bound)
        fail(STP_ERR_USAGE, "[listen]: Already connected");
    else if (listening)
        fail(STP_ERR_USAGE, "[listen]: Already listening as server");
    else {
        plat_socket s = getListenSocket(port, &status);
        if (s != PLAT_INVALID_SOCKET)
            return listenOnFD(s, true, retry, out);
    }
    finish(out);
    return false;
}

bool STPTransport::startListenOnFD(plat_socket socket, STPStatus* out) {
    status.clear();
    if (bound)
        fail(STP_ERR_USAGE, "[startListenOnFD]: Already connected");
    else if (listening)
        fail(STP_ERR_USAGE, "[startListenOnFD]: Already listening as server");
    else {
        listenFD = socket;
        listening = true;
        acceptPending = false;
    }
    finish(out);
    return status.ok();
}

bool STPTransport::listenOnFD(plat_socket socket, bool closeListenSocket, RetryHandler* retry,
                              STPStatus* out) {
    STPTransportRef hold(this);
    if (!startListenOnFD(socket, out))
        return false;
    bool accepted = false;
    stp_wait_until(this, retry, [&] {
        accepted = tryAccept(closeListenSocket);
        return accepted || !status.ok();
    });
    if (!accepted && status.ok())
        fail(STP_ERR_TIMEOUT, "[listenOnFD]: timed out waiting for client");
    finish(out);
    return accepted;
}

bool STPTransport::tryAccept(bool closeListenSocket, STPStatus* out) {
    status.clear();
    bool accepted = false;
    if (bound)
        fail(STP_ERR_USAGE, "[tryAccept]: Already connected");
    else if (!listening)
        fail(STP_ERR_USAGE, "[tryAccept]: Not listening as server");
    else if (acceptPending) {
        plat_socket s = acceptClient(listenFD, closeListenSocket, &status);
        acceptPending = false;
        listening = false;
        if (closeListenSocket)
            listenFD = PLAT_INVALID_SOCKET;
        if (s != PLAT_INVALID_SOCKET)
            accepted = bindFD(s);
    }
    finish(out);
    return accepted;
}

bool STPTransport::bindFD(plat_socket socket, STPStatus* out) {
    status.clear();
    if (bound)
        fail(STP_ERR_USAGE, "[bindFD]: Already bound");
    else if (listening)
        fail(STP_ERR_USAGE, "[bindFD]: Already listening");
    else
        adoptSocket(socket);
    finish(out);
    return status.ok();
}

void STPTransport::adoptSocket(plat_socket socket) {
    // The socket itself blocks, but every send and read of the transport is made not to wait;
    // only the wait of serviceOnce reads with a time-out (see receiveWaiting).
    if (!fdIsFile)
        plat_set_nonblocking(socket, false);
    fd = socket;
    bound = true;
    receiveTimeoutMs = 0;
}

void STPTransport::closeConnection(STPStatus* out) {
    status.clear();
    finish(out);
    if (!bound)
        return;
    if (!inProcess && fd != PLAT_INVALID_SOCKET) {
        // A plain file has no connection to shut down; closing the descriptor is all it needs.
        if (fdIsFile)
            plat_close_socket(fd);
        else
            closeSocket(fd);
    }
    reset();
    gen_free(peerAddress);
    gen_free(localAddress);
    peerAddress = localAddress = nullptr;
}

void STPTransport::reset() {
    freeBuffers();
    dropResponses();
    waiters.clear();
    lastSerial = 1;
    fd = PLAT_INVALID_SOCKET;
    bound = false;
    allocateBuffers();
}

void STPTransport::dropResponses() {
    for (STPMessage* m : responseQueue)
        delete m;
    responseQueue.clear();
}

bool STPTransport::listenAndService(uint16_t port, STPStatus* out) {
    STPTransportRef hold(this);
    if (listen(port))
        while (status.ok() && bound)
            serviceOnce(STP_SERVICE_WAIT_MS);
    finish(out);
    return status.ok();
}

bool STPTransport::bindAndService(plat_socket socket, STPStatus* out) {
    STPTransportRef hold(this);
    if (bindFD(socket))
        while (status.ok() && bound)
            serviceOnce(STP_SERVICE_WAIT_MS);
    finish(out);
    return status.ok();
}

// ---- Queries

plat_socket STPTransport::getFD() const {
    if (bound)
        return fd;
    if (listening)
        return listenFD;
    return PLAT_INVALID_SOCKET;
}

bool STPTransport::wantsRead() const {
    if (inProcess)
        return peerWriteLength != nullptr && *peerWriteLength != 0;
    return !isDisconnected();
}

const char* STPTransport::getPeerAddress() {
    if (peerAddress == nullptr && bound && !inProcess) {
        uint32_t address = 0;
        if (plat_peer_address(fd, &address, nullptr)) {
            peerAddress = static_cast<char*>(gen_alloc(16, 1));
            plat_inet_ntoa(address, peerAddress);
        }
    }
    return peerAddress;
}

const char* STPTransport::getLocalAddress() {
    if (localAddress == nullptr && bound && !inProcess) {
        uint32_t address = 0;
        if (plat_local_address(fd, &address, nullptr)) {
            localAddress = static_cast<char*>(gen_alloc(16, 1));
            plat_inet_ntoa(address, localAddress);
        }
    }
    return localAddress;
}

bool STPTransport::getLastMessage(int32_t* kind, int32_t* tag) const {
    if (!lastMessageValid)
        return false;
    if (kind)
        *kind = lastKind;
    if (tag)
        *tag = lastTag;
    return true;
}

bool STPTransport::hasDispatchableWork() {
    if (isDisconnected() || writeBarrier() >= 1)
        return false;
    if (readLength >= kDispatchableBytes && !readShort)
        return true;
    for (STPMessage* m : heldBackQueue)
        if (canDispatch(m))
            return true;
    return false;
}

// ---- Writing

void STPTransport::queueBytes(const char* data, int32_t size) {
    int32_t padded = static_cast<int32_t>(stp_padded(size));
    if (int64_t{writeCapacity} < int64_t{writeOffset} + writeLength + padded) {
        int32_t newCapacity = clampCapacity(int64_t{writeLength} + std::max(writeLength, padded));
        char* fresh = allocBuffer(newCapacity);
        if (writeLength > 0)
            std::memcpy(fresh, writeBuffer + writeOffset, writeLength);
        gen_free(writeBuffer);
        writeBuffer = fresh;
        writeCapacity = newCapacity;
        writeOffset = 0;
    }
    char* at = writeBuffer + writeOffset + writeLength;
    std::memcpy(at, data, size);
    std::memset(at + size, 0, padded - size);
    writeLength += padded;
}

long STPTransport::sendChunk(const char* data, int32_t size) {
    size_t chunk = static_cast<size_t>(std::min(size, STP_MAX_SEND_SIZE));
    long sent = plat_send_nowait(fd, data, chunk);
    if (sent < 0) {
        int error = plat_last_wsa_error();
        if (error == PLAT_WSAEWOULDBLOCK)
            return 0;
        closeConnection();
        fail(STP_ERR_NETWORK, handleWriteText(error));
        return -1;
    }
    if (sent == 0) {
        closeConnection();
        fail(STP_ERR_PEER_CLOSED, "[handleWrite]: peer has closed connection");
        return -1;
    }
    status.clear();
    return sent;
}

void STPTransport::handleWrite() {
    if (!bound || writeLength <= 0 || inProcess)
        return;
    long sent = sendChunk(writeBuffer + writeOffset, writeLength);
    if (sent <= 0)
        return;
    if (sent < writeLength) {
        writeOffset += static_cast<int32_t>(sent);
        writeLength -= static_cast<int32_t>(sent);
    } else {
        writeOffset = writeLength = 0;
        if (writeCapacity != writeInitialCapacity) {
            gen_free(writeBuffer);
            writeCapacity = writeInitialCapacity;
            writeBuffer = allocBuffer(writeCapacity);
        }
    }
}

// ---- Reading

void STPTransport::handleRead() {
    status.clear();
    if (listening) {
        acceptPending = true;
        return;
    }
    if (!bound)
        return;
    STPTransportRef hold(this);
    if (inProcess)
        pullInProcess();
    else if (!receive(0))
        return;
    pumpMessages();
}

bool STPTransport::receive(int32_t waitMs) {
    // In 64 bits: a buffer grown to the 32-bit limit must not overflow the test.
    if (int64_t{readCapacity} <= int64_t{readOffset} + readLength + kReadHeadroom) {
        int32_t newCapacity = clampCapacity(int64_t{readInitialCapacity} + 2 * int64_t{readLength});
        GEN_ASSERT(newCapacity >= readInitialCapacity);
        moveReadBytes(newCapacity);
    }
    char* at = readBuffer + readOffset + readLength;
    size_t room = static_cast<size_t>(readCapacity - readLength - readOffset);
    long got;
    if (waitMs > 0) {
        if (waitMs != receiveTimeoutMs && plat_set_receive_timeout(fd, waitMs))
            receiveTimeoutMs = waitMs;
        got = receiveTimeoutMs == waitMs ? plat_recv(fd, at, room) : plat_recv_nowait(fd, at, room);
    } else {
        got = plat_recv_nowait(fd, at, room);
    }
    if (got < 0) {
        if (plat_last_wsa_error() == PLAT_WSAEWOULDBLOCK)
            return true;
        closeConnection();
        fail(STP_ERR_NETWORK, "[handleRead]: read failed, closing connection");
        return false;
    }
    if (got == 0) {
        closeConnection();
        fail(STP_ERR_PEER_CLOSED, "[handleRead]: peer has closed connection");
        return false;
    }
    readShort = false;
    readLength += static_cast<int32_t>(got);
    return true;
}

void STPTransport::moveReadBytes(int32_t newCapacity) {
    char* fresh = allocBuffer(newCapacity);
    if (readLength > 0)
        std::memcpy(fresh, readBuffer + readOffset, readLength);
    gen_free(readBuffer);
    readBuffer = fresh;
    readCapacity = newCapacity;
    readOffset = 0;
}

bool STPTransport::pullInProcess() {
    if (peerWriteLength == nullptr || *peerWriteLength == 0)
        return false;
    int32_t incoming = *peerWriteLength;
    if (int64_t{readCapacity} < int64_t{readOffset} + readLength + incoming) {
        moveReadBytes(
            clampCapacity(int64_t{readInitialCapacity} + incoming + 2 * int64_t{readLength}));
    }
    std::memcpy(readBuffer + readOffset + readLength, *peerWriteBuffer + *peerWriteOffset,
                incoming);
    readLength += incoming;
    *peerWriteLength = 0;
    *peerWriteOffset = 0;
    readShort = false;
    return true;
}

void STPTransport::pumpMessages() {
    STPTransportRef hold(this);
    offerHeldBack();
    while (readLength > 0 && !readShort) {
        // Padding of a packet delivered before its padding arrived.
        if (readSkip > 0) {
            int32_t drop = std::min(readSkip, readLength);
            readSkip -= drop;
            readOffset += drop;
            readLength -= drop;
            continue;
        }
        if (readLength < 8) {
            readShort = true;
            break;
        }
        const char* at = readBuffer + readOffset;
        int32_t headerSize = static_cast<int32_t>(stp_get_u32(at));
        int32_t dataSize = static_cast<int32_t>(stp_get_u32(at + 4));
        int64_t size = int64_t{headerSize} + dataSize;
        // A sum beyond 32 bits could never be buffered: treated as invalid like a bad size.
        if (headerSize < STP_MIN_HEADER_SIZE || headerSize > STP_MAX_HEADER_SIZE ||
            headerSize % 4 != 0 || dataSize < 0 || size > INT32_MAX) {
            closeConnection();
            fail(STP_ERR_NETWORK, "[handleRead]: remote host sent invalid packet");
            return;
        }
        if (size > readLength) {
            // A packet announced larger than the buffer can take makes it grow once to hold
            // it, instead of in many geometric steps that each copy what is in hand: the bytes
            // then arrive in as few reads and copies as the socket allows. The announced size
            // is only a claim until the bytes are in, though: beyond kMaxPresize the buffer
            // grows once by that much and then as the bytes come, so that eight hostile bytes
            // cannot make it take gigabytes.
            if (!inProcess && size > int64_t{readCapacity} - readOffset - kReadHeadroom) {
                int64_t wanted = int64_t{readInitialCapacity} + std::min(size, kMaxPresize);
                if (size <= kMaxPresize || wanted > readCapacity)
                    moveReadBytes(clampCapacity(wanted));
            }
            readShort = true;
            break;
        }
        // A packet counts as complete without its padding; padding still on its way is
        // dropped when it comes.
        int32_t padded = static_cast<int32_t>(std::min<int64_t>(stp_padded(size), INT32_MAX));
        int32_t consumed = std::min(padded, readLength);
        if (forwarder) {
            STPTransport* target = nullptr;
            STPForwarder::Route route =
                forwarder->route(stp_get_u32(at + 4 * STP_WORD_LOCAL_RN),
                                 stp_get_u32(at + 4 * STP_WORD_REMOTE_RN), &target);
            if (route != STPForwarder::Route::handle) {
                if (route == STPForwarder::Route::forward && target)
                    target->queueBytes(at, static_cast<int32_t>(size));
                readOffset += consumed;
                readLength -= consumed;
                readSkip = padded - consumed;
                continue;
            }
        }
        STPMessage* message;
        if (readOffset == 0 && consumed == readLength &&
            readCapacity > kReadShrinkFactor * readInitialCapacity) {
            // The packet is all the buffer holds, and the buffer would be dropped once drained:
            // the message takes it over instead of a copy, and reading goes on in a fresh
            // buffer of the initial size, as it would after the drain.
            message = new STPMessage(readBuffer, readCapacity, headerSize, dataSize,
                                     STPMessage::adoptBuffer);
            readCapacity = readInitialCapacity;
            readBuffer = allocBuffer(readCapacity);
            readOffset = readLength = 0;
        } else {
            message = new STPMessage(at, headerSize, dataSize);
            readOffset += consumed;
            readLength -= consumed;
        }
        readSkip = padded - consumed;
        // The handler may read, close or reset this transport: state is re-read afterwards.
        dispatchMessage(message);
    }
    if (readLength == 0) {
        readOffset = 0;
        if (readCapacity > kReadShrinkFactor * readInitialCapacity) {
            gen_free(readBuffer);
            readCapacity = readInitialCapacity;
            readBuffer = allocBuffer(readCapacity);
        }
        readShort = false;
    }
}

// ---- Servicing

void STPTransport::serviceOnce(int32_t timeoutMs, STPStatus* out) {
    status.clear();
    if (!bound && !listening) {
        closeConnection();
        fail(STP_ERR_NETWORK, "[serviceOnce]: not bound and not listening.");
        finish(out);
        return;
    }
    STPTransportRef hold(this);
    if (inProcess) {
        handleRead();
        finish(out);
        return;
    }
    int32_t timeout = timeoutMs;
    if (writeBarrier() == 0 && hasDispatchableWork()) {
        pumpMessages();
        timeout = 0;
    }
    // A handler run by the pump may have closed the connection.
    plat_socket socket = getFD();
    if (socket == PLAT_INVALID_SOCKET) {
        finish(out);
        return;
    }
    // Only reading to wait for: one read that waits does the select and the read in one call.
    // What it reads is handled as handleRead handles it.
    if (bound && !fdIsFile && writeLength == 0 && timeout > 0) {
        if (receive(timeout))
            pumpMessages();
        finish(out);
        return;
    }
    plat_fd_set readSet;
    plat_fd_set writeSet;
    plat_fd_zero(&readSet);
    plat_fd_zero(&writeSet);
    plat_fd_add(&readSet, socket);
    if (bound && writeLength > 0)
        plat_fd_add(&writeSet, socket);
    int result = plat_select(socket + 1, &readSet, &writeSet, nullptr, timeout);
    if (result < 0) {
        // plat_select already counts an interrupted wait as nothing ready.
        closeConnection();
        fail(STP_ERR_NETWORK, "[serviceOnce]: select error, closing connection");
    } else if (result > 0) {
        if (plat_fd_isset(&writeSet, socket))
            handleWrite();
        if (plat_fd_isset(&readSet, socket) && getFD() == socket)
            handleRead();
    }
    finish(out);
}

void STPTransport::serviceFirst(int32_t timeoutMs, const std::vector<STPTransport*>& transports,
                                STPStatus* out) {
    for (STPTransport* t : transports) {
        if (!t->bound && !t->listening) {
            copyOut(out,
                    STPStatus{"[serviceFirst]: not bound and not listening.", STP_ERR_NETWORK});
            return;
        }
    }
    for (STPTransport* t : transports)
        t->ref();
    int32_t timeout = timeoutMs;
    for (STPTransport* t : transports) {
        if (t->hasDispatchableWork()) {
            t->pumpMessages();
            timeout = 0;
        }
    }
    plat_fd_set readSet;
    plat_fd_set writeSet;
    plat_fd_zero(&readSet);
    plat_fd_zero(&writeSet);
    int width = 0;
    std::vector<plat_socket> sockets(transports.size(), PLAT_INVALID_SOCKET);
    for (size_t i = 0; i < transports.size(); ++i) {
        STPTransport* t = transports[i];
        if (t->inProcess)
            continue;
        plat_socket s = t->getFD();
        if (s == PLAT_INVALID_SOCKET)
            continue;
        sockets[i] = s;
        // A full set leaves the socket out of this turn.
        if (plat_fd_add(&readSet, s))
            width = std::max(width, s + 1);
        if (t->bound && t->writeLength > 0 && plat_fd_add(&writeSet, s))
            width = std::max(width, s + 1);
    }
    STPStatus result;
    int ready = plat_select(width, &readSet, &writeSet, nullptr, timeout);
    if (ready < 0) {
        result.set(STP_ERR_NETWORK, "[serviceFirst]: select error");
    } else if (ready > 0) {
        for (size_t i = 0; i < transports.size(); ++i)
            if (sockets[i] != PLAT_INVALID_SOCKET && plat_fd_isset(&writeSet, sockets[i]) &&
                transports[i]->getFD() == sockets[i])
                transports[i]->handleWrite();
        for (size_t i = 0; i < transports.size(); ++i)
            if (sockets[i] != PLAT_INVALID_SOCKET && plat_fd_isset(&readSet, sockets[i]) &&
                transports[i]->getFD() == sockets[i])
                transports[i]->handleRead();
    }
    // In-process ends take no part in select; they just read.
    for (STPTransport* t : transports)
        if (t->inProcess && t->bound)
            t->handleRead();
    for (STPTransport* t : transports)
        t->unref();
    copyOut(out, result);
}

// ---- Sync

uint32_t STPTransport::nextSerial() {
    if (++lastSerial == 0)
        lastSerial = 1;
    return lastSerial;
}

void STPTransport::queueControlPacket(uint32_t localRN, uint32_t remoteRN, int32_t kind,
                                      int32_t tag) {
    char packet[STP_HEADER_SIZE + 4] = {};
    stp_put_u32(packet + 4 * STP_WORD_HEADER_SIZE, STP_HEADER_SIZE);
    stp_put_u32(packet + 4 * STP_WORD_DATA_SIZE, 4);
    stp_put_u32(packet + 4 * STP_WORD_LOCAL_RN, localRN);
    stp_put_u32(packet + 4 * STP_WORD_REMOTE_RN, remoteRN);
    stp_put_u32(packet + 4 * STP_WORD_SERIAL, nextSerial());
    stp_put_u32(packet + 4 * STP_WORD_KIND, static_cast<uint32_t>(kind));
    stp_put_u32(packet + 4 * STP_WORD_TAG, static_cast<uint32_t>(tag));
    queueBytes(packet, sizeof packet);
    if (inProcess && peerNotify)
        peerNotify(peerNotifyArg);
}

bool STPTransport::takeSync(uint32_t localRN, uint32_t remoteRN) {
    for (auto it = syncReceived.begin(); it != syncReceived.end(); ++it) {
        if (it->first == remoteRN && it->second == localRN) {
            syncReceived.erase(it);
            return true;
        }
    }
    return false;
}

bool STPTransport::awaitSync(uint32_t localRN, uint32_t remoteRN, RetryHandler* retry,
                             STPStatus* out) {
    STPTransportRef hold(this);
    status.clear();
    queueControlPacket(localRN, remoteRN, KIND_SYNC, 0);
    bool seen = false;
    STPWaitEnd end = stp_wait_until(this, retry, [&] {
        if (!seen)
            seen = takeSync(localRN, remoteRN);
        return !hasWriteBytes() && seen;
    });
    if (end == STPWaitEnd::gaveUp)
        fail(STP_ERR_TIMEOUT, "[awaitSync]: reached timeout while waiting to receive sync packet");
    finish(out);
    return status.ok() && seen;
}
