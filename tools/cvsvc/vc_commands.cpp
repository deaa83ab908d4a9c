#include "vc_commands.h"

#include "gen_process.h"
#include "indgen.h"
#include "report_format.h"
#include "versioncontrol_client_impl.h"

#include <cstdio>
#include <functional>
#include <map>

namespace {

// A request may run cvs for as long as the service allows it (five minutes by default).
constexpr int32_t kRequestMs = 600000;

// The client end of "VersionControl.CVS". The service never asks the user anything, so
// QueryUser has no answer.
class VcClient : public VersionControl_client_Impl {
public:
    void QueryUser(const char*, char** response_str) override { *response_str = nullptr; }

protected:
    ~VcClient() override = default;
};

// A string of a reply, taken over and freed.
std::string take(char* text) {
    std::string copy = text ? text : "";
    gen_free(text);
    return copy;
}

// The words of a list as the stubs take it; valid while `words` lives.
struct WordList {
    explicit WordList(const std::vector<std::string>& words) {
        for (const std::string& w : words)
            pointers.push_back(const_cast<char*>(w.c_str()));
        list.count = static_cast<int32_t>(pointers.size());
        list.data = pointers.empty() ? nullptr : pointers.data();
    }
    std::vector<char*> pointers;
    StringList list;
};

void printError(const std::string& text) {
    std::fputs(text.c_str(), stderr);
    if (!text.empty() && text.back() != '\n')
        std::fputc('\n', stderr);
}

// One command's run: the client, the JSON document and the exit code being built.
class Run {
public:
    Run(ServiceLink* link, const Invocation& inv, const OutputMode& mode)
        : link(link), inv(inv), mode(mode) {}

    int go() {
        client = link->connect(new VcClient, "VersionControl.CVS");
        if (client == nullptr) {
            printError(link->error());
            return kExitUnreachable;
        }
        static const std::map<std::string, void (Run::*)()> kHandlers = {
            {"status", &Run::status}, {"add", &Run::add},   {"remove", &Run::remove},
            {"commit", &Run::commit}, {"log", &Run::log},   {"blame", &Run::blame},
            {"info", &Run::info},     {"exec", &Run::exec},
        };
        json.beginObject().key("command").value(std::string(inv.command->name));
        (this->*kHandlers.at(inv.command->name))();
        if (lost) {
            printError("The service stopped answering before the command was done.");
            return kExitUnreachable;
        }
        json.endObject();
        if (mode.json)
            std::fputs(json.text().c_str(), stdout);
        else
            std::fputs(text.c_str(), stdout);
        return failed ? kExitServiceError : kExitOk;
    }

private:
    // After a request: false when no reply came (the link is gone or timed out).
    bool replied(bool sent) {
        if (!sent)
            lost = true;
        return sent;
    }
    std::unique_ptr<RetryHandler> wait() { return link->waiter(client, kRequestMs); }
    // Records an error text of the service: on standard error now, and in the JSON.
    void serviceError(const std::string& error) {
        failed = true;
        printError(error);
    }
    void errorField(const std::string& error) {
        json.key("error");
        if (error.empty())
            json.null();
        else
            json.value(error);
    }

    void status() {
        std::vector<std::vector<std::string>> rows{
            {"FILE", "STATE", "CVS STATUS", "LOCAL", "REMOTE", "TAG"}};
        json.key("files").beginArray();
        for (const std::string& file : inv.operands) {
            int32_t type = 0;
            char *word = nullptr, *local = nullptr, *remote = nullptr, *tag = nullptr,
                 *locker = nullptr, *error = nullptr;
            if (!replied(client->GetStatusInfo(file.c_str(), &type, &word, &local, &remote, &tag,
                                               &locker, &error, wait().get())))
                break;
            std::string cvsWord = take(word), localVersion = take(local),
                        remoteVersion = take(remote), tagText = take(tag), lockedBy = take(locker),
                        errorText = take(error);
            json.beginObject().key("file").value(file);
            if (errorText.empty()) {
                json.key("status_type").value(int64_t{type});
                json.key("state").value(std::string(statusWord(type)));
                json.key("status").value(cvsWord).key("local_version").value(localVersion);
                json.key("remote_version").value(remoteVersion).key("tag").value(tagText);
                json.key("locked_by").value(lockedBy);
                rows.push_back(
                    {file, statusWord(type), cvsWord, localVersion, remoteVersion, tagText});
            } else {
                serviceError(errorText);
            }
            errorField(errorText);
            json.endObject();
        }
        json.endArray();
        if (rows.size() > 1)
            text = alignColumns(rows);
    }

