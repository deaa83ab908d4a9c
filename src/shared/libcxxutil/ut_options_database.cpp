// The options database: reading the text form into the tree, writing it back, and macros.
#include "ut_options_database.h"

#include "gen_asprintf.h"
#include "gen_config_dirs.h"
#include "gen_file.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_line_source.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace {

bool startsWithIgnoringCase(const char* text, const char* prefix) {
    for (; *prefix; ++text, ++prefix)
        if (std::tolower(static_cast<unsigned char>(*text)) != *prefix)
            return false;
    return true;
}

bool canBeginName(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '"';
}

bool plainName(const ut_string& name) {
    if (name.length() == 0)
        return false;
    for (const char* p = name.c_str(); *p; ++p)
        if (!std::isalnum(static_cast<unsigned char>(*p)))
            return false;
    return true;
}

std::string nameText(const ut_string& name) {
    return plainName(name) ? std::string(name.c_str()) : ut_options_quote(name.c_str());
}

} // namespace

std::string ut_options_quote(const char* text) {
    std::string out = "\"";
    for (const char* p = text ? text : ""; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '\\' || c == '"' || c == '\'' || c == '$') { // `$` would start a macro
            out += '\\';
            out += *p;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            // Three octal digits, so that a digit behind it is not read as part of it.
            char octal[5] = {'\\', static_cast<char>('0' + (c >> 6)),
                             static_cast<char>('0' + ((c >> 3) & 7)),
                             static_cast<char>('0' + (c & 7)), '\0'};
            out += octal;
        } else {
            out += *p;
        }
    }
    return out + "\"";
}

// ---- Reading

// One read: the two group pointers of the text form and the failure rule.
class ut_options_database::Parser {
public:
    Parser(ut_options_database* db, ut_line_source* source, ut_options_group* root)
        : db(db), src(source), root(root), scope(root), current(root) {}

    bool run();
    // A parse error was reported in this read.
    bool failed = false;

private:
    bool fail(const std::string& text);
    bool statement(char* token);
    bool closeBrace();
    bool value(const ut_string& name, bool append);
    bool list(const ut_string& name, bool append);
    // A number token (with "-" before it), or false after a reported error.
    bool number(char* token, int32_t* out);

    ut_options_database* db;
    ut_line_source* src;
    ut_options_group* root;
    ut_options_group* scope;
    ut_options_group* current;
};

bool ut_options_database::Parser::fail(const std::string& text) {
    gen_error("%s: parse error: %s", src->position().c_str(), text.c_str());
    db->parseFailed = true;
    failed = true;
    return false;
}

bool ut_options_database::Parser::run() {
    for (;;) {
        if (src->at_end_of_line())
            current = scope;
        char* token = src->next_token();
        if (token == nullptr)
            return true;
        if (std::strcmp(token, ";") == 0)
            continue;
        if (!statement(token)) {
            if (!db->keep_going)
                return false;
            src->skip_line();
            current = scope;
        }
    }
}

bool ut_options_database::Parser::statement(char* token) {
    ut_string name("");
    char* op = token;
    if (canBeginName(token[0])) {
        ut_line_source::unquote(token);
        name = token;
        if (src->at_end_of_line())
            return fail("unexpected end of file");
        op = src->next_token();
        if (op == nullptr)
            return fail("unexpected end of file");
    }
    switch (op[0]) {
    case '.':
        current = current->find_or_add_child(name.c_str());
        current->flags &= ~OPEN_IN_BRACES;
        return true;
    case '{':
        current = scope = current->find_or_add_child(name.c_str());
        scope->flags |= OPEN_IN_BRACES;
        return true;
    case '}':
        return closeBrace();
    case '=':
        return value(name, false);
    case '+':
        if (op[1] == '=')
            return value(name, true);
        break;
    default:
        break;
    }
    std::string text = "unknown operator sequence \"";
    text += op[0];
    if (op[0] && op[1])
        text += op[1];
    return fail(text + "\" ");
}

bool ut_options_database::Parser::closeBrace() {
    // A `}` that nothing opened has no group to return to: the read's root has no parent
    // within this read.
    if (scope == root)
        return fail("'}' with no open group");
    scope->flags &= ~OPEN_IN_BRACES;
    do
        scope = scope->parent();
    while (scope != root && !(scope->flags & OPEN_IN_BRACES));
    current = scope;
    return true;
}

