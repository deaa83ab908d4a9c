// The router's log: time-stamped records, each record of a plug-in's messages naming the
// plug-in, so that the lines of hundreds of connections can be told apart.
#pragma once

#include "stp_log.h"

// "<stamp>: plug-in N: RECV: ..." for the records of a PluginConnection; the router's own event
// lines name their plug-ins in their text.
class RouterLog : public TimestampedSTPFileLog {
public:
    using TimestampedSTPFileLog::TimestampedSTPFileLog;
    void beginRecord(STPSpecClass* spec, bool outgoing) override;
};
