#include <windows.h>
// After windows.h, which it builds on.
#include <psapi.h>

#include "platform/DeviceDrivers.h"

namespace platform {

bool enumDeviceDrivers(std::vector<DriverAddress>& addresses, std::uint32_t& neededBytes)
{
    std::vector<LPVOID> bases(addresses.size());
    DWORD needed = 0;
    if (!EnumDeviceDrivers(bases.empty() ? nullptr : bases.data(), static_cast<DWORD>(bases.size() * sizeof(LPVOID)),
                           &needed))
        return false;
    neededBytes = needed;
    for (std::size_t i = 0; i < addresses.size(); ++i)
        addresses[i] = reinterpret_cast<DriverAddress>(bases[i]);
    return true;
}

bool getDeviceDriverBaseName(DriverAddress address, std::wstring& name)
{
    wchar_t buffer[MAX_PATH] = {};
    const DWORD length = GetDeviceDriverBaseNameW(reinterpret_cast<LPVOID>(address), buffer, MAX_PATH);
    if (length == 0) return false;
    name.assign(buffer, length);
    return true;
}

}  // namespace platform
