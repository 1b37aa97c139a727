#include "platform/sim/WlanRadioEnvironment.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/sim/SimRoot.h"

namespace platform::sim {

namespace {

constexpr std::uint8_t kElementSsid = 0;
constexpr std::uint8_t kElementHtOperation = 61;
// The HT operation element's body: primary channel, three information bytes, the basic MCS set.
constexpr std::size_t kHtOperationLength = 22;
constexpr std::size_t kMaxNameBytes = 32;

bool parseUnsigned(const std::string& text, unsigned long maximum, unsigned long& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) return false;
    value = std::strtoul(text.c_str(), nullptr, 10);
    return value <= maximum;
}

bool parseHex(const std::string& text, std::vector<std::uint8_t>& bytes)
{
    if (text.size() % 2 != 0 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
    bytes.clear();
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    return true;
}

// The 20 MHz channel a centre frequency names; the beacons' HT element carries it.
std::uint8_t channelOfFrequency(std::uint32_t mhz)
{
    if (mhz > 5000) return static_cast<std::uint8_t>((mhz - 5000) / 5);
    if (mhz == 2484) return 14;
    return static_cast<std::uint8_t>((mhz - 2407) / 5);
}

}  // namespace

std::string radioEnvironmentPath(const std::string& root)
{
    return root + "/sim/wlan/networks";
}

std::string scanDelayPath(const std::string& root)
{
    return root + "/sim/wlan/scan-delay-ms";
}

bool parseSimulatedNetwork(const std::string& line, SimulatedNetworkT& network, std::string& error)
{
    std::istringstream words(line);
    std::string frequency;
    network = SimulatedNetworkT{};
    unsigned long value = 0;
    if (!(words >> frequency) || !parseUnsigned(frequency, 7000, value) || value < 2400) {
        error = "bad frequency '" + frequency + "' (MHz, 2400 to 7000)";
        return false;
    }
    network.frequencyMhz = static_cast<std::uint32_t>(value);
    if (!(words >> network.name) || network.name.size() > kMaxNameBytes) {
        error = "a network needs a name of 1 to 32 bytes";
        return false;
    }
    for (std::string word; words >> word;) {
        if (word == "ht20" || word == "ht40+" || word == "ht40-") {
            network.htOffset = word == "ht20" ? 0 : word == "ht40+" ? 1 : 3;
        } else if (word.rfind("offset=", 0) == 0 && parseUnsigned(word.substr(7), 3, value)) {
            network.htOffset = static_cast<int>(value);
        } else if (word.rfind("rssi=-", 0) == 0 && parseUnsigned(word.substr(6), 120, value)) {
            network.rssi = -static_cast<std::int32_t>(value);
        } else if (std::vector<std::uint8_t> bytes; word.rfind("ies=", 0) == 0 && parseHex(word.substr(4), bytes)) {
            network.rawElements = bytes;
        } else {
            error = "unknown option '" + word + "' (ht20, ht40+, ht40-, offset=N, rssi=-DBM, ies=HEX)";
            return false;
        }
    }
    return true;
}

std::string formatSimulatedNetwork(const SimulatedNetworkT& network)
{
    std::string line = std::to_string(network.frequencyMhz) + " " + network.name;
    if (network.htOffset == 0) line += " ht20";
    if (network.htOffset == 1) line += " ht40+";
    if (network.htOffset == 3) line += " ht40-";
    if (network.htOffset == 2) line += " offset=2";
    if (network.rssi != -60) line += " rssi=" + std::to_string(network.rssi);
    if (network.rawElements) {
        line += " ies=";
        char hex[3];
        for (std::uint8_t byte : *network.rawElements) {
            std::snprintf(hex, sizeof hex, "%02x", byte);
            line += hex;
        }
    }
    return line;
}

bool parseRadioEnvironment(const std::string& text, std::vector<SimulatedNetworkT>& networks, std::string& error)
{
    networks.clear();
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        SimulatedNetworkT network;
        std::string lineError;
        if (!parseSimulatedNetwork(line, network, lineError)) {
            error = "line " + std::to_string(number) + ": " + lineError;
            return false;
        }
        networks.push_back(network);
    }
    return true;
}

bool loadRadioEnvironment(const std::string& root, std::vector<SimulatedNetworkT>& networks, std::string& error)
{
    networks.clear();
    std::ifstream in(radioEnvironmentPath(root));
    if (!in) return true;
    std::ostringstream text;
    text << in.rdbuf();
    return parseRadioEnvironment(text.str(), networks, error);
}

bool storeRadioEnvironment(const std::string& root, const std::vector<SimulatedNetworkT>& networks, std::string& error)
{
    if (!makeDirectories(root + "/sim/wlan")) {
        error = "cannot create " + root + "/sim/wlan";
        return false;
    }
    // Written aside and renamed, so that a scan never reads half a file.
    const std::string path = radioEnvironmentPath(root);
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        for (const auto& network : networks)
            out << formatSimulatedNetwork(network) << '\n';
        if (!out.flush()) {
            error = "cannot write " + temporary;
            return false;
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = "cannot replace " + path;
        return false;
    }
    return true;
}

std::optional<std::uint32_t> loadScanDelay(const std::string& root)
{
    std::ifstream in(scanDelayPath(root));
    std::string word;
    if (!(in >> word)) return kDefaultScanDelayMs;
    if (word == "never") return std::nullopt;
    unsigned long value = 0;
    return parseUnsigned(word, 600000, value) ? static_cast<std::uint32_t>(value) : kDefaultScanDelayMs;
}

std::vector<std::uint8_t> beaconElements(const SimulatedNetworkT& network)
{
    if (network.rawElements) return *network.rawElements;
    std::vector<std::uint8_t> elements(2 + network.name.size());
    elements[0] = kElementSsid;
    elements[1] = static_cast<std::uint8_t>(network.name.size());
    std::copy(network.name.begin(), network.name.end(), elements.begin() + 2);
    if (network.htOffset >= 0) {
        std::vector<std::uint8_t> ht(kHtOperationLength, 0);
        ht[0] = channelOfFrequency(network.frequencyMhz);
        // The secondary offset and, for 40 MHz, the "any channel width" bit.
        ht[1] = static_cast<std::uint8_t>(network.htOffset | (network.htOffset == 1 || network.htOffset == 3 ? 4 : 0));
        elements.push_back(kElementHtOperation);
        elements.push_back(static_cast<std::uint8_t>(ht.size()));
        elements.insert(elements.end(), ht.begin(), ht.end());
    }
    return elements;
}

}  // namespace platform::sim
