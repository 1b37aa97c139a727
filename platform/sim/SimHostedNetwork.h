#pragma once
// The simulated WLAN service's hosted network, kept in the sim root so that Halvern, halvern-sim and tests
// see one access point: the file "sim/wlan/hostednetwork" holds one "name=value" a line:
//
//   state=idle|active|unavailable   unavailable: the service offers no hosted network (as with the
//                                   module's interface gone), every start fails with reason 12
//   settings=HEX                    the 40 bytes of the connection settings (SSID length, SSID, peers)
//   key=HEX                         the secondary key as it was set (a pass phrase with its NUL)
//   passphrase=0|1, persistent=0|1  how the key was set
//   failingstarts=N, failreason=R   the next N starts fail with reason R
//   starts=N                        every start asked for so far, failed or not
//
// Changes go through updateHostedNetwork(), which holds a lock on the file across processes.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace platform::sim {

struct SimHostedNetworkS {
    std::string state = "idle";
    std::vector<std::uint8_t> settings;
    std::vector<std::uint8_t> key;
    bool passPhrase = true;
    bool persistent = true;
    std::uint32_t failingStarts = 0;
    std::uint32_t failReason = 0;
    std::uint32_t starts = 0;
};

// The connection settings of a service that was never configured: no SSID, 100 peers.
std::vector<std::uint8_t> defaultHostedNetworkSettings();
// The SSID held in connection settings (empty when they are malformed).
std::string hostedNetworkSsid(const std::vector<std::uint8_t>& settings);

// The hosted network of the sim root `root`; a root without the file has a fresh one.
SimHostedNetworkS readHostedNetwork(const std::string& root);
// Reads, lets `change` act on the record and writes it back, all under the file's lock; false when the
// file cannot be written.
bool updateHostedNetwork(const std::string& root, const std::function<void(SimHostedNetworkS&)>& change);

}  // namespace platform::sim
