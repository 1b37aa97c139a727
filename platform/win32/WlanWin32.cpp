#include <windows.h>
// After windows.h, which it builds on.
#include <wlanapi.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "platform/Wlan.h"

namespace platform {

namespace {

// Everything the service hands out is released with WlanFreeMemory, and only by this owner, so that no
// path leaves a list behind.
struct WlanMemoryDeleter {
    void operator()(void* memory) const { WlanFreeMemory(memory); }
};
template <typename T>
using WlanMemory = std::unique_ptr<T, WlanMemoryDeleter>;

// The callbacks per client handle. The service calls one C function with a context pointer; the
// trampoline finds the handle's callback here and calls a copy of it outside the lock, so that a
// registration replaced meanwhile does not free the function that runs.
std::mutex g_callbacksLock;
std::map<HANDLE, std::shared_ptr<WlanNotificationCallback>> g_callbacks;

void CALLBACK notificationTrampoline(PWLAN_NOTIFICATION_DATA data, PVOID context)
{
    if (data == nullptr) return;
    std::shared_ptr<WlanNotificationCallback> callback;
    {
        std::lock_guard<std::mutex> guard(g_callbacksLock);
        auto it = g_callbacks.find(static_cast<HANDLE>(context));
        if (it == g_callbacks.end()) return;
        callback = it->second;
    }
    WlanNotificationT notification;
    notification.source = data->NotificationSource;
    notification.code = data->NotificationCode;
    static_assert(sizeof notification.interfaceGuid == sizeof data->InterfaceGuid, "a GUID is 16 bytes");
    std::memcpy(notification.interfaceGuid.data(), &data->InterfaceGuid, notification.interfaceGuid.size());
    // The service's thread is no place for an exception to end up.
    try {
        (*callback)(notification);
    } catch (...) {
    }
}

GUID toGuid(const WlanGuid& bytes)
{
    GUID guid;
    std::memcpy(&guid, bytes.data(), bytes.size());
    return guid;
}

}  // namespace

std::uint32_t wlanCloseHandle(WlanHandleValue handle)
{
    // Forgotten first: a notification that comes while the service closes the handle finds no callback.
    // WlanCloseHandle itself waits for callbacks already running.
    {
        std::lock_guard<std::mutex> guard(g_callbacksLock);
        g_callbacks.erase(handle);
    }
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
    const WlanMemory<WLAN_INTERFACE_INFO_LIST> owner(list);
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

std::uint32_t wlanRegisterNotification(const UniqueWlanHandle& handle, std::uint32_t sourceMask, bool ignoreDuplicate,
                                       WlanNotificationCallback callback)
{
    HANDLE client = handle.get();
    if (sourceMask == WLAN_NOTIFICATION_SOURCE_NONE || !callback) {
        const DWORD status =
            WlanRegisterNotification(client, WLAN_NOTIFICATION_SOURCE_NONE, TRUE, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_SUCCESS) {
            std::lock_guard<std::mutex> guard(g_callbacksLock);
            g_callbacks.erase(client);
        }
        return status;
    }
    {
        // In place before the service can call: the first notification may come before the call returns.
        std::lock_guard<std::mutex> guard(g_callbacksLock);
        g_callbacks[client] = std::make_shared<WlanNotificationCallback>(std::move(callback));
    }
    const DWORD status = WlanRegisterNotification(client, sourceMask, ignoreDuplicate ? TRUE : FALSE,
                                                  notificationTrampoline, client, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
        std::lock_guard<std::mutex> guard(g_callbacksLock);
        g_callbacks.erase(client);
    }
    return status;
}

std::uint32_t wlanScan(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid)
{
    const GUID guid = toGuid(interfaceGuid);
    return WlanScan(handle.get(), &guid, nullptr, nullptr, nullptr);
}

std::uint32_t wlanGetNetworkBssList(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid,
                                    std::vector<WlanBssEntryT>& entries)
{
    entries.clear();
    const GUID guid = toGuid(interfaceGuid);
    PWLAN_BSS_LIST list = nullptr;
    const DWORD status = WlanGetNetworkBssList(handle.get(), &guid, nullptr, dot11_BSS_type_any, FALSE, nullptr, &list);
    if (status != ERROR_SUCCESS) return status;
    const WlanMemory<WLAN_BSS_LIST> owner(list);
    for (DWORD i = 0; i < list->dwNumberOfItems; ++i) {
        const WLAN_BSS_ENTRY& bss = list->wlanBssEntries[i];
        WlanBssEntryT entry;
        const ULONG ssidLength =
            bss.dot11Ssid.uSSIDLength < DOT11_SSID_MAX_LENGTH ? bss.dot11Ssid.uSSIDLength : DOT11_SSID_MAX_LENGTH;
        entry.ssid.assign(reinterpret_cast<const char*>(bss.dot11Ssid.ucSSID), ssidLength);
        entry.centerFrequencyKhz = bss.ulChCenterFrequency;
        entry.rssi = bss.lRssi;
        // The elements follow the entry in the same allocation, at an offset from the entry's start.
        const auto* ies = reinterpret_cast<const std::uint8_t*>(&bss) + bss.ulIeOffset;
        entry.informationElements.assign(ies, ies + bss.ulIeSize);
        entries.push_back(std::move(entry));
    }
    return ERROR_SUCCESS;
}

}  // namespace platform
