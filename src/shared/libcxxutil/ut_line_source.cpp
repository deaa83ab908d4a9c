// Lines and tokens of configuration text.
#include "ut_line_source.h"

#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"

#include <cctype>
#include <cstdarg>
#include <cstring>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
bool isIdentStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool isIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}
bool isWordChar(char c) {
    return isIdentChar(c) || c == '/';
}

// How a byte of a macro's text is written into a string token.
void appendEscaped(std::string* out, char c) {
    switch (c) {
    case '"':
    case '\'':
    case '\\':
        *out += '\\';
        *out += c;
        return;
    case 1:
    case 2:
    case 3:
        *out += '\\';
        *out += static_cast<char>('0' + c);
        return;
    case '\a':
        *out += "\\a";
        return;
    case '\b':
        *out += "\\b";
        return;
    case '\t':
        *out += "\\t";
        return;
    case '\v':
        *out += "\\v";
        return;
    case '\f':
        *out += "\\f";
        return;
    case '\r':
        *out += "\\r";
        return;
    default:
        *out += c;
    }
}

} // namespace

ut_line_source::ut_line_source(bool words, ut_macro_table* outerMacros,
                               const ut_preprocessor_hooks* hookRecord, char directiveChar)
    : wordMode(words), pre(directiveChar, outerMacros, hookRecord, this), hooks(hookRecord) {}

ut_line_source::~ut_line_source() {
    while (!files.empty())
        popFile();
}

void ut_line_source::report(int level, const char* text) {
    std::string where = position();
    if (level == GEN_WARNING)
        gen_warning("%s: %s", where.c_str(), text);
    else if (level == GEN_INFO)
        gen_info("%s: %s", where.c_str(), text);
    else
        gen_error("%s: %s", where.c_str(), text);
}

bool ut_line_source::pushFile(const char* path) {
    if (gen_is_directory(path))
        return false;
    FILE* stream = gen_fopen(path, "re");
    if (stream == nullptr)
        return false;
    File file;
    file.path = path;
    char* dir = gen_dirname(path);
    file.dir = dir ? dir : ".";
    gen_free(dir);
    file.stream = stream;
    files.push_back(file);
    filesRead.pushBack(path);
    pre.define("__DIR__", files.back().dir.c_str());
    return true;
}

void ut_line_source::popFile() {
    File& file = files.back();
    std::fclose(file.stream);
    lastPath = file.path;
    lastLine = file.reached > 1 ? file.reached - 1 : 1;
    files.pop_back();
}

bool ut_line_source::open(const char* path) {
    if (!files.empty() || path == nullptr || !pushFile(path))
        return false;
    firstFileName = path;
    return true;
}

bool ut_line_source::readLogicalLine(File& file, std::string* line) {
    line->clear();
    bool any = false;
    for (;;) {
        bool got = false;
        int c;
        while ((c = std::fgetc(file.stream)) != EOF) {
            got = true;
            if (c == '\n')
                break;
            if (c == '\r') {
                int next = std::fgetc(file.stream);
                if (next != '\n' && next != EOF)
                    std::ungetc(next, file.stream);
                break;
            }
            line->push_back(static_cast<char>(c));
        }
        if (!got)
            break;
        any = true;
        ++file.reached;
        if (!line->empty() && line->back() == '\\') {
            line->pop_back();
            continue;
        }
        break;
    }
    // Tokens are C strings: a NUL ends the text of a line.
    size_t nul = line->find('\0');
    if (nul != std::string::npos)
        line->resize(nul);
    return any;
}

