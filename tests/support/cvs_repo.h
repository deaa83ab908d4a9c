// Real CVS repositories for tests: a repository made with `cvs init` in a scratch folder, modules
// imported into it, and working copies checked out of it with a local or a `:fork:` root.
#pragma once

#include "run_program.h"

#include <map>
#include <string>
#include <vector>

// How a working copy names its repository in CVS/Root.
enum class CvsRootKind { local, fork };

// Files of a module: path relative to the module's top -> content.
using CvsFiles = std::map<std::string, std::string>;

// One repository at `<folder>/<name>`. Every call runs the real `cvs` client with standard input
// from /dev/null, and reports failure as false with cvs's own words in lastError().
class CvsRepo {
public:
    // `folder` holds the repository and, usually, the working copies.
    explicit CvsRepo(std::string folder, std::string name = "repo");

    // `cvs -d ROOT init`.
    bool init();
    // Imports `files` as module `module` (vendor tag "vendor", release tag "start"): every file
    // gets revision 1.1.1.1, which cvs shows as 1.1.
    bool importModule(const std::string& module, const CvsFiles& files);
    // Checks `module` out as `<folder>/<dir>` (dir defaults to the module's name), naming the
    // repository in the form of `kind`. `extra` goes between "checkout" and the module (e.g.
    // {"-r", "b1"}). The working copy's path, or "" on failure.
    std::string checkout(const std::string& module, const std::string& dir = std::string(),
                         CvsRootKind kind = CvsRootKind::local,
                         const std::vector<std::string>& extra = {});

    // `cvs ARGS` in `workingDir` (for a working copy, its CVS/Root names the repository; pass
    // {"-d", root(), ...} where there is none).
    ProgramRun cvs(const std::string& workingDir, const std::vector<std::string>& args) const;
    // Like cvs(), but true only on exit code 0; the output of a failure is kept in lastError().
    bool run(const std::string& workingDir, const std::vector<std::string>& args);
    // Writes `content` to `<workingCopy>/<file>`, `cvs add`s it (with its new folders) and, with
    // a message, commits it.
    bool addFile(const std::string& workingCopy, const std::string& file,
                 const std::string& content, const std::string& message = std::string());
    // Writes `content` to `<workingCopy>/<file>` and commits it with `message`. The file's time
    // moves a second ahead, so that cvs sees the change even within the second of a checkout.
    bool commitChange(const std::string& workingCopy, const std::string& file,
                      const std::string& content, const std::string& message);

    // The repository's path, and the root in the form of `kind` (":fork:" + path).
    const std::string& path() const { return path_; }
    std::string root(CvsRootKind kind = CvsRootKind::local) const;
    const std::string& folder() const { return folder_; }
    const std::string& lastError() const { return lastError_; }

private:
    std::string folder_;
    std::string path_;
    std::string lastError_;
};

// Whether a `cvs` client can be run at all.
bool cvsAvailable();
