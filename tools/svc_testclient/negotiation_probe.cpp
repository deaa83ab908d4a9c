// A spec class that only negotiates.
#include "negotiation_probe.h"

NegotiationProbe::NegotiationProbe(const std::string& protocolName, const std::string& roleName)
    : protocol(protocolName), role(roleName) {
    setProtocol(protocol.c_str(), role.c_str(), "1", 0);
    setTables(nullptr, 0, nullptr, 0, nullptr, 0);
}
