// The command line of cvsvc: global options, the command, its options and operands.
#pragma once

#include "command_table.h"

#include <cstdint>
#include <string>
#include <vector>

struct Invocation {
    bool help = false;
    bool json = false;
    uint16_t routerPort = 0; // -connect_servicerouter; 0: start a router of our own
    const CommandEntry* command = nullptr;
    std::vector<std::string> operands;

    bool all = false;   // scan, update, checkout, switch: show unchanged files too
    bool local = false; // scan: the disk only
    bool head = false;  // switch -A
    bool hasTag = false, hasDate = false, hasMessage = false, hasRevision = false;
    std::string tag;                  // checkout -r, switch -r
    std::string date;                 // switch -D
    std::string message;              // commit -m
    std::string revision;             // blame -r
    int32_t fromLine = 0, toLine = 0; // blame
};

// Parses argv[1..argc-1]. Global options may stand before or behind the command; "--" ends the
// options, and everything behind it is an operand (for exec, the words given to cvs). False
// with a one-line reason in *error for an unknown command or option, a missing value, or
// operands that do not fit the command; a lone --help succeeds with `help` set.
bool parseInvocation(int argc, const char* const* argv, Invocation* invocation, std::string* error);
