// The hardware and system information that the hardware check and the command server ask for: the
// instrument's PCI components, the board's BIOS data and the sensor-board adapter, the Windows release.
#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <vector>

#include "app/Log.h"
#include "net/NetManagerC.h"
#include "platform/Calendar.h"
#include "platform/PciDevices.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/Socket.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sysmanager/HardwareInformationC.h"

namespace {

// The sensor-board adapter is the I210 in this slot; the second I210 is the "Lemo" port at the housing.
constexpr const wchar_t* kMoraEthernetInstance = L"PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213d5de2&0&00E1";
constexpr const wchar_t* kI210HardwareId = L"PCI\\VEN_8086&DEV_1533";
constexpr const wchar_t* kWlanHardwareId = L"PCI\\VEN_168C&DEV_0033";
// The FPGA's DMA engine as the sensor board's PCIe endpoint enumerates it.
constexpr const wchar_t* kDmaHardwareId = L"PCI\\VEN_1172&DEV_E001";
constexpr const wchar_t* kBiosKey = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
constexpr const wchar_t* kWindowsVersionKey = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
// Network interface 0 of the network manager: the sensor-board adapter.
constexpr int kMoraInterface = 0;

bool sameText(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(x) == std::towupper(y);
           });
}

// Hardware ids grow from the most specific to the least ("...&SUBSYS_...&REV_03", "...&SUBSYS_..."):
// a component is named by the vendor and device part they all begin with.
bool hasHardwareId(const platform::PciDeviceT& device, const std::wstring& prefix)
{
    return std::any_of(device.hardwareIds.begin(), device.hardwareIds.end(), [&prefix](const std::wstring& id) {
        return id.size() >= prefix.size() && sameText(id.substr(0, prefix.size()), prefix);
    });
}

struct HwComponentT {
    std::uint32_t id;
    const char* name;
    bool (*matches)(const platform::PciDeviceT& device);
};

const HwComponentT kHwComponents[] = {
    {HardwareInformationC::kHwComponentWlan, "WLAN adapter",
     [](const platform::PciDeviceT& device) { return hasHardwareId(device, kWlanHardwareId); }},
    {HardwareInformationC::kHwComponentMoraEthernet, "MORA Ethernet adapter",
     [](const platform::PciDeviceT& device) { return sameText(device.instanceId, kMoraEthernetInstance); }},
    {HardwareInformationC::kHwComponentLemoEthernet, "Lemo Ethernet adapter",
     [](const platform::PciDeviceT& device) {
         return hasHardwareId(device, kI210HardwareId) && !sameText(device.instanceId, kMoraEthernetInstance);
     }},
    {HardwareInformationC::kHwComponentDma, "Quillo DMA device",
     [](const platform::PciDeviceT& device) { return hasHardwareId(device, kDmaHardwareId); }},
};

std::string narrowed(const std::wstring& text)
{
    return platform::narrow(text).value_or(std::string());
}

std::string registryText(const platform::UniqueRegKey& key, const wchar_t* name)
{
    std::wstring value;
    if (platform::regQueryString(key, name, value) != 0) return {};
    return narrowed(value);
}

bool registryNumber(const platform::UniqueRegKey& key, const wchar_t* name, std::uint32_t& number)
{
    std::uint32_t type = platform::kRegNone;
    return platform::regQueryDword(key, name, number, type) == 0 && type == platform::kRegDword;
}

// "mm/dd/yyyy", as the BIOS reports its date, to yyyymmdd.
bool parseBiosDate(const std::string& text, std::uint32_t& date)
{
    unsigned month = 0;
    unsigned day = 0;
    unsigned year = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%2u/%2u/%4u%c", &month, &day, &year, &rest) != 3) return false;
    if (month < 1 || month > 12 || day < 1 || day > 31 || year < 1980) return false;
    date = year * 10000 + month * 100 + day;
    return true;
}

// "00-0b-5d-1a-2c-3f" as the network manager writes a physical address.
bool parseMac(const std::string& text, std::array<std::uint8_t, 6>& mac)
{
    unsigned bytes[6] = {};
    char rest = 0;
    if (std::sscanf(text.c_str(), "%2x-%2x-%2x-%2x-%2x-%2x%c", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                    &bytes[5], &rest) != 6)
        return false;
    std::copy(std::begin(bytes), std::end(bytes), mac.begin());
    return true;
}

// Seconds since 1970 as "yyyy-mm-dd hh:mm:ss" (UTC).
std::string timeText(std::uint32_t seconds)
{
    std::int64_t year = 0;
    unsigned month = 0;
    unsigned day = 0;
    platform::civilFromDays(seconds / 86400, year, month, day);
    const std::uint32_t inDay = seconds % 86400;
    char text[32];
    std::snprintf(text, sizeof text, "%04lld-%02u-%02u %02u:%02u:%02u", static_cast<long long>(year), month, day,
                  static_cast<unsigned>(inDay / 3600), static_cast<unsigned>(inDay / 60 % 60),
                  static_cast<unsigned>(inDay % 60));
    return text;
}

}  // namespace

