// The frame of configuration defaults and its process-wide list.
#include "defaultconfig.h"

#include "gen_string.h"
#include "indgen.h"

#include <algorithm>
#include <vector>

namespace {
// Made at first use, during static initialisation; never freed.
std::vector<DefaultConfig*>& configList() {
    static auto* list = new std::vector<DefaultConfig*>;
    return *list;
}
bool g_defaultsDone = false;
} // namespace

DefaultConfig::DefaultConfig(const char* groupName) : group(gen_strdup(groupName)) {
    if (!g_defaultsDone)
        configList().push_back(this);
    else
        finishDefaults();
}

DefaultConfig::~DefaultConfig() {
    std::vector<DefaultConfig*>& list = configList();
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
    gen_free(group);
}

void DefaultConfig::finishDefaults() {}

void runDefaultConfigs() {
    if (g_defaultsDone)
        return;
    g_defaultsDone = true;
    std::vector<DefaultConfig*> list = configList();
    for (DefaultConfig* config : list)
        config->finishDefaults();
}
