#include "cvsvc_options.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace {

bool parseNumber(const std::string& text, long low, long high, long* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    long n = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || n < low || n > high)
        return false;
    *value = n;
    return true;
}

// "FROM" or "FROM-TO", 1-based lines; a lone FROM is the range of one line.
bool parseLineRange(const std::string& text, int32_t* from, int32_t* to) {
    size_t dash = text.find('-');
    long a = 0, b = 0;
    if (!parseNumber(text.substr(0, dash), 1, INT32_MAX, &a))
        return false;
    b = a;
    if (dash != std::string::npos && !parseNumber(text.substr(dash + 1), 1, INT32_MAX, &b))
        return false;
    *from = static_cast<int32_t>(a);
    *to = static_cast<int32_t>(b);
    return a <= b;
}

// Checks the operand count and the options of the command; false with the reason.
bool checkOperands(Invocation* inv, std::string* error) {
    const std::string name = inv->command->name;
    const size_t n = inv->operands.size();
    auto fail = [&](const std::string& why) {
        *error = name + ": " + why;
        return false;
    };
    if ((name == "status" || name == "add" || name == "remove") && n == 0)
        return fail("needs at least one file");
    if (name == "checkout" && n != 3)
        return fail("needs ROOT, MODULE and DIR");
    if (name == "switch") {
        if (n == 0)
            return fail("needs at least one checkout directory");
        if (!inv->hasTag && !inv->hasDate && !inv->head)
            return fail("needs -r TAG, -D DATE or -A");
    }
    if (name == "commit") {
        if (!inv->hasMessage)
            return fail("needs -m MSG");
        if (n == 0)
            return fail("needs at least one file");
    }
    if (name == "log" && n != 1)
        return fail("needs exactly one file");
    if (name == "info" && n != 2)
        return fail("needs FILE and REV");
    if (name == "exec" && n == 0)
        return fail("needs the words for cvs behind --");
    if (name == "blame") {
        if (n != 2)
            return fail("needs FILE and FROM[-TO]");
        if (!parseLineRange(inv->operands[1], &inv->fromLine, &inv->toLine))
            return fail("bad line range '" + inv->operands[1] + "' (FROM or FROM-TO, from 1)");
        inv->operands.pop_back();
    }
    return true;
}

} // namespace

bool parseInvocation(int argc, const char* const* argv, Invocation* inv, std::string* error) {
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool hasValue = i + 1 < argc;
        if (optionsEnded || word.empty() || word[0] != '-' || word == "-") {
            if (inv->command == nullptr && !optionsEnded) {
                inv->command = findCommand(word);
                if (inv->command == nullptr) {
                    *error = "unknown command '" + word + "'";
                    return false;
                }
            } else {
                inv->operands.push_back(word);
            }
            continue;
        }
        const std::string name = inv->command ? inv->command->name : "";
        // Options that take a value: which command allows them, and where the value goes.
        std::string* value = nullptr;
        bool* flag = nullptr;
        if (word == "--") {
            optionsEnded = true;
            if (inv->command == nullptr) {
                *error = "a command must come before --";
                return false;
            }
            continue;
        } else if (word == "--help" || word == "-help" || word == "-h") {
            inv->help = true;
            continue;
        } else if (word == "--json") {
            inv->json = true;
            continue;
        } else if (word == "-connect_servicerouter") {
            long port = 0;
            if (!hasValue || !parseNumber(argv[i + 1], 1, 65535, &port)) {
                *error = "-connect_servicerouter needs a port number from 1 to 65535";
                return false;
            }
            inv->routerPort = static_cast<uint16_t>(port);
            ++i;
            continue;
        } else if (word == "--all" &&
                   (name == "scan" || name == "update" || name == "checkout" || name == "switch")) {
            inv->all = true;
            continue;
        } else if (word == "--local" && name == "scan") {
            inv->local = true;
            continue;
        } else if (word == "-A" && name == "switch") {
            inv->head = true;
            continue;
        } else if (word == "-r" && (name == "checkout" || name == "switch")) {
            value = &inv->tag;
            flag = &inv->hasTag;
        } else if (word == "-r" && name == "blame") {
            value = &inv->revision;
            flag = &inv->hasRevision;
        } else if (word == "-D" && name == "switch") {
            value = &inv->date;
            flag = &inv->hasDate;
        } else if (word == "-m" && name == "commit") {
            value = &inv->message;
            flag = &inv->hasMessage;
        } else {
            *error = "unknown option " + word + (name.empty() ? "" : " for " + name);
            return false;
        }
        if (!hasValue) {
            *error = word + " needs a value";
            return false;
        }
        *value = argv[++i];
        *flag = true;
    }
    if (inv->help)
        return true;
    if (inv->command == nullptr) {
        *error = "no command given";
        return false;
    }
    if (std::string(inv->command->name) == "exec" && !optionsEnded && !inv->operands.empty()) {
        *error = "exec: put -- before the words for cvs";
        return false;
    }
    return checkOperands(inv, error);
}
