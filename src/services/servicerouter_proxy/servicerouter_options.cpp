// The router options of the command line: parsing and removal, the warnings about the debug
// options, and the debugger started on this process.
#include "servicerouter_proxy.h"

#include "gen_asprintf.h"
#include "gen_file.h"
#include "gen_path.h"
#include "gen_string.h"
#include "indgen.h"
#include "plat_process.h"
#include "stp_log.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

enum class OptionKind {
    connect_port,
    connect_host,
    log,
    router_log,
    router_internal_log,
    zone,
    client_start_cookie,
    shared,
    private_,
    reuse,
    new_,
    debug,
    debugger,
    debugger_opts,
    debug_startup,
    debug_debugger,
    debug_debugger_opts,
    dir
};

struct OptionRow {
    const char* word;
    OptionKind kind;
    bool takesValue;
};

// Exact, case-sensitive words.
const OptionRow kOptions[] = {
    {"-connect_servicerouter", OptionKind::connect_port, true},
    {"-sr_connect_servicerouter_host", OptionKind::connect_host, true},
    {"-sr_connect_servicerouter_port", OptionKind::connect_port, true},
    {"-sr_log", OptionKind::log, true},
    {"-sr_log_router", OptionKind::router_log, true},
    {"-sr_log_all", OptionKind::router_log, true},
    {"-sr_log_router_internal", OptionKind::router_internal_log, true},
    {"-sr_zone", OptionKind::zone, true},
    {"-sr_client_start_cookie", OptionKind::client_start_cookie, true},
    {"-sr_shared", OptionKind::shared, false},
    {"-sr_private", OptionKind::private_, false},
    {"-sr_reuse", OptionKind::reuse, false},
    {"-sr_new", OptionKind::new_, false},
    {"-sr_debug", OptionKind::debug, true},
    {"-sr_debugger", OptionKind::debugger, true},
    {"-sr_debugger_opts", OptionKind::debugger_opts, true},
    {"-sr_debug_startup", OptionKind::debug_startup, false},
    {"-sr_debug_debugger", OptionKind::debug_debugger, true},
    {"-sr_debug_debugger_opts", OptionKind::debug_debugger_opts, true},
    {"-sr_dir", OptionKind::dir, true},
};

const OptionRow* findOption(const char* word) {
    for (const OptionRow& row : kOptions)
        if (std::strcmp(row.word, word) == 0)
            return &row;
    return nullptr;
}

void replace(char** field, const char* value) {
    gen_free(*field);
    *field = gen_strdup(value);
}

// Numbers take their base from their prefix: 0x hexadecimal, 0 octal, else decimal.
uint32_t readNumber(const char* text) {
    return static_cast<uint32_t>(gen_strtoul(text, nullptr, 0));
}

// Removes `n` words at `at`, keeping the vector null-terminated.
void removeWords(int* argc, char** argv, int at, int n) {
    for (int i = at; i + n <= *argc; ++i)
        argv[i] = argv[i + n];
    *argc -= n;
    argv[*argc] = nullptr;
}

// Words of a command line: blanks separate, double quotes group.
std::vector<std::string> splitWords(const char* text) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false, quoted = false;
    for (const char* p = text; *p; ++p) {
        if (*p == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (*p == ' ' || *p == '\t')) {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += *p;
            inWord = true;
        }
    }
    if (inWord)
        words.push_back(word);
    return words;
}

void spin() {}

} // namespace

void ServiceRouter_Proxy::parseOptions(int* argc, char** argv) {
    int i = 1;
    while (i < *argc) {
        const OptionRow* row = findOption(argv[i]);
        // An unknown word stays; so does an option that needs a value and has none behind it.
        if (!row || (row->takesValue && i + 1 >= *argc)) {
            ++i;
            continue;
        }
        const char* value = row->takesValue ? argv[i + 1] : nullptr;
        switch (row->kind) {
        case OptionKind::connect_port:
            options.launched_by_router = true;
            options.router_port = readNumber(value);
            break;
        case OptionKind::connect_host:
            options.launched_by_router = true;
            replace(&options.router_host, value);
            break;
        case OptionKind::log:
            if (FILE* file = gen_fopen(value, "we")) {
                if (log_file)
                    std::fclose(log_file);
                log_file = file;
                setLog(new TimestampedSTPFileLog(file, false));
            }
            break;
        case OptionKind::router_log:
            replace(&options.router_log, value);
            break;
        case OptionKind::router_internal_log:
            replace(&options.router_internal_log, value);
            break;
        case OptionKind::zone:
            replace(&options.zone, value);
            break;
        case OptionKind::client_start_cookie:
            options.client_start_cookie = readNumber(value);
            options.has_client_start_cookie = true;
            break;
        case OptionKind::shared:
            options.private_router = false;
            break;
        case OptionKind::private_:
            options.private_router = true;
            break;
        case OptionKind::reuse:
            options.new_router = false;
            break;
        case OptionKind::new_:
            options.new_router = true;
            break;
        case OptionKind::debug:
            replace(&options.debug_plugin, value);
            break;
        case OptionKind::debugger:
            replace(&options.debugger, value);
            break;
        case OptionKind::debugger_opts:
            replace(&options.debugger_opts, value);
            break;
        case OptionKind::debug_startup:
            options.debug_startup = true;
            break;
        case OptionKind::debug_debugger:
            replace(&options.debug_debugger, value);
            break;
        case OptionKind::debug_debugger_opts:
            replace(&options.debug_debugger_opts, value);
            break;
        case OptionKind::dir:
            gen_free(options.router_dir);
            options.router_dir = gen_abspath(value);
            break;
        }
        removeWords(argc, argv, i, row->takesValue ? 2 : 1);
    }
    validateOptions();
}

void ServiceRouter_Proxy::validateOptions() {
    if (options.debugger && !options.debug_plugin)
        gen_warning("Must specify -sr_debug for -sr_debugger to have meaning.");
    if (options.debugger_opts && !options.debug_plugin)
        gen_warning("Must specify -sr_debug for -sr_debugger_opts to have meaning.");
    if (options.debug_startup && !(options.debug_debugger && options.debug_debugger_opts))
        gen_warning("Must specify both -sr_debug_debugger and -sr_debug_debugger_opts when "
                    "-sr_debug_startup is passed.");
    if ((options.debug_debugger || options.debug_debugger_opts) && !options.debug_startup)
        gen_warning("Must specify -sr_debug_startup with -sr_debug_debugger and "
                    "-sr_debug_debugger_opts.");
}

void ServiceRouter_Proxy::startDebuggerOnSelf() {
    if (!options.debug_startup || !options.debug_debugger || !options.debug_debugger_opts)
        return;
    char* command = gen_asprintf("%s %s %d", options.debug_debugger, options.debug_debugger_opts,
                                 plat_current_process_id());
    std::vector<std::string> words = splitWords(command);
    gen_free(command);
    if (words.empty())
        return;
    std::vector<const char*> argv;
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    argv.push_back(nullptr);
    PlatProcess* process = plat_spawn(argv.data(), nullptr, nullptr);
    if (!process)
        return;
    plat_close_process(process);
    // Gives the debugger time to attach before the process goes on.
    void (*volatile call)() = spin;
    for (uint32_t i = 0; i < 0x8fffffffu; ++i)
        call();
}
