#include "checkout_jobs.h"

#include "indgen.h"
#include "plat_console.h"
#include "report_format.h"
#include "vc_checkoutinfo_client_impl.h"

#include <cstdio>

namespace {

constexpr int32_t kReplyMs = 30000;
// How long one turn of the wait for events lasts before the interrupt count is looked at.
constexpr int32_t kTurnMs = 100;
// After a halt, how long the last events may take.
constexpr int32_t kHaltMs = 10000;

struct JobOutput {
    std::string text;
    bool isStderr = false;
};

// The client end of "VC_CheckoutInfo.CVS" for one job: shows progress and output as they come
// and keeps the reports and the final message.
class JobClient : public VC_CheckoutInfo_client_Impl {
public:
    explicit JobClient(const OutputMode& mode) : mode(mode) {}

    void DisplayCheckoutInfo(const CheckoutInfoRecord& info) override {
        std::string checkoutDir = info._checkout_dir ? info._checkout_dir : "";
        for (int32_t i = 0; info._items && i < info._num_items; ++i) {
            const CheckoutItemRecord& r = info._items[i];
            auto s = [](const char* t) { return std::string(t ? t : ""); };
            rows.push_back({r._type, shownPath(mode.cwd, s(r._directory), s(r._filename)),
                            s(r._local_version), s(r._tag)});
            items.push_back({r._type, s(r._directory), s(r._filename), s(r._local_version),
                             s(r._tag), checkoutDir});
        }
    }
    void FinishedGettingCheckoutInfo(const char* message) override {
        finished = true;
        finishMessage = message ? message : "";
        clearProgress();
    }
    void ScanOutput(const char* scan, bool is_stderr) override {
        std::string text = scan ? scan : "";
        outputs.push_back({text, is_stderr});
        if (is_stderr) {
            clearProgress();
            std::fputs(text.c_str(), stderr);
        } else if (mode.terminal && !mode.json) {
            clearProgress();
            std::fputs(text.c_str(), stdout);
            std::fflush(stdout);
        }
    }
    void StatusUpdate(const char* message) override {
        std::string text = message ? message : "";
        statuses.push_back(text);
        if (!mode.terminal || mode.json)
            return;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        if (text.size() > 78)
            text = text.substr(0, 75) + "...";
        std::printf("\r%s\x1b[K", text.c_str());
        std::fflush(stdout);
        progressShown = true;
    }

    bool sawHalted() const {
        return !outputs.empty() && outputs.back().isStderr &&
               outputs.back().text.rfind("Halted", 0) == 0;
    }

    void clearProgress() {
        if (progressShown) {
            std::fputs("\r\x1b[K", stdout);
            std::fflush(stdout);
            progressShown = false;
        }
    }

