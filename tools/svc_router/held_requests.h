// Connection requests the router holds back at start-up: a client asked for a service that no
// plug-in offers yet, while a plug-in this router launched is still starting and may offer it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One request as it came, to be carried out once the name is offered, or refused at its
// deadline.
struct HeldRequest {
    uint32_t clientPlugin = 0;
    std::string serviceName;
    std::vector<std::string> nameValuePairs;
    uint32_t clientCookie = 0;
    int32_t deadlineTick = 0;
};

// Plain data, in the order the requests came. Each take removes what it gives.
class HeldRequests {
public:
    void hold(HeldRequest request) { requests.push_back(std::move(request)); }
    // The requests for `name`.
    std::vector<HeldRequest> takeFor(const std::string& name);
    // The requests whose deadline has come at tick `now` (compared across the wrap).
    std::vector<HeldRequest> takeDue(int32_t now);
    std::vector<HeldRequest> takeAll();
    // Forgets the requests of a plug-in that has gone.
    void dropOf(uint32_t clientPlugin);
    size_t size() const { return requests.size(); }

private:
    template <class Pred> std::vector<HeldRequest> take(Pred pred);
    std::vector<HeldRequest> requests;
};