bool ut_line_source::fetchLine() {
    for (;;) {
        if (files.empty() || includeFailed)
            return false;
        File& file = files.back();
        file.noted = file.reached;
        std::string line;
        if (!readLogicalLine(file, &line)) {
            popFile();
            if (!files.empty())
                pre.define("__DIR__", files.back().dir.c_str());
            continue;
        }
        if (line.empty() || line[0] != pre.directive_char()) {
            if (pre.is_skipping())
                continue;
            frames.clear();
            frames.push_back(Frame{ut_string(), line, 0});
            tokens.clear();
            return true;
        }
        pre.directive(line.c_str());
        if (!pre.have_include() || pre.is_skipping())
            continue;
        const char* name = pre.include_name();
        char* path =
            gen_is_absolute(name) ? gen_strdup(name) : gen_path_join(file.dir.c_str(), name);
        std::string referencedAt = file.path.c_str();
        int referencedLine = file.noted;
        int depth = static_cast<int>(files.size());
        if (hooks && hooks->may_read_file && !hooks->may_read_file(hooks->context, path, depth)) {
            gen_free(path);
            continue;
        }
        bool opened = depth < kMaxIncludeDepth && pushFile(path);
        if (!opened) {
            gen_error("could not open \"%s\" which was referenced at \"%s\":%d", path,
                      referencedAt.c_str(), referencedLine);
            includeFailed = true;
            while (!files.empty())
                popFile();
            frames.clear();
        }
        gen_free(path);
        if (!opened)
            return false;
    }
}

bool ut_line_source::onStack(const ut_string& name) const {
    for (const Frame& frame : frames)
        if (!frame.macro.isNull() && frame.macro == name)
            return true;
    for (const ut_string& e : expanding)
        if (e == name)
            return true;
    return false;
}

char* ut_line_source::keep(std::string text) {
    tokens.push_back(std::move(text));
    return tokens.back().data();
}

char* ut_line_source::next_token() {
    for (;;) {
        if (frames.empty()) {
            if (!fetchLine())
                return nullptr;
            continue;
        }
        Frame& frame = frames.back();
        while (frame.pos < frame.text.size() && isBlank(frame.text[frame.pos]))
            ++frame.pos;
        if (frame.pos >= frame.text.size() || frame.text[frame.pos] == '#') {
            frames.pop_back();
            continue;
        }
        if (char* token = scanToken(frame))
            return token;
    }
}

bool ut_line_source::at_end_of_line() {
    for (auto it = frames.rbegin(); it != frames.rend(); ++it) {
        size_t pos = it->pos;
        while (pos < it->text.size() && isBlank(it->text[pos]))
            ++pos;
        if (pos < it->text.size() && it->text[pos] != '#')
            return false;
    }
    return true;
}

bool ut_line_source::accept(const char* text) {
    for (;;) {
        if (frames.empty()) {
            if (!fetchLine())
                return false;
            continue;
        }
        Frame& frame = frames.back();
        while (frame.pos < frame.text.size() && isBlank(frame.text[frame.pos]))
            ++frame.pos;
        if (frame.pos >= frame.text.size() || frame.text[frame.pos] == '#') {
            frames.pop_back();
            continue;
        }
        size_t n = std::strlen(text);
        if (frame.text.compare(frame.pos, n, text) != 0)
            return false;
        frame.pos += n;
        return true;
    }
}

void ut_line_source::skip_line() {
    frames.clear();
}

char* ut_line_source::scanToken(Frame& frame) {
    const std::string& text = frame.text;
    char c = text[frame.pos];
    if (c == '"') {
        std::string out;
        scanString(frame, &out);
        return keep(std::move(out));
    }
    if (c == '$' && frame.pos + 1 < text.size() && text[frame.pos + 1] == '{') {
        size_t close = text.find('}', frame.pos + 2);
        if (close != std::string::npos && close > frame.pos + 2) {
            ut_string name(text.c_str() + frame.pos + 2, static_cast<int>(close - frame.pos - 2));
            frame.pos = close + 1;
            if (onStack(name)) {
                error("macro recursion detected for: \"%s\"", name.c_str());
                return keep(name.c_str());
            }
            ut_string value;
            if (!pre.lookup(name, true, &value))
                return keep(name.c_str());
            frames.push_back(Frame{name, value.c_str(), 0}); // `frame` is stale from here
            return nullptr;
        }
        ++frame.pos;
        return keep("$");
    }
    size_t start = frame.pos;
    if (wordMode && isIdentChar(c)) {
        while (frame.pos < text.size() && isWordChar(text[frame.pos]))
            ++frame.pos;
        return keep(text.substr(start, frame.pos - start));
    }
    char next = frame.pos + 1 < text.size() ? text[frame.pos + 1] : '\0';
    size_t length = 1;
    if (std::strchr("%*/^", c) && next == '=')
        length = 2;
    else if (std::strchr("&+-|", c) && (next == c || next == '='))
        length = 2;
    frame.pos += length;
    return keep(text.substr(start, length));
}

