#include "sim/wlan/RadioControlCommands.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanRadioEnvironment.h"

namespace halvern::sim {

namespace {

const char* const kEnvUsage = "ERROR usage: wlan env load FILE | wlan env clear";
const char* const kNetworkUsage =
    "ERROR usage: wlan network add FREQ NAME [ht20|ht40+|ht40-|offset=N] [rssi=-DBM] | wlan network remove NAME";
// A peer on 36 and foreign networks on 36, 40 and the DFS channel 52: the selection has a clear choice.
const char* const kDefaultEnvironment =
    "5180 Zentor-10001\n"
    "5180 OfficeNet\n"
    "5200 Guest-5G rssi=-71\n"
    "5260 Warehouse rssi=-75\n"
    "2412 Zentor-10003\n"
    "2437 HomeNet\n";
const char* const kScanUsage = "ERROR usage: wlan scan delay MS|never";

std::string describe(const std::vector<platform::sim::SimulatedNetworkT>& networks)
{
    std::string text = std::to_string(networks.size()) + (networks.size() == 1 ? " network" : " networks");
    for (std::size_t i = 0; i < networks.size(); ++i)
        text += (i == 0 ? ": " : "; ") + platform::sim::formatSimulatedNetwork(networks[i]);
    return text;
}

std::string store(const std::vector<platform::sim::SimulatedNetworkT>& networks)
{
    std::string error;
    if (!platform::sim::storeRadioEnvironment(platform::sim::root(), networks, error)) return "ERROR " + error;
    return "OK " + describe(networks);
}

std::string loadEnvironment(const std::vector<std::string>& args)
{
    if (args.size() == 1 && args[0] == "clear") return store({});
    if (args.size() != 2 || args[0] != "load") return kEnvUsage;
    std::ifstream in(args[1]);
    if (!in) return "ERROR cannot read " + args[1];
    std::ostringstream text;
    text << in.rdbuf();
    std::vector<platform::sim::SimulatedNetworkT> networks;
    std::string error;
    if (!platform::sim::parseRadioEnvironment(text.str(), networks, error)) return "ERROR " + args[1] + ": " + error;
    return store(networks);
}

std::string changeNetworks(const std::vector<std::string>& args)
{
    std::vector<platform::sim::SimulatedNetworkT> networks;
    std::string error;
    if (!platform::sim::loadRadioEnvironment(platform::sim::root(), networks, error)) return "ERROR " + error;
    if (args.size() >= 3 && args[0] == "add") {
        std::string line;
        for (std::size_t i = 1; i < args.size(); ++i)
            line += (i == 1 ? "" : " ") + args[i];
        platform::sim::SimulatedNetworkT network;
        if (!platform::sim::parseSimulatedNetwork(line, network, error)) return "ERROR " + error;
        networks.push_back(network);
        return store(networks);
    }
    if (args.size() == 2 && args[0] == "remove") {
        const auto before = networks.size();
        networks.erase(std::remove_if(networks.begin(), networks.end(),
                                      [&](const platform::sim::SimulatedNetworkT& n) { return n.name == args[1]; }),
                       networks.end());
        if (networks.size() == before) return "ERROR no network named " + args[1];
        return store(networks);
    }
    return kNetworkUsage;
}

std::string setScanDelay(const std::vector<std::string>& args)
{
    if (args.size() != 2 || args[0] != "delay") return kScanUsage;
    const std::string& value = args[1];
    if (value != "never" &&
        (value.empty() || value.size() > 6 || value.find_first_not_of("0123456789") != std::string::npos))
        return kScanUsage;
    const std::string root = platform::sim::root();
    if (!platform::sim::makeDirectories(root + "/sim/wlan")) return "ERROR cannot create " + root + "/sim/wlan";
    std::ofstream out(platform::sim::scanDelayPath(root), std::ios::trunc);
    out << value << '\n';
    if (!out.flush()) return "ERROR cannot write " + platform::sim::scanDelayPath(root);
    return value == "never" ? "OK scans never complete" : "OK scans complete after " + value + " ms";
}

}  // namespace

void addRadioControlCommands(ControlCommandsC& commands)
{
    commands.add("wlan env", loadEnvironment);
    commands.add("wlan network", changeNetworks);
    commands.add("wlan networks", [](const std::vector<std::string>& args) -> std::string {
        if (!args.empty()) return "ERROR usage: wlan networks";
        std::vector<platform::sim::SimulatedNetworkT> networks;
        std::string error;
        if (!platform::sim::loadRadioEnvironment(platform::sim::root(), networks, error)) return "ERROR " + error;
        return "OK " + describe(networks);
    });
    commands.add("wlan scan", setScanDelay);
}

bool provideDefaultRadioEnvironment(const std::string& root, std::string& error)
{
    if (std::ifstream(platform::sim::radioEnvironmentPath(root)).good()) return true;
    std::vector<platform::sim::SimulatedNetworkT> networks;
    return platform::sim::parseRadioEnvironment(kDefaultEnvironment, networks, error) &&
           platform::sim::storeRadioEnvironment(root, networks, error);
}

}  // namespace halvern::sim
