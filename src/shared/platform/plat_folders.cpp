#include "plat_folders.h"

#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {
bool copyOut(const char* text, char* out, size_t size) {
    if (!text || !*text)
        return false;
    size_t n = std::strlen(text);
    if (n + 1 > size)
        return false;
    std::memcpy(out, text, n + 1);
    return true;
}

const struct passwd* ownEntry() {
    // getpwuid's static record is read at once by the callers below.
    return getpwuid(geteuid());
}
} // namespace

bool plat_user_name(char* out, size_t size) {
    const struct passwd* pw = ownEntry();
    if (pw && copyOut(pw->pw_name, out, size))
        return true;
    return copyOut(std::getenv("USER"), out, size) || copyOut(std::getenv("LOGNAME"), out, size);
}

bool plat_home_dir(char* out, size_t size) {
    if (copyOut(std::getenv("HOME"), out, size))
        return true;
    const struct passwd* pw = ownEntry();
    return pw && copyOut(pw->pw_dir, out, size);
}

bool plat_user_config_base(char* out, size_t size) {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && xdg[0] == '/' && copyOut(xdg, out, size))
        return true;
    char home[4096];
    if (!plat_home_dir(home, sizeof home))
        return false;
    size_t n = std::strlen(home);
    while (n > 1 && home[n - 1] == '/')
        home[--n] = '\0';
    const char* tail = n == 1 ? ".config" : "/.config";
    if (n + std::strlen(tail) + 1 > size)
        return false;
    std::memcpy(out, home, n);
    std::strcpy(out + n, tail);
    return true;
}

const char* plat_default_temp_dir() {
    return "/tmp";
}

int plat_current_thread_id() {
    return static_cast<int>(syscall(SYS_gettid));
}