    // add and remove: one request for all files.
    void fileList(const std::function<bool(const StringList&, char**)>& request, const char* verb) {
        WordList files(inv.operands);
        char* error = nullptr;
        if (!replied(request(files.list, &error)))
            return;
        std::string errorText = take(error);
        json.key("files").beginArray();
        for (const std::string& file : inv.operands)
            json.value(file);
        json.endArray();
        errorField(errorText);
        if (!errorText.empty())
            return serviceError(errorText);
        for (const std::string& file : inv.operands)
            text += std::string(verb) + "  " + file + "\n";
    }
    void add() {
        fileList([&](const StringList& files,
                     char** error) { return client->AddFilesToVC(files, error, wait().get()); },
                 "added");
    }
    void remove() {
        fileList([&](const StringList& files,
                     char** error) { return client->RemoveFiles(files, error, wait().get()); },
                 "removed");
    }

    void commit() {
        WordList files(inv.operands);
        StringList versions{};
        char* error = nullptr;
        if (!replied(client->CommitFiles(files.list, inv.message.c_str(), &versions, &error,
                                         wait().get())))
            return;
        std::string errorText = take(error);
        std::vector<std::vector<std::string>> rows;
        json.key("files").beginArray();
        for (size_t i = 0; i < inv.operands.size(); ++i) {
            std::string version = static_cast<int32_t>(i) < versions.count && versions.data[i]
                                      ? versions.data[i]
                                      : "";
            // The reply leaves the new versions out; the file's status has them.
            if (version.empty() && errorText.empty())
                version = workingVersion(inv.operands[i]);
            json.beginObject().key("file").value(inv.operands[i]);
            json.key("version").value(version).endObject();
            rows.push_back({"committed", inv.operands[i], version});
        }
        json.endArray();
        StringList_free(&versions);
        errorField(errorText);
        if (!errorText.empty())
            return serviceError(errorText);
        text = alignColumns(rows);
    }

    // The working revision of `file` by its status, or "" when the service cannot tell.
    std::string workingVersion(const std::string& file) {
        int32_t type = 0;
        char *word = nullptr, *local = nullptr, *remote = nullptr, *tag = nullptr,
             *locker = nullptr, *error = nullptr;
        if (!replied(client->GetStatusInfo(file.c_str(), &type, &word, &local, &remote, &tag,
                                           &locker, &error, wait().get())))
            return std::string();
        take(word), take(remote), take(tag), take(locker);
        std::string version = take(local);
        return take(error).empty() ? version : std::string();
    }

    void log() {
        HistoryInfo history{};
        char* error = nullptr;
        const std::string& file = inv.operands[0];
        if (!replied(client->ShowHistory(file.c_str(), &history, &error, wait().get())))
            return;
        std::string errorText = take(error);
        auto str = [](const char* s) { return std::string(s ? s : ""); };
        json.key("file").value(file);
        if (errorText.empty()) {
            json.key("version").value(str(history._version));
            json.key("status").value(str(history._status)).key("tag").value(str(history._tag));
            json.key("modified").value(history._file_is_modified);
            text = file + ": working revision " + str(history._version) + ", " +
                   str(history._status) + ", tag " + str(history._tag) + "\n";
            json.key("revisions").beginArray();
            for (int32_t i = 0; history._items && i < history._num_items; ++i) {
                const HistoryItem& item = history._items[i];
                std::vector<std::string> tags;
                for (int32_t t = 0; item._tags && t < item._numTags; ++t)
                    tags.push_back(str(item._tags[t]));
                json.beginObject().key("version").value(str(item._version));
                json.key("date").value(str(item._date)).key("author").value(str(item._username));
                json.key("comments").value(str(item._comments));
                json.key("tags").beginArray();
                for (const std::string& tag : tags)
                    json.value(tag);
                json.endArray().key("is_branch").value(item._is_branch).endObject();
                text += "\nrevision " + str(item._version) + "  " + str(item._date) + "  " +
                        str(item._username);
                for (size_t t = 0; t < tags.size(); ++t)
                    text += (t == 0 ? "  tags: " : ", ") + tags[t];
                text += item._is_branch ? "  (branch)\n" : "\n";
                std::string comments = str(item._comments);
                size_t start = 0;
                while (start < comments.size()) {
                    size_t end = comments.find('\n', start);
                    if (end == std::string::npos)
                        end = comments.size();
                    text += "    " + comments.substr(start, end - start) + "\n";
                    start = end + 1;
                }
            }
            json.endArray();
        }
        HistoryInfo_free(&history);
        errorField(errorText);
        if (!errorText.empty())
            serviceError(errorText);
    }

