#include <windows.h>
// After windows.h, which it builds on.
#include <wlanapi.h>

#include <cstring>
#include <memory>

#include "platform/Wlan.h"

namespace platform {

std::uint32_t wlanCloseHandle(WlanHandleValue handle)
{
    return WlanCloseHandle(handle, nullptr);
}

std::uint32_t wlanOpenHandle(std::uint32_t clientVersion, std::uint32_t& negotiatedVersion, UniqueWlanHandle& handle)
{
    HANDLE opened = nullptr;
    DWORD negotiated = 0;
    const DWORD status = WlanOpenHandle(clientVersion, nullptr, &negotiated, &opened);
    if (status != ERROR_SUCCESS) return status;
    negotiatedVersion = negotiated;
    handle.reset(opened);
    return ERROR_SUCCESS;
}

std::uint32_t wlanEnumInterfaces(const UniqueWlanHandle& handle, std::vector<WlanInterfaceT>& interfaces)
{
    interfaces.clear();
    PWLAN_INTERFACE_INFO_LIST list = nullptr;
    const DWORD status = WlanEnumInterfaces(handle.get(), nullptr, &list);
    if (status != ERROR_SUCCESS) return status;
    // The service's list has one owner, so that no path leaves it behind.
    const std::unique_ptr<WLAN_INTERFACE_INFO_LIST, void (*)(PVOID)> owner(
        list, [](PVOID memory) { WlanFreeMemory(memory); });
    for (DWORD i = 0; i < list->dwNumberOfItems; ++i) {
        const WLAN_INTERFACE_INFO& info = list->InterfaceInfo[i];
        WlanInterfaceT entry;
        static_assert(sizeof entry.guid == sizeof info.InterfaceGuid, "a GUID is 16 bytes");
        std::memcpy(entry.guid.data(), &info.InterfaceGuid, entry.guid.size());
        entry.description = info.strInterfaceDescription;
        entry.state = static_cast<std::uint32_t>(info.isState);
        interfaces.push_back(entry);
    }
    return ERROR_SUCCESS;
}

}  // namespace platform
