#include "sim/SimRootLayout.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/Registry.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"
#include "sim/HardwareSim.h"
#include "sim/TimeZoneData.h"
#include "sim/standin/WlanDeviceModel.h"

namespace halvern::sim {

namespace {
const char* const kFolders[] = {
    "C/vexarBatches/Halvern",
    "C/vexarBatches/Unprotected",
    "C/Program Files",
    "D/logs",
    "registry/HKCU/SOFTWARE/Vexar/Halvern",
    "registry/HKLM/SOFTWARE",
    "registry/HKLM/SYSTEM/CurrentControlSet/Services",
    "kernel/Global",
    "kernel/Local",
    "pipe",
    "dev",
    "clock",
    "services",
    "sim/efi",
    "C/Windows/System32",
    "registry/HKLM/SYSTEM/ControlSet001/Services",
};

const char* const kTimeZonesKey = "registry/HKLM/SOFTWARE/Microsoft/Windows NT/CurrentVersion/Time Zones";

bool exists(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

// Writes a registry value file into `keyFolder`, creating the key; a value already there is the
// instrument's own and stays.
bool provideValue(const std::string& keyFolder, const std::string& name, std::uint32_t type, const std::string& data)
{
    const std::string path = keyFolder + "/" + name;
    if (exists(path)) return true;
    if (!platform::sim::makeDirectories(keyFolder)) return false;
    std::ofstream out(path);
    out << platform::sim::typeName(type) << '\n' << data << '\n';
    return static_cast<bool>(out);
}

bool provideFile(const std::string& path, const std::string& content)
{
    if (exists(path)) return true;
    std::ofstream out(path);
    out << content;
    return static_cast<bool>(out);
}

}  // namespace

bool installTimeZones(const std::string& zonesFolder, std::string& error)
{
    if (exists(zonesFolder)) return true;
    std::istringstream data(timeZoneData());
    std::string line;
    while (std::getline(data, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> fields;
        std::istringstream columns(line);
        std::string field;
        while (std::getline(columns, field, '\t'))
            fields.push_back(field);
        const auto tzi = fields.size() == 5 ? platform::sim::hexBytes(fields[4]) : std::nullopt;
        if (!tzi || tzi->size() != 44) {
            error = "damaged time zone data: " + line;
            return false;
        }
        const std::string key = zonesFolder + "/" + fields[0];
        if (!provideValue(key, "Display", platform::kRegSz, fields[1]) ||
            !provideValue(key, "Std", platform::kRegSz, fields[2]) ||
            !provideValue(key, "Dlt", platform::kRegSz, fields[3]) ||
            !provideValue(key, "TZI", platform::kRegBinary, platform::sim::hexText(*tzi))) {
            error = "cannot write the time zone " + key + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

std::string timeZonesKeyFolder(const std::string& root)
{
    return root + "/" + kTimeZonesKey;
}

namespace {

// What a fresh instrument's Windows brings along: its zones, its clock in UTC, the time service, the write
// filter (installed, not protecting) and its configuration library.
bool provideWindows(const std::string& root, std::string& error)
{
    if (!installTimeZones(timeZonesKeyFolder(root), error)) return false;
    if (!exists(root + "/clock/TimeZone") && !platform::sim::storeTimeZone(root, platform::sim::utcTimeZone())) {
        error = "cannot write the time zone of " + root;
        return false;
    }
    const std::string services = root + "/registry/HKLM/SYSTEM/CurrentControlSet/Services";
    const std::string helperStatus = root + "/registry/HKLM/SYSTEM/ControlSet001/Services/HalvernHelper/Status";
    if (!provideValue(services + "/W32Time", "DisplayName", platform::kRegSz, "Windows Time") ||
        !provideValue(services + "/W32Time", "Start", platform::kRegDword, "3") ||
        !provideValue(helperStatus, "FilterState", platform::kRegDword, "0") ||
        // The device modes' services, remote desktop, shell and the ports forwarded to the sensor board.
        !provideValue(services + "/LanmanWorkstation", "DisplayName", platform::kRegSz, "Workstation") ||
        !provideValue(services + "/LanmanWorkstation", "Start", platform::kRegDword, "2") ||
        !provideValue(services + "/SessionEnv", "DisplayName", platform::kRegSz, "Remote Desktop Configuration") ||
        !provideValue(services + "/SessionEnv", "Start", platform::kRegDword, "3") ||
        !provideValue(root + "/registry/HKLM/SYSTEM/CurrentControlSet/Control/Terminal Server", "fDenyTSConnections",
                      platform::kRegDword, "1") ||
        !provideValue(root + "/registry/HKLM/SOFTWARE/Microsoft/Windows NT/CurrentVersion/Winlogon", "Userinit",
                      platform::kRegSz, "C:\\Windows\\system32\\userinit.exe, C:\\Windows\\explorer.exe,") ||
        !provideFile(root + "/C/vexarBatches/Halvern/portsConfiguration.txt", "22\n23\n") ||
        // The simulated sensor board is on this machine.
        !provideValue(root + "/registry/HKLM/SOFTWARE/Vexar/Halvern", "SensorBoardAddress", platform::kRegSz,
                      "127.0.0.1") ||
        !provideFile(root + "/C/Windows/System32/uwfcfgmgmt.dll", "simulated write filter configuration library\n") ||
        // An instrument's write filter has its overlay also while it is off: 1024 MB, nothing used.
        !platform::sim::makeDirectories(root + "/sim/uwf") || !provideFile(root + "/sim/uwf/overlay", "0 1024\n")) {
        error = "cannot prepare the Windows settings of " + root + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

// The computer module's network adapters: the I210 pair (the first towards the sensor board), the WLAN
// module and the hosted network's virtual adapter, each with its device instance, its driver's class key
// and its entry in the adapter list.
struct NetworkDeviceT {
    const char* instance;  // below Enum, "\\" between bus, device and instance
    const char* hardwareIds;
    const char* driverKey;  // below the network class key
    const char* description;
    const char* mac;
    const char* addresses;
};
const NetworkDeviceT kNetworkDevices[] = {
    {"PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213d5de2&0&00E1",
     "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\nPCI\\VEN_8086&DEV_1533&SUBSYS_00000000", "0001",
     "Intel(R) I210 Gigabit Network Connection", "00-0b-5d-1a-2c-3f", "fe80::20b:5dff:fe1a:2c3f\n192.168.2.2"},
    {"PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&1f7a2c10&0&00E2",
     "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\nPCI\\VEN_8086&DEV_1533&SUBSYS_00000000", "0002",
     "Intel(R) I210 Gigabit Network Connection #2", "00-0b-5d-1a-2c-40", "169.254.12.7"},
    {"PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01\\4&2e3f4a5b&0&00E3",
     "PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01\nPCI\\VEN_168C&DEV_0033&SUBSYS_3112168C", "0003",
     "Qualcomm Atheros AR9485WB-EG Wireless Network Adapter", "00-03-7f-12-34-56", ""},
    {"{5D624F94-8850-40C3-A3FA-A4FD2080BAF3}\\VWIFIMP_WFD\\5&2b1c7f0&0&11",
     "{5d624f94-8850-40c3-a3fa-a4fd2080baf3}\\vwifimp_wfd", "0004", "Microsoft Hosted Network Virtual Adapter",
     "02-03-7f-12-34-56", "192.168.137.1"},
};
constexpr const char* kNetworkClass = "{4D36E972-E325-11CE-BFC1-08002BE10318}";

std::string keyPath(std::string windowsKey)
{
    for (char& c : windowsKey)
        if (c == '\\') c = '/';
    return windowsKey;
}

bool provideNetwork(const std::string& root)
{
    const std::string machine = root + "/registry/HKLM/SYSTEM/CurrentControlSet";
    std::string adapters;
    for (const auto& device : kNetworkDevices) {
        const std::string instance = machine + "/Enum/" + keyPath(device.instance);
        const std::string driver = machine + "/Control/Class/" + kNetworkClass + "/" + device.driverKey;
        if (!provideValue(instance, "ClassGUID", platform::kRegSz, kNetworkClass) ||
            !provideValue(instance, "Driver", platform::kRegSz, std::string(kNetworkClass) + "\\" + device.driverKey) ||
            !provideValue(instance, "HardwareID", platform::kRegMultiSz, device.hardwareIds) ||
            !provideValue(instance, "DeviceDesc", platform::kRegSz, device.description) ||
            !provideValue(driver, "DeviceInstanceID", platform::kRegSz, device.instance) ||
            !provideValue(driver, "DriverDesc", platform::kRegSz, device.description))
            return false;
        adapters += "adapter\ndescription=" + std::string(device.description) + "\nmac=" + device.mac + "\n";
        std::istringstream addresses(device.addresses);
        for (std::string address; std::getline(addresses, address);)
            adapters += "address=" + address + "\n";
    }
    // The wired adapter negotiates its speed; the WLAN driver is set up for Switzerland on channel 36.
    const std::string wired = machine + "/Control/Class/" + kNetworkClass + "/0001";
    const std::string wlan = machine + "/Control/Class/" + kNetworkClass + "/0003";
    return provideValue(wired, "*SpeedDuplex", platform::kRegSz, "0") &&
           provideValue(wlan, "ccode", platform::kRegSz, "CH") &&
           provideValue(wlan, "ApChanNum", platform::kRegSz, "36") &&
           provideValue(wlan, "defaultApChannel", platform::kRegSz, "36") &&
           provideValue(wlan, "ApChanExtOffset", platform::kRegSz, "1") &&
           provideValue(wlan, "NetBand", platform::kRegSz, "104003") &&
           platform::sim::makeDirectories(root + "/sim/network") &&
           provideFile(root + "/sim/network/adapters", adapters) &&
           // No default gateway: the instrument routes only to its own links.
           provideFile(root + "/sim/network/routes",
                       "127.0.0.0 255.0.0.0 On-link\n192.168.2.0 255.255.255.0 On-link\n"
                       "192.168.137.0 255.255.255.0 On-link\n");
}

}  // namespace

bool createSimRootLayout(const std::string& root, std::string& error)
{
    for (const char* folder : kFolders) {
        const std::string path = root + "/" + folder;
        if (!platform::sim::makeDirectories(path)) {
            error = "cannot create " + path + ": " + std::strerror(errno);
            return false;
        }
    }
    if (!provideWindows(root, error)) return false;
    if (!provideNetwork(root) || !provideWlanDriverLayout(root) || !platform::sim::provideWlanDriverDevice(root)) {
        error = "cannot prepare the network adapters of " + root + ": " + std::strerror(errno);
        return false;
    }
    if (!provideHardwareInformation(root)) {
        error = "cannot prepare the hardware information of " + root + ": " + std::strerror(errno);
        return false;
    }
    // Each start of the simulated instrument is a boot of its Windows, and a hosted network does not
    // outlive one: the access point a former run left on is off again.
    if (exists(root + "/sim/wlan/hostednetwork") &&
        !platform::sim::updateHostedNetwork(root, [](platform::sim::SimHostedNetworkS& network) {
            if (network.state == "active") network.state = "idle";
        })) {
        error = "cannot reset the hosted network of " + root + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

std::string makeTemporarySimRoot(std::string& error)
{
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/halvern-sim.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        error = "cannot create a temporary sim root: " + std::string(std::strerror(errno));
        return {};
    }
    return pattern;
}

std::string logFilePath(const std::string& root)
{
    return root + "/D/logs/Halvern.log";
}

}  // namespace halvern::sim
