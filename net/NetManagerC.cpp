#include "net/NetManagerC.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <vector>

#include "app/Log.h"
#include "platform/Device.h"
#include "platform/NetAdapters.h"
#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/WinError.h"

namespace halvern::net {
namespace {

constexpr const wchar_t* kClassRoot = L"SYSTEM\\CurrentControlSet\\Control\\Class\\";
constexpr const wchar_t* kWiredAdapterInstance = L"PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213d5de2&0&00E1";
constexpr const wchar_t* kWlanHardwareId = L"PCI\\VEN_168C&DEV_0033";
constexpr std::uint32_t kAdapterListBytes = 15360;
constexpr int kAdapterListAttempts = 3;

const char* const kSpeedNames[] = {"Auto Negotiation",    "10Mbps Half Duplex",  "10Mbps Full Duplex",
                                   "100Mbps Half Duplex", "100Mbps Full Duplex", "1Gbps Full Duplex",
                                   "No valid speed"};
// "ApChanExtOffset" texts by width code, "NetBand" texts by band code (from 1).
const char* const kWidthTexts[] = {"3", "1", "2"};
const char* const kBandTexts[] = {"26668", "104003", "130671", "12"};

struct InterfaceT {
    const wchar_t* contain;
    const wchar_t* exclude;
};
const InterfaceT kInterfaces[] = {
    {L"I210 Gigabit Network Connection", L"#2"},
    {L"I210 Gigabit Network Connection #2", L""},
    {L"Wireless Network Adapter", L""},
    {L"Hosted Network Virtual Adapter", L""},
};

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

std::string narrowed(const std::wstring& text)
{
    return platform::narrow(text).value_or(std::string());
}

// The driver's own registry key: the class root and the device's driver key.
bool readDriverKey(platform::NetworkDeviceListC& devices, std::uint32_t index, std::wstring& keyPath)
{
    std::vector<std::wstring> driver;
    if (!devices.property(index, platform::DevicePropertyE::DriverKey, driver) || driver.empty()) return false;
    keyPath = std::wstring(kClassRoot) + driver.front();
    return true;
}

}  // namespace

bool NetManagerC::GetSpeedName(int speed, std::string& name)
{
    if (speed < 0 || speed > kSpeedNoValid) return false;
    name = kSpeedNames[speed];
    return true;
}

bool NetManagerC::IdentifyEthAdapterSlot(std::wstring& keyPath)
{
    const char* const tag = "NetManagerC::IdentifyEthAdapterSlot";
    platform::NetworkDeviceListC devices;
    if (!devices.open(true)) {
        WriteLog("[%s] [ERROR]: Error handling NET Class.: %d", tag, lastErrorNumber());
        return false;
    }
    bool found = false;
    for (std::uint32_t index = 0; devices.device(index); ++index) {
        std::wstring driverKey;
        if (!readDriverKey(devices, index, driverKey)) {
            // A device without a driver is passed over; any other failure ends the search.
            if (platform::lastError() == platform::kErrorInvalidData) continue;
            return false;
        }
        platform::UniqueRegKey key;
        const auto opened =
            platform::regOpenKey(platform::RegHive::LocalMachine, driverKey, platform::RegAccess::Query, key);
        if (opened != 0) {
            WriteLog("[%s] [ERROR]: Key not present (RegOpenKeyEx). : %d", tag, static_cast<int>(opened));
            found = false;
            continue;
        }
        std::wstring instance;
        const auto read = platform::regQueryString(key, L"DeviceInstanceID", instance);
        if (read != 0) {
            WriteLog("[%s] [ERROR]: Failed to get RegQueryValueEx. : %d", tag, static_cast<int>(read));
            found = false;
            continue;
        }
        // Exact, case included: the class key spells the instance as the driver installed it. A later
        // device that cannot be read turns the answer back to false, as the enumeration always has.
        if (instance == kWiredAdapterInstance) {
            keyPath = driverKey;
            found = true;
        }
    }
    return found;
}

int NetManagerC::GetAdapterSpeed()
{
    const char* const tag = "NetManagerC::GetAdapterSpeed";
    std::wstring keyPath;
    if (!IdentifyEthAdapterSlot(keyPath)) {
        WriteLog("[%s] [ERROR]: Failure of IdentifyEthAdapterSlot() when it is called by the GetAdapterSpeed().", tag);
        return kSpeedNoValid;
    }
    if (keyPath.empty()) {
        WriteLog("[%s] [ERROR]: ETH Adapter Path is empty.", tag);
        return kSpeedNoValid;
    }
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::All, key) != 0) {
        WriteLog("[%s] [ERROR]: Ethernet speed key cannot be found!", tag);
        return kSpeedNoValid;
    }
    std::wstring value;
    if (platform::regQueryString(key, L"*SpeedDuplex", value) != 0) {
        WriteLog("[%s] [ERROR]: Unable to get a value. Get speed duplex value failure!", tag);
        return kSpeedNoValid;
    }
    // Lenient, as the driver reads it: what is no number counts as 0.
    return static_cast<int>(std::wcstol(value.c_str(), nullptr, 10));
}

