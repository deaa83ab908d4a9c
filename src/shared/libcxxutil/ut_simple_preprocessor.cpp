// The directive layer: directives, condition frames, macro lookup and the functions of `%if`.
#include "ut_simple_preprocessor.h"

#include "gen_config_dirs.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_files.h"

#include <cctype>
#include <cstring>
#include <string>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
bool isIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

std::string trimmed(const char* text) {
    const char* begin = text;
    while (isBlank(*begin))
        ++begin;
    const char* end = begin + std::strlen(begin);
    while (end > begin && isBlank(end[-1]))
        --end;
    return std::string(begin, end);
}

// The identifier at the start of `text` (after blanks); *rest points behind it.
std::string identifierAt(const char* text, const char** rest) {
    while (isBlank(*text))
        ++text;
    const char* p = text;
    if (std::isalpha(static_cast<unsigned char>(*p)) || *p == '_')
        while (isIdentChar(*p))
            ++p;
    *rest = p;
    return std::string(text, p);
}

void replaceAll(std::string* text, const std::string& from, const std::string& to) {
    for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at)) {
        text->replace(at, from.size(), to);
        at += to.size();
    }
}

// Replaces `word` where it stands as a whole identifier.
void replaceWord(std::string* text, const std::string& word, const std::string& to) {
    for (size_t at = text->find(word); at != std::string::npos; at = text->find(word, at)) {
        bool before = at > 0 && isIdentChar((*text)[at - 1]);
        bool after = at + word.size() < text->size() && isIdentChar((*text)[at + word.size()]);
        if (before || after) {
            at += word.size();
            continue;
        }
        text->replace(at, word.size(), to);
        at += to.size();
    }
}

// The argument of %define up to a `#` outside quotes, without the blanks in front of it.
std::string cutComment(const std::string& argument) {
    char quote = 0;
    size_t i = 0;
    for (; i < argument.size(); ++i) {
        char c = argument[i];
        if (quote) {
            if (c == '\\' && i + 1 < argument.size())
                ++i;
            else if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '#') {
            break;
        }
    }
    while (i > 0 && isBlank(argument[i - 1]))
        --i;
    return argument.substr(0, i);
}

} // namespace

const ut_string* ut_macro_table::lookup(const ut_string& name) const {
    auto it = entries.find(name);
    return it == entries.end() ? nullptr : &it->second;
}

void ut_macro_table::copyInto(ut_macro_table* other) const {
    for (const auto& [name, value] : entries)
        other->define(name, value);
}

ut_report_sink::~ut_report_sink() = default;
ut_simple_preprocessor_interface::~ut_simple_preprocessor_interface() = default;

simple_preprocessor::simple_preprocessor(char directive, ut_macro_table* outer,
                                         const ut_preprocessor_hooks* hookRecord,
                                         ut_report_sink* reportSink)
    : directiveChar(directive), integerEvaluator(this), outerMacros(outer), hooks(hookRecord),
      sink(reportSink) {}

simple_preprocessor::~simple_preprocessor() = default;

void simple_preprocessor::report(int level, const char* text) {
    if (sink) {
        sink->report(level, text);
        return;
    }
    if (level == GEN_WARNING)
        gen_warning("%s", text);
    else if (level == GEN_INFO)
        gen_info("%s", text);
    else
        gen_error("%s", text);
}

void simple_preprocessor::report_error(const char* text) {
    report(GEN_ERROR, text);
}

bool simple_preprocessor::enclosingActive() const {
    return conditions.size() < 2 || conditions[conditions.size() - 2].active;
}

bool simple_preprocessor::is_skipping() const {
    return !conditions.empty() && !conditions.back().active;
}

void simple_preprocessor::setValue(Condition& frame, bool value) {
    frame.value = value;
    frame.active = value && enclosingActive();
    if (value)
        frame.taken = true;
}

bool simple_preprocessor::directive(const char* line) {
    haveInclude = false;
    const char* p = line;
    if (*p == directiveChar)
        ++p;
    const char* rest = nullptr;
    std::string name = identifierAt(p, &rest);
    std::string argument = trimmed(rest);

    if (name == "if") {
        bool value = integerEvaluator.evaluate(argument.c_str(), is_skipping()) != 0;
        conditions.emplace_back();
        setValue(conditions.back(), value);
        return true;
    }
    if (name == "ifdef") {
        bool value = lookup(argument.c_str(), false, nullptr);
        conditions.emplace_back();
        setValue(conditions.back(), value);
        return true;
    }
    if (name == "elif" || name == "elsif" || name == "elseif") {
        if (conditions.empty()) {
            report(GEN_ERROR, "unexpected directive: elif");
            return false;
        }
        Condition& frame = conditions.back();
        bool skip = frame.taken || !enclosingActive();
        bool value = integerEvaluator.evaluate(argument.c_str(), skip) != 0;
        setValue(frame, frame.taken ? false : value);
        return true;
    }
    if (name == "else") {
        if (conditions.empty() || conditions.back().else_seen) {
            report(GEN_ERROR, "unexpected directive: else");
            return false;
        }
        Condition& frame = conditions.back();
        setValue(frame, !frame.taken);
        frame.else_seen = true;
        return true;
    }
    if (name == "endif") {
        if (conditions.empty()) {
            report(GEN_ERROR, "unexpected directive: endif");
            return false;
        }
        conditions.pop_back();
        return true;
    }
    if (name == "define") {
        if (!is_skipping())
            define_from_text(cutComment(argument).c_str());
        return true;
    }
    if (name == "undef") {
        if (!is_skipping())
            undefine_from_text(argument.c_str());
        return true;
    }
    if (name == "info" || name == "echo" || name == "warning" || name == "error") {
        if (!is_skipping())
            report(name == "warning" ? GEN_WARNING
                   : name == "error" ? GEN_ERROR
                                     : GEN_INFO,
                   argument.c_str());
        return true;
    }
    if (name == "include") {
        size_t open = argument.find('"');
        size_t close = open == std::string::npos ? open : argument.find('"', open + 1);
        if (close != std::string::npos && close > open + 1) {
            includeName =
                expand_directory_macros(argument.substr(open + 1, close - open - 1).c_str());
            haveInclude = true;
            return true;
        }
    }
    std::string text = std::string("illegal directive: \"") + line + "\"";
    report(GEN_ERROR, text.c_str());
    return false;
}

