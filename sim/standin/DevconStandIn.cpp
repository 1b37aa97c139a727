// The device tool as the simulated instrument has it. It knows the devices that Halvern handles, named
// by instance ("@" + instance id) or by hardware ID, without regard to case, "*" matching any run:
//
//   devcon disable|enable ID...   switches the device and prints "ID: Disabled" / "ID: Enabled" and the count
//   devcon restart ID...          restarts the WLAN card ("ID: Restarted")
//   devcon rescan                 scans for new hardware
//   devcon dp_enum                lists the driver store's third-party packages with provider, class, date
//                                 and version
//   devcon update INF HWID        stages INF and installs it on the device whose hardware id is HWID
//
// The computer module's Ethernet adapter towards the sensor board keeps its state in the sim root, where
// the sensor board model follows it: disabling it takes the link down, enabling it again brings the link
// back, also after the cable was unplugged. The WLAN card is the one of WlanDeviceModel.h: disabled it
// unloads its driver, an update makes it run on the new package.
#include "sim/standin/DevconStandIn.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "platform/sim/SimRoot.h"
#include "sim/board/MoraAdapterRecord.h"
#include "sim/standin/WlanDeviceModel.h"

namespace halvern::sim {

namespace {

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

// "*" matches any run of characters, as in the tool's ID patterns.
bool matchesPattern(const std::string& pattern, const std::string& text)
{
    if (pattern.empty()) return text.empty();
    if (pattern[0] == '*') {
        for (std::size_t skip = 0; skip <= text.size(); ++skip)
            if (matchesPattern(pattern.substr(1), text.substr(skip))) return true;
        return false;
    }
    return !text.empty() && pattern[0] == text[0] && matchesPattern(pattern.substr(1), text.substr(1));
}

// "@" + pattern names instances; a bare pattern names hardware IDs.
bool matchesAdapter(const std::string& argument)
{
    static const char* const kHardwareIds[] = {"PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03",
                                               "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000",
                                               "PCI\\VEN_8086&DEV_1533&REV_03", "PCI\\VEN_8086&DEV_1533"};
    if (argument.size() > 1 && argument[0] == '@')
        return matchesPattern(upper(argument.substr(1)), kMoraAdapterInstance);
    for (const char* id : kHardwareIds)
        if (matchesPattern(upper(argument), id)) return true;
    return false;
}

// The WLAN card's hardware and compatible ids, which patterns and updates are matched against.
const char* const kWlanIds[] = {"PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01",
                                "PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C", "PCI\\VEN_168C&DEV_0033&REV_01",
                                "PCI\\VEN_168C&DEV_0033"};

bool matchesWlan(const std::string& argument)
{
    if (argument.size() > 1 && argument[0] == '@')
        return matchesPattern(upper(argument.substr(1)), kWlanDeviceInstance);
    for (const char* id : kWlanIds)
        if (matchesPattern(upper(argument), id)) return true;
    return false;
}

int listDriverPackages(const std::string& root)
{
    const std::vector<DriverPackageT> packages = readDriverStore(root);
    if (packages.empty()) {
        std::printf("No 3rd party Driver Packages found on this machine.\n");
        return 0;
    }
    std::printf("The following 3rd party Driver Packages are on this machine:\n");
    for (const auto& package : packages) {
        const std::size_t blank = package.dateVersion.find(' ');
        std::printf("%s\n    Provider: %s\n    Class: %s\n    Date: %s\n    Version: %s\n", package.published.c_str(),
                    package.provider.c_str(),
                    package.className == "Net" ? "Network adapters" : package.className.c_str(),
                    package.dateVersion.substr(0, blank).c_str(),
                    blank == std::string::npos ? "" : package.dateVersion.substr(blank + 1).c_str());
    }
    return 0;
}

int updateWlanDriver(const std::string& root, const std::string& inf, const std::string& hardwareId)
{
    std::printf("Updating drivers for %s from %s.\n", hardwareId.c_str(), inf.c_str());
    const std::string id = upper(hardwareId);
    const bool known =
        std::any_of(std::begin(kWlanIds), std::end(kWlanIds), [&id](const char* wlan) { return id == wlan; });
    DriverPackageT package;
    if (!known || !addDriverPackage(root, platform::sim::resolveWindowsPath(inf), package)) {
        std::printf("devcon.exe failed.\n");
        return 1;
    }
    WlanDeviceT device = readWlanDevice(root);
    device.package = package.published;
    device.driver = package.driverFile;
    device.test = package.dateVersion == kTestDriverDateVersion;
    if (!writeWlanDevice(root, device)) {
        std::printf("devcon.exe failed.\n");
        return 1;
    }
    std::printf("Drivers installed successfully.\n");
    return 0;
}

int usage()
{
    std::printf("devcon.exe: Invalid use of the command.\nFor more information, type: devcon.exe help\n");
    return 3;
}

}  // namespace

int runDevcon(const std::string& root, const std::vector<std::string>& arguments)
{
    if (arguments.empty()) return usage();
    const std::string verb = upper(arguments[0]);
    if (verb == "DP_ENUM" && arguments.size() == 1) return listDriverPackages(root);
    if (verb == "RESCAN" && arguments.size() == 1) {
        std::printf("Scanning for new hardware.\nScanning completed.\n");
        return 0;
    }
    if (verb == "UPDATE") return arguments.size() == 3 ? updateWlanDriver(root, arguments[1], arguments[2]) : usage();
    if (arguments.size() < 2 || (verb != "ENABLE" && verb != "DISABLE" && verb != "RESTART")) return usage();
    const bool enable = verb == "ENABLE";
    const char* const done = verb == "RESTART" ? "Restarted" : enable ? "Enabled" : "Disabled";
    bool mora = false;
    bool wlan = false;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        mora = mora || (verb != "RESTART" && matchesAdapter(arguments[i]));
        wlan = wlan || matchesWlan(arguments[i]);
    }
    int matched = 0;
    if (mora) {
        MoraAdapterRecordT record = readMoraAdapterRecord(root);
        if (enable && !record.enabled) ++record.restarts;
        record.enabled = enable;
        platform::sim::makeDirectories(root + "/sim/devices");
        if (!writeMoraAdapterRecord(root, record)) {
            std::printf("%s: %s failed\n", kMoraAdapterInstance, enable ? "Enable" : "Disable");
            return 2;
        }
        std::printf("%s: %s\n", kMoraAdapterInstance, done);
        ++matched;
    }
    if (wlan) {
        WlanDeviceT device = readWlanDevice(root);
        // A restart reloads the driver where it runs; a disabled card stays as it is.
        if (verb != "RESTART") device.enabled = enable;
        if (!writeWlanDevice(root, device)) {
            std::printf("%s: %s failed\n", kWlanDeviceInstance,
                        verb == "RESTART" ? "Restart"
                        : enable          ? "Enable"
                                          : "Disable");
            return 2;
        }
        std::printf("%s: %s\n", kWlanDeviceInstance, done);
        ++matched;
    }
    if (matched == 0) {
        std::printf("No matching devices found.\n");
        return 0;
    }
    if (verb == "RESTART")
        std::printf("%d device(s) restarted.\n", matched);
    else
        std::printf(enable ? "%d device(s) are enabled.\n" : "%d device(s) disabled.\n", matched);
    return 0;
}

}  // namespace halvern::sim