bool NetManagerC::SetAdapterSpeed(int speed)
{
    const char* const tag = "NetManagerC::SetAdapterSpeed";
    if (speed >= kSpeedNoValid) {
        WriteLog("[%s] [ERROR]: SpeedDuplex = out of range %d", tag, kSpeedNoValid);
        return false;
    }
    if (GetAdapterSpeed() == speed) {
        WriteLog("[%s]: Adapter Speed already correct.", tag);
        return true;
    }
    std::wstring keyPath;
    if (!IdentifyEthAdapterSlot(keyPath)) {
        WriteLog("[%s] [ERROR]: Failure of IdentifyEthAdapterSlot() when it is called by the SetAdapterSpeed().", tag);
        return false;
    }
    if (keyPath.empty()) {
        WriteLog("[%s] [ERROR]: ETH Adapter Path is empty.", tag);
        return false;
    }
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::All, key) != 0) {
        WriteLog("[%s] [ERROR]: Ethernet speed key cannot be found and set!", tag);
        return false;
    }
    if (platform::regSetString(key, L"*SpeedDuplex", std::to_wstring(speed), false) != 0) {
        WriteLog("[%s] [ERROR]: Ethernet speed cannot be set!", tag);
        return false;
    }
    WriteLog("[%s]: Set Adapter Speed is successfully done!", tag);
    // The driver takes the new speed when it next reads its settings; the value is what is checked here.
    if (GetAdapterSpeed() == speed) {
        WriteLog("[%s]: Set Adapter Speed is done!", tag);
        return true;
    }
    WriteLog("[%s] [ERROR]: Adapter Speed not correct", tag);
    return false;
}

bool NetManagerC::GetWlanDrvRegPath(std::wstring& keyPath)
{
    const char* const tag = "getWlanDrvRegPath";
    platform::NetworkDeviceListC devices;
    if (!devices.open(false)) {
        WriteLog("[%s] [ERROR]: Failed to get device information set: %d", tag, lastErrorNumber());
        return false;
    }
    for (std::uint32_t index = 0;; ++index) {
        if (!devices.device(index)) {
            if (platform::lastError() == platform::kErrorNoMoreItems) return false;
            WriteLog("[%s] [ERROR]: Failed to get device (%d) information: %d", tag, static_cast<int>(index),
                     lastErrorNumber());
            continue;
        }
        std::vector<std::wstring> hardwareIds;
        if (!devices.property(index, platform::DevicePropertyE::HardwareIds, hardwareIds)) {
            WriteLog("[%s] [ERROR]: Failed to get device (%d) property: %d", tag, static_cast<int>(index),
                     lastErrorNumber());
            continue;
        }
        bool wlan = false;
        for (const auto& id : hardwareIds)
            wlan = wlan || id.find(kWlanHardwareId) != std::wstring::npos;
        if (!wlan) continue;
        if (!readDriverKey(devices, index, keyPath)) {
            WriteLog("[%s] [ERROR]: Failed to get device (%d) property: %d", tag, static_cast<int>(index),
                     lastErrorNumber());
            return false;
        }
        return true;
    }
}

