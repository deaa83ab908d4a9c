#include "stp_message.h"

#include <algorithm>

namespace {
// Header room plus a few words of body: most messages fit without growing.
constexpr int32_t kOutgoingCapacity = 108;
} // namespace

STPMessage::STPMessage() : STPStream(kOutgoingCapacity) {
    seek(STP_HEADER_SIZE);
}

// The stream is made at the packet's size and filled in one copy: no growth, and no zeroing
// beyond what fresh memory costs anyway.
STPMessage::STPMessage(const char* packet, int32_t headerSizeIn, int32_t dataSizeIn)
    : STPStream(headerSizeIn + dataSizeIn) {
    putRaw(packet, headerSizeIn + dataSizeIn);
    readHeader(packet, headerSizeIn, dataSizeIn);
}

STPMessage::STPMessage(char* buffer, int32_t bufferCapacity, int32_t headerSizeIn,
                       int32_t dataSizeIn, AdoptBuffer) {
    base = buffer;
    capacity = bufferCapacity;
    length = headerSizeIn + dataSizeIn;
    owned = true;
    readHeader(buffer, headerSizeIn, dataSizeIn);
}

void STPMessage::readHeader(const char* packet, int32_t headerSizeIn, int32_t dataSizeIn) {
    uint32_t words[STP_HEADER_WORDS] = {};
    int count = std::min(headerSizeIn / 4, STP_HEADER_WORDS);
    for (int i = 0; i < count; ++i)
        words[i] = stp_get_u32(packet + 4 * i);
    headerSize = headerSizeIn;
    dataSize = dataSizeIn;
    localRN = words[STP_WORD_LOCAL_RN];
    remoteRN = words[STP_WORD_REMOTE_RN];
    serial = words[STP_WORD_SERIAL];
    inReplyTo = words[STP_WORD_IN_REPLY_TO];
    kind = static_cast<int32_t>(words[STP_WORD_KIND]);
    tag = static_cast<int32_t>(words[STP_WORD_TAG]);
    flags = words[STP_WORD_FLAGS];
    origin = words[STP_WORD_ORIGIN];
    depth = words[STP_WORD_DEPTH];
    startReading(headerSizeIn, headerSizeIn + dataSizeIn);
}

void STPMessage::close() {
    if (closedSize == 0) {
        seek(std::max(size(), STP_HEADER_SIZE));
        putU32(0);
        closedSize = size();
    }
    headerSize = STP_HEADER_SIZE;
    dataSize = closedSize - STP_HEADER_SIZE;
    const uint32_t words[STP_HEADER_WORDS] = {static_cast<uint32_t>(headerSize),
                                              static_cast<uint32_t>(dataSize),
                                              localRN,
                                              remoteRN,
                                              serial,
                                              inReplyTo,
                                              static_cast<uint32_t>(kind),
                                              static_cast<uint32_t>(tag),
                                              flags,
                                              origin,
                                              depth};
    for (int i = 0; i < STP_HEADER_WORDS; ++i)
        setU32At(4 * i, words[i]);
}
