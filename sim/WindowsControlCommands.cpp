#include "sim/WindowsControlCommands.h"

#include <cstdio>
#include <fstream>
#include <string>

#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/Time.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

std::string timeText(const platform::SystemTime& time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text;
}

std::string clockCommand(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 1 || arguments[0] != "get") return "ERROR usage: clock get";
    const auto zone = platform::sim::loadTimeZone(platform::sim::root());
    return "OK utc " + timeText(platform::systemTime()) + " local " + timeText(platform::localTime()) + " zone " +
           platform::narrow(zone.timeZoneKeyName).value_or("?") +
           (zone.dynamicDaylightTimeDisabled ? " daylight-saving off" : "");
}

std::string uwfCommand(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 1 || (arguments[0] != "on" && arguments[0] != "off")) return "ERROR usage: uwf on|off";
    // The helper service's mirror of the filter state is what the instrument reads first.
    if (!platform::sim::writeValue(platform::RegHive::LocalMachine,
                                   "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                   {platform::kRegDword, arguments[0] == "on" ? "1" : "0"}))
        return "ERROR cannot write the filter state";
    return "OK";
}

std::string serviceCommand(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 2 || (arguments[1] != "get" && arguments[1] != "stop"))
        return "ERROR usage: service NAME get|stop";
    const std::string stateFile = platform::sim::root() + "/services/" + arguments[0];
    if (arguments[1] == "stop") {
        std::ofstream out(stateFile, std::ios::trunc);
        out << "STOPPED\n";
        return out ? "OK" : "ERROR cannot write " + stateFile;
    }
    std::ifstream in(stateFile);
    std::string state;
    return "OK " + (std::getline(in, state) ? state : std::string("STOPPED"));
}

}  // namespace

void addWindowsControlCommands(ControlCommandsC& commands)
{
    commands.add("clock", clockCommand);
    commands.add("uwf", uwfCommand);
    commands.add("service", serviceCommand);
}

}  // namespace halvern::sim
