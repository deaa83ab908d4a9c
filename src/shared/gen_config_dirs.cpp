#include "gen_config_dirs.h"

#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_folders.h"
#include "plat_process.h"

#include <cstring>

namespace {
char* g_installDir = nullptr;
int g_isDevTree = -1; // -1: not yet known
char* g_userDir = nullptr;
char* g_userConfigDir = nullptr;
char* g_internalConfigDir = nullptr;

bool isDirectoryIn(const char* dir, const char* name) {
    char* path = gen_path_join(dir, name);
    bool result = gen_is_directory(path) != 0;
    gen_free(path);
    return result;
}
} // namespace

const char* gen_install_dir() {
    if (g_installDir)
        return g_installDir;
    const char* program = gen_program_path();
    char self[4096];
    if (!program && plat_self_path(self, sizeof self))
        program = self;
    g_installDir = gen_dirname(program);
    return g_installDir;
}

bool gen_is_dev_tree_at(const char* install_dir) {
    if (!install_dir)
        return false;
    return !isDirectoryIn(install_dir, "target") && !isDirectoryIn(install_dir, "defaults") &&
           isDirectoryIn(install_dir, "../src/target") &&
           isDirectoryIn(install_dir, "../src/configuration");
}

bool gen_is_dev_tree() {
    if (g_isDevTree < 0)
        g_isDevTree = gen_is_dev_tree_at(gen_install_dir()) ? 1 : 0;
    return g_isDevTree == 1;
}

char* gen_find_user_dir(const char* install_dir) {
    char base[4096];
    if (plat_user_config_base(base, sizeof base) && gen_mkdir_parents(base, 0755) == 0)
        return gen_strdup(base);
    if (!install_dir)
        return nullptr;
    char user[256];
    const char* name = plat_user_name(user, sizeof user) ? user : "default";
    char* users = gen_path_join(install_dir, "../Users");
    char* dir = gen_path_join(users, name);
    bool made = gen_mkdir(users, 0755) == 0 && gen_mkdir(dir, 0755) == 0;
    gen_free(users);
    if (made)
        return dir;
    gen_free(dir);
    return nullptr;
}

const char* gen_user_dir() {
    if (!g_userDir)
        g_userDir = gen_find_user_dir(gen_install_dir());
    return g_userDir;
}

const char* gen_user_config_dir(bool create, char** error) {
    if (!g_userConfigDir) {
        const char* user = gen_user_dir();
        if (!user) {
            if (create && error)
                *error = gen_strdup("Couldn't create user config directory: ");
            return nullptr;
        }
        g_userConfigDir = gen_path_join(user, "ORT");
    }
    if (create && gen_mkdir(g_userConfigDir, 0755) != 0 && error)
        *error = gen_concat2("Couldn't create user config directory: ", g_userConfigDir);
    return g_userConfigDir;
}

const char* gen_internal_config_dir() {
    if (!g_internalConfigDir) {
        const char* install = gen_install_dir();
        g_internalConfigDir = gen_path_join(
            install, gen_is_dev_tree() ? "../src/configuration/ort_internal" : "config");
    }
    return g_internalConfigDir;
}

char* gen_find_config(const char* dir, const char* name, bool use_name, bool use_override) {
    if (use_override && name) {
        char* file = gen_concat2(name, ".cfg");
        char* path = gen_path_join3(dir, "override", file);
        gen_free(file);
        if (gen_exists(path))
            return path;
        gen_free(path);
    }
    char* path = gen_path_join(dir, "ort.cfg");
    if (gen_exists(path) || !use_name || !name)
        return path;
    gen_free(path);
    char* file = gen_concat2(name, ".cfg");
    path = gen_path_join(dir, file);
    gen_free(file);
    return path;
}
