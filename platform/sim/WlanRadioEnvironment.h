#pragma once
// The radio environment around the simulated instrument: the networks its WLAN interface sees in a scan.
// It is a text file in the sim root, $HALVERN_ROOT/sim/wlan/networks, one network per line:
//
//     FREQUENCY_MHZ NAME [ht20|ht40+|ht40-|offset=N] [rssi=DBM] [ies=HEX]
//
//   FREQUENCY_MHZ  the centre frequency, e.g. 2412 (channel 1), 5180 (36), 5745 (149)
//   NAME           the network name, 1 to 32 bytes without blanks
//   ht20|ht40+|ht40-
//                  the network sends an HT operation element with this secondary-channel offset (0, 1, 3);
//                  without one it sends none, as a legacy network does
//   offset=N       an HT operation element with the raw offset N (0 to 3; 2 is invalid on air)
//   rssi=DBM       the signal strength (default -60)
//   ies=HEX        the network's information elements exactly as these bytes (no SSID element is added):
//                  for recorded or broken beacons
//
// Blank lines and lines starting with '#' are ignored. The scan's completion delay is in
// $HALVERN_ROOT/sim/wlan/scan-delay-ms (milliseconds, default 50; "never": scans never complete).
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform::sim {

struct SimulatedNetworkT {
    std::uint32_t frequencyMhz = 0;
    std::string name;
    int htOffset = -1;  // -1: no HT operation element
    std::int32_t rssi = -60;
    std::optional<std::vector<std::uint8_t>> rawElements;
};

constexpr std::uint32_t kDefaultScanDelayMs = 50;

std::string radioEnvironmentPath(const std::string& root);
std::string scanDelayPath(const std::string& root);

// One line of the file; false with `error` set on a malformed line.
bool parseSimulatedNetwork(const std::string& line, SimulatedNetworkT& network, std::string& error);
std::string formatSimulatedNetwork(const SimulatedNetworkT& network);
// The whole text; false with the first bad line's number in `error`.
bool parseRadioEnvironment(const std::string& text, std::vector<SimulatedNetworkT>& networks, std::string& error);

// The environment of the sim root `root` (absent file: no networks).
bool loadRadioEnvironment(const std::string& root, std::vector<SimulatedNetworkT>& networks, std::string& error);
bool storeRadioEnvironment(const std::string& root, const std::vector<SimulatedNetworkT>& networks, std::string& error);
// Milliseconds from a scan request to its completion; empty: never.
std::optional<std::uint32_t> loadScanDelay(const std::string& root);

// The elements the network sends in its beacons: the SSID element, then its HT operation element.
std::vector<std::uint8_t> beaconElements(const SimulatedNetworkT& network);

}  // namespace platform::sim