bool NetManagerC::GetDrvCtryCode(std::string& code)
{
    const char* const tag = "GetDrvCtryCode";
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: Failed to get WLAN driver registry key.", tag);
        return false;
    }
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::Query, key) != 0) {
        WriteLogWindows("[%s] [ERROR]: Failed to open the registry key (%ws)", tag, keyPath.c_str());
        return false;
    }
    std::wstring value;
    const auto status = platform::regQueryString(key, L"ccode", value);
    if (status == platform::kErrorFileNotFound) {
        code = kCountryNotPresent;
        return true;
    }
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Failed to get the value: %d", tag, static_cast<int>(status));
        return false;
    }
    code = narrowed(value).substr(0, 255);
    return true;
}

bool NetManagerC::SetDrvCtryCode(const std::string& code)
{
    const char* const tag = "NetManagerC::SetDrvCtryCode";
    const std::wstring value = platform::widen(code);
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: Failure of GetWlanDrvRegPath() when it is called by the SetCtryCode().", tag);
        return false;
    }
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::All, key) != 0) {
        WriteLog("Unable to open the registry key path. Set country code failure!\n");
        return false;
    }
    std::wstring current;
    const auto status = platform::regQueryString(key, L"ccode", current);
    if (status == 0) {
        const auto written = platform::regSetString(key, L"ccode", value, true);
        if (written != 0) {
            WriteLog("[%s] [ERROR]: Country Code cannot be set!, ERROR(%d)", tag, static_cast<int>(written));
            return false;
        }
        return true;
    }
    if (status != platform::kErrorFileNotFound) {
        WriteLog("[%s] [ERROR]:Country Code cannot be found and set!, ERROR(%d)", tag, static_cast<int>(status));
        return false;
    }
    // A driver that never had a country: the value is made where the driver will look for it.
    WriteLog("The ccode key is set as 'not present'. This property will be enabled to be set!\n");
    platform::UniqueRegKey created;
    const auto opened = platform::regCreateKey(platform::RegHive::LocalMachine, keyPath, created);
    if (opened != 0) {
        WriteLog("[%s] [ERROR]: Failed country code property triggering!, ERROR(%d)", tag, static_cast<int>(opened));
        return false;
    }
    const auto written = platform::regSetString(created, L"ccode", value, true);
    if (written != 0) {
        WriteLog("[%s] [ERROR]: Failed to set country code registry key after triggering!, ERROR(%d)", tag,
                 static_cast<int>(written));
        return false;
    }
    return true;
}

bool NetManagerC::IsBandwidthLimited()
{
    std::string code;
    if (!GetDrvCtryCode(code)) {
        WriteLog("[ERROR]: Get current CC failed, bandwidth limitation active!");
        return true;
    }
    if (code == "CN" || code == kCountryNotPresent) {
        WriteLog("[WLAN_INFO]: WLAN bandwidth limitation active. Country: %s", code.c_str());
        return true;
    }
    return false;
}

