// Loading the configuration of the process at start: the compiled defaults, the system and the
// user's configuration files, and the values of the WhiteBoard service, each layer over the one
// before.
#pragma once

class WhiteBoard;

// The start-up step: finishes the defaults, connects to the WhiteBoard through the router
// (waits), applies the configuration files and registers "GeneralConfiguration", waiting for
// the service's values. False, with a warning, when the WhiteBoard cannot be reached ("Unable
// to get connection to WhiteBoard.\n"; the files then still apply, to the local copy) or the
// initial state cannot be loaded; false in silence without a router proxy. The process goes on
// in every case with what it has.
bool loadDefaultConfig();

// Once per process (a second call gives true and does nothing): the system file, then the
// user's file, set locally into "GeneralConfiguration", then the group registered with the
// service (broadcast on, waiting for its values).
bool applyConfigFiles();

// Applies one configuration file to "GeneralConfiguration" locally (nothing is sent). Lines are
// "Key: value": a "#" at the start makes a comment; the key is what stands before the first
// ":", exactly; blanks and tabs behind the ":" are skipped; a value in double quotes is a
// string (escapes read), one that begins with a digit a number (base by its prefix, anything
// behind it ignored), exactly "On" or "Off" a Bool; keys not in the table and anything else are
// skipped. False for an absent path or WhiteBoard, or a file that cannot be opened.
bool applyConfigFile(const char* path, WhiteBoard* whiteboard);
