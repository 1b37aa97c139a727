#pragma once
// The WLAN driver's NDIS indications as the simulated instrument delivers them to its subscribers, in place
// of WMI (the socket and its messages: platform/sim/NdisWire.h). One thread accepts subscribers and
// answers their notification queries. Host-only.
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/sim/UniqueFd.h"

namespace halvern::sim {

using platform::sim::UniqueFd;

class NdisIndicationServerC {
public:
    NdisIndicationServerC() = default;
    ~NdisIndicationServerC();
    NdisIndicationServerC(const NdisIndicationServerC&) = delete;
    NdisIndicationServerC& operator=(const NdisIndicationServerC&) = delete;

    // False with a message in `error` when the socket cannot be made.
    bool start(const std::string& root, std::string& error);
    void stop();

    // One object of `className` to every subscriber that registered its class; `indication` (when given)
    // is its "NdisStatusMediaSpecificIndication". The number of subscribers reached.
    int deliver(const std::string& className, const std::vector<std::uint8_t>* indication);
    // From now on every notification query is refused with `error` (0 accepts them again), as WMI refuses
    // queries it cannot serve.
    void refuseQueries(std::uint32_t error);

private:
    void serve();
    void answerQuery(int subscriber);

    std::string m_path;
    UniqueFd m_listener;
    UniqueFd m_wakeRead;
    UniqueFd m_wakeWrite;
    std::thread m_thread;
    std::mutex m_lock;
    // Each subscriber's socket and the classes it registered.
    std::map<int, std::pair<std::unique_ptr<UniqueFd>, std::set<std::string>>> m_subscribers;
    std::uint32_t m_refusal = 0;
};

}  // namespace halvern::sim