bool NetManagerC::getWlanIntfInfo(const std::wstring& contain, const std::wstring& exclude, int property,
                                  std::string& text)
{
    const char* const tag = "getWlanIntfInfo";
    std::vector<platform::NetAdapterT> adapters;
    std::uint32_t bufferBytes = kAdapterListBytes;
    for (int attempt = 1;; ++attempt) {
        const std::uint32_t status = platform::getAdaptersAddresses(bufferBytes, adapters);
        if (status == platform::kErrorSuccess) break;
        if (status == platform::kErrorNotEnoughMemory) {
            WriteLog("[%s] [ERROR]: failed to allocate memory (retry: %d, size: %d)", tag, attempt,
                     static_cast<int>(bufferBytes));
            return false;
        }
        if (status != platform::kErrorBufferOverflow || attempt >= kAdapterListAttempts) {
            WriteLog("[%s] [ERROR]: failed to get adapters: %d!", tag, static_cast<int>(status));
            return false;
        }
        WriteLog("[%s] [ERROR]: failed to get adapters, (retry: %d), trying again with size: %d)", tag, attempt,
                 static_cast<int>(bufferBytes));
    }
    const platform::NetAdapterT* chosen = nullptr;
    for (const auto& adapter : adapters) {
        if (adapter.description.find(contain) == std::wstring::npos) continue;
        if (!exclude.empty() && adapter.description.find(exclude) != std::wstring::npos) continue;
        chosen = &adapter;
        break;
    }
    if (chosen == nullptr) {
        WriteLogWindows("[%s] [ERROR]: failed to find matching interface! (%ws, not %ws)", tag, contain.c_str(),
                        exclude.c_str());
        return false;
    }
    WriteLogWindows("Found matching interface: %ws", chosen->description.c_str());
    text.clear();
    if (property == kInterfacePhysicalAddress) {
        if (chosen->physicalAddress.empty()) {
            WriteLog("[ERROR]: Physical address for selected interface is empty!");
            return false;
        }
        char part[4];
        for (std::size_t i = 0; i < chosen->physicalAddress.size(); ++i) {
            std::snprintf(part, sizeof part, "%02x", chosen->physicalAddress[i]);
            text += (i == 0 ? "" : "-") + std::string(part);
        }
        return true;
    }
    if (property == kInterfaceIpv4Addresses) {
        if (chosen->unicastAddresses.empty()) {
            WriteLog("[ERROR]: No IPv4 addresses for specified interface!");
            return false;
        }
        for (const auto& address : chosen->unicastAddresses) {
            if (address.family != platform::kAddressFamilyIpv4) continue;
            if (address.text.empty()) {
                WriteLog("[ERROR]: Failed to get unicast address!");
                return false;
            }
            WriteLogWindows("Adding unicast addresses: %ws", address.text.c_str());
            text += (text.empty() ? "" : ", ") + narrowed(address.text);
        }
        return true;
    }
    WriteLog("[ERROR]: Invalid property of network interface (%d) requested!", property);
    return false;
}

bool NetManagerC::GetNetworkInterfaceInfo(int interfaceId, int property, std::string& text)
{
    if (interfaceId < 0 || interfaceId >= static_cast<int>(sizeof kInterfaces / sizeof kInterfaces[0])) {
        WriteLog("[ERROR]: Unsupported network interface id (%d) requested.", interfaceId);
        return false;
    }
    const InterfaceT& row = kInterfaces[interfaceId];
    WriteLogWindows("Obtaining property %d for network interface %d (%ws, not %ws)", property, interfaceId, row.contain,
                    row.exclude);
    return getWlanIntfInfo(row.contain, row.exclude, property, text);
}

bool NetManagerC::readRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName, std::string& text)
{
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::Query, key) != 0) {
        WriteLogWindows("[ERROR]: Failed to open the registry key %ws", keyPath.c_str());
        return false;
    }
    std::wstring value;
    const auto status = platform::regQueryString(key, valueName, value);
    if (status != 0) {
        WriteLogWindows("[ERROR]: Failed to read registry value %ws from key %ws: %ld", valueName.c_str(),
                        keyPath.c_str(), static_cast<long>(status));
        return false;
    }
    text = narrowed(value);
    return true;
}

bool NetManagerC::readRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName, int& number)
{
    std::string text;
    if (!readRegistryKeyValue(keyPath, valueName, text)) return false;
    // Strict: the whole text is one number within range.
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || value < INT_MIN || value > INT_MAX) {
        WriteLog("[%s] [ERROR]: failed to convert %s to digit", "readRegistryKeyValue", text.c_str());
        return false;
    }
    number = static_cast<int>(value);
    return true;
}

bool NetManagerC::writeRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName,
                                        const std::string& text)
{
    platform::UniqueRegKey key;
    if (platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::SetValue, key) != 0) {
        WriteLogWindows("[ERROR]: Failed to open the registry key %ws", keyPath.c_str());
        return false;
    }
    const auto status = platform::regSetString(key, valueName, platform::widen(text), true);
    if (status != 0) {
        WriteLogWindows("[ERROR]: Failed to write registry value %ws to key %ws: %ld", valueName.c_str(),
                        keyPath.c_str(), static_cast<long>(status));
        return false;
    }
    return true;
}

