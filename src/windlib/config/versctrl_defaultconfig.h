// The version-control settings of the configuration group "GeneralConfiguration" that this
// process acts on, as mirror variables: they hold the compiled defaults from the start and
// follow the group whenever configuration changes them.
#pragma once

#include <cstdint>

// The configured `cvs` client, "cvs.exe" by default. The text stays valid until the next change.
const char* versctrlCVSPath();
// Replaces the mirror of Versctrl_CVSPath with a copy of `path` (null: back to the default).
void setVersctrlCVSPath(const char* path);

// The longest one `cvs` run may take, in seconds, 300 by default (key Versctrl_CVSTimeLimit).
// A value of 0 or below means no limit.
int32_t versctrlCVSTimeLimitSeconds();
void setVersctrlCVSTimeLimitSeconds(int32_t seconds);
