// Limits of the process: how many descriptors (files and sockets) it may hold open.
#pragma once

#include <cstdint>

// _getmaxstdio and the socket limit of Winsock: on Linux the soft and hard RLIMIT_NOFILE.
// False when they cannot be read.
bool plat_descriptor_limit(uint64_t* soft, uint64_t* hard);
// _setmaxstdio: sets the soft limit to `soft` (cut to the hard limit). Raising it up to the
// hard limit needs no privilege; children started afterwards inherit it. False on failure.
bool plat_set_descriptor_limit(uint64_t soft);
