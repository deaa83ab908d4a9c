// Reading and writing group files for the service.
#include "group_files.h"

#include "gen_file.h"
#include "ut_options_database.h"
#include "whiteboard_files.h"

GroupFileRead loadGroupFile(Group* group, const char* path) {
    if (!gen_exists(path))
        return GroupFileRead::missing;
    ut_options_database db(group->getName());
    if (!db.read(path))
        return GroupFileRead::broken;
    takeGroupFileValues(group, db);
    return GroupFileRead::read;
}

namespace {
// The text form has no empty names (such a line would not read back): those items stay in
// memory only.
bool writable(const ut_string& name) {
    return name.length() > 0;
}
} // namespace

std::string groupFileText(const Group& group) {
    ut_options_database db(group.getName());
    if (!group.bools().empty()) {
        ut_options_group* block = db.add_child("Bool");
        for (const auto& [name, value] : group.bools())
            if (writable(name))
                block->add_int32_attribute(name.c_str(), value ? 1 : 0);
    }
    if (!group.int32s().empty()) {
        ut_options_group* block = db.add_child("Int32");
        for (const auto& [name, value] : group.int32s())
            if (writable(name))
                block->add_int32_attribute(name.c_str(), value);
    }
    if (!group.strings().empty()) {
        ut_options_group* block = db.add_child("String");
        for (const auto& [name, value] : group.strings())
            if (writable(name))
                block->add_str_attribute(name.c_str(), value.c_str());
    }
    if (!group.stringLists().empty()) {
        ut_options_group* block = db.add_child("StringList");
        for (const auto& [name, value] : group.stringLists())
            if (writable(name))
                block->add_str_list_attribute(name.c_str(), value);
    }
    return db.text();
}