    struct Item {
        uint32_t type;
        std::string directory, file, version, tag, checkoutDir;
    };
    const OutputMode& mode;
    bool finished = false;
    bool progressShown = false;
    std::string finishMessage;
    std::vector<std::string> statuses;
    std::vector<JobOutput> outputs;
    std::vector<ReportRow> rows;
    std::vector<Item> items;

protected:
    ~JobClient() override = default;
};

std::string take(char* text) {
    std::string copy = text ? text : "";
    gen_free(text);
    return copy;
}

// `path` against the client's directory: the service takes the directories of a checkout's
// creation and move as they come.
std::string absolute(const std::string& path, const OutputMode& mode) {
    if (path.empty())
        return mode.cwd;
    return path.front() == '/' ? path : mode.cwd + "/" + path;
}

// Sends the job's request; the cookie, or false when no reply came.
bool startJob(JobClient* client, ServiceLink* link, const Invocation& inv, const OutputMode& mode,
              std::string* cookie) {
    std::vector<const char*> dirs;
    for (const std::string& dir : inv.operands)
        dirs.push_back(dir.c_str());
    if (dirs.empty() &&
        (std::string(inv.command->name) == "scan" || std::string(inv.command->name) == "update"))
        dirs.push_back(".");
    const int32_t count = static_cast<int32_t>(dirs.size());
    const std::string name = inv.command->name;
    std::unique_ptr<RetryHandler> wait = link->waiter(client, kReplyMs);
    char *reply = nullptr, *error = nullptr;
    bool sent = false;
    if (name == "scan")
        sent =
            client->RequestCheckoutInfo(count, dirs.data(), inv.local, &reply, &error, wait.get());
    else if (name == "update")
        sent = client->RequestCheckoutUpdate(count, dirs.data(), &reply, &error, wait.get());
    else if (name == "checkout") {
        // A repository on this machine may be named relative to the client's directory too.
        const std::string& root = inv.operands[0];
        std::string repository = root.find(':') != std::string::npos ? root : absolute(root, mode);
        sent = client->CreateCheckout(
            absolute(inv.operands[2], mode).c_str(), inv.operands[1].c_str(),
            inv.hasTag ? inv.tag.c_str() : nullptr, repository.c_str(), &reply, &error, wait.get());
    } else if (name == "switch") {
        std::vector<std::string> dirsGiven;
        for (const std::string& dir : inv.operands)
            dirsGiven.push_back(absolute(dir, mode));
        std::vector<const char*> words;
        for (const std::string& dir : dirsGiven)
            words.push_back(dir.c_str());
        sent = client->ModifyCheckout(count, words.data(), inv.hasTag, inv.tag.c_str(), inv.hasDate,
                                      inv.date.c_str(), inv.head, &reply, &error, wait.get());
    }
    *cookie = take(reply);
    take(error); // job requests report their failures at the job's end
    return sent;
}

void printJson(const JobClient& client, const Invocation& inv, const std::string& cookie,
               bool halted) {
    JsonWriter json;
    json.beginObject().key("command").value(std::string(inv.command->name));
    json.key("cookie").value(cookie).key("halted").value(halted);
    json.key("files").beginArray();
    for (const JobClient::Item& item : client.items) {
        json.beginObject().key("checkout_dir").value(item.checkoutDir);
        json.key("directory").value(item.directory).key("file").value(item.file);
        json.key("status_type").value(int64_t{item.type});
        json.key("state").value(std::string(statusWord(item.type)));
        json.key("version").value(item.version).key("tag").value(item.tag).endObject();
    }
    json.endArray().key("progress").beginArray();
    for (const std::string& s : client.statuses)
        json.value(s);
    json.endArray().key("output").beginArray();
    for (const JobOutput& o : client.outputs)
        json.beginObject().key("text").value(o.text).key("stderr").value(o.isStderr).endObject();
    json.endArray().key("error");
    if (client.finishMessage.empty())
        json.null();
    else
        json.value(client.finishMessage);
    json.endObject();
    std::fputs(json.text().c_str(), stdout);
}

} // namespace

int runCheckoutJob(ServiceLink* link, const Invocation& inv, const OutputMode& mode) {
    JobClient* client = link->connect(new JobClient(mode), "VC_CheckoutInfo.CVS");
    if (client == nullptr) {
        std::fprintf(stderr, "%s\n", link->error().c_str());
        return kExitUnreachable;
    }
    plat_catch_interrupts(true);
    const int interruptsBefore = plat_interrupt_count();
    std::string cookie;
    bool halted = false;
    bool ok = startJob(client, link, inv, mode, &cookie);
    while (ok && !client->finished) {
        if (plat_interrupt_count() != interruptsBefore && !halted) {
            halted = true;
            client->clearProgress();
            char* error = nullptr;
            std::unique_ptr<RetryHandler> wait = link->waiter(client, kReplyMs);
            client->HaltScan(cookie.c_str(), &error, wait.get());
            // A job that ended just now cannot be halted: its end is on the way, and there
            // is no last word of the halt ("Halted scan.") behind it.
            bool stopped = take(error).empty();
            link->pumpUntil([&] { return client->finished; }, kHaltMs);
            if (stopped)
                link->pumpUntil([&] { return client->sawHalted(); }, kHaltMs);
            break;
        }
        link->pumpUntil([&] { return client->finished; }, kTurnMs);
        if (link->lost() || client->isVirtualConnectionDown())
            break;
    }
    plat_catch_interrupts(false);
    client->clearProgress();
    if (!client->finished && !halted) {
        std::fputs("The service stopped answering before the job was done.\n", stderr);
        return kExitUnreachable;
    }
    if (mode.json)
        printJson(*client, inv, cookie, halted);
    else
        std::fputs(reportTable(client->rows, inv.all).c_str(), stdout);
    if (halted)
        return kExitHalted;
    if (!client->finishMessage.empty()) {
        std::fprintf(stderr, "%s\n", client->finishMessage.c_str());
        return kExitServiceError;
    }
    return kExitOk;
}
