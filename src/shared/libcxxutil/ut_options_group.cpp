// A group of the options database: children and attributes.
#include "ut_options_group.h"

#include "gen_string.h"
#include "indgen.h"

#include <algorithm>
#include <cstring>

namespace {
bool usable(const char* name) {
    return name != nullptr && *name != '\0';
}
} // namespace

const char* ut_options_type_name(ut_options_attribute_type type) {
    switch (type) {
    case UT_OPTION_STR:
        return "str";
    case UT_OPTION_INT32:
        return "int32";
    case UT_OPTION_STR_LIST:
        return "str_list";
    case UT_OPTION_INT32_LIST:
        return "int32_list";
    }
    return "";
}

std::vector<ut_string> ut_options_attribute::asStrings() const {
    if (type == UT_OPTION_STR)
        return {str};
    if (type == UT_OPTION_STR_LIST)
        return strings;
    return {};
}

ut_options_group::ut_options_group(const char* name) : groupName(name ? name : "") {}

ut_options_group::~ut_options_group() {
    ut_options_group* child = firstChild;
    while (child) {
        ut_options_group* next = child->nextSibling;
        delete child;
        child = next;
    }
}

// ---- Children

ut_options_group* ut_options_group::find_child(const char* name) const {
    if (!usable(name))
        return nullptr;
    for (ut_options_group* child = firstChild; child; child = child->nextSibling)
        if (child->groupName == name)
            return child;
    return nullptr;
}

ut_options_group* ut_options_group::find_child(const char* a, const char* b) const {
    ut_options_group* child = find_child(a);
    return child ? child->find_child(b) : nullptr;
}

ut_options_group* ut_options_group::find_child(const char* a, const char* b, const char* c) const {
    ut_options_group* child = find_child(a, b);
    return child ? child->find_child(c) : nullptr;
}

void ut_options_group::link(ut_options_group* child) {
    child->parentGroup = this;
    child->nextSibling = nullptr;
    if (lastChild)
        lastChild->nextSibling = child;
    else
        firstChild = child;
    lastChild = child;
}

ut_options_group* ut_options_group::add_child(const char* name) {
    ut_options_group* child = new ut_options_group(name);
    link(child);
    return child;
}

ut_options_group* ut_options_group::find_or_add_child(const char* name) {
    ut_options_group* child = find_child(name);
    return child ? child : add_child(name);
}

bool ut_options_group::remove_child(ut_options_group* child, bool destroy) {
    ut_options_group* previous = nullptr;
    for (ut_options_group* c = firstChild; c; previous = c, c = c->nextSibling) {
        if (c != child)
            continue;
        if (previous)
            previous->nextSibling = c->nextSibling;
        else
            firstChild = c->nextSibling;
        if (lastChild == c)
            lastChild = previous;
        c->parentGroup = nullptr;
        c->nextSibling = nullptr;
        if (destroy)
            delete c;
        return true;
    }
    return false;
}

void ut_options_group::copyAttributesFrom(const ut_options_group* other) {
    attributes = other->attributes;
}

ut_options_group* ut_options_group::copy_child(const ut_options_group* source, const char* newName,
                                               bool deep) {
    ut_options_group* copy = add_child(newName ? newName : source->groupName.c_str());
    copy->copyAttributesFrom(source);
    if (deep)
        for (ut_options_group* c = source->firstChild; c; c = c->nextSibling)
            copy->copy_child(c, nullptr, true);
    return copy;
}

void ut_options_group::merge_attributes(const ut_options_group* other, bool replace) {
    for (const ut_options_attribute& a : other->attributes) {
        if (a.type == UT_OPTION_STR_LIST || a.type == UT_OPTION_INT32_LIST)
            continue;
        if (!replace && find_attribute(a.name.c_str()))
            continue;
        if (a.type == UT_OPTION_STR)
            add_or_replace_str_attribute(a.name.c_str(), a.str.c_str());
        else
            add_or_replace_int32_attribute(a.name.c_str(), a.number);
    }
}

int ut_options_group::child_count() const {
    int count = 0;
    for (ut_options_group* c = firstChild; c; c = c->nextSibling)
        ++count;
    return count;
}

