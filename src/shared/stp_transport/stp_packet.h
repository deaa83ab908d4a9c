// The STP packet on the wire: header layout, packet kinds, message flags and the little-endian
// word access every reader and writer of packets uses.
#pragma once

#include <cstdint>

// Header size this version writes, in bytes: eleven 32-bit words.
inline constexpr int32_t STP_HEADER_SIZE = 44;
inline constexpr int STP_HEADER_WORDS = 11;
// Legal header sizes on receipt: 32 to 128 inclusive, a multiple of 4.
inline constexpr int32_t STP_MIN_HEADER_SIZE = 32;
inline constexpr int32_t STP_MAX_HEADER_SIZE = 128;

// Header words, by index.
enum : int {
    STP_WORD_HEADER_SIZE = 0,
    STP_WORD_DATA_SIZE = 1,
    STP_WORD_LOCAL_RN = 2,
    STP_WORD_REMOTE_RN = 3,
    STP_WORD_SERIAL = 4,
    STP_WORD_IN_REPLY_TO = 5,
    STP_WORD_KIND = 6,
    STP_WORD_TAG = 7,
    STP_WORD_FLAGS = 8,
    STP_WORD_ORIGIN = 9,
    STP_WORD_DEPTH = 10,
};

// Packet kinds (header word 6). Any other kind is routed like 12 to 15.
enum : int32_t {
    KIND_REPLY = -1,
    KIND_NOOP = 4,
    KIND_SYNC = 5,
    KIND_CHANNEL = 6,
    KIND_NEGOTIATE = 12,
    KIND_COMMAND = 13,
    KIND_ASCII = 14,
    KIND_BINARY = 15,
};

// The `tag` of a KIND_CHANNEL packet.
enum : int32_t {
    CHANNEL_CREATE = 1,
    CHANNEL_START = 2,
    CHANNEL_CLOSE = 3,
};

// Message flags (header word 8).
enum : uint32_t {
    MSG_WANTS_REPLY = 0x01,    // the receiver builds and sends a reply
    MSG_ONE_WAY = 0x02,        // sendMessage releases depth and stamp once the message is out
    MSG_ORDERED = 0x04,        // during a wait, handled only inside the call tree waited on
    MSG_ALWAYS_DELIVER = 0x10, // handled whatever the waits in progress
    MSG_STRICT_WAIT = 0x40,    // while its reply is awaited, only its call tree is handled
};

// Reads the little-endian 32-bit word at `p` (no alignment needed).
inline uint32_t stp_get_u32(const void* p) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    return uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
}

// Writes `v` little-endian at `p` (no alignment needed).
inline void stp_put_u32(void* p, uint32_t v) {
    unsigned char* b = static_cast<unsigned char*>(p);
    b[0] = static_cast<unsigned char>(v);
    b[1] = static_cast<unsigned char>(v >> 8);
    b[2] = static_cast<unsigned char>(v >> 16);
    b[3] = static_cast<unsigned char>(v >> 24);
}

// `size` rounded up to a multiple of 4: the room a packet takes in the stream.
inline int64_t stp_padded(int64_t size) {
    return (size + 3) & ~int64_t{3};
}
