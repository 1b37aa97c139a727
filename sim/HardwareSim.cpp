#include "sim/HardwareSim.h"

#include <sys/stat.h>

#include <fstream>

#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

struct ComponentT {
    const char* name;
    const char* instance;  // below "SYSTEM\CurrentControlSet\Enum"
};
const ComponentT kComponents[] = {
    {"eth-mora", "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213d5de2&0&00E1"},
    {"eth-lemo", "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&1f7a2c10&0&00E2"},
    {"wlan", "PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01\\4&2e3f4a5b&0&00E3"},
    {"dma", "PCI\\VEN_1172&DEV_E001&SUBSYS_E0011172&REV_01\\4&3c1d2e4f&0&0008"},
};
constexpr const char* kEnum = "SYSTEM\\CurrentControlSet\\Enum\\";
constexpr const char* kSystemClass = "{4D36E97D-E325-11CE-BFC1-08002BE10318}";
constexpr const char* kDiskInstance = "SCSI\\Disk&Ven_NVMe&Prod_VX_SSD_256GB\\5&1a2b3c4d&0&000000";

bool exists(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

// A value already in the sim root is the instrument's own and stays.
bool provide(const std::string& root, const std::string& key, const std::string& name, std::uint32_t type,
             const std::string& data)
{
    const std::string keyFolder =
        platform::sim::resolveBelow(root + "/registry/HKLM", platform::sim::splitWindowsPath(key));
    if (exists(keyFolder + "/" + name)) return true;
    return platform::sim::makeDirectories(keyFolder) && platform::sim::writeValueAt(keyFolder, name, {type, data});
}

const ComponentT* component(const std::string& name)
{
    for (const auto& entry : kComponents)
        if (name == entry.name) return &entry;
    return nullptr;
}

std::string hwCommand(const std::vector<std::string>& arguments)
{
    const char* const usage = "ERROR usage: hw remove|restore wlan|eth-mora|eth-lemo|dma | hw problem NAME CODE";
    if (arguments.size() < 2) return usage;
    const ComponentT* entry = component(arguments[1]);
    if (entry == nullptr) return usage;
    const std::string key = std::string(kEnum) + entry->instance;
    if (arguments.size() == 2 && (arguments[0] == "remove" || arguments[0] == "restore")) {
        if (!platform::sim::writeValue(platform::RegHive::LocalMachine, key, "SimPresent",
                                       {platform::kRegDword, arguments[0] == "remove" ? "0" : "1"}))
            return "ERROR cannot write the device's presence";
        return "OK";
    }
    if (arguments.size() == 3 && arguments[0] == "problem" &&
        arguments[2].find_first_not_of("0123456789") == std::string::npos && arguments[2].size() <= 3) {
        if (!platform::sim::writeValue(platform::RegHive::LocalMachine, key, "SimProblem",
                                       {platform::kRegDword, arguments[2]}))
            return "ERROR cannot write the device's problem";
        return "OK";
    }
    return usage;
}

}  // namespace

bool provideHardwareInformation(const std::string& root)
{
    const std::string dma = std::string(kEnum) + kComponents[3].instance;
    const std::string bios = "HARDWARE\\DESCRIPTION\\System\\BIOS";
    const std::string windows = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    const std::string sermouse = "SYSTEM\\CurrentControlSet\\Services\\sermouse";
    const std::string disk = std::string(kEnum) + kDiskInstance;
    using platform::kRegDword;
    using platform::kRegMultiSz;
    using platform::kRegSz;
    return provide(root, dma, "ClassGUID", kRegSz, kSystemClass) &&
           provide(root, dma, "HardwareID", kRegMultiSz,
                   "PCI\\VEN_1172&DEV_E001&SUBSYS_E0011172&REV_01\nPCI\\VEN_1172&DEV_E001&SUBSYS_E0011172") &&
           provide(root, dma, "DeviceDesc", kRegSz, "Quillo DMA Controller") &&
           provide(root, bios, "BIOSVendor", kRegSz, "Vexar") &&
           provide(root, bios, "BIOSVersion", kRegSz, "VX1.07.00") &&
           provide(root, bios, "BIOSReleaseDate", kRegSz, "03/14/2025") &&
           provide(root, bios, "BiosMajorRelease", kRegDword, "1") &&
           provide(root, bios, "BiosMinorRelease", kRegDword, "7") &&
           provide(root, bios, "BaseBoardVersion", kRegSz, "REV C") &&
           provide(root, windows, "ProductName", kRegSz, "Windows 10 IoT Enterprise") &&
           provide(root, windows, "EditionID", kRegSz, "IoTEnterprise") &&
           provide(root, windows, "DisplayVersion", kRegSz, "21H2") &&
           provide(root, windows, "CurrentBuild", kRegSz, "19044") &&
           provide(root, windows, "UBR", kRegDword, "2965") &&
           provide(root, windows, "InstallDate", kRegDword, "1740816900") &&
           // Windows installs the serial mouse driver on demand; the instrument must disable it.
           provide(root, sermouse, "DisplayName", kRegSz, "Serial Mouse Driver") &&
           provide(root, sermouse, "Start", kRegDword, "3") &&
           provide(root, disk, "FriendlyName", kRegSz, "NVMe VX SSD 256GB") &&
           // As Windows leaves a new disk: its write cache on.
           provide(root, disk + "\\Device Parameters\\Disk", "UserWriteCacheSetting", kRegDword, "1");
}

void addHardwareControlCommands(ControlCommandsC& commands)
{
    commands.add("hw", hwCommand);
}

}  // namespace halvern::sim
