// The simulated instrument's PCI devices: instance keys below "SYSTEM\CurrentControlSet\Enum\PCI", in the
// order of the registry's key enumeration.
#include "platform/PciDevices.h"
#include "platform/Registry.h"
#include "platform/WinError.h"

namespace platform {

namespace {

constexpr const wchar_t* kPciEnumKey = L"SYSTEM\\CurrentControlSet\\Enum\\PCI";

std::vector<std::wstring> subKeys(const std::wstring& path)
{
    return regSubKeyNames(RegHive::LocalMachine, path);
}

std::uint32_t dwordOr(const UniqueRegKey& key, const wchar_t* name, std::uint32_t fallback)
{
    std::uint32_t value = 0;
    std::uint32_t type = 0;
    return regQueryDword(key, name, value, type) == 0 && type == kRegDword ? value : fallback;
}

}  // namespace

bool listPresentPciDevices(std::vector<PciDeviceT>& devices)
{
    devices.clear();
    for (const auto& device : subKeys(kPciEnumKey))
        for (const auto& instance : subKeys(std::wstring(kPciEnumKey) + L"\\" + device)) {
            UniqueRegKey key;
            if (regOpenKeyRead(RegHive::LocalMachine, std::wstring(kPciEnumKey) + L"\\" + device + L"\\" + instance,
                               key) != 0)
                continue;
            if (dwordOr(key, L"SimPresent", 1) == 0) continue;
            PciDeviceT entry;
            entry.instanceId = L"PCI\\" + device + L"\\" + instance;
            regQueryMultiString(key, L"HardwareID", entry.hardwareIds);
            if (regQueryString(key, L"FriendlyName", entry.description) != 0)
                regQueryString(key, L"DeviceDesc", entry.description);
            entry.problem = dwordOr(key, L"SimProblem", 0);
            entry.started = entry.problem == 0;
            devices.push_back(std::move(entry));
        }
    setLastError(kErrorSuccess);
    return true;
}

}  // namespace platform
