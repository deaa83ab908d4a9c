// A spec class that knows a protocol by name only: it negotiates with the other end of a
// virtual connection and shows what that end offers, without speaking any message of it.
#pragma once

#include "stp_specclass.h"

#include <string>

// Made with new, ended with unref. Its tables are empty, so every message the peer handles
// lands in the extra table after negotiation, and nothing it receives is understood.
class NegotiationProbe : public STPSpecClass {
public:
    // `protocol` and `role` are copied, e.g. "VersionControl" and "client".
    NegotiationProbe(const std::string& protocol, const std::string& role);
    uint32_t defaultLocalRN() override { return 1; }
    uint32_t defaultRemoteRN() override { return 2; }

private:
    ~NegotiationProbe() override = default;
    std::string protocol;
    std::string role;
};