bool ut_options_database::Parser::number(char* token, int32_t* out) {
    bool negate = false;
    if (std::strcmp(token, "-") == 0) {
        if (src->at_end_of_line())
            return fail("unexpected end of line");
        token = src->next_token();
        negate = true;
    }
    if (token == nullptr || !std::isdigit(static_cast<unsigned char>(token[0])))
        return fail(std::string("expected a number: \"") + (token ? token : "") + "\"");
    const char* end = nullptr;
    errno = 0;
    unsigned long value = gen_strtoul(token, &end, 0);
    unsigned long scale = 1;
    if (db->size_suffixes && (*end == 'K' || *end == 'k'))
        scale = 1024, ++end;
    else if (db->size_suffixes && (*end == 'M' || *end == 'm'))
        scale = 1048576, ++end;
    if (*end != '\0')
        return fail(std::string("expected a number: \"") + token + "\"");
    if (errno == ERANGE || value > 0xFFFFFFFFul || value * scale > 0xFFFFFFFFul)
        return fail(std::string("number out of range: \"") + token + "\"");
    uint32_t bits = static_cast<uint32_t>(value * scale);
    *out = static_cast<int32_t>(negate ? 0u - bits : bits);
    return true;
}

bool ut_options_database::Parser::value(const ut_string& name, bool append) {
    char* token = src->next_token();
    if (name.length() == 0)
        return fail("empty attribute name");
    if (token == nullptr)
        return fail("empty attribute value");
    if (token[0] == '"' || db->flat_format) {
        ut_line_source::unquote(token);
        if (append)
            current->append_str_attribute(name.c_str(), token);
        else
            current->add_or_replace_str_attribute(name.c_str(), token);
        return true;
    }
    if (std::strcmp(token, "{") == 0)
        return list(name, append);
    int32_t n = 0;
    if (std::isalpha(static_cast<unsigned char>(token[0]))) {
        if (startsWithIgnoringCase(token, "false") && std::strlen(token) == 5)
            n = 0;
        else if (startsWithIgnoringCase(token, "no") || startsWithIgnoringCase(token, "off"))
            n = 0;
        else if (startsWithIgnoringCase(token, "on") || startsWithIgnoringCase(token, "true") ||
                 startsWithIgnoringCase(token, "yes"))
            n = 1;
        else
            return fail(std::string("expected a number: \"") + token + "\"");
    } else if (!number(token, &n)) {
        return false;
    }
    if (!append) {
        current->add_or_replace_int32_attribute(name.c_str(), n);
        return true;
    }
    if (!db->number_lists)
        return fail("'+=' needs a string or number lists");
    current->append_int32_list_attribute(name.c_str(), n);
    return true;
}

bool ut_options_database::Parser::list(const ut_string& name, bool append) {
    if (src->at_end_of_line())
        return fail("unexpected end of line");
    char* token = src->next_token();
    bool numbers = db->number_lists && token[0] != '"';
    // An empty list, which the writer gives for a list with no element.
    if (!numbers && std::strcmp(token, "}") == 0) {
        if (!append || !current->attribute_exists(name.c_str()))
            current->replace_with_str_list(name.c_str(), {});
        return true;
    }
    for (bool first = true;; first = false) {
        if (numbers) {
            int32_t n = 0;
            if (token[0] == '"' || !number(token, &n))
                return token[0] == '"' ? fail("a string in a list of numbers") : false;
            if (first && !append)
                current->replace_with_int32_list(name.c_str(), {n});
            else
                current->append_int32_list_attribute(name.c_str(), n);
        } else {
            if (token[0] != '"')
                return fail(std::string("expected a quoted string in the list: \"") + token + "\"");
            ut_line_source::unquote(token);
            if (first && !append)
                current->replace_with_str_list(name.c_str(), {ut_string(token)});
            else
                current->append_str_list_attribute(name.c_str(), token);
        }
        token = src->next_token();
        if (token == nullptr)
            return fail("expected '}'");
        if (std::strcmp(token, "}") == 0)
            return true;
        if (std::strcmp(token, ",") != 0)
            return fail("expected '}'");
        if (src->at_end_of_line())
            return fail("unexpected end of line");
        token = src->next_token();
    }
}

// ---- The database

ut_options_database::ut_options_database(const char* name, ut_preprocessor_hooks* hookRecord,
                                         bool owns)
    : databaseName(name ? name : ""), hooks(hookRecord), ownsHooks(owns) {
    flags |= IS_DATABASE;
    const char* install = gen_install_dir();
    define_macro("_TRELLIS_DIR", install ? install : "");
    define_macro("__TRELLIS_DIR__", install ? install : "");
    // The host word of the file format, which files test in %if; it names the platform family
    // the format was made for, not the one this build runs on.
    define_macro("__TRELLIS_HOST__", "win32");
    if (gen_is_dev_tree())
        define_macro("__TRELLIS_WIN32_DEV_HOST__", "1");
}

ut_options_database::~ut_options_database() {
    if (ownsHooks && hooks && hooks->release)
        hooks->release(hooks->context);
}

const char* ut_options_database::single_file_read() const {
    return filesRead.count == 1 ? filesRead.head->value.c_str() : nullptr;
}

