// The process-wide registry and list of transports, and the in-process links between two
// transports that share no socket.
#include "stp_transport.h"

#include <algorithm>
#include <map>
#include <vector>

namespace {
// Registry of live transports by id; deleted whenever it becomes empty.
std::map<uint32_t, STPTransport*>* g_registry = nullptr;
// One-entry cache of the last id looked up.
uint32_t g_cachedId = 0;
STPTransport* g_cachedTransport = nullptr;
uint32_t g_lastTransportId = 0;
// Every live transport in construction order.
std::vector<STPTransport*>* g_allTransports = nullptr;
} // namespace

void STPTransport::enterRegistry() {
    transportId = ++g_lastTransportId;
    if (g_registry == nullptr)
        g_registry = new std::map<uint32_t, STPTransport*>;
    (*g_registry)[transportId] = this;
    if (g_allTransports == nullptr)
        g_allTransports = new std::vector<STPTransport*>;
    g_allTransports->push_back(this);
}

void STPTransport::leaveRegistry() {
    if (g_registry) {
        g_registry->erase(transportId);
        if (g_registry->empty()) {
            delete g_registry;
            g_registry = nullptr;
        }
    }
    if (g_cachedTransport == this) {
        g_cachedId = 0;
        g_cachedTransport = nullptr;
    }
}

void STPTransport::leaveTransportList() {
    if (g_allTransports == nullptr)
        return;
    auto it = std::find(g_allTransports->begin(), g_allTransports->end(), this);
    if (it != g_allTransports->end())
        g_allTransports->erase(it);
    if (g_allTransports->empty()) {
        delete g_allTransports;
        g_allTransports = nullptr;
    }
}

// ---- Registry

STPTransport* STPTransport::findById(uint32_t id) {
    if (id != 0 && id == g_cachedId)
        return g_cachedTransport;
    if (g_registry == nullptr)
        return nullptr;
    auto it = g_registry->find(id);
    if (it == g_registry->end())
        return nullptr;
    g_cachedId = id;
    g_cachedTransport = it->second;
    return it->second;
}

void STPTransport::readCallback(void* arg) {
    STPTransport* t = findById(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg)));
    if (t)
        t->handleRead();
}

bool STPTransport::getReadCallback(STPReadCallback* fn, void** arg) const {
    if (g_registry == nullptr || g_registry->count(transportId) == 0)
        return false;
    if (fn)
        *fn = &STPTransport::readCallback;
    if (arg)
        *arg = reinterpret_cast<void*>(static_cast<uintptr_t>(transportId));
    return true;
}

STPTransport* STPTransport::firstTransport() {
    return g_allTransports && !g_allTransports->empty() ? g_allTransports->front() : nullptr;
}

size_t STPTransport::transportCount() {
    return g_allTransports ? g_allTransports->size() : 0;
}

// ---- In-process links

bool STPTransport::createPair(STPTransport** a, STPTransport** b) {
    if (a == nullptr || b == nullptr)
        return false;
    *a = new STPTransport(STP_DEFAULT_BUFFER_SIZE);
    *b = new STPTransport(STP_DEFAULT_BUFFER_SIZE);
    return linkPair(*a, *b);
}

bool STPTransport::linkPair(STPTransport* a, STPTransport* b) {
    if (a == nullptr || b == nullptr)
        return false;
    STPReadCallback fn = nullptr;
    void* arg = nullptr;
    a->getReadCallback(&fn, &arg);
    attachInProcess(b, &a->writeOffset, &a->writeLength, &a->writeCapacity, &a->writeBuffer, fn,
                    arg);
    b->getReadCallback(&fn, &arg);
    attachInProcess(a, &b->writeOffset, &b->writeLength, &b->writeCapacity, &b->writeBuffer, fn,
                    arg);
    a->linkedPeer = b;
    b->linkedPeer = a;
    return true;
}

bool STPTransport::attachInProcess(STPTransport* transport, int32_t* peerOffset,
                                   int32_t* peerLength, int32_t* peerCapacity, char** peerBuffer,
                                   STPReadCallback notify, void* notifyArg) {
    if (transport == nullptr)
        return false;
    transport->peerWriteOffset = peerOffset;
    transport->peerWriteLength = peerLength;
    transport->peerWriteCapacity = peerCapacity;
    transport->peerWriteBuffer = peerBuffer;
    transport->peerNotify = notify;
    transport->peerNotifyArg = notifyArg;
    transport->inProcess = true;
    transport->bound = true;
    return true;
}

void STPTransport::getWriteFields(int32_t** offset, int32_t** length, int32_t** capacity,
                                  char*** buffer) {
    if (offset)
        *offset = &writeOffset;
    if (length)
        *length = &writeLength;
    if (capacity)
        *capacity = &writeCapacity;
    if (buffer)
        *buffer = &writeBuffer;
}

void STPTransport::unlinkPeer() {
    STPTransport* peer = linkedPeer;
    if (peer == nullptr)
        return;
    linkedPeer = nullptr;
    peer->linkedPeer = nullptr;
    peer->peerWriteOffset = peer->peerWriteLength = peer->peerWriteCapacity = nullptr;
    peer->peerWriteBuffer = nullptr;
    peer->peerNotify = nullptr;
    peer->peerNotifyArg = nullptr;
    if (peer->bound) {
        peer->closeConnection();
        peer->fail(STP_ERR_PEER_CLOSED, "[handleRead]: peer has closed connection");
    }
}
