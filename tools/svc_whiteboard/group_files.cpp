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
    // A block is made with its first item that can be written.
    auto block = [&](const char* name) {
        ut_options_group* found = db.find_child(name);
        return found ? found : db.add_child(name);
    };
    for (const auto& [name, value] : group.bools())
        if (writable(name))
            block("Bool")->add_int32_attribute(name.c_str(), value ? 1 : 0);
    for (const auto& [name, value] : group.int32s())
        if (writable(name))
            block("Int32")->add_int32_attribute(name.c_str(), value);
    for (const auto& [name, value] : group.strings())
        if (writable(name))
            block("String")->add_str_attribute(name.c_str(), value.c_str());
    for (const auto& [name, value] : group.stringLists())
        if (writable(name))
            block("StringList")->add_str_list_attribute(name.c_str(), value);
    return db.text();
}
