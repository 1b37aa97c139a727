#include "sim/WindowsControlCommands.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/Registry.h"
#include "platform/Socket.h"
#include "platform/Text.h"
#include "platform/Time.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"

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

// The write filter: its running state and the next boot's, which uwfmgr.exe sets and a restart applies.
std::string uwfCommand(const std::vector<std::string>& arguments)
{
    const auto word = [](bool on) { return on ? "on" : "off"; };
    if (arguments.size() == 1 && arguments[0] == "show") {
        const auto current = platform::sim::currentFilterState();
        if (!current) return "ERROR cannot read the filter state";
        return std::string("OK current ") + word(*current) + " next " +
               word(platform::sim::nextBootFilterState().value_or(*current));
    }
    if (arguments.size() == 1 && arguments[0] == "reboot")
        return platform::sim::bootWriteFilter() ? "OK" : "ERROR cannot write the filter state";
    // "uwf on|off" is the older spelling of "uwf set on|off".
    const std::string wanted = arguments.size() == 2 && arguments[0] == "set" ? arguments[1]
                               : arguments.size() == 1                        ? arguments[0]
                                                                              : std::string();
    if (wanted != "on" && wanted != "off") return "ERROR usage: uwf show | uwf set on|off | uwf reboot";
    return platform::sim::setFilterState(wanted == "on") ? "OK" : "ERROR cannot write the filter state";
}

// The simulated network's route table, as route.exe keeps it: a gateway added here is what the network
// observer has to remove.
std::string routeCommand(const std::vector<std::string>& arguments)
{
    const std::string table = platform::sim::root() + "/sim/network/routes";
    if (arguments.size() == 1 && arguments[0] == "list") {
        std::ifstream in(table);
        std::string routes;
        for (std::string line; std::getline(in, line);)
            routes += (routes.empty() ? "" : "; ") + line;
        return "OK " + routes;
    }
    std::uint32_t gateway = 0;
    if (arguments.size() != 2 || arguments[0] != "add-default" || !platform::parseIpv4(arguments[1], gateway))
        return "ERROR usage: route add-default GATEWAY | route list";
    std::ofstream out(table, std::ios::app);
    out << "0.0.0.0 0.0.0.0 " << arguments[1] << " persistent\n";
    return out ? "OK" : "ERROR cannot write " + table;
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

// The USB stick in the production drive F:: its volume label, and the update image it may carry.
std::string usbCommand(const std::vector<std::string>& arguments)
{
    const std::string root = platform::sim::root();
    const std::string volume = root + "/sim/volumes/F";
    const std::string drive = root + "/F";
    if (arguments.size() == 2 && arguments[0] == "plug") {
        if (!platform::sim::makeDirectories(root + "/sim/volumes") || !platform::sim::makeDirectories(drive))
            return "ERROR cannot prepare " + drive;
        std::ofstream out(volume, std::ios::trunc);
        out << arguments[1] << "\n";
        return out ? "OK" : "ERROR cannot write " + volume;
    }
    if (arguments.size() == 1 && arguments[0] == "unplug") {
        std::error_code ignored;
        std::filesystem::remove(volume, ignored);
        std::filesystem::remove_all(drive, ignored);
        return "OK";
    }
    if (arguments.size() == 1 && arguments[0] == "image") {
        if (!platform::sim::makeDirectories(drive + "/system")) return "ERROR cannot prepare " + drive;
        std::ofstream out(drive + "/system/software.img", std::ios::trunc);
        out << "simulated firmware image\n";
        return out ? "OK" : "ERROR cannot write the image";
    }
    return "ERROR usage: usb plug LABEL | usb image | usb unplug";
}

}  // namespace

void addWindowsControlCommands(ControlCommandsC& commands)
{
    commands.add("clock", clockCommand);
    commands.add("uwf", uwfCommand);
    commands.add("service", serviceCommand);
    commands.add("route", routeCommand);
    commands.add("usb", usbCommand);
}

}  // namespace halvern::sim
