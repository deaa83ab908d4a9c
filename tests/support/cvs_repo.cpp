#include "cvs_repo.h"

#include "scratch_folder.h"

#include <chrono>
#include <filesystem>

namespace {
constexpr int kCvsTimeoutMs = 60000;
} // namespace

CvsRepo::CvsRepo(std::string folder, std::string name)
    : folder_(std::move(folder)), path_((std::filesystem::path(folder_) / name).string()) {}

std::string CvsRepo::root(CvsRootKind kind) const {
    return kind == CvsRootKind::fork ? ":fork:" + path_ : path_;
}

ProgramRun CvsRepo::cvs(const std::string& workingDir, const std::vector<std::string>& args) const {
    std::vector<std::string> argv{"cvs"};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, kCvsTimeoutMs, workingDir);
}

bool CvsRepo::run(const std::string& workingDir, const std::vector<std::string>& args) {
    ProgramRun r = cvs(workingDir, args);
    if (r.started && r.finished && r.exitCode == 0)
        return true;
    std::string words;
    for (const std::string& a : args)
        words += " " + a;
    lastError_ = "cvs" + words + " in " + workingDir + " (exit " + std::to_string(r.exitCode) +
                 "):\n" + r.err + r.out;
    return false;
}

bool CvsRepo::init() {
    return run(folder_, {"-d", path_, "init"});
}

bool CvsRepo::importModule(const std::string& module, const CvsFiles& files) {
    std::filesystem::path staging = std::filesystem::path(folder_) / (".import-" + module);
    std::filesystem::remove_all(staging);
    std::filesystem::create_directories(staging);
    for (const auto& [name, content] : files)
        writeFile((staging / name).string(), content);
    bool ok = run(staging.string(), {"-Q", "-d", path_, "import", "-m", "import " + module, module,
                                     "vendor", "start"});
    std::filesystem::remove_all(staging);
    return ok;
}

std::string CvsRepo::checkout(const std::string& module, const std::string& dir, CvsRootKind kind,
                              const std::vector<std::string>& extra) {
    std::string target = dir.empty() ? module : dir;
    std::vector<std::string> args{"-Q", "-d", root(kind), "checkout"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.insert(args.end(), {"-d", target, module});
    if (!run(folder_, args))
        return std::string();
    return (std::filesystem::path(folder_) / target).string();
}

bool CvsRepo::addFile(const std::string& workingCopy, const std::string& file,
                      const std::string& content, const std::string& message) {
    // New folders on the way are added first, top down.
    std::filesystem::path rel(file);
    std::filesystem::path dir;
    for (auto it = rel.begin(); std::next(it) != rel.end(); ++it) {
        dir /= *it;
        std::filesystem::path full = std::filesystem::path(workingCopy) / dir;
        if (!std::filesystem::exists(full / "CVS")) {
            std::filesystem::create_directories(full);
            if (!run(workingCopy, {"-Q", "add", dir.string()}))
                return false;
        }
    }
    writeFile((std::filesystem::path(workingCopy) / file).string(), content);
    if (!run(workingCopy, {"-Q", "add", file}))
        return false;
    return message.empty() || run(workingCopy, {"-Q", "commit", "-m", message, file});
}

bool CvsRepo::commitChange(const std::string& workingCopy, const std::string& file,
                           const std::string& content, const std::string& message) {
    std::filesystem::path path = std::filesystem::path(workingCopy) / file;
    writeFile(path.string(), content);
    // cvs takes a file whose time equals its entry's to the second for unchanged: a change
    // written in the second of its checkout would not be committed at all.
    std::error_code ignored;
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path, ignored) + std::chrono::seconds(1), ignored);
    return run(workingCopy, {"-Q", "commit", "-m", message, file});
}

bool cvsAvailable() {
    ProgramRun r = runProgram({"cvs", "--version"}, kCvsTimeoutMs);
    return r.started && r.exitCode == 0;
}
