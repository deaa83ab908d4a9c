// Small callback objects of the router client: name/value resolvers that answer other plug-ins'
// questions about this process, and listeners told when a service connection dies.
#pragma once

class STPSpecClass;

// Answers the value of one name ("cwd" and the like) for other plug-ins. Name and value are
// owned copies; either may be null.
class NameValueResolver {
public:
    // `sendWithRequests`: the name and value go along with every connection request this
    // process makes, so that the provider learns them without asking.
    NameValueResolver(const char* name, const char* value, bool sendWithRequests);
    virtual ~NameValueResolver();
    NameValueResolver(const NameValueResolver&) = delete;
    NameValueResolver& operator=(const NameValueResolver&) = delete;

    virtual const char* name();
    // False if `other` or the own name is null, else whether they are equal.
    virtual bool matches(const char* other);
    // The value if `matches(other)`, else null. Owned by the resolver.
    virtual const char* valueOf(const char* other);

    bool sendsWithRequests() const { return send_with_requests; }

protected:
    bool send_with_requests;
    char* name_ = nullptr;
    char* value = nullptr;
};

// Told when a service connection of this process dies. `spec` (may be null) is the connection
// it watches; it is referenced while held. The proxy does not own listeners.
class ConnectionDiedListener {
public:
    explicit ConnectionDiedListener(STPSpecClass* spec = nullptr);
    virtual ~ConnectionDiedListener();
    ConnectionDiedListener(const ConnectionDiedListener&) = delete;
    ConnectionDiedListener& operator=(const ConnectionDiedListener&) = delete;

    // Called for every connection that dies, watched or not. Nothing in the base.
    virtual void connectionDied(STPSpecClass* died);
    // Whether the proxy drops this listener from its list once its own connection died.
    virtual bool removeWhenDied();

    STPSpecClass* getSpec() const { return spec; }

protected:
    STPSpecClass* spec;
};
