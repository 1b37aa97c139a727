// The simulated instrument's network devices: instance keys below "SYSTEM\CurrentControlSet\Enum" whose
// "ClassGUID" is the network class, in the order of the registry's key enumeration.
#include <algorithm>
#include <cwctype>
#include <vector>

#include "platform/Device.h"
#include "platform/Registry.h"
#include "platform/WinError.h"

namespace platform {

namespace {

constexpr const wchar_t* kEnumKey = L"SYSTEM\\CurrentControlSet\\Enum";

std::vector<std::wstring> subKeys(const std::wstring& path)
{
    return regSubKeyNames(RegHive::LocalMachine, path);
}

bool sameText(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(x) == std::towupper(y);
           });
}

}  // namespace

struct NetworkDeviceListC::Impl {
    std::vector<std::wstring> instanceKeys;
};

NetworkDeviceListC::NetworkDeviceListC() : m_impl(std::make_unique<Impl>()) {}
NetworkDeviceListC::~NetworkDeviceListC() = default;

bool NetworkDeviceListC::open(bool presentOnly)
{
    m_impl->instanceKeys.clear();
    for (const auto& bus : subKeys(kEnumKey))
        for (const auto& device : subKeys(std::wstring(kEnumKey) + L"\\" + bus))
            for (const auto& instance : subKeys(std::wstring(kEnumKey) + L"\\" + bus + L"\\" + device)) {
                const std::wstring path = std::wstring(kEnumKey) + L"\\" + bus + L"\\" + device + L"\\" + instance;
                UniqueRegKey key;
                std::wstring classGuid;
                if (regOpenKeyRead(RegHive::LocalMachine, path, key) != 0 ||
                    regQueryString(key, L"ClassGUID", classGuid) != 0 || !sameText(classGuid, kNetworkClassGuid))
                    continue;
                std::uint32_t present = 1;
                std::uint32_t type = 0;
                if (presentOnly && regQueryDword(key, L"SimPresent", present, type) == 0 && present == 0) continue;
                m_impl->instanceKeys.push_back(path);
            }
    setLastError(kErrorSuccess);
    return true;
}

bool NetworkDeviceListC::device(std::uint32_t index)
{
    if (index >= m_impl->instanceKeys.size()) {
        setLastError(kErrorNoMoreItems);
        return false;
    }
    return true;
}

bool NetworkDeviceListC::property(std::uint32_t index, DevicePropertyE which, std::vector<std::wstring>& values)
{
    values.clear();
    if (!device(index)) return false;
    UniqueRegKey key;
    RegStatus status = regOpenKeyRead(RegHive::LocalMachine, m_impl->instanceKeys[index], key);
    if (status == 0) {
        if (which == DevicePropertyE::DriverKey) {
            std::wstring driver;
            status = regQueryString(key, L"Driver", driver);
            if (status == 0) values.push_back(driver);
        } else {
            status = regQueryMultiString(key, L"HardwareID", values);
        }
    }
    // A device without the property answers as the setup API does for it.
    if (status == kErrorFileNotFound) status = kErrorInvalidData;
    setLastError(status);
    return status == 0;
}

}  // namespace platform
