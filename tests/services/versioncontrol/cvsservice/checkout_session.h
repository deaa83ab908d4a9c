// The VC_CheckoutInfo.CVS service as a client meets it, for the end-to-end tests of the jobs:
// svc_router launches cvsservice, a recording client connects to "VC_CheckoutInfo.CVS", and the
// requests are plain calls whose replies come back as values.
#pragma once

#include "checkout_info_client.h"
#include "gen_string.h"
#include "indgen.h"
#include "service_session.h"

#include <filesystem>
#include <string>
#include <vector>

// A reply: its texts, "(absent)" for an absent one.
struct CheckoutReply {
    bool answered = false;
    std::string cookie = "(absent)";
    std::string error = "(absent)";
};

class CheckoutSession {
public:
    // Starts the service and connects the client with `cwd` as its working directory; `stay`
    // as ServiceSession::start.
    bool start(const ScratchFolder& folder, const std::string& cwd, bool stay = true) {
        if (!session.start(folder, {}, stay))
            return false;
        client = session.connect(new RecordingCheckoutClient, "VC_CheckoutInfo.CVS", cwd);
        return client != nullptr;
    }

    CheckoutReply requestInfo(const std::vector<std::string>& roots, bool local) {
        List list(roots);
        return call([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->RequestCheckoutInfo(list.count(), list.data(), local, cookie, error,
                                               wait, status);
        });
    }
    CheckoutReply requestUpdate(const std::vector<std::string>& roots) {
        List list(roots);
        return call([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->RequestCheckoutUpdate(list.count(), list.data(), cookie, error, wait,
                                                 status);
        });
    }
    CheckoutReply create(const std::string& dest, const std::string& modules, const char* tag,
                         const std::string& root) {
        return call([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->CreateCheckout(dest.c_str(), modules.c_str(), tag, root.c_str(), cookie,
                                          error, wait, status);
        });
    }
    CheckoutReply modify(const std::vector<std::string>& dirs, bool do_tag, const char* tag,
                         bool do_date, const char* date, bool do_head) {
        List list(dirs);
        return call([&](char** cookie, char** error, RetryHandler* wait, STPStatus* status) {
            return client->ModifyCheckout(list.count(), list.data(), do_tag, tag, do_date, date,
                                          do_head, cookie, error, wait, status);
        });
    }
    CheckoutReply halt(const std::string& cookie) {
        CheckoutReply reply;
        char* error = nullptr;
        reply.answered = client->HaltScan(cookie.c_str(), &error, session.waiter().get(), &status);
        reply.error = take(error);
        return reply;
    }

    // Serves the connection until `n` jobs have sent FinishedGettingCheckoutInfo.
    bool awaitFinished(size_t n = 1, int32_t timeoutMs = 60000) {
        return session.pumpUntil([&] { return client->count(CheckoutEvent::finished) >= n; },
                                 timeoutMs);
    }
    // Serves the connection until an event satisfies `test`.
    bool awaitEvent(const std::function<bool(const CheckoutEvent&)>& test,
                    int32_t timeoutMs = 60000) {
        return session.pumpUntil(
            [&] {
                for (const CheckoutEvent& e : client->events)
                    if (test(e))
                        return true;
                return false;
            },
            timeoutMs);
    }

    ServiceSession session;
    RecordingCheckoutClient* client = nullptr;
    STPStatus status;

private:
    struct List {
        explicit List(const std::vector<std::string>& texts) {
            for (const std::string& t : texts)
                pointers.push_back(t.c_str());
        }
        int32_t count() const { return static_cast<int32_t>(pointers.size()); }
        const char* const* data() const { return pointers.empty() ? nullptr : pointers.data(); }
        std::vector<const char*> pointers;
    };
    static std::string take(char* text) {
        std::string s = text ? text : "(absent)";
        gen_free(text);
        return s;
    }
    template <typename Call> CheckoutReply call(Call send) {
        CheckoutReply reply;
        char* cookie = nullptr;
        char* error = nullptr;
        reply.answered = send(&cookie, &error, session.waiter().get(), &status);
        reply.cookie = take(cookie);
        reply.error = take(error);
        return reply;
    }
};

// A status update of `text` (exactly).
inline std::function<bool(const CheckoutEvent&)> statusIs(const std::string& text) {
    return [text](const CheckoutEvent& e) {
        return e.kind == CheckoutEvent::status && e.text == text;
    };
}
