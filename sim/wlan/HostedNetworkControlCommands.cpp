#include "sim/wlan/HostedNetworkControlCommands.h"

#include <sstream>
#include <string>
#include <vector>

#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"

namespace halvern::sim {

namespace {

bool parseNumber(const std::string& text, std::uint32_t& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) return false;
    value = static_cast<std::uint32_t>(std::stoul(text));
    return true;
}

std::string apCommand(const std::vector<std::string>& arguments)
{
    const std::string root = platform::sim::root();
    if (arguments.size() == 1 && arguments[0] == "show") {
        const platform::sim::SimHostedNetworkS record = platform::sim::readHostedNetwork(root);
        std::ostringstream reply;
        reply << "OK state " << record.state << " ssid \"" << platform::sim::hostedNetworkSsid(record.settings)
              << "\" key \"" << std::string(record.key.begin(), record.key.end()).c_str() << "\" starts "
              << record.starts << " failing " << record.failingStarts << " reason " << record.failReason;
        return reply.str();
    }
    std::uint32_t count = 0, reason = 0;
    if (arguments.size() == 3 && arguments[0] == "fail" && parseNumber(arguments[1], count) &&
        parseNumber(arguments[2], reason)) {
        const bool kept = platform::sim::updateHostedNetwork(root, [&](platform::sim::SimHostedNetworkS& record) {
            record.failingStarts = count;
            record.failReason = reason;
        });
        return kept ? "OK" : "ERROR cannot keep the hosted network's state";
    }
    if (arguments.size() == 1 && (arguments[0] == "unavailable" || arguments[0] == "available")) {
        const bool available = arguments[0] == "available";
        const bool kept =
            platform::sim::updateHostedNetwork(root, [available](platform::sim::SimHostedNetworkS& record) {
                if (!available)
                    record.state = "unavailable";
                else if (record.state == "unavailable")
                    record.state = "idle";
            });
        return kept ? "OK" : "ERROR cannot keep the hosted network's state";
    }
    return "ERROR usage: wlan ap show | fail N REASON | unavailable | available";
}

std::string channelText(const platform::sim::SimDriverChannelS& channel)
{
    return std::to_string(channel.channel) + "/" + std::to_string(channel.widthFlags) + (channel.dfs ? "/dfs" : "") +
           (channel.marked ? "/marked" : "");
}

// CHANNEL[/WIDTHFLAGS][/dfs][/marked]
bool parseChannel(const std::string& text, platform::sim::SimDriverChannelS& channel)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '/');)
        parts.push_back(part);
    if (parts.empty() || !parseNumber(parts[0], channel.channel) || channel.channel == 0) return false;
    channel.widthFlags = 1;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        if (parts[i] == "dfs")
            channel.dfs = true;
        else if (parts[i] == "marked")
            channel.marked = true;
        else if (i != 1 || !parseNumber(parts[i], channel.widthFlags) || channel.widthFlags == 0 ||
                 channel.widthFlags > 7)
            return false;
    }
    return true;
}

std::string channelsCommand(const std::vector<std::string>& arguments)
{
    const std::string root = platform::sim::root();
    const std::string usage =
        "ERROR usage: wlan channels show | set CHANNEL[/WIDTHFLAGS][/dfs][/marked]... | "
        "mark CHANNEL | unmark CHANNEL";
    if (arguments.size() == 1 && arguments[0] == "show") {
        std::string reply = "OK";
        for (const auto& channel : platform::sim::readDriverChannels(root))
            reply += " " + channelText(channel);
        return reply;
    }
    if (arguments.size() >= 2 && arguments[0] == "set") {
        std::vector<platform::sim::SimDriverChannelS> channels;
        for (std::size_t i = 1; i < arguments.size(); ++i) {
            platform::sim::SimDriverChannelS channel;
            if (!parseChannel(arguments[i], channel)) return "ERROR bad channel " + arguments[i];
            channels.push_back(channel);
        }
        return platform::sim::writeDriverChannels(root, channels) ? "OK" : "ERROR cannot write the driver's channels";
    }
    std::uint32_t wanted = 0;
    if (arguments.size() == 2 && (arguments[0] == "mark" || arguments[0] == "unmark") &&
        parseNumber(arguments[1], wanted)) {
        std::vector<platform::sim::SimDriverChannelS> channels = platform::sim::readDriverChannels(root);
        bool found = false;
        for (auto& channel : channels) {
            if (channel.channel != wanted) continue;
            channel.marked = arguments[0] == "mark";
            found = true;
        }
        if (!found) return "ERROR the driver does not offer channel " + arguments[1];
        return platform::sim::writeDriverChannels(root, channels) ? "OK" : "ERROR cannot write the driver's channels";
    }
    return usage;
}

}  // namespace

void addHostedNetworkControlCommands(ControlCommandsC& commands)
{
    commands.add("wlan ap", apCommand);
    commands.add("wlan channels", channelsCommand);
}

}  // namespace halvern::sim
