// Registry settings that start-up puts right before anything depends on them: the serial-mouse service
// and the system disk's write cache. Both only change what differs, so an instrument that is already
// right commits nothing through the write filter.
#include "app/Log.h"
#include "platform/Registry.h"
#include "platform/WinError.h"
#include "sysmanager/HardwareInformationC.h"

namespace {

constexpr const wchar_t* kSerialMouseKey = L"SYSTEM\\CurrentControlSet\\Services\\sermouse";
constexpr std::uint32_t kServiceDisabled = 4;
// Storage port drivers (SATA and NVMe alike) list their disks here, one "Disk&Ven_...&Prod_..." key each.
constexpr const wchar_t* kScsiEnumKey = L"SYSTEM\\CurrentControlSet\\Enum\\SCSI";
constexpr const wchar_t* kDiskParameters = L"Device Parameters\\Disk";
constexpr const wchar_t* kWriteCacheValue = L"UserWriteCacheSetting";
constexpr std::uint32_t kWriteCacheOff = 0;

int code(platform::RegStatus status)
{
    return static_cast<int>(status);
}

std::vector<std::wstring> subKeys(const std::wstring& path)
{
    return platform::regSubKeyNames(platform::RegHive::LocalMachine, path);
}

// The computer module has one disk, the system SSD: the first disk instance that has its parameters key.
std::wstring findDiskParametersKey()
{
    for (const auto& device : subKeys(kScsiEnumKey)) {
        if (device.compare(0, 5, L"Disk&") != 0) continue;
        const std::wstring devicePath = std::wstring(kScsiEnumKey) + L"\\" + device;
        for (const auto& instance : subKeys(devicePath)) {
            const std::wstring path = devicePath + L"\\" + instance + L"\\" + kDiskParameters;
            platform::UniqueRegKey key;
            if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, path, key) == 0) return path;
        }
    }
    return {};
}

// Sets a DWORD to `wanted` unless it has that value already; false (logged) when it cannot be read or written.
bool ensureDword(const char* tag, const std::wstring& keyPath, const wchar_t* valueName, std::uint32_t wanted,
                 bool& changed)
{
    changed = false;
    platform::UniqueRegKey reader;
    platform::RegStatus status = platform::regOpenKeyRead(platform::RegHive::LocalMachine, keyPath, reader);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Failed to open %ls. : %d", tag, keyPath.c_str(), code(status));
        return false;
    }
    std::uint32_t value = 0;
    std::uint32_t type = platform::kRegNone;
    status = platform::regQueryDword(reader, valueName, value, type);
    // A missing value is as wrong as a wrong one: Windows' default applies then.
    if (status == 0 && type == platform::kRegDword && value == wanted) return true;
    if (status != 0 && status != platform::kErrorFileNotFound) {
        WriteLog("[%s] [ERROR]: Failed to read %ls of %ls. : %d", tag, valueName, keyPath.c_str(), code(status));
        return false;
    }
    const std::uint32_t previous = status == 0 && type == platform::kRegDword ? value : 0;
    platform::UniqueRegKey writer;
    status = platform::regOpenKey(platform::RegHive::LocalMachine, keyPath, platform::RegAccess::SetValue, writer);
    if (status == 0) status = platform::regSetDword(writer, valueName, wanted);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Failed to set %ls of %ls to %u. : %d", tag, valueName, keyPath.c_str(), wanted,
                 code(status));
        return false;
    }
    WriteLog("[%s] %ls of %ls changed from %u to %u", tag, valueName, keyPath.c_str(), previous, wanted);
    changed = true;
    return true;
}

}  // namespace

bool HardwareInformationC::DisableSerialMouseService(bool& changed)
{
    const char* const tag = "SysManagerC::DisableSerialMouseService";
    changed = false;
    platform::UniqueRegKey service;
    if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, kSerialMouseKey, service) != 0) {
        // Without the service nothing can take the port.
        WriteLog("[%s] The sermouse service is not installed, nothing to do.", tag);
        return true;
    }
    return ensureDword(tag, kSerialMouseKey, L"Start", kServiceDisabled, changed);
}

bool HardwareInformationC::DisableSsdWriteCache(std::wstring& diskKey, bool& changed)
{
    const char* const tag = "SysManagerC::DisableSsdWriteCache";
    changed = false;
    diskKey = findDiskParametersKey();
    if (diskKey.empty()) {
        WriteLog("[%s] No disk with device parameters found, nothing to do.", tag);
        return true;
    }
    return ensureDword(tag, diskKey, kWriteCacheValue, kWriteCacheOff, changed);
}
