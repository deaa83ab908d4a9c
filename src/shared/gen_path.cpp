#include "gen_path.h"

#include "gen_string.h"
#include "gen_viewpath.h"
#include "indgen.h"
#include "plat_files.h"
#include "plat_folders.h"

#include <cstring>
#include <string>
#include <vector>

namespace {
char g_separator = '/';
bool g_posix = false;
char g_cwd[4096]; // the current directory cache; empty when stale

bool isSeparator(char c) {
    return c == '/' || (c == '\\' && !g_posix);
}
bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool endsComponent(char c) {
    return isSeparator(c) || (c == ':' && !g_posix);
}

const char* lastComponentStart(const char* path) {
    const char* start = path;
    for (const char* p = path; *p; ++p)
        if (endsComponent(*p))
            start = p + 1;
    return start;
}

// The last `.` of the last component, or null.
const char* lastDot(const char* path) {
    return std::strrchr(lastComponentStart(path), '.');
}

// "so" or "sa" when `component` is a shared-library name with a version, such as "x.so.1.2".
const char* versionedLibraryExtension(const char* component) {
    for (const char* p = std::strchr(component, '.'); p; p = std::strchr(p + 1, '.')) {
        if (p[1] != 's' || (p[2] != 'o' && p[2] != 'a') || p[3] != '.')
            continue;
        const char* rest = p + 4;
        bool version = *rest != '\0';
        for (const char* q = rest; *q; ++q)
            if (!(*q >= '0' && *q <= '9') && *q != '.')
                version = false;
        if (version)
            return p[2] == 'o' ? "so" : "sa";
    }
    return nullptr;
}
} // namespace

bool gen_set_path_separator(char separator) {
    if (separator != '/' && separator != '\\')
        return false;
    g_separator = separator;
    return true;
}

char gen_path_separator() {
    return g_posix ? '/' : g_separator;
}

void gen_set_posix_paths(bool on) {
    g_posix = on;
}

bool gen_posix_paths() {
    return g_posix;
}

bool gen_is_path_separator(char c) {
    return isSeparator(c);
}

const char* gen_basename(const char* path) {
    return path ? lastComponentStart(path) : nullptr;
}

char* gen_dirname(const char* path) {
    if (!path)
        return nullptr;
    const char* last = nullptr;
    for (const char* p = path; *p; ++p)
        if (endsComponent(*p))
            last = p;
    if (!last)
        return nullptr;
    bool keep = last == path || (!g_posix && (*last == ':' || last[-1] == ':'));
    return gen_strndup(path, static_cast<int>(last - path) + (keep ? 1 : 0));
}

bool gen_is_absolute(const char* path) {
    if (!path || !*path)
        return false;
    if (g_posix)
        return path[0] == '/';
    return isSeparator(path[0]) || path[0] == '~' || path[1] == ':';
}

void gen_path_normalise(char* path) {
    if (!path || !*path)
        return;
    size_t length = std::strlen(path);
    if (!g_posix)
        for (size_t i = 0; i < length; ++i)
            if (path[i] == '\\')
                path[i] = '/';

    std::string prefix;
    size_t i = 0;
    if (path[0] == '/' && path[1] == '/' && path[2] && path[2] != '/') {
        // A share: "//server" stays as it is; what follows is rooted at the server.
        i = 2;
        while (path[i] && path[i] != '/')
            ++i;
        prefix.assign(path, i);
    } else if (!g_posix && isLetter(path[0]) && path[1] == ':') {
        prefix.push_back(static_cast<char>(path[0] & ~0x20));
        prefix.push_back(':');
        i = 2;
    }
    bool rooted = false;
    if (path[i] == '/') {
        prefix.push_back('/');
        rooted = true;
        ++i;
    } else if (path[i] == '.' && path[i + 1] == '/') {
        prefix += "./";
        i += 2;
    }
    bool finalSeparator = length > i && path[length - 1] == '/';

    std::vector<std::string> parts;
    while (path[i]) {
        size_t start = i;
        while (path[i] && path[i] != '/')
            ++i;
        std::string part(path + start, i - start);
        if (path[i] == '/')
            ++i;
        if (part.empty() || part == ".")
            continue;
        if (part == ".." && !parts.empty() && parts.back() != "..")
            parts.pop_back();
        else
            parts.push_back(std::move(part));
    }

    std::string result = prefix;
    for (size_t k = 0; k < parts.size(); ++k) {
        if (k > 0)
            result.push_back('/');
        result += parts[k];
    }
    if (finalSeparator && !parts.empty())
        result.push_back('/');
    if (result.empty() || (!rooted && parts.empty() && result == "./"))
        result = ".";
    if (gen_path_separator() == '\\')
        for (char& c : result)
            if (c == '/')
                c = '\\';
    std::memcpy(path, result.c_str(), result.size() + 1);
}

char* gen_path_join(const char* dir, const char* name) {
    if (!name || !*name)
        return dir ? gen_strdup(dir) : name ? gen_strdup(name) : nullptr;
    if (!dir || !*dir || gen_is_absolute(name))
        return gen_strdup(name);
    size_t n = std::strlen(dir);
    char separator[2] = {gen_path_separator(), '\0'};
    char* joined = gen_concat3(dir, endsComponent(dir[n - 1]) ? "" : separator, name);
    gen_path_normalise(joined);
    return joined;
}

char* gen_path_join3(const char* dir, const char* a, const char* b) {
    char* first = gen_path_join(dir, a);
    char* result = gen_path_join(first, b);
    gen_free(first);
    return result;
}

char* gen_abspath(const char* path) {
    if (!path)
        return nullptr;
    if (!*path)
        return gen_strdup("");
    if (gen_is_absolute(path)) {
        char* copy = gen_strdup(path);
        gen_path_normalise(copy);
        return copy;
    }
    return gen_path_join(gen_getcwd(), path);
}

const char* gen_extension(const char* path) {
    if (!path)
        return nullptr;
    if (const char* library = versionedLibraryExtension(lastComponentStart(path)))
        return library;
    const char* dot = lastDot(path);
    return dot ? dot + 1 : nullptr;
}

bool gen_has_extension(const char* path, const char* ext) {
    const char* own = gen_extension(path);
    if (!ext)
        return own != nullptr;
    if (*ext == '.')
        ++ext;
    return own && gen_strcasecmp_eq(own, ext);
}

char* gen_set_extension(const char* path, const char* ext) {
    if (!path)
        return nullptr;
    const char* dot = lastDot(path);
    size_t keep = dot ? static_cast<size_t>(dot - path) : std::strlen(path);
    char* base = gen_strndup(path, static_cast<int>(keep));
    if (!ext)
        return base;
    if (*ext == '.')
        ++ext;
    return gen_append3(base, ".", ext);
}

char* gen_add_extension(const char* path, const char* ext) {
    if (!path || !ext)
        return gen_strdup(path);
    size_t n = std::strlen(path);
    bool pathDot = n > 0 && path[n - 1] == '.';
    if (pathDot && *ext == '.')
        ++ext;
    return gen_concat3(path, pathDot || *ext == '.' ? "" : ".", ext);
}

const char* gen_getcwd() {
    if (g_cwd[0])
        return g_cwd;
    if (plat_getcwd(g_cwd, sizeof g_cwd) && g_cwd[0])
        return g_cwd;
    if (plat_home_dir(g_cwd, sizeof g_cwd))
        return g_cwd;
    g_cwd[0] = '\0';
    gen_fatal(1, "Could not get current working directory.");
}

int gen_chdir(const char* path) {
    g_cwd[0] = '\0';
    return V_chdir(path) == 0 ? 0 : -1;
}
