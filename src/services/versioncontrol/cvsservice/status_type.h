// The numeric status vocabulary that both services report (`status_type`): a value per state of
// a file, its word, and the bands that group values of one kind of change.
#pragma once

#include <cstdint>

enum : int32_t {
    VC_STATUS_UNKNOWN = 200,
    VC_STATUS_WILL_CONFLICT = 500,
    VC_STATUS_NEEDS_MERGE = 600,
    VC_STATUS_HAS_CONFLICT = 700,
    VC_STATUS_LOCALLY_ADDED = 1000,
    VC_STATUS_LOCALLY_REMOVED = 1100,
    VC_STATUS_LOCALLY_MODIFIED = 1200,
    VC_STATUS_REMOTELY_ADDED = 1500,
    VC_STATUS_REMOTELY_REMOVED = 1600,
    VC_STATUS_REMOTELY_MODIFIED = 1700,
    VC_STATUS_NOT_UNDER_VC = 2000,
    VC_STATUS_DIRECTORY_NOT_UNDER_VC = 2050,
    VC_STATUS_NO_CHANGES = 2300,
    VC_STATUS_FILE_DOES_NOT_EXIST = 2600,
};

// The band a value lies in, bounds included: local change 900 to 1300, remote change 1400 to
// 1800, not controlled 1900 to 2100, unchanged 2200 to 2400; none for any other value.
enum class StatusBand { none, local_change, remote_change, not_controlled, unchanged };
StatusBand statusTypeBand(int32_t status_type);

// The word of the vocabulary ("Locally Modified" for 1200), or "Error: Unknown Type" for a value
// outside it. A constant text.
const char* statusTypeWord(int32_t status_type);
