// WhiteBoard group files: reading one into a group, and where they lie.
#include "whiteboard_files.h"

#include "gen_config_dirs.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "ut_options_database.h"

namespace {
char* g_whiteBoardDirectory = nullptr; // kept for the run once known
} // namespace

bool readGroupFile(Group* group, const char* path) {
    if (path == nullptr)
        return false;
    ut_options_database db(group->getName());
    if (db.read(path))
        takeGroupFileValues(group, db);
    return true;
}

void takeGroupFileValues(Group* group, const ut_options_group& root) {
    if (const ut_options_group* block = root.find_child("Bool")) {
        for (int i = 0; i < block->attribute_count(); ++i) {
            const ut_options_attribute& a = block->attribute(i);
            int32_t value = a.asNumber();
            if (value == 0 || value == 1)
                group->setBool(a.name.c_str(), value == 1, false);
        }
    }
    if (const ut_options_group* block = root.find_child("Int32"))
        for (int i = 0; i < block->attribute_count(); ++i)
            group->setInt32(block->attribute(i).name.c_str(), block->attribute(i).asNumber(),
                            false);
    // An item of another type reads as no string, which a group keeps as an empty one.
    if (const ut_options_group* block = root.find_child("String"))
        for (int i = 0; i < block->attribute_count(); ++i)
            group->setString(block->attribute(i).name.c_str(), block->attribute(i).asString(),
                             false);
    if (const ut_options_group* block = root.find_child("StringList"))
        for (int i = 0; i < block->attribute_count(); ++i)
            group->setStringList(block->attribute(i).name.c_str(), block->attribute(i).asStrings(),
                                 false);
}

char* defaultGroupFile(const char* group) {
    char* file = gen_concat2(group, ".wbd");
    const char* dir = whiteBoardDirectory();
    if (dir == nullptr)
        return file;
    char* path = gen_path_join(dir, file);
    gen_free(file);
    return path;
}

const char* whiteBoardDirectory() {
    if (g_whiteBoardDirectory)
        return g_whiteBoardDirectory;
    const char* user = gen_user_config_dir(true, nullptr);
    if (user == nullptr || !gen_is_directory(user))
        return nullptr;
    g_whiteBoardDirectory = gen_path_join(user, "WhiteBoard");
    // A folder that cannot be made is no failure here: reading from it then finds nothing.
    gen_mkdir(g_whiteBoardDirectory, 0755);
    return g_whiteBoardDirectory;
}
