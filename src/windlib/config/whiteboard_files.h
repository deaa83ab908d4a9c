// WhiteBoard group files (.wbd): the text form of the options database with up to four blocks,
// Bool (name = 0 or 1), Int32 (name = number), String (name = "text") and StringList
// (name = { "a", "b" }). The group's name is not in the file. This process only reads them.
#pragma once

#include "whiteboard_group.h"

class ut_options_group;

// Reads the file into `group` through its (virtual) setters, quiet false, so that a GroupClient's
// listeners fire: Bool items of exactly 0 or 1, then Int32, String and StringList items. A
// missing or unreadable file, or one that does not parse, leaves the group as it was and is no
// failure (true; a parse error has been reported with the file and line). False only for a null
// path.
bool readGroupFile(Group* group, const char* path);

// The four blocks of a group file's tree set into `group` by the rules of readGroupFile: the
// part that the WhiteBoard service shares, which reads files with its own error handling.
void takeGroupFileValues(Group* group, const ut_options_group& root);

// whiteBoardDirectory() joined with "<group>.wbd"; the bare file name when there is no such
// directory. A new string, the caller's to free (gen_free); never null.
char* defaultGroupFile(const char* group);

// The folder "WhiteBoard" in the user's configuration directory, both made (mode 0755) on the
// first call and the string kept for the run (owned here). Null while the user's configuration
// directory is not available; the next call tries again.
const char* whiteBoardDirectory();
