// STPStatus: the result record of every STP operation, a constant text and a code.
#pragma once

#include <cstdint>

// Codes of STPStatus.
enum : int32_t {
    STP_OK = 0,
    STP_ERR_NETWORK = 1,        // the connection failed or could not be made
    STP_ERR_USAGE = 3,          // the operation does not fit the transport's state
    STP_ERR_CHILD = 4,          // a child process failed
    STP_ERR_PEER_CLOSED = 5,    // the peer closed the connection
    STP_ERR_CHANNEL_CLOSED = 6, // the channel was closed
    STP_ERR_TIMEOUT = 7,        // a wait ran out
    STP_ERR_UNSUPPORTED = 8,    // the peer does not know the message
};

// Copied by value. `message` always points at a string literal (never owned), empty when all is
// well, and names the failing operation in brackets: "[handleRead]: peer has closed connection".
struct STPStatus {
    const char* message = "";
    int32_t code = STP_OK;

    void clear() {
        message = "";
        code = STP_OK;
    }
    void set(int32_t newCode, const char* text) {
        code = newCode;
        message = text;
    }
    bool ok() const { return code == STP_OK; }
};
