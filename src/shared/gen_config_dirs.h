// Where the program and the user's configuration lie: the install directory, the development
// tree test, the user's directory and configuration directory, and the lookup of a
// configuration file. The cached strings are owned by the library.
#pragma once

// The directory part of the program's path (from gen_init, else the system), cached. Null when
// the program's path is unknown.
const char* gen_install_dir();

// Cached gen_is_dev_tree_at(gen_install_dir()).
bool gen_is_dev_tree();
// True when neither "target" nor "defaults" is a directory in `install_dir`, and both
// "../src/target" and "../src/configuration" are.
bool gen_is_dev_tree_at(const char* install_dir);

// The base of the user's settings, cached: the per-user configuration folder of the system
// (made with mode 0755 when missing); as the last resort the install directory joined with
// "../Users" and in it a directory named as the user, or "default" without a user name, both
// made with mode 0755. Null only when nothing works.
const char* gen_user_dir();
// The same, computed afresh without the cache and with the install directory given.
char* gen_find_user_dir(const char* install_dir);

// gen_user_dir() joined with "ORT", cached. With `create` the directory is made (mode 0755);
// when that fails and `error` is not null, *error becomes the new text
// "Couldn't create user config directory: <path>" (owned by the caller).
const char* gen_user_config_dir(bool create, char** error);

// The internal configuration directory, cached: in a development tree the install directory
// joined with "../src/configuration/ort_internal", otherwise joined with "config".
const char* gen_internal_config_dir();

// The path of the configuration file in `dir` (owned by the caller): with `use_override`,
// dir/override/<name>.cfg when that exists; otherwise dir/ort.cfg, or, if that does not exist
// and `use_name` is true, dir/<name>.cfg. The path is given whether the file exists or not.
char* gen_find_config(const char* dir, const char* name, bool use_name, bool use_override);
