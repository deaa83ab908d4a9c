// ServiceFactory: the base of a service's factory, which makes one server object per client
// connection, and the process-wide list of factories that register themselves at construction.
#pragma once

#include <cstdint>
#include <vector>

class STPSpecClass;
class STPTransport;

class ServiceFactory {
public:
    // Copies `name` and creates the global router proxy if there is none yet (bare, without
    // set-up). With `selfRegister` the factory joins the process-wide list that the proxy tells
    // the router about when it connects. `instanceLimit` -1 means no limit; a factory with a
    // limit keeps instance_count up itself (nothing here changes it).
    ServiceFactory(const char* name, int32_t instanceLimit, bool selfRegister);
    virtual ~ServiceFactory();
    ServiceFactory(const ServiceFactory&) = delete;
    ServiceFactory& operator=(const ServiceFactory&) = delete;

    // True with no limit, else while instance_count is below instance_limit.
    virtual bool canCreate();
    // A new server object bound to `transport` with the connection's route numbers, carrying
    // one reference for the caller; null when it cannot be made.
    virtual STPSpecClass* createService(STPTransport* transport, uint32_t serviceRN,
                                        uint32_t remoteRN) = 0;
    // The negotiation of a connection made by this factory has ended, well or badly. Nothing in
    // the base.
    virtual void serviceConnected(STPSpecClass* spec);

    // canCreate, createService, and the bookkeeping: the process-wide "created a service" flag,
    // the list of servers (not owning). Null when refused.
    STPSpecClass* createServer(STPTransport* transport, uint32_t serviceRN, uint32_t remoteRN);

    // The exit function of the event loop: true once any factory of the process has made an
    // object, for good.
    static bool createdAService();
    // The factories that registered themselves, in order of construction.
    static const std::vector<ServiceFactory*>& selfRegisteredFactories();

    const char* getName() const { return name; }
    int32_t getInstanceLimit() const { return instance_limit; }
    int32_t getInstanceCount() const { return instance_count; }
    bool hasCreatedOne() const { return created_one; }
    const std::vector<STPSpecClass*>& getServers() const { return servers; }

protected:
    char* name;
    int32_t instance_limit;
    int32_t instance_count = 0;
    bool created_one = false;
    std::vector<STPSpecClass*> servers;
};
