// STPMessage: one packet as an object, the header words in front of a body stream that the
// field writers and readers of STPStream work on.
#pragma once

#include "stp_packet.h"
#include "stp_stream.h"

#include <cstdint>

// Made by STPTransport::newMessage / newReply for sending (owned by the caller, who deletes it
// once it is queued), or by the transport from received bytes. One thread uses a message.
class STPMessage : public STPStream {
public:
    // An outgoing message: a stream of 108 bytes whose write cursor stands at 44, behind the
    // room for the header. The header words are set by the caller (or newMessage) and written
    // into the stream by `close`.
    STPMessage();
    // An incoming message: a private copy of `headerSize + dataSize` bytes at `packet`, which
    // hold a header already checked by the reader (32 to 128 bytes, a multiple of 4). The
    // header words it does not carry read as 0. The read cursor stands at `headerSize`.
    STPMessage(const char* packet, int32_t headerSize, int32_t dataSize);

    // An incoming message that takes over `buffer` (from gen_alloc or gen_realloc, of
    // `bufferCapacity` bytes), which holds the packet at its start; no copy is made.
    enum AdoptBuffer { adoptBuffer };
    STPMessage(char* buffer, int32_t bufferCapacity, int32_t headerSize, int32_t dataSize,
               AdoptBuffer);

    // Ends the body with one zero word at the next 4-byte boundary (once, however often it is
    // called), sets `dataSize` and writes the eleven header words at the start of the stream.
    void close();
    // The packet image after `close`: header, body and end word.
    const char* packetData() const { return data(); }
    int32_t packetSize() const { return size(); }

    int32_t headerSize = STP_HEADER_SIZE;
    int32_t dataSize = 0;
    uint32_t localRN = 0;
    uint32_t remoteRN = 0;
    uint32_t serial = 0;
    uint32_t inReplyTo = 0;
    int32_t kind = 0;
    int32_t tag = 0;
    uint32_t flags = 0;
    uint32_t origin = 0; // originId << 16 | originSeq
    uint32_t depth = 0;  // only the low 16 bits count

    // Set while the message waits in the held-back queue after canDispatch said no.
    bool heldBack = false;
    // The held-back walk that filed it (the transport's bookkeeping).
    uint32_t heldBackWalk = 0;

private:
    void readHeader(const char* packet, int32_t headerSize, int32_t dataSize);
    int32_t closedSize = 0;
};
