#include "service_listeners.h"

#include "gen_string.h"
#include "indgen.h"
#include "stp_specclass.h"

#include <cstring>

NameValueResolver::NameValueResolver(const char* name, const char* value, bool sendWithRequests)
    : send_with_requests(sendWithRequests), name_(gen_strdup(name)), value(gen_strdup(value)) {}

NameValueResolver::~NameValueResolver() {
    gen_free(name_);
    gen_free(value);
}

const char* NameValueResolver::name() {
    return name_;
}

bool NameValueResolver::matches(const char* other) {
    return other != nullptr && name_ != nullptr && std::strcmp(other, name_) == 0;
}

const char* NameValueResolver::valueOf(const char* other) {
    return matches(other) ? value : nullptr;
}

ConnectionDiedListener::ConnectionDiedListener(STPSpecClass* watched) : spec(watched) {
    if (spec)
        spec->ref();
}

ConnectionDiedListener::~ConnectionDiedListener() {
    if (spec)
        spec->unref();
}

void ConnectionDiedListener::connectionDied(STPSpecClass*) {}

bool ConnectionDiedListener::removeWhenDied() {
    return false;
}
