// Child modes of a test program: the program runs itself again, as a child, to play a part that
// a test needs in another process (a peer, a plug-in, a lister of its own descriptors). The
// child runs one disabled test, chosen by a filter, with its own arguments behind.
#pragma once

#include <string>
#include <vector>

// The value of "--NAME=VALUE" among this program's arguments; empty when absent.
std::string childArgument(const std::string& name);

// The words that run this program again with only the disabled test `test`
// ("Suite.DISABLED_Name") and `extra` behind (each "--NAME=VALUE" for childArgument).
std::vector<std::string> childCommand(const std::string& test,
                                      const std::vector<std::string>& extra);

// Starts the program of words[0] with the words as its arguments (stdout and stderr as
// `options` say, null: this process's); null when it cannot be started.
struct PlatProcess;
struct PlatSpawnOptions;
PlatProcess* startProgram(const std::vector<std::string>& words,
                          const PlatSpawnOptions* options = nullptr);

// The descriptors open in this process, in ascending order, without the one that the listing
// itself uses.
std::vector<int> openDescriptors();
// A child's half of a descriptor check: openDescriptors() written to `path`.
void writeOpenDescriptors(const std::string& path);
// The numbers that writeOpenDescriptors wrote to `path` that are neither 0, 1, 2 nor in
// `inherited` (what the child's parent got from its own parent, which is not the parent's
// doing). Empty when the child held only what it should.
std::vector<int> leakedDescriptors(const std::string& path, const std::vector<int>& inherited);
