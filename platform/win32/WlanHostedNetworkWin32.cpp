#include <windows.h>
// After windows.h, which it builds on.
#include <wlanapi.h>

#include <cstring>
#include <memory>

#include "platform/DynamicLibrary.h"
#include "platform/Wlan.h"
#include "platform/win32/WineGuard.h"

// The hosted network's functions are looked up at run time: the SDK headers of the cross build do not
// declare them, and WLAN services that offer no hosted network (Windows Server without the feature,
// Wine) do not export them, which must not keep Halvern.exe from loading.
namespace platform {

namespace {

// wlan_hosted_network_opcode_connection_settings.
constexpr DWORD kOpcodeConnectionSettings = 0;

// WlanHostedNetworkForceStart and WlanHostedNetworkForceStop.
using ForceFn = DWORD(WINAPI*)(HANDLE, PDWORD, PVOID);
using QueryStatusFn = DWORD(WINAPI*)(HANDLE, PVOID*, PVOID);
using QueryPropertyFn = DWORD(WINAPI*)(HANDLE, DWORD, PDWORD, PVOID*, PDWORD, PVOID);
using SetPropertyFn = DWORD(WINAPI*)(HANDLE, DWORD, DWORD, PVOID, PDWORD, PVOID);
using QuerySecondaryKeyFn = DWORD(WINAPI*)(HANDLE, PDWORD, PUCHAR*, PBOOL, PBOOL, PDWORD, PVOID);
using SetSecondaryKeyFn = DWORD(WINAPI*)(HANDLE, DWORD, PUCHAR, BOOL, BOOL, PDWORD, PVOID);

// WLAN_HOSTED_NETWORK_STATUS begins with the state; nothing after it is read.
struct HostedNetworkStatusHeadT {
    DWORD state;
};

// What the service allocates for its answers has this one owner.
struct ServiceMemoryFree {
    void operator()(void* memory) const { WlanFreeMemory(memory); }
};
using ServiceMemory = std::unique_ptr<void, ServiceMemoryFree>;

const UniqueModule& wlanLibrary()
{
    static const UniqueModule library = loadLibrary(L"wlanapi.dll");
    return library;
}

template <typename Fn>
Fn lookUp(const char* name)
{
    if (!wlanLibrary()) return nullptr;
    return reinterpret_cast<Fn>(getProcAddress(wlanLibrary(), name));
}

}  // namespace

namespace {

// Force start and force stop share their shape: a reason that says why the service refused.
std::uint32_t callWithReason(ForceFn call, const UniqueWlanHandle& handle, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (win32::refusedUnderWine()) return ERROR_ACCESS_DENIED;
    if (call == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    DWORD reason = kWlanHostedNetworkReasonSuccess;
    const DWORD status = call(handle.get(), &reason, nullptr);
    failReason = reason;
    return status;
}

}  // namespace

std::uint32_t wlanHostedNetworkForceStart(const UniqueWlanHandle& handle, std::uint32_t& failReason)
{
    static const auto forceStart = lookUp<ForceFn>("WlanHostedNetworkForceStart");
    return callWithReason(forceStart, handle, failReason);
}

std::uint32_t wlanHostedNetworkForceStop(const UniqueWlanHandle& handle, std::uint32_t& failReason)
{
    static const auto forceStop = lookUp<ForceFn>("WlanHostedNetworkForceStop");
    return callWithReason(forceStop, handle, failReason);
}

std::uint32_t wlanHostedNetworkQueryState(const UniqueWlanHandle& handle, std::uint32_t& state)
{
    static const auto queryStatus = lookUp<QueryStatusFn>("WlanHostedNetworkQueryStatus");
    if (queryStatus == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    PVOID answer = nullptr;
    const DWORD status = queryStatus(handle.get(), &answer, nullptr);
    if (status != ERROR_SUCCESS) return status;
    const ServiceMemory owner(answer);
    if (answer == nullptr) return ERROR_INVALID_DATA;
    state = static_cast<const HostedNetworkStatusHeadT*>(answer)->state;
    return ERROR_SUCCESS;
}

std::uint32_t wlanHostedNetworkQueryConnectionSettings(const UniqueWlanHandle& handle,
                                                       std::vector<std::uint8_t>& settings)
{
    settings.clear();
    static const auto queryProperty = lookUp<QueryPropertyFn>("WlanHostedNetworkQueryProperty");
    if (queryProperty == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    DWORD size = 0;
    PVOID data = nullptr;
    DWORD valueType = 0;
    const DWORD status = queryProperty(handle.get(), kOpcodeConnectionSettings, &size, &data, &valueType, nullptr);
    if (status != ERROR_SUCCESS) return status;
    const ServiceMemory owner(data);
    if (data != nullptr && size != 0) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        settings.assign(bytes, bytes + size);
    }
    return ERROR_SUCCESS;
}

std::uint32_t wlanHostedNetworkSetConnectionSettings(const UniqueWlanHandle& handle,
                                                     const std::vector<std::uint8_t>& settings,
                                                     std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (win32::refusedUnderWine()) return ERROR_ACCESS_DENIED;
    static const auto setProperty = lookUp<SetPropertyFn>("WlanHostedNetworkSetProperty");
    if (setProperty == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    // The service only reads the settings; its prototype asks for a writable pointer all the same.
    std::vector<std::uint8_t> data(settings);
    DWORD reason = kWlanHostedNetworkReasonSuccess;
    const DWORD status = setProperty(handle.get(), kOpcodeConnectionSettings, static_cast<DWORD>(data.size()),
                                     data.empty() ? nullptr : data.data(), &reason, nullptr);
    failReason = reason;
    return status;
}

std::uint32_t wlanHostedNetworkQuerySecondaryKey(const UniqueWlanHandle& handle, std::vector<std::uint8_t>& key,
                                                 bool& isPassPhrase, bool& persistent, std::uint32_t& failReason)
{
    key.clear();
    failReason = kWlanHostedNetworkReasonSuccess;
    static const auto querySecondaryKey = lookUp<QuerySecondaryKeyFn>("WlanHostedNetworkQuerySecondaryKey");
    if (querySecondaryKey == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    DWORD length = 0;
    PUCHAR data = nullptr;
    BOOL passPhrase = FALSE, keep = FALSE;
    DWORD reason = kWlanHostedNetworkReasonSuccess;
    const DWORD status = querySecondaryKey(handle.get(), &length, &data, &passPhrase, &keep, &reason, nullptr);
    failReason = reason;
    if (status != ERROR_SUCCESS) return status;
    const ServiceMemory owner(data);
    if (data != nullptr && length != 0) key.assign(data, data + length);
    isPassPhrase = passPhrase != FALSE;
    persistent = keep != FALSE;
    return ERROR_SUCCESS;
}

std::uint32_t wlanHostedNetworkSetSecondaryKey(const UniqueWlanHandle& handle, const std::vector<std::uint8_t>& key,
                                               bool isPassPhrase, bool persistent, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (win32::refusedUnderWine()) return ERROR_ACCESS_DENIED;
    static const auto setSecondaryKey = lookUp<SetSecondaryKeyFn>("WlanHostedNetworkSetSecondaryKey");
    if (setSecondaryKey == nullptr) return ERROR_CALL_NOT_IMPLEMENTED;
    std::vector<std::uint8_t> data(key);
    DWORD reason = kWlanHostedNetworkReasonSuccess;
    const DWORD status =
        setSecondaryKey(handle.get(), static_cast<DWORD>(data.size()), data.empty() ? nullptr : data.data(),
                        isPassPhrase ? TRUE : FALSE, persistent ? TRUE : FALSE, &reason, nullptr);
    failReason = reason;
    return status;
}

}  // namespace platform