bool NetManagerC::getDrvWlanChannel(std::uint32_t& channel, std::uint32_t& width)
{
    const char* const tag = "getDrvWlanChannel";
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: failed to get WLAN driver registry key path", tag);
        return false;
    }
    int number = 0;
    if (!readRegistryKeyValue(keyPath, L"ApChanNum", number)) {
        WriteLog("[%s] [ERROR]: failed to read WLAN channel number", tag);
        return false;
    }
    std::string widthText;
    if (!readRegistryKeyValue(keyPath, L"ApChanExtOffset", widthText)) {
        WriteLog("[%s] [ERROR]: failed to read WLAN channel width", tag);
        return false;
    }
    for (std::uint32_t code = 0; code < sizeof kWidthTexts / sizeof kWidthTexts[0]; ++code) {
        if (widthText != kWidthTexts[code]) continue;
        channel = static_cast<std::uint32_t>(number);
        width = code;
        WriteLog("Current WLAN channel: %d, width: %d", number, static_cast<int>(code));
        return true;
    }
    WriteLog("[%s] [ERROR]: failed to parse WLAN channel width: %s", tag, widthText.c_str());
    return false;
}

bool NetManagerC::setDrvWlanChannel(std::uint32_t channel, std::uint32_t width)
{
    const char* const tag = "setDrvWlanChannel";
    if (!((channel >= 1 && channel <= 14) || (channel >= 34 && channel <= 196))) {
        WriteLog("[%s] [ERROR]: invalid channel value: %u", tag, channel);
        return false;
    }
    if (width >= sizeof kWidthTexts / sizeof kWidthTexts[0]) {
        WriteLog("[%s] [ERROR]: invalid channel width value: %u", tag, width);
        return false;
    }
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: failed to get WLAN driver registry key path", tag);
        return false;
    }
    const std::string number = std::to_string(channel);
    if (!writeRegistryKeyValue(keyPath, L"ApChanNum", number)) {
        WriteLog("[%s] [ERROR]: failed to set WLAN channel number", tag);
        return false;
    }
    if (!writeRegistryKeyValue(keyPath, L"defaultApChannel", number)) {
        WriteLog("[%s] [ERROR]: failed to set WLAN default channel number", tag);
        return false;
    }
    if (!writeRegistryKeyValue(keyPath, L"ApChanExtOffset", kWidthTexts[width])) {
        WriteLog("[%s] [ERROR]: failed to set WLAN channel width", tag);
        return false;
    }
    WriteLog("Set WLAN channel to: %d, width: %d", static_cast<int>(channel), static_cast<int>(width));
    return true;
}

bool NetManagerC::getDrvWlanBand(std::uint32_t& band)
{
    const char* const tag = "getDrvWlanBand";
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: failed to get WLAN driver registry key path", tag);
        return false;
    }
    std::string text;
    if (!readRegistryKeyValue(keyPath, L"NetBand", text)) {
        WriteLog("[%s] [ERROR]: failed to read band value", tag);
        return false;
    }
    for (std::uint32_t code = 1; code <= sizeof kBandTexts / sizeof kBandTexts[0]; ++code)
        if (text == kBandTexts[code - 1]) {
            band = code;
            return true;
        }
    WriteLog("[%s] [ERROR]: failed to convert band value %s into enum", tag, text.c_str());
    return false;
}

bool NetManagerC::setDrvWlanBand(std::uint32_t band)
{
    const char* const tag = "setDrvWlanBand";
    std::wstring keyPath;
    if (!GetWlanDrvRegPath(keyPath)) {
        WriteLog("[%s] [ERROR]: failed to get WLAN driver registry key path", tag);
        return false;
    }
    if (band < 1 || band > sizeof kBandTexts / sizeof kBandTexts[0]) {
        WriteLog("[%s] [ERROR]: failed to convert band value %d into string", tag, static_cast<int>(band));
        return false;
    }
    if (!writeRegistryKeyValue(keyPath, L"NetBand", kBandTexts[band - 1])) {
        WriteLog("[%s] [ERROR]: failed to write band value into registry", tag);
        return false;
    }
    return true;
}

}  // namespace halvern::net
