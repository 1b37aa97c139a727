#include "sim/wlan/DriverEventControlCommands.h"

#include <cstdlib>

#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/WlanDriver.h"
#include "platform/sim/NdisWire.h"

namespace halvern::sim {

namespace {

bool parseNumber(const std::string& text, std::uint32_t& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) return false;
    value = static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    return true;
}

std::string delivered(NdisIndicationServerC& server, const std::string& what, const std::string& className,
                      const std::vector<std::uint8_t>* indication)
{
    const int reached = server.deliver(className, indication);
    if (reached == 0) return "ERROR no subscriber for " + className;
    return "OK " + what + " sent to " + std::to_string(reached) + " subscriber(s)";
}

std::string indicate(NdisIndicationServerC& server, const std::string& what, std::uint32_t code,
                     std::uint32_t cacTimeMs = 0, std::uint32_t port = 0)
{
    platform::WlanIndicationT indication;
    indication.type = platform::kWlanIndicationTypeDfs;
    indication.port = port;
    indication.eventCode = code;
    indication.cacTimeMs = cacTimeMs;
    const std::vector<std::uint8_t> bytes = platform::encodeWlanIndication(indication);
    return delivered(server, what, platform::sim::kNdisClassSpecificIndication, &bytes);
}

// The channel the access point runs on, as its driver keeps it ("?" when it cannot be read).
std::string currentChannel()
{
    const wchar_t* const kWlanDriverKey =
        L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\0003";
    platform::UniqueRegKey key;
    std::wstring channel;
    if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, kWlanDriverKey, key) != 0 ||
        platform::regQueryString(key, L"ApChanNum", channel) != 0)
        return "?";
    return platform::narrow(channel).value_or("?");
}

}  // namespace

void addDriverEventControlCommands(ControlCommandsC& commands, NdisIndicationServerC& server)
{
    commands.add("wlan radar", [&server](const std::vector<std::string>& arguments) -> std::string {
        if (!arguments.empty()) return "ERROR usage: wlan radar";
        return indicate(server, "RADAR_DETECTED on channel " + currentChannel(), platform::kWlanEventRadarDetected);
    });
    // "wlan ap" itself is the hosted network's; only this one word after it is the driver's.
    commands.add("wlan ap stopped", [&server](const std::vector<std::string>& arguments) -> std::string {
        if (!arguments.empty()) return "ERROR usage: wlan ap stopped";
        return indicate(server, "AP_STOPPED", platform::kWlanEventApStopped);
    });
    commands.add("wlan cac", [&server](const std::vector<std::string>& arguments) -> std::string {
        std::uint32_t timeMs = 0;
        if (arguments.size() == 2 && arguments[0] == "start" && parseNumber(arguments[1], timeMs))
            return indicate(server, "START_OF_CAC", platform::kWlanEventStartOfCac, timeMs);
        if (arguments.size() == 1 && arguments[0] == "done")
            return indicate(server, "CAC_DONE", platform::kWlanEventCacDone);
        return "ERROR usage: wlan cac start MS | wlan cac done";
    });
    commands.add("wlan indication", [&server](const std::vector<std::string>& arguments) -> std::string {
        std::uint32_t code = 0, port = 0;
        if (arguments.empty() || arguments.size() > 2 || !parseNumber(arguments[0], code) ||
            (arguments.size() == 2 && !parseNumber(arguments[1], port)))
            return "ERROR usage: wlan indication CODE [PORT]";
        return indicate(server, "event " + arguments[0], code, 0, port);
    });
    commands.add("wlan media", [&server](const std::vector<std::string>& arguments) -> std::string {
        if (arguments.size() == 1 && arguments[0] == "disconnect")
            return delivered(server, "media disconnect", platform::sim::kNdisClassMediaDisconnect, nullptr);
        if (arguments.size() == 1 && arguments[0] == "connect")
            return delivered(server, "media connect", platform::sim::kNdisClassMediaConnect, nullptr);
        return "ERROR usage: wlan media disconnect|connect";
    });
}

}  // namespace halvern::sim