void ut_options_group::sort_children(const char* key1, const char* key2) {
    std::vector<ut_options_group*> children;
    for (ut_options_group* c = firstChild; c; c = c->nextSibling)
        children.push_back(c);
    // A present string sorts before an absent one; two absent ones are equal.
    auto compareKey = [](const ut_options_group* a, const ut_options_group* b, const char* key) {
        if (!key)
            return 0;
        const char* x = a->get_opt_str_attribute(key, nullptr);
        const char* y = b->get_opt_str_attribute(key, nullptr);
        if (x && y)
            return std::strcmp(x, y);
        return x ? -1 : y ? 1 : 0;
    };
    std::stable_sort(children.begin(), children.end(),
                     [&](const ut_options_group* a, const ut_options_group* b) {
                         int c = compareKey(a, b, key1);
                         if (c == 0)
                             c = compareKey(a, b, key2);
                         if (c == 0)
                             c = a->groupName.compare(b->groupName);
                         return c < 0;
                     });
    firstChild = lastChild = nullptr;
    for (ut_options_group* c : children)
        link(c);
}

ut_string ut_options_group::full_name(bool withFile) const {
    std::vector<const ut_options_group*> chain;
    const ut_options_group* root = this;
    for (const ut_options_group* g = this; g; g = g->parentGroup) {
        root = g;
        if (!(g->flags & IS_DATABASE))
            chain.push_back(g);
    }
    ut_string result;
    if (withFile)
        if (const char* file = root->single_file_read())
            result.append(file).append(':');
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (it != chain.rbegin())
            result.append('.');
        result.append((*it)->groupName);
    }
    return result.isNull() ? ut_string("") : result;
}

// ---- Attributes

const ut_options_attribute* ut_options_group::find_attribute(const char* name) const {
    if (!usable(name))
        return nullptr;
    for (const ut_options_attribute& a : attributes)
        if (a.name == name)
            return &a;
    return nullptr;
}

ut_options_attribute* ut_options_group::findAttribute(const char* name) {
    return const_cast<ut_options_attribute*>(find_attribute(name));
}

bool ut_options_group::remove_attribute(const char* name) {
    const ut_options_attribute* a = find_attribute(name);
    if (!a)
        return false;
    attributes.erase(attributes.begin() + (a - attributes.data()));
    return true;
}

ut_options_attribute& ut_options_group::addAttribute(const char* name,
                                                     ut_options_attribute_type type) {
    attributes.emplace_back();
    attributes.back().name = name ? name : "";
    attributes.back().type = type;
    return attributes.back();
}

void ut_options_group::add_str_attribute(const char* name, const char* value) {
    addAttribute(name, UT_OPTION_STR).str = value ? value : "";
}

void ut_options_group::add_int32_attribute(const char* name, int32_t value) {
    addAttribute(name, UT_OPTION_INT32).number = value;
}

void ut_options_group::add_str_list_attribute(const char* name,
                                              const std::vector<ut_string>& values) {
    addAttribute(name, UT_OPTION_STR_LIST).strings = values;
}

void ut_options_group::add_int32_list_attribute(const char* name,
                                                const std::vector<int32_t>& values) {
    addAttribute(name, UT_OPTION_INT32_LIST).numbers = values;
}

bool ut_options_group::add_or_replace_str_attribute(const char* name, const char* value) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_str_attribute(name, value);
        return false;
    }
    *a = ut_options_attribute{UT_OPTION_STR, a->name, value ? value : "", 0, {}, {}};
    return true;
}

bool ut_options_group::add_or_replace_int32_attribute(const char* name, int32_t value) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_int32_attribute(name, value);
        return false;
    }
    *a = ut_options_attribute{UT_OPTION_INT32, a->name, ut_string(), value, {}, {}};
    return true;
}

bool ut_options_group::replace_with_str_list(const char* name,
                                             const std::vector<ut_string>& values) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_str_list_attribute(name, values);
        return false;
    }
    *a = ut_options_attribute{UT_OPTION_STR_LIST, a->name, ut_string(), 0, values, {}};
    return true;
}

bool ut_options_group::replace_with_int32_list(const char* name,
                                               const std::vector<int32_t>& values) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_int32_list_attribute(name, values);
        return false;
    }
    *a = ut_options_attribute{UT_OPTION_INT32_LIST, a->name, ut_string(), 0, {}, values};
    return true;
}

bool ut_options_group::append_str_attribute(const char* name, const char* value) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_str_attribute(name, value);
        return false;
    }
    if (a->type != UT_OPTION_STR)
        *a = ut_options_attribute{UT_OPTION_STR, a->name, "", 0, {}, {}};
    a->str.append(value);
    return true;
}

bool ut_options_group::append_str_list_attribute(const char* name, const char* value) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_str_list_attribute(name, {ut_string(value ? value : "")});
        return false;
    }
    if (a->type == UT_OPTION_STR_LIST)
        a->strings.push_back(ut_string(value ? value : ""));
    else
        replace_with_str_list(name, {ut_string(value ? value : "")});
    return true;
}

