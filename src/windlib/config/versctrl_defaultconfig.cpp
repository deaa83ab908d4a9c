#include "versctrl_defaultconfig.h"

#include "gen_string.h"
#include "indgen.h"

namespace {
constexpr const char* kDefaultCVSPath = "cvs.exe";
constexpr int32_t kDefaultTimeLimitSeconds = 300;

char* g_cvsPath = nullptr; // null: the default
int32_t g_timeLimitSeconds = kDefaultTimeLimitSeconds;
} // namespace

const char* versctrlCVSPath() {
    return g_cvsPath ? g_cvsPath : kDefaultCVSPath;
}

void setVersctrlCVSPath(const char* path) {
    char* copy = path ? gen_strdup(path) : nullptr;
    gen_free(g_cvsPath);
    g_cvsPath = copy;
}

int32_t versctrlCVSTimeLimitSeconds() {
    return g_timeLimitSeconds;
}

void setVersctrlCVSTimeLimitSeconds(int32_t seconds) {
    g_timeLimitSeconds = seconds;
}