bool ut_options_database::read(const char* path, ut_options_group* into) {
    if (into == nullptr)
        into = this;
    if (path == nullptr) {
        fileFailed = true;
        return false;
    }
    if (hooks && hooks->may_read_file && !hooks->may_read_file(hooks->context, path, 0))
        return true;
    ut_line_source source(true, &macroTable, hooks);
    if (!source.open(path)) {
        fileFailed = true;
        return false;
    }
    Parser parser(this, &source, into);
    bool ok = parser.run();
    if (source.include_failed()) {
        fileFailed = true;
        ok = false;
    }
    filesRead.appendList(source.files_read());
    return ok && !parser.failed;
}

// ---- Writing

void ut_options_database::writeGroup(std::string* out, const ut_options_group* group,
                                     const std::string* prefix) const {
    std::string inner;
    if (prefix) {
        *out += *prefix + nameText(group->name()) + " {\n";
        inner = *prefix + "    ";
    }
    for (int i = 0; i < group->attribute_count(); ++i) {
        const ut_options_attribute& a = group->attribute(i);
        *out += inner + nameText(a.name) + " = ";
        switch (a.type) {
        case UT_OPTION_STR:
            *out += ut_options_quote(a.str.c_str()) + "\n";
            break;
        case UT_OPTION_INT32:
            *out += std::to_string(a.number) + "\n";
            break;
        case UT_OPTION_STR_LIST: {
            *out += "{ ";
            for (size_t k = 0; k < a.strings.size(); ++k)
                *out += (k ? ", " : "") + ut_options_quote(a.strings[k].c_str());
            *out += " }\n";
            break;
        }
        case UT_OPTION_INT32_LIST:
            *out += "...\n"; // a number list is not written out
            break;
        }
    }
    for (const ut_options_group* c = group->first_child(); c; c = c->next_sibling())
        writeGroup(out, c, &inner);
    if (prefix)
        *out += *prefix + "}\n";
}

void ut_options_database::writeFlat(std::string* out, const ut_options_group* group,
                                    const std::string& path) const {
    for (int i = 0; i < group->attribute_count(); ++i) {
        const ut_options_attribute& a = group->attribute(i);
        *out += path.empty() ? nameText(a.name) : path + "." + nameText(a.name);
        *out += "=";
        if (a.type == UT_OPTION_STR)
            *out += ut_options_quote(a.str.c_str()) + "\n";
        else if (a.type == UT_OPTION_INT32)
            *out += std::to_string(a.number) + "\n";
        else
            *out += "...\n";
    }
    for (const ut_options_group* c = group->first_child(); c; c = c->next_sibling())
        writeFlat(out, c, path.empty() ? nameText(c->name()) : path + "." + nameText(c->name()));
}

std::string ut_options_database::text() const {
    std::string out;
    if (flat_format)
        writeFlat(&out, this, std::string());
    else
        writeGroup(&out, this, nullptr);
    return out;
}

bool ut_options_database::write(FILE* stream) const {
    if (stream == nullptr)
        return false;
    std::string out = text();
    return std::fwrite(out.data(), 1, out.size(), stream) == out.size() && std::fflush(stream) == 0;
}

bool ut_options_database::write(const char* path) const {
    FILE* stream = path ? gen_fopen(path, "we") : nullptr;
    bool ok = stream != nullptr && write(stream);
    if (stream != nullptr && std::fclose(stream) != 0)
        ok = false;
    if (!ok)
        gen_error("failed when writing %s", path ? path : "");
    return ok;
}

// ---- Macros

void ut_options_database::define_macro(const char* name, const char* value) {
    macroTable.define(ut_string(name ? name : ""), ut_string(value ? value : ""));
}

void ut_options_database::define_macro_from_text(const char* text) {
    if (text == nullptr)
        return;
    const char* equals = std::strchr(text, '=');
    if (equals == nullptr) {
        define_macro(text, "");
        return;
    }
    std::string name(text, equals);
    define_macro(name.c_str(), equals + 1);
}

void ut_options_database::define_macro_number(const char* name, int32_t value) {
    define_macro(name, std::to_string(value).c_str());
}

void ut_options_database::define_macros_from_group(const ut_options_group* group) {
    for (int i = 0; group && i < group->attribute_count(); ++i) {
        const ut_options_attribute& a = group->attribute(i);
        if (a.type == UT_OPTION_STR)
            define_macro(a.name.c_str(), a.str.c_str());
        else if (a.type == UT_OPTION_INT32)
            define_macro_number(a.name.c_str(), a.number);
    }
}

void ut_options_database::copy_macros(const ut_options_database& other) {
    other.macroTable.copyInto(&macroTable);
}

const char* ut_options_database::lookup_macro(const char* name, bool report) const {
    const ut_string* value = macroTable.lookup(ut_string(name ? name : ""));
    if (value == nullptr && report)
        gen_error("macro not defined(%s) ...", name ? name : "");
    return value ? value->c_str() : nullptr;
}
