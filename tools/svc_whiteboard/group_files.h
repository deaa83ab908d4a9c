// The service's side of WhiteBoard group files (.wbd): reading one with its errors, and the text
// a group is written as.
#pragma once

#include "whiteboard_group.h"

#include <string>

enum class GroupFileRead {
    read,    // the values were taken
    missing, // no such file: the group starts empty
    broken,  // it exists but does not open or parse (reported with the file and line)
};

// Reads `path` into `group` (quiet false). A broken file gives nothing to the group.
GroupFileRead loadGroupFile(Group* group, const char* path);

// The text form of the group: the blocks Bool (0 or 1), Int32, String and StringList, those
// that have items, each item as `name = value`. The group's name is not written.
std::string groupFileText(const Group& group);
