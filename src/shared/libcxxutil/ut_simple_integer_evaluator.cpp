// The integer evaluator: a tokenizer and precedence climbing.
#include "ut_simple_integer_evaluator.h"

#include "gen_string.h"
#include "indgen.h"

#include <cctype>
#include <cstring>
#include <vector>

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isIdentStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool isIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

enum class Tok { end, number, ident, string, lparen, rparen, op, bang, bad };

// Binary operators and their precedence; 0 for none.
struct OpInfo {
    const char* text;
    int precedence;
};
constexpr OpInfo kOps[] = {
    {"||", 2}, {"&&", 3}, {"==", 7}, {"!=", 7}, {"<=", 8}, {">=", 8}, {"<<", 9}, {">>", 9},
    {",", 1},  {"|", 4},  {"^", 5},  {"&", 6},  {"<", 8},  {">", 8},  {"+", 10}, {"-", 10},
};

} // namespace

std::string ut_unquote_escapes(const char* text, size_t length) {
    std::string out;
    size_t i = 0, end = length;
    if (i < end && text[i] == '"') {
        ++i;
        if (end > i && text[end - 1] == '"')
            --end;
    }
    while (i < end) {
        char c = text[i++];
        if (c != '\\' || i >= end) {
            out += c;
            continue;
        }
        char e = text[i++];
        switch (e) {
        case 'a':
            out += '\a';
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'v':
            out += '\v';
            break;
        case 'x': {
            int value = 0, digits = 0;
            while (digits < 2 && i < end && hexValue(text[i]) >= 0) {
                value = value * 16 + hexValue(text[i++]);
                ++digits;
            }
            if (digits == 0)
                out += 'x';
            else
                out += static_cast<char>(value);
            break;
        }
        default:
            if (e >= '0' && e <= '3') {
                int value = e - '0';
                for (int digits = 0; digits < 2 && i < end && text[i] >= '0' && text[i] <= '7';
                     ++digits)
                    value = value * 8 + (text[i++] - '0');
                out += static_cast<char>(value);
            } else {
                out += e; // \" \' \? \\ and any other byte stand for themselves
            }
        }
    }
    return out;
}

ut_simple_integer_evaluator_client_interface::~ut_simple_integer_evaluator_client_interface() =
    default;

// The tokens of one text. `start` is where the current token begins, for error texts.
struct ut_simple_integer_evaluator::Parser {
    const char* text;
    size_t length;
    size_t pos = 0;
    size_t start = 0;
    bool skip;
    bool failed = false;
    Tok tok = Tok::end;
    std::string value; // identifier, unquoted string or operator text
    uint32_t number = 0;

    Parser(const char* t, bool s) : text(t), length(std::strlen(t)), skip(s) {}

    void next() {
        while (pos < length &&
               (text[pos] == ' ' || text[pos] == '\t' || text[pos] == '\r' || text[pos] == '\n'))
            ++pos;
        start = pos;
        value.clear();
        if (failed || pos >= length) {
            tok = Tok::end;
            return;
        }
        char c = text[pos];
        if (std::isdigit(static_cast<unsigned char>(c))) {
            const char* end = nullptr;
            number = static_cast<uint32_t>(gen_strtoul(text + pos, &end, 0));
            pos = static_cast<size_t>(end - text);
            if (pos == start)
                ++pos;
            tok = Tok::number;
        } else if (isIdentStart(c)) {
            while (pos < length && isIdentChar(text[pos]))
                value += text[pos++];
            tok = Tok::ident;
        } else if (c == '"') {
            size_t i = pos + 1;
            while (i < length && text[i] != '"')
                i += text[i] == '\\' && i + 1 < length ? 2 : 1;
            if (i < length)
                ++i;
            value = ut_unquote_escapes(text + pos, i - pos);
            pos = i;
            tok = Tok::string;
        } else if (c == '(' || c == ')') {
            ++pos;
            tok = c == '(' ? Tok::lparen : Tok::rparen;
        } else if (c == '!' && !(pos + 1 < length && text[pos + 1] == '=')) {
            ++pos;
            tok = Tok::bang;
        } else {
            tok = Tok::bad;
            for (const OpInfo& op : kOps) {
                size_t n = std::strlen(op.text);
                if (pos + n <= length && std::strncmp(text + pos, op.text, n) == 0) {
                    value = op.text;
                    pos += n;
                    tok = Tok::op;
                    return;
                }
            }
            ++pos;
        }
    }

    int precedence() const {
        if (tok != Tok::op)
            return 0;
        for (const OpInfo& op : kOps)
            if (value == op.text)
                return op.precedence;
        return 0;
    }
};

ut_simple_integer_evaluator::ut_simple_integer_evaluator(
    ut_simple_integer_evaluator_client_interface* evaluatorClient)
    : client(evaluatorClient) {}