bool ut_options_group::append_int32_list_attribute(const char* name, int32_t value) {
    ut_options_attribute* a = findAttribute(name);
    if (!a) {
        add_int32_list_attribute(name, {value});
        return false;
    }
    if (a->type == UT_OPTION_INT32_LIST)
        a->numbers.push_back(value);
    else
        replace_with_int32_list(name, {value});
    return true;
}

void ut_options_group::missing(const char* name, ut_options_attribute_type type) {
    flags |= MISSING_REQUIRED;
    gen_warning("\"%s\": is missing required %s attribute \"%s\"", full_name(true).c_str(),
                ut_options_type_name(type), name ? name : "");
}

const char* ut_options_group::get_opt_str_attribute(const char* name, const char* fallback) const {
    const ut_options_attribute* a = find_attribute(name);
    return a && a->type == UT_OPTION_STR ? a->str.c_str() : fallback;
}

const char* ut_options_group::get_str_attribute(const char* name, const char* fallback) {
    const ut_options_attribute* a = find_attribute(name);
    if (a && a->type == UT_OPTION_STR)
        return a->str.c_str();
    missing(name, UT_OPTION_STR);
    return fallback;
}

int32_t ut_options_group::get_opt_int32_attribute(const char* name, int32_t fallback) const {
    const ut_options_attribute* a = find_attribute(name);
    return a && a->type == UT_OPTION_INT32 ? a->number : fallback;
}

int32_t ut_options_group::get_int32_attribute(const char* name, int32_t fallback) {
    const ut_options_attribute* a = find_attribute(name);
    if (a && a->type == UT_OPTION_INT32)
        return a->number;
    missing(name, UT_OPTION_INT32);
    return fallback;
}

bool ut_options_group::get_opt_bool_attribute(const char* name, bool fallback) const {
    const ut_options_attribute* a = find_attribute(name);
    return a && a->type == UT_OPTION_INT32 ? a->number != 0 : fallback;
}

bool ut_options_group::get_bool_attribute(const char* name, bool fallback) {
    const ut_options_attribute* a = find_attribute(name);
    if (a && a->type == UT_OPTION_INT32)
        return a->number != 0;
    missing(name, UT_OPTION_INT32);
    return fallback;
}

int32_t ut_options_group::get_opt_number_attribute(const char* name, int32_t fallback) const {
    const ut_options_attribute* a = find_attribute(name);
    if (!a)
        return fallback;
    if (a->type == UT_OPTION_INT32)
        return a->number;
    if (a->type != UT_OPTION_STR || a->str.length() == 0)
        return fallback;
    const char* end = nullptr;
    int32_t value = static_cast<int32_t>(gen_strtoul(a->str.c_str(), &end, 0));
    if (end == a->str.c_str() || *end != '\0' || value == -1)
        return fallback;
    return value;
}

int32_t ut_options_group::get_number_attribute(const char* name, int32_t fallback) {
    const ut_options_attribute* a = find_attribute(name);
    if (!a || (a->type != UT_OPTION_INT32 && a->type != UT_OPTION_STR)) {
        missing(name, UT_OPTION_INT32);
        return fallback;
    }
    return get_opt_number_attribute(name, fallback);
}

std::vector<ut_string> ut_options_group::get_opt_str_array_attribute(const char* name) const {
    const ut_options_attribute* a = find_attribute(name);
    return a ? a->asStrings() : std::vector<ut_string>();
}

std::vector<ut_string> ut_options_group::get_str_array_attribute(const char* name) {
    const ut_options_attribute* a = find_attribute(name);
    if (!a || (a->type != UT_OPTION_STR && a->type != UT_OPTION_STR_LIST)) {
        missing(name, UT_OPTION_STR_LIST);
        return {};
    }
    return a->asStrings();
}

const char* ut_options_group::get_opt_str_attribute(const char* child, const char* name,
                                                    const char* fallback) const {
    const ut_options_group* g = find_child(child);
    return g ? g->get_opt_str_attribute(name, fallback) : fallback;
}

int32_t ut_options_group::get_opt_int32_attribute(const char* child, const char* name,
                                                  int32_t fallback) const {
    const ut_options_group* g = find_child(child);
    return g ? g->get_opt_int32_attribute(name, fallback) : fallback;
}

bool ut_options_group::get_opt_bool_attribute(const char* child, const char* name,
                                              bool fallback) const {
    const ut_options_group* g = find_child(child);
    return g ? g->get_opt_bool_attribute(name, fallback) : fallback;
}
