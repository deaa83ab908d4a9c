#include "status_type.h"

StatusBand statusTypeBand(int32_t status_type) {
    if (status_type >= 900 && status_type <= 1300)
        return StatusBand::local_change;
    if (status_type >= 1400 && status_type <= 1800)
        return StatusBand::remote_change;
    if (status_type >= 1900 && status_type <= 2100)
        return StatusBand::not_controlled;
    if (status_type >= 2200 && status_type <= 2400)
        return StatusBand::unchanged;
    return StatusBand::none;
}

const char* statusTypeWord(int32_t status_type) {
    switch (status_type) {
    case VC_STATUS_UNKNOWN:
        return "Unknown";
    case VC_STATUS_WILL_CONFLICT:
        return "Will Conflict";
    case VC_STATUS_NEEDS_MERGE:
        return "Needs Merge";
    case VC_STATUS_HAS_CONFLICT:
        return "Has Conflict";
    case VC_STATUS_LOCALLY_ADDED:
        return "Locally Added";
    case VC_STATUS_LOCALLY_REMOVED:
        return "Locally Removed";
    case VC_STATUS_LOCALLY_MODIFIED:
        return "Locally Modified";
    case VC_STATUS_REMOTELY_ADDED:
        return "Remotely Added";
    case VC_STATUS_REMOTELY_REMOVED:
        return "Remotely Removed";
    case VC_STATUS_REMOTELY_MODIFIED:
        return "Remotely Modified";
    case VC_STATUS_NOT_UNDER_VC:
        return "Not under VC";
    case VC_STATUS_DIRECTORY_NOT_UNDER_VC:
        return "Directory Not under VC";
    case VC_STATUS_NO_CHANGES:
        return "No changes";
    case VC_STATUS_FILE_DOES_NOT_EXIST:
        return "File does not exist";
    default:
        return "Error: Unknown Type";
    }
}