void ut_line_source::scanString(Frame& frame, std::string* out) {
    const std::string& text = frame.text;
    size_t& pos = frame.pos;
    *out += text[pos++];
    while (pos < text.size()) {
        char c = text[pos];
        if (c == '\\') {
            *out += c;
            if (++pos < text.size())
                *out += text[pos++];
            continue;
        }
        if (c == '"') {
            *out += c;
            ++pos;
            return;
        }
        if (c == '$' && pos + 1 < text.size() && text[pos + 1] == '{' &&
            text.find('}', pos + 2) != std::string::npos && text.find('}', pos + 2) > pos + 2) {
            size_t close = text.find('}', pos + 2);
            ut_string name(text.c_str() + pos + 2, static_cast<int>(close - pos - 2));
            pos = close + 1;
            ut_string value;
            if (onStack(name)) {
                error("macro recursion detected for: \"%s\"", name.c_str());
                *out += name.c_str();
            } else if (pre.lookup(name, true, &value)) {
                expandInString(name, value, out);
            } else {
                *out += name.c_str();
            }
            continue;
        }
        if (c == '$' && pos + 1 < text.size() && isIdentStart(text[pos + 1])) {
            size_t end = pos + 1;
            while (end < text.size() && isIdentChar(text[end]))
                ++end;
            ut_string name(text.c_str() + pos + 1, static_cast<int>(end - pos - 1));
            ut_string value;
            if (onStack(name)) {
                error("macro recursion detected for: \"%s\"", name.c_str());
                out->append(text, pos, end - pos);
            } else if (pre.lookup(name, false, &value)) {
                expandInString(name, value, out);
            } else {
                out->append(text, pos, end - pos);
            }
            pos = end;
            continue;
        }
        *out += c;
        ++pos;
    }
}

void ut_line_source::expandInString(const ut_string& name, const ut_string& value,
                                    std::string* out) {
    expanding.push_back(name);
    const char* v = value.c_str();
    size_t length = std::strlen(v);
    for (size_t i = 0; i < length;) {
        if (isIdentStart(v[i])) {
            size_t end = i;
            while (end < length && isIdentChar(v[end]))
                ++end;
            ut_string word(v + i, static_cast<int>(end - i));
            ut_string inner;
            if (onStack(word)) {
                error("macro recursion detected for: \"%s\"", word.c_str());
                *out += word.c_str();
            } else if (pre.lookup(word, false, &inner)) {
                expandInString(word, inner, out);
            } else {
                *out += word.c_str();
            }
            i = end;
        } else if (std::isdigit(static_cast<unsigned char>(v[i]))) {
            while (i < length && isIdentChar(v[i]))
                *out += v[i++];
        } else {
            appendEscaped(out, v[i++]);
        }
    }
    expanding.pop_back();
}

void ut_line_source::unquote(char* token) {
    if (token == nullptr || token[0] != '"')
        return;
    std::string value = ut_unquote_escapes(token, std::strlen(token));
    std::memcpy(token, value.data(), value.size());
    token[value.size()] = '\0';
}

std::string ut_line_source::position() const {
    if (!files.empty()) {
        char* text = gen_asprintf("\"%s\", line %d", files.back().path.c_str(), files.back().noted);
        std::string result = text;
        gen_free(text);
        return result;
    }
    if (lastPath.isNull())
        return std::string();
    // After the end of the input, the place where it ended.
    char* text = gen_asprintf("\"%s\", line %d", lastPath.c_str(), lastLine);
    std::string result = text;
    gen_free(text);
    return result;
}

void ut_line_source::error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    char* text = gen_vasprintf(format, args);
    va_end(args);
    gen_error("%s: error: %s", position().c_str(), text ? text : "");
    gen_free(text);
}
