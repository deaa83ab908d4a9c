// Both ends of the test protocols with recording handlers, and a conversation fixture that joins
// two ends over a loopback connection and negotiates.
#pragma once

#include "asciiproto_client_impl.h"
#include "asciiproto_server_impl.h"
#include "gen_string.h"
#include "stp_test_support.h"
#include "testproto_client_impl.h"
#include "testproto_server_impl.h"
#include "testprotolean_server_impl.h"

#include <functional>
#include <string>
#include <vector>

namespace stptest {

inline std::string str(const char* s) {
    return s ? s : "(null)";
}

inline std::vector<std::string> strings(const char* const* data, int32_t count) {
    std::vector<std::string> out;
    for (int32_t i = 0; data && i < count; ++i)
        out.push_back(str(data[i]));
    return out;
}

inline char** newStrings(const std::vector<std::string>& texts) {
    char** out = static_cast<char**>(gen_alloc(texts.size() + 1, sizeof(char*)));
    for (size_t i = 0; i < texts.size(); ++i)
        out[i] = gen_strdup(texts[i].c_str());
    return out;
}

class TestServer : public TestProto_server_Impl {
public:
    void Notify(const char* text) override { notes.push_back(str(text)); }
    void Echo(const char* text, bool flag, char** text_out, bool* flag_out) override {
        *text_out = text ? gen_strdup(text) : nullptr;
        *flag_out = flag;
    }
    void Add(uint32_t a, uint32_t b, uint32_t* sum) override {
        ++adds;
        *sum = a + b;
    }
    void Nest(uint32_t depth, char** trace) override {
        if (onNest)
            onNest(depth, trace);
    }
    void StoreNames(const StringList& names) override {
        stored.push_back(strings(names.data, names.count));
    }
    // Two items; the first has two tags, the second none.
    void Describe(const char* owner, Inventory* items) override {
        items->owner = gen_strdup(str(owner).c_str());
        items->num_items = 2;
        items->items = static_cast<Item*>(gen_alloc(2, sizeof(Item)));
        items->items[0].label = gen_strdup("pen");
        items->items[0].qty = 3;
        items->items[0].tags.count = 2;
        items->items[0].tags.data = newStrings({"blue", "cheap"});
        items->items[1].label = gen_strdup("ink");
        items->items[1].qty = 0xFFFFFFFFu;
    }
    // "n<value>" for each number.
    void Numbers(int32_t count, const uint32_t* numbers, int32_t* words_count,
                 char*** words) override {
        std::vector<std::string> out;
        for (int32_t i = 0; i < count; ++i)
            out.push_back("n" + std::to_string(numbers[i]));
        *words_count = count;
        *words = newStrings(out);
    }

    std::vector<std::string> notes;
    std::vector<std::vector<std::string>> stored;
    std::function<void(uint32_t, char**)> onNest;
    int adds = 0;
};

class TestClient : public TestProto_client_Impl {
public:
    void Ask(const char* question, int32_t level, char** answer) override {
        if (onAsk)
            onAsk(question, level, answer);
        else
            *answer = gen_strdup(("re:" + str(question)).c_str());
    }
    void Progress(uint32_t percent, const char* note) override {
        progress.push_back(std::to_string(percent) + " " + str(note));
    }

    std::function<void(const char*, int32_t, char**)> onAsk;
    std::vector<std::string> progress;
};

class LeanServer : public TestProtoLean_server_Impl {
public:
    void Add(uint32_t a, uint32_t b, uint32_t* sum) override { *sum = a + b; }
    void Echo(const char* text, char** text_out) override {
        *text_out = text ? gen_strdup(text) : nullptr;
    }
    void Nest(uint32_t, char**) override {}
    void Notify(const char* text) override { notes.push_back(str(text)); }
    void Shutdown() override { ++shutdowns; }
    void StoreNames(const StringList&) override {}

    std::vector<std::string> notes;
    int shutdowns = 0;
};

class AsciiServer : public AsciiProto_server_Impl {
public:
    void Lookup(const char* key, bool forced, char** value, bool* found,
                char** error_string) override {
        lookups.push_back(str(key) + (forced ? " forced" : ""));
        if (str(key) == "missing") {
            *error_string = gen_strdup("no such key");
            return;
        }
        *value = gen_strdup(("value of " + str(key)).c_str());
        *found = true;
    }
    void Post(const StringList& names) override {
        posted.push_back(strings(names.data, names.count));
    }
    void History(const char* file, HistoryInfo* info, char**) override {
        info->_display_tags = true;
        info->_version = gen_strdup(str(file).c_str());
        info->_num_items = 2;
        info->_items = static_cast<HistoryItem*>(gen_alloc(2, sizeof(HistoryItem)));
        info->_items[0]._version = gen_strdup("1.2");
        info->_items[0]._numTags = 2;
        info->_items[0]._tags = newStrings({"REL_1", "say \"hi\"\n"});
        info->_items[0]._is_branch = false;
        info->_items[1]._version = gen_strdup("1.1.2.1");
        info->_items[1]._is_branch = true;
    }
    void Words(int32_t* words_count, char*** words) override {
        *words_count = 2;
        *words = newStrings({"alpha", "beta"});
    }

    std::vector<std::string> lookups;
    std::vector<std::vector<std::string>> posted;
};

class AsciiClient : public AsciiProto_client_Impl {
public:
    void QueryUser(const char* request_str, char** response_str) override {
        queries.push_back(str(request_str));
        *response_str = gen_strdup("yes");
    }
    void Tick(int32_t n) override { ticks.push_back(n); }

    std::vector<std::string> queries;
    std::vector<int32_t> ticks;
};

// Two ends over 127.0.0.1. Each end waits with a handler that turns both transports (so that a
// stub of one end can be answered by the other on the one thread) and gives up at the deadline.
template <typename Client, typename Server> struct Conversation {
    LoopbackPair pair;
    Client* client = nullptr;
    Server* server = nullptr;

    bool open() {
        if (!pair.open())
            return false;
        client = new Client;
        server = new Server;
        client->attachTransport(pair.client.get());
        server->attachTransport(pair.server.get());
        client->setRetryHandler(new TurnAllRetryHandler(transports()));
        server->setRetryHandler(new TurnAllRetryHandler(transports()));
        return true;
    }
    bool negotiate() {
        TurnAllRetryHandler retry(transports());
        return client->sendNegotiate(true) && server->sendNegotiate(true) &&
               client->awaitTags(&retry) && server->awaitTags(&retry);
    }
    std::vector<STPTransport*> transports() { return {pair.client.get(), pair.server.get()}; }
    // Lets both ends handle what has arrived.
    bool settle(const std::function<bool()>& done) { return serviceUntil(transports(), done); }

    ~Conversation() {
        if (client)
            client->unref();
        if (server)
            server->unref();
    }
};

} // namespace stptest
