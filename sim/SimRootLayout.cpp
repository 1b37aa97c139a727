#include "sim/SimRootLayout.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/Registry.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "sim/TimeZoneData.h"

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
        // The simulated sensor board is on this machine.
        !provideValue(root + "/registry/HKCU/SOFTWARE/Vexar/Halvern", "SensorBoardAddress", platform::kRegSz,
                      "127.0.0.1") ||
        !provideFile(root + "/C/Windows/System32/uwfcfgmgmt.dll", "simulated write filter configuration library\n")) {
        error = "cannot prepare the Windows settings of " + root + ": " + std::strerror(errno);
        return false;
    }
    return true;
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
    return provideWindows(root, error);
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