void simple_preprocessor::define(const char* name, const char* value) {
    localMacros.define(ut_string(name ? name : ""), ut_string(value ? value : ""));
}

void simple_preprocessor::define_from_text(const char* text) {
    const char* rest = nullptr;
    std::string name = identifierAt(text ? text : "", &rest);
    if (name.empty())
        return;
    while (isBlank(*rest))
        ++rest;
    define(name.c_str(), rest);
}

void simple_preprocessor::undefine_from_text(const char* text) {
    const char* rest = nullptr;
    std::string name = identifierAt(text ? text : "", &rest);
    if (!name.empty())
        localMacros.undefine(ut_string(name.c_str()));
}

bool simple_preprocessor::lookup(const ut_string& name, bool reportMissing, ut_string* value) {
    const ut_string* found = localMacros.lookup(name);
    if (!found && outerMacros)
        found = outerMacros->lookup(name);
    if (found) {
        if (value)
            *value = *found;
        return true;
    }
    if (hooks && hooks->has_variable && hooks->has_variable(hooks->context, name.c_str())) {
        if (value)
            *value = hooks->get_variable ? hooks->get_variable(hooks->context, name.c_str())
                                         : ut_string("");
        return true;
    }
    if (reportMissing) {
        std::string text = std::string("macro not defined(") + name.c_str() + ") ...";
        report(GEN_ERROR, text.c_str());
    }
    return false;
}

bool simple_preprocessor::lookup(const char* name, bool reportMissing, ut_string* value) {
    return lookup(ut_string(name ? name : ""), reportMissing, value);
}

bool simple_preprocessor::macro_value(const char* name, bool skip, ut_string* value) {
    return lookup(name, !skip, value);
}

int32_t simple_preprocessor::call_function(const char* name, int count,
                                           const char* const* arguments, bool skip) {
    std::string fn = name;
    auto wrongCount = [&](const char* what) {
        std::string text = std::string(what) + " " + fn;
        report(GEN_ERROR, text.c_str());
        return 0;
    };
    if (fn == "defined" || fn == "notempty" || fn == "fileexists" || fn == "file_exists" ||
        fn == "env") {
        if (count != 1)
            return wrongCount("too many arguments");
        ut_string value;
        if (fn == "defined")
            return lookup(arguments[0], false, nullptr) ? 1 : 0;
        if (fn == "notempty")
            return lookup(arguments[0], false, &value) && value.length() > 0 ? 1 : 0;
        if (fn == "env") {
            if (!hooks || !hooks->has_variable || !hooks->get_variable ||
                !hooks->has_variable(hooks->context, arguments[0]))
                return 0;
            value = hooks->get_variable(hooks->context, arguments[0]);
            return static_cast<int32_t>(gen_strtoul(value.c_str(), nullptr, 0));
        }
        ut_string path = expand_directory_macros(arguments[0]);
        return plat_access(path.c_str(), 4) == 0 ? 1 : 0;
    }
    if (fn == "streq") {
        if (count < 2)
            return wrongCount("too few arguments");
        ut_string first;
        if (!lookup(arguments[0], !skip, &first))
            return 0;
        for (int i = 1; i < count; ++i) {
            ut_string other;
            if (!lookup(arguments[i], false, &other))
                other = arguments[i];
            if (other == first)
                return 1;
        }
        return 0;
    }
    std::string text = "unknown function: " + fn;
    report(GEN_ERROR, text.c_str());
    return 0;
}

ut_string simple_preprocessor::expand_directory_macros(const char* path) {
    std::string text = path ? path : "";
    if (text.find("_DIR") == std::string::npos)
        return ut_string(text.c_str());
    ut_string value;
    std::string trellisDir;
    if (lookup("_TRELLIS_DIR", false, &value))
        trellisDir = value.c_str();
    else if (const char* install = gen_install_dir())
        trellisDir = install;
    std::string dir;
    if (lookup("__DIR__", false, &value))
        dir = value.c_str();
    else
        dir = gen_getcwd();
    replaceAll(&text, "${__TRELLIS_DIR__}", trellisDir);
    replaceAll(&text, "${_TRELLIS_DIR}", trellisDir);
    replaceAll(&text, "${__DIR__}", dir);
    replaceWord(&text, "_TRELLIS_DIR", trellisDir);
    return ut_string(text.c_str());
}
