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
#include "platform/sim/SimUsbBus.h"
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

// The overlay's figures, in MB, as the filter's WMI provider would answer them.
std::string uwfOverlayCommand(const std::vector<std::string>& arguments)
{
    const auto isNumber = [](const std::string& text) {
        return !text.empty() && text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
    };
    if (arguments.size() != 3 || !isNumber(arguments[1]) || !isNumber(arguments[2]))
        return "ERROR usage: uwf overlay USED_MB AVAIL_MB";
    const std::string folder = platform::sim::root() + "/sim/uwf";
    if (!platform::sim::makeDirectories(folder)) return "ERROR cannot prepare " + folder;
    std::ofstream out(folder + "/overlay", std::ios::trunc);
    out << arguments[1] << " " << arguments[2] << "\n";
    return out ? "OK" : "ERROR cannot write " + folder + "/overlay";
}

// The write filter: its running state and the next boot's, which uwfmgr.exe sets and a restart applies.
std::string uwfCommand(const std::vector<std::string>& arguments)
{
    if (!arguments.empty() && arguments[0] == "overlay") return uwfOverlayCommand(arguments);
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
    if (wanted != "on" && wanted != "off")
        return "ERROR usage: uwf show | uwf set on|off | uwf reboot | uwf overlay USED_MB AVAIL_MB";
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

// Saves the changed bus, then tells the windows registered for USB device notifications (a running Halvern's),
// as Windows tells them when a device comes or goes.
std::string saveUsbBusAndNotify(const std::string& root, const std::vector<platform::sim::SimUsbDeviceT>& bus,
                                bool arrival)
{
    if (!platform::sim::saveUsbBus(root, bus)) return "ERROR cannot write the USB bus";
    platform::sim::notifyUsbDeviceChange(root, arrival);
    return "OK";
}

// The devices of the USB bus: "usb device add VID PID PORT [storage] [unenumerated] [refuse]", "usb device
// remove PORT", "usb devices" and "usb resets" (the ports restarted so far). The instrument reads the bus
// again at the device change each of them sends.
std::string usbDeviceCommand(const std::vector<std::string>& arguments)
{
    const std::string root = platform::sim::root();
    std::vector<platform::sim::SimUsbDeviceT> bus;
    if (!platform::sim::loadUsbBus(root, bus)) return "ERROR cannot read " + platform::sim::usbBusPath(root);
    if (arguments.size() >= 5 && arguments[1] == "add") {
        std::string line = arguments[2] + " " + arguments[3] + " " + arguments[4];
        for (std::size_t i = 5; i < arguments.size(); ++i) {
            if (arguments[i] == "stick") return "ERROR a stick is attached with usb plug LABEL";
            line += " " + arguments[i];
        }
        platform::sim::SimUsbDeviceT device;
        if (!platform::sim::parseUsbDeviceLine(line, device))
            return "ERROR usage: usb device add VID PID PORT [storage] [unenumerated] [refuse]";
        for (const auto& attached : bus)
            if (attached.port == device.port) return "ERROR port " + arguments[4] + " is taken";
        bus.push_back(device);
        return saveUsbBusAndNotify(root, bus, true);
    }
    if (arguments.size() == 3 && arguments[1] == "remove") {
        const auto before = bus.size();
        for (auto it = bus.begin(); it != bus.end();)
            it = std::to_string(it->port) == arguments[2] && !it->stick ? bus.erase(it) : it + 1;
        if (bus.size() == before) return "ERROR no device on port " + arguments[2];
        return saveUsbBusAndNotify(root, bus, false);
    }
    return "ERROR usage: usb device add VID PID PORT [storage] [unenumerated] [refuse] | usb device remove PORT";
}

std::string joinedLines(const std::string& path)
{
    std::ifstream in(path);
    std::string joined;
    for (std::string line; std::getline(in, line);)
        joined += (joined.empty() ? "" : "; ") + line;
    return joined;
}

// The stick takes the first free port, as a person plugs it where there is room. A stick already in place
// only gets its new label.
std::string attachStick(const std::string& root)
{
    std::vector<platform::sim::SimUsbDeviceT> bus;
    if (!platform::sim::loadUsbBus(root, bus)) return "ERROR cannot read " + platform::sim::usbBusPath(root);
    platform::sim::SimUsbDeviceT stick;
    stick.vendorId = platform::sim::kSimStickVendorId;
    stick.productId = platform::sim::kSimStickProductId;
    stick.stick = stick.massStorage = true;
    for (const auto& device : bus) {
        if (device.stick) return "OK";
    }
    for (stick.port = 1;; ++stick.port) {
        bool taken = false;
        for (const auto& device : bus)
            taken = taken || device.port == stick.port;
        if (!taken) break;
    }
    bus.push_back(stick);
    return saveUsbBusAndNotify(root, bus, true);
}

std::string detachStick(const std::string& root)
{
    std::vector<platform::sim::SimUsbDeviceT> bus;
    if (!platform::sim::loadUsbBus(root, bus)) return "ERROR cannot read " + platform::sim::usbBusPath(root);
    const auto before = bus.size();
    for (auto it = bus.begin(); it != bus.end();)
        it = it->stick ? bus.erase(it) : it + 1;
    if (bus.size() == before) return "OK";
    return saveUsbBusAndNotify(root, bus, false);
}

// The USB stick in the production drive F:: its volume label, and the update image it may carry. The stick
// is a mass-storage device of the USB bus as well.
std::string usbCommand(const std::vector<std::string>& arguments)
{
    const std::string root = platform::sim::root();
    const std::string volume = root + "/sim/volumes/F";
    const std::string drive = root + "/F";
    if (!arguments.empty() && arguments[0] == "device") return usbDeviceCommand(arguments);
    if (arguments.size() == 1 && arguments[0] == "devices") {
        std::vector<platform::sim::SimUsbDeviceT> bus;
        if (!platform::sim::loadUsbBus(root, bus)) return "ERROR cannot read " + platform::sim::usbBusPath(root);
        std::string listed;
        for (const auto& device : bus)
            listed += (listed.empty() ? "" : "; ") + platform::sim::usbDeviceLine(device);
        return "OK " + listed;
    }
    if (arguments.size() == 1 && arguments[0] == "resets")
        return "OK " + joinedLines(platform::sim::usbResetsPath(root));
    if (arguments.size() >= 2 && arguments[0] == "plug") {
        if (!platform::sim::makeDirectories(root + "/sim/volumes") || !platform::sim::makeDirectories(drive))
            return "ERROR cannot prepare " + drive;
        // A label may have blanks, as Windows allows.
        std::string label = arguments[1];
        for (std::size_t i = 2; i < arguments.size(); ++i)
            label += " " + arguments[i];
        std::ofstream out(volume, std::ios::trunc);
        out << label << "\n";
        if (!out) return "ERROR cannot write " + volume;
        return attachStick(root);
    }
    if (arguments.size() == 1 && arguments[0] == "unplug") {
        std::error_code ignored;
        std::filesystem::remove(volume, ignored);
        std::filesystem::remove_all(drive, ignored);
        return detachStick(root);
    }
    if (arguments.size() == 1 && arguments[0] == "image") {
        if (!platform::sim::makeDirectories(drive + "/system")) return "ERROR cannot prepare " + drive;
        std::ofstream out(drive + "/system/software.img", std::ios::trunc);
        out << "simulated firmware image\n";
        return out ? "OK" : "ERROR cannot write the image";
    }
    return "ERROR usage: usb plug LABEL | usb image | usb unplug | usb device add|remove ... | usb devices | "
           "usb resets";
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
