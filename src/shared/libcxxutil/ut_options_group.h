// A group of the options database: a named node of a tree with typed attributes (strings,
// numbers and lists of them), the operations on its children and the accessor family of its
// attributes.
#pragma once

#include "ut_string.h"

#include <cstdint>
#include <vector>

enum ut_options_attribute_type : int32_t {
    UT_OPTION_STR = 0,
    UT_OPTION_INT32 = 1,
    UT_OPTION_STR_LIST = 2,
    UT_OPTION_INT32_LIST = 3,
};

// The name by which messages call a type: "str", "int32", "str_list", "int32_list".
const char* ut_options_type_name(ut_options_attribute_type type);

// One attribute. Only the member of its type is meaningful.
struct ut_options_attribute {
    ut_options_attribute_type type = UT_OPTION_STR;
    ut_string name;
    ut_string str;
    int32_t number = 0;
    std::vector<ut_string> strings;
    std::vector<int32_t> numbers;

    // The record asked for another type than its own: a string gives null, a number -1, a
    // number list nothing; as an array of strings, a string gives one element and a string
    // list all of them.
    const char* asString() const { return type == UT_OPTION_STR ? str.c_str() : nullptr; }
    int32_t asNumber() const { return type == UT_OPTION_INT32 ? number : -1; }
    std::vector<ut_string> asStrings() const;
};

// A node of the tree. Owns its children and attributes; a child knows its parent (not owned).
// Names are compared exactly, and an absent or empty name finds nothing. Children and
// attributes keep the order of creation. One thread; nothing here waits.
class ut_options_group {
public:
    enum : uint32_t {
        MISSING_REQUIRED = 32, // a required attribute was missing
        OPEN_IN_BRACES = 64,   // open in braces while a file is read
        IS_DATABASE = 128,
    };

    explicit ut_options_group(const char* name = nullptr);
    virtual ~ut_options_group();
    ut_options_group(const ut_options_group&) = delete;
    ut_options_group& operator=(const ut_options_group&) = delete;

    const ut_string& name() const { return groupName; }
    ut_options_group* parent() const { return parentGroup; }
    uint32_t flags = 0;

    // ---- Children ----
    ut_options_group* find_child(const char* name) const;
    ut_options_group* find_child(const char* a, const char* b) const;
    ut_options_group* find_child(const char* a, const char* b, const char* c) const;
    // Appends a new child, even when the name is taken.
    ut_options_group* add_child(const char* name);
    ut_options_group* find_or_add_child(const char* name);
    // Unlinks `child` (destroying it when asked); false when it is not a child of this group.
    bool remove_child(ut_options_group* child, bool destroy);
    // A copy of `source` under this group, named `newName` when given, with its attributes
    // and, with `deep`, its sub-groups.
    ut_options_group* copy_child(const ut_options_group* source, const char* newName, bool deep);
    // Copies the attributes of `other` here; with `replace` false names that exist here are
    // left alone. Lists are not carried.
    void merge_attributes(const ut_options_group* other, bool replace);
    int child_count() const;
    ut_options_group* first_child() const { return firstChild; }
    ut_options_group* next_sibling() const { return nextSibling; }
    // Orders the children by the string attributes `key1` and `key2` (a present string before
    // an absent one), then by name; with no keys, by name.
    void sort_children(const char* key1 = nullptr, const char* key2 = nullptr);
    // The names from the outermost group to this one joined with "."; the database adds none.
    // With `withFile`, when exactly one file has been read into the tree, "<file>:" in front.
    ut_string full_name(bool withFile) const;

    // ---- Attributes ----
    int attribute_count() const { return static_cast<int>(attributes.size()); }
    const ut_options_attribute& attribute(int index) const { return attributes[index]; }
    const ut_options_attribute* find_attribute(const char* name) const;
    bool attribute_exists(const char* name) const { return find_attribute(name) != nullptr; }
    // Closes the gap; false when there was none of that name.
    bool remove_attribute(const char* name);

    // Append a record without looking for the name.
    void add_str_attribute(const char* name, const char* value);
    void add_int32_attribute(const char* name, int32_t value);
    void add_str_list_attribute(const char* name, const std::vector<ut_string>& values);
    void add_int32_list_attribute(const char* name, const std::vector<int32_t>& values);
    // Replace the value and type of an existing attribute, or add one; true if it existed.
    bool add_or_replace_str_attribute(const char* name, const char* value);
    bool add_or_replace_int32_attribute(const char* name, int32_t value);
    bool replace_with_str_list(const char* name, const std::vector<ut_string>& values);
    bool replace_with_int32_list(const char* name, const std::vector<int32_t>& values);
    // Strings concatenate to an existing string (another type becomes a string first); list
    // elements are appended to a list of their kind (another type is replaced by a list of
    // one). A missing attribute is added. True if it existed.
    bool append_str_attribute(const char* name, const char* value);
    bool append_str_list_attribute(const char* name, const char* value);
    bool append_int32_list_attribute(const char* name, int32_t value);

    // Getters. The required form gives `fallback` for a missing attribute or one of another
    // type, sets MISSING_REQUIRED and warns "\"<full name>\": is missing required <type>
    // attribute \"<name>\""; the optional form is silent. Strings stay owned by the group.
    const char* get_str_attribute(const char* name, const char* fallback);
    const char* get_opt_str_attribute(const char* name, const char* fallback) const;
    int32_t get_int32_attribute(const char* name, int32_t fallback);
    int32_t get_opt_int32_attribute(const char* name, int32_t fallback) const;
    // A number that is not 0 is true.
    bool get_bool_attribute(const char* name, bool fallback);
    bool get_opt_bool_attribute(const char* name, bool fallback) const;
    // A number, or a string that holds nothing but a number (base by its prefix); a string
    // whose number is -1 gives the fallback too.
    int32_t get_number_attribute(const char* name, int32_t fallback);
    int32_t get_opt_number_attribute(const char* name, int32_t fallback) const;
    // A string gives one element, a string list all of them, anything else none.
    std::vector<ut_string> get_str_array_attribute(const char* name);
    std::vector<ut_string> get_opt_str_array_attribute(const char* name) const;
    // Shortcuts through one child: the fallback when the child is missing.
    const char* get_opt_str_attribute(const char* child, const char* name,
                                      const char* fallback) const;
    int32_t get_opt_int32_attribute(const char* child, const char* name, int32_t fallback) const;
    bool get_opt_bool_attribute(const char* child, const char* name, bool fallback) const;

protected:
    // The file name that full_name puts in front, or null; the database knows it.
    virtual const char* single_file_read() const { return nullptr; }

private:
    ut_options_attribute* findAttribute(const char* name);
    ut_options_attribute& addAttribute(const char* name, ut_options_attribute_type type);
    void missing(const char* name, ut_options_attribute_type type);
    void link(ut_options_group* child);
    void copyAttributesFrom(const ut_options_group* other);

    ut_string groupName;
    ut_options_group* parentGroup = nullptr;
    ut_options_group* nextSibling = nullptr;
    ut_options_group* firstChild = nullptr;
    ut_options_group* lastChild = nullptr;
    std::vector<ut_options_attribute> attributes;
};
