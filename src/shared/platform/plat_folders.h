// The user and the places the process keeps things: user name, home, the base of per-user
// configuration, the temporary root and the thread id that temporary names carry.
#pragma once

#include <cstddef>

// GetUserNameA: the login name of the effective user (password database, else $USER, else
// $LOGNAME). False when there is none or it does not fit.
bool plat_user_name(char* out, size_t size);

// The user's home: $HOME, else the password database. Stands for USERPROFILE. False if unknown.
bool plat_home_dir(char* out, size_t size);

// SHGetSpecialFolderPathA(CSIDL_APPDATA): Windows keeps per-user program settings in the
// roaming application-data folder; Linux users expect them under $XDG_CONFIG_HOME, else
// $HOME/.config, with the program's own folder under it, so this gives that base (not created
// here). A relative $XDG_CONFIG_HOME is ignored, as the base directory convention requires.
// False when neither variable gives a place.
bool plat_user_config_base(char* out, size_t size);

// The root directory "\" that Windows falls back on for temporary files when neither TMP nor
// TEMP names one; on Linux the system's temporary directory, /tmp.
const char* plat_default_temp_dir();

// GetCurrentThreadId: the kernel's id of the calling thread.
int plat_current_thread_id();
