// Replacing a file so that no setting is ever lost: the new text goes to a temporary file in
// the same folder (created exclusively, mode 0600), is synced to the disk and renamed over the
// old file, and the folder is synced. A kill at any moment leaves the old file or the new one,
// each complete; at most a temporary file stays behind.
#pragma once

#include <string>

// False with the reason in *error (the old file is then untouched and the temporary removed).
bool replaceFileDurably(const char* path, const std::string& text, std::string* error);

// The temporary names replaceFileDurably uses for `path`: ".<name>.<pid>.<n>.tmp" beside it.
// Removes those an earlier run left behind (a process killed between creating and renaming).
void removeStaleTemporaries(const char* path);