    void blame() {
        const std::string& file = inv.operands[0];
        char *version = nullptr, *postver = nullptr, *error = nullptr;
        int32_t lineno = 0, postlineno = 0, result = 0;
        if (!replied(client->ShowLastEdit(file.c_str(), inv.fromLine, inv.toLine,
                                          inv.hasRevision ? inv.revision.c_str() : nullptr,
                                          &version, &lineno, &postver, &postlineno, &result, &error,
                                          wait().get())))
            return;
        std::string before = take(version), changedIn = take(postver), errorText = take(error);
        json.key("file").value(file).key("from").value(int64_t{inv.fromLine});
        json.key("to").value(int64_t{inv.toLine}).key("ret_val").value(int64_t{result});
        const bool one = inv.fromLine == inv.toLine;
        std::string lines =
            (one ? "Line " + std::to_string(inv.fromLine)
                 : "Lines " + std::to_string(inv.fromLine) + "-" + std::to_string(inv.toLine)) +
            " of " + file;
        if (result != 0 || (!errorText.empty() && changedIn.empty() && before.empty())) {
            json.key("error").value(errorText.empty() ? "ret_val " + std::to_string(result)
                                                      : errorText);
            return serviceError(!errorText.empty() ? errorText
                                : result == -2     ? lines + " could not be read to the end."
                                                   : lines + " could not be annotated.");
        }
        json.key("changed_in").value(changedIn).key("previous").value(before);
        json.key("line_in_changed").value(int64_t{postlineno});
        errorField(errorText);
        if (before == "original") {
            text = lines + (one ? " has" : " have") + " not changed since the first revision.\n";
        } else {
            text = lines + (one ? " was" : " were") + " last changed in revision " + changedIn +
                   " (the revision before it is " + before + ").\n";
            text += postlineno > 0
                        ? "Line " + std::to_string(inv.fromLine) + " is line " +
                              std::to_string(postlineno) + " of revision " + changedIn + ".\n"
                        : "Line " + std::to_string(inv.fromLine) +
                              " has no counterpart in revision " + changedIn + ".\n";
        }
        if (!errorText.empty())
            serviceError(errorText);
    }

    void info() {
        const std::string& file = inv.operands[0];
        const std::string& revision = inv.operands[1];
        VersionInfo version{};
        char* error = nullptr;
        if (!replied(client->GetVersionInfo(file.c_str(), revision.c_str(), &version, &error,
                                            wait().get())))
            return;
        std::string errorText = take(error);
        auto str = [](const char* s) { return std::string(s ? s : ""); };
        json.key("file").value(file).key("version").value(revision);
        if (errorText.empty()) {
            json.key("author").value(str(version._author)).key("date").value(str(version._date));
            json.key("comments").value(str(version._comments));
            text = "revision " + revision + " of " + file + "\nauthor: " + str(version._author) +
                   "\ndate:   " + str(version._date) + "\n\n" + str(version._comments);
        }
        VersionInfo_free(&version);
        errorField(errorText);
        if (!errorText.empty())
            serviceError(errorText);
    }

    void exec() {
        std::string line;
        for (const std::string& word : inv.operands) {
            char* quoted = commandWord(word.c_str());
            line += (line.empty() ? "" : " ") + std::string(quoted);
            gen_free(quoted);
        }
        char *output = nullptr, *error = nullptr;
        if (!replied(client->ExecuteCommandString(line.c_str(), &output, &error, wait().get())))
            return;
        // Only a run that failed comes without output; the error text of a good run is what
        // cvs wrote to its standard error.
        bool ran = output != nullptr;
        std::string out = take(output), err = take(error);
        json.key("output").value(out);
        if (ran) {
            json.key("stderr").value(err);
            errorField("");
            text = out;
            std::fputs(err.c_str(), stderr);
        } else {
            errorField(err);
            serviceError(err);
        }
    }

    ServiceLink* link;
    const Invocation& inv;
    const OutputMode& mode;
    VcClient* client = nullptr;
    JsonWriter json;
    std::string text;
    bool failed = false;
    bool lost = false;
};

} // namespace

int runVersionControlCommand(ServiceLink* link, const Invocation& invocation,
                             const OutputMode& mode) {
    return Run(link, invocation, mode).go();
}