int32_t ut_simple_integer_evaluator::evaluate(const char* text, bool skip) {
    Parser p(text ? text : "", skip);
    p.next();
    return expression(p, 0);
}

int32_t ut_simple_integer_evaluator::expression(Parser& p, int minPrecedence) {
    uint32_t left = static_cast<uint32_t>(primary(p));
    for (;;) {
        if (p.failed || p.tok == Tok::end || p.tok == Tok::rparen)
            break;
        int precedence = p.precedence();
        if (precedence == 0) {
            std::string text = std::string("parse error: near: \"") + (p.text + p.start) + "\"";
            client->report_error(text.c_str());
            p.failed = true;
            break;
        }
        if (precedence < minPrecedence)
            break;
        std::string op = p.value;
        p.next();
        // The operator's own precedence as the minimum: one level groups from the right.
        uint32_t right = static_cast<uint32_t>(expression(p, precedence));
        if (op == ",")
            left = right;
        else if (op == "||")
            left = (left != 0) | (right != 0);
        else if (op == "&&")
            left = (left != 0) & (right != 0);
        else if (op == "|")
            left |= right;
        else if (op == "^")
            left ^= right;
        else if (op == "&")
            left &= right;
        else if (op == "==")
            left = left == right;
        else if (op == "!=")
            left = left != right;
        else if (op == "<")
            left = left < right;
        else if (op == ">")
            left = left > right;
        else if (op == "<=")
            left = left <= right;
        else if (op == ">=")
            left = left >= right;
        else if (op == "<<")
            left <<= right % 32;
        else if (op == ">>")
            left >>= right % 32;
        else if (op == "+")
            left += right;
        else if (op == "-")
            left -= right;
    }
    return static_cast<int32_t>(left);
}

int32_t ut_simple_integer_evaluator::primary(Parser& p) {
    switch (p.tok) {
    case Tok::number: {
        uint32_t n = p.number;
        p.next();
        return static_cast<int32_t>(n);
    }
    case Tok::lparen: {
        p.next();
        int32_t value = expression(p, 0);
        if (p.tok == Tok::rparen)
            p.next();
        return value;
    }
    case Tok::op:
        if (p.value == "+" || p.value == "-") {
            bool negate = p.value == "-";
            p.next();
            uint32_t value = static_cast<uint32_t>(expression(p, 11));
            return static_cast<int32_t>(negate ? 0u - value : value);
        }
        break;
    case Tok::bang: {
        p.next();
        return expression(p, 12) == 0 ? 1 : 0;
    }
    case Tok::ident: {
        ut_string name(p.value.c_str());
        p.next();
        if (p.tok == Tok::lparen)
            return functionCall(p, name);
        if (p.skip)
            return 0;
        return macroValue(p, name);
    }
    default:
        break;
    }
    if (!p.failed) {
        std::string text = std::string("parse error: near: \"") + (p.text + p.start) + "\"";
        client->report_error(text.c_str());
        p.failed = true;
    }
    return 0;
}

int32_t ut_simple_integer_evaluator::macroValue(Parser& p, const ut_string& name) {
    ut_string value;
    if (!client->macro_value(name.c_str(), p.skip, &value) || value.length() == 0)
        return 0;
    const char* end = nullptr;
    unsigned long number = gen_strtoul(value.c_str(), &end, 0);
    if (end != value.c_str() && *end == '\0')
        return static_cast<int32_t>(static_cast<uint32_t>(number));
    if (depth >= kMaxMacroDepth) {
        std::string text = std::string("macro recursion detected for: \"") + name.c_str() + "\"";
        client->report_error(text.c_str());
        return 0;
    }
    ++depth;
    int32_t result = evaluate(value.c_str(), p.skip);
    --depth;
    return result;
}

int32_t ut_simple_integer_evaluator::functionCall(Parser& p, const ut_string& name) {
    p.next(); // the "("
    std::vector<std::string> arguments;
    bool tooMany = false;
    auto bad = [&]() {
        std::string text = std::string("parse error: near: \"") + (p.text + p.start) + "\"";
        client->report_error(text.c_str());
        p.failed = true;
        return 0;
    };
    while (!p.failed && p.tok != Tok::rparen) {
        if (p.tok != Tok::ident && p.tok != Tok::string)
            return bad();
        if (static_cast<int>(arguments.size()) == kMaxArguments)
            tooMany = true;
        else
            arguments.push_back(p.value);
        p.next();
        if (p.tok == Tok::op && p.value == ",")
            p.next();
        else if (p.tok != Tok::rparen)
            return bad();
    }
    if (p.failed)
        return 0;
    p.next(); // the ")"
    if (tooMany) {
        client->report_error("parse error: too many arguments");
        return 0;
    }
    std::vector<const char*> pointers;
    for (const std::string& a : arguments)
        pointers.push_back(a.c_str());
    return client->call_function(name.c_str(), static_cast<int>(pointers.size()), pointers.data(),
                                 p.skip);
}