bool HardwareInformationC::GetHwComponentInfo(std::uint32_t componentId, std::uint16_t& state, std::string& description)
{
    const char* const tag = "SysManagerC::GetHwComponentInfo";
    const auto component = std::find_if(std::begin(kHwComponents), std::end(kHwComponents),
                                        [componentId](const HwComponentT& entry) { return entry.id == componentId; });
    if (component == std::end(kHwComponents)) {
        WriteLog("[%s] [ERROR]: Unknown hardware component id: %u", tag, static_cast<unsigned>(componentId));
        return false;
    }
    std::vector<platform::PciDeviceT> devices;
    if (!platform::listPresentPciDevices(devices)) {
        WriteLog("[%s] [ERROR]: Failed to list the PCI devices. ERROR(%d)", tag,
                 static_cast<int>(platform::lastError()));
        return false;
    }
    const auto device = std::find_if(devices.begin(), devices.end(), component->matches);
    if (device == devices.end()) {
        WriteLog("[%s] [WARN]: %s not found", tag, component->name);
        state = kHwComponentMissing;
        description = component->name;
        return true;
    }
    description = device->description.empty() ? component->name : narrowed(device->description);
    if (device->started && device->problem == 0) {
        state = kHwComponentWorking;
    } else {
        WriteLog("[%s] [WARN]: %s is not working, problem code: %u", tag, component->name,
                 static_cast<unsigned>(device->problem));
        state = kHwComponentFailing;
    }
    return true;
}

bool HardwareInformationC::GetBoardContent(BoardContentT& content)
{
    const char* const tag = "SysManagerC::GetBoardContent";
    content = BoardContentT{};
    platform::UniqueRegKey bios;
    const platform::RegStatus opened = platform::regOpenKeyRead(platform::RegHive::LocalMachine, kBiosKey, bios);
    if (opened != 0) {
        WriteLog("[%s] [ERROR]: Failed to open the BIOS information key. ERROR(%d)", tag, static_cast<int>(opened));
        return false;
    }
    content.biosVersion = registryText(bios, L"BIOSVersion");
    const std::string date = registryText(bios, L"BIOSReleaseDate");
    if (content.biosVersion.empty() || !parseBiosDate(date, content.biosDate)) {
        WriteLog("[%s] [ERROR]: No BIOS version or release date (\"%s\")", tag, date.c_str());
        return false;
    }
    content.biosVersion.resize(std::min<std::size_t>(content.biosVersion.size(), 21));
    content.boardVersion = registryText(bios, L"BaseBoardVersion");
    content.boardVersion.resize(std::min<std::size_t>(content.boardVersion.size(), 9));
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    if (registryNumber(bios, L"BiosMajorRelease", major) && registryNumber(bios, L"BiosMinorRelease", minor))
        content.biosRelease = static_cast<std::uint16_t>(((major & 0xFF) << 8) | (minor & 0xFF));
    // The adapter's part stays zero when the adapter is gone: the BIOS part is still worth answering.
    std::string mac;
    if (!halvern::net::NetManagerC::GetNetworkInterfaceInfo(kMoraInterface, halvern::net::kInterfacePhysicalAddress,
                                                            mac) ||
        !parseMac(mac, content.moraMac))
        WriteLog("[%s] [WARN]: No physical address of the MORA Ethernet adapter", tag);
    std::string addresses;
    std::uint32_t address = 0;
    if (halvern::net::NetManagerC::GetNetworkInterfaceInfo(kMoraInterface, halvern::net::kInterfaceIpv4Addresses,
                                                           addresses) &&
        platform::parseIpv4(addresses.substr(0, addresses.find(',')), address)) {
        for (int octet = 0; octet < 4; ++octet)
            content.moraIpv4[octet] = static_cast<std::uint8_t>(address >> (24 - 8 * octet));
    } else {
        WriteLog("[%s] [WARN]: No IPv4 address of the MORA Ethernet adapter", tag);
    }
    return true;
}

bool HardwareInformationC::GetWindowsOsInfo(std::array<std::string, 6>& info)
{
    const char* const tag = "SysManagerC::GetWindowsOsInfo";
    info = {};
    platform::UniqueRegKey key;
    const platform::RegStatus opened =
        platform::regOpenKeyRead(platform::RegHive::LocalMachine, kWindowsVersionKey, key);
    if (opened != 0) {
        WriteLog("[%s] [ERROR]: Failed to open the Windows version key. ERROR(%d)", tag, static_cast<int>(opened));
        return false;
    }
    info[0] = registryText(key, L"ProductName");
    info[1] = registryText(key, L"EditionID");
    // Windows 10 before 20H2 names its release only by "ReleaseId".
    info[2] = registryText(key, L"DisplayVersion");
    if (info[2].empty()) info[2] = registryText(key, L"ReleaseId");
    info[3] = registryText(key, L"CurrentBuild");
    if (info[3].empty()) info[3] = registryText(key, L"CurrentBuildNumber");
    if (info[0].empty() || info[3].empty()) {
        WriteLog("[%s] [ERROR]: No product name or build number of Windows", tag);
        return false;
    }
    std::uint32_t revision = 0;
    if (registryNumber(key, L"UBR", revision)) info[3] += "." + std::to_string(revision);
    std::wstring computerName;
    if (platform::getComputerName(platform::ComputerNameE::NetBios, computerName))
        info[4] = narrowed(computerName);
    else
        WriteLog("[%s] [WARN]: Failed to get the computer name. ERROR(%d)", tag,
                 static_cast<int>(platform::lastError()));
    std::uint32_t installed = 0;
    if (registryNumber(key, L"InstallDate", installed)) info[5] = timeText(installed);
    // Each text fits its 256-byte field with its NUL.
    for (auto& text : info)
        text.resize(std::min<std::size_t>(text.size(), 255));
    return true;
}
