#include "net/WlanAp.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "app/Log.h"
#include "platform/WinError.h"
#include "platform/Wlan.h"

namespace {

constexpr std::uint32_t kSsidBytes = 32;

std::mutex g_failReasonLock;
std::uint32_t g_failReason = platform::kWlanHostedNetworkReasonSuccess;

void storeFailReason(std::uint32_t reason)
{
    std::lock_guard<std::mutex> guard(g_failReasonLock);
    g_failReason = reason;
}

// The process's client of the WLAN service. Callers on any thread share it; it is never closed, since
// another process may call the exports up to the very end of this one.
const platform::UniqueWlanHandle* client()
{
    static std::mutex lock;
    static const platform::UniqueWlanHandle* handle = nullptr;
    std::lock_guard<std::mutex> guard(lock);
    if (handle != nullptr) return handle;
    platform::UniqueWlanHandle opened;
    std::uint32_t negotiated = 0;
    const std::uint32_t status = platform::wlanOpenHandle(platform::kWlanClientVersion, negotiated, opened);
    if (status != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanOpenHandle failed: %d", static_cast<int>(status));
        return nullptr;
    }
    handle = new platform::UniqueWlanHandle(std::move(opened));
    return handle;
}

// A buffer for the caller of the exports, which it gives back through WlanAp_FreeMemory: `bytes` followed
// by `zeros` zero bytes.
unsigned char* callerBuffer(const std::uint8_t* bytes, std::size_t count, std::size_t zeros)
{
    auto* buffer = static_cast<unsigned char*>(std::malloc(count + zeros));
    if (buffer == nullptr) return nullptr;
    if (count != 0) std::memcpy(buffer, bytes, count);
    std::memset(buffer + count, 0, zeros);
    return buffer;
}

}  // namespace

HALVERN_EXPORT std::uint32_t WlanAp_GetFailReason()
{
    std::lock_guard<std::mutex> guard(g_failReasonLock);
    return g_failReason;
}

HALVERN_EXPORT int WlanAp_Started()
{
    const platform::UniqueWlanHandle* handle = client();
    if (handle == nullptr) return 0;
    std::uint32_t state = platform::kWlanHostedNetworkUnavailable;
    if (platform::wlanHostedNetworkQueryState(*handle, state) != platform::kErrorSuccess) return 0;
    return state == platform::kWlanHostedNetworkActive ? 1 : 0;
}

HALVERN_EXPORT int WlanAp_Start()
{
    const platform::UniqueWlanHandle* handle = client();
    if (handle == nullptr) return 0;
    std::uint32_t reason = platform::kWlanHostedNetworkReasonSuccess;
    // The service can accept the start and still not bring the network up (the interface went away).
    if (platform::wlanHostedNetworkForceStart(*handle, reason) == platform::kErrorSuccess && WlanAp_Started() == 1)
        return 1;
    storeFailReason(reason);
    return 0;
}

HALVERN_EXPORT int WlanAp_Stop()
{
    const platform::UniqueWlanHandle* handle = client();
    if (handle == nullptr) return 0;
    std::uint32_t reason = platform::kWlanHostedNetworkReasonSuccess;
    if (platform::wlanHostedNetworkForceStop(*handle, reason) == platform::kErrorSuccess) return 1;
    storeFailReason(reason);
    return 0;
}

HALVERN_EXPORT unsigned char* WlanAp_GetSsid()
{
    try {
        const platform::UniqueWlanHandle* handle = client();
        if (handle == nullptr) return nullptr;
        std::vector<std::uint8_t> settings;
        if (platform::wlanHostedNetworkQueryConnectionSettings(*handle, settings) != platform::kErrorSuccess ||
            settings.size() != platform::kWlanHostedNetworkConnectionSettingsBytes)
            return nullptr;
        std::uint32_t length = 0;
        std::memcpy(&length, settings.data(), 4);
        if (length > kSsidBytes) length = kSsidBytes;
        return callerBuffer(settings.data() + 4, length, 2);
    } catch (...) {
        return nullptr;
    }
}

HALVERN_EXPORT int WlanAp_SetSsid(const unsigned char* ssid, std::uint32_t length)
{
    if (length > kSsidBytes || (ssid == nullptr && length != 0)) return 0;
    try {
        const platform::UniqueWlanHandle* handle = client();
        if (handle == nullptr) return 0;
        // The settings also carry the number of peers, which stays as the service has it.
        std::vector<std::uint8_t> settings;
        if (platform::wlanHostedNetworkQueryConnectionSettings(*handle, settings) != platform::kErrorSuccess ||
            settings.size() != platform::kWlanHostedNetworkConnectionSettingsBytes) {
            storeFailReason(platform::kWlanHostedNetworkReasonUnspecified);
            return 0;
        }
        std::memcpy(settings.data(), &length, 4);
        std::memset(settings.data() + 4, 0, kSsidBytes);
        if (length != 0) std::memcpy(settings.data() + 4, ssid, length);
        std::uint32_t reason = platform::kWlanHostedNetworkReasonSuccess;
        if (platform::wlanHostedNetworkSetConnectionSettings(*handle, settings, reason) == platform::kErrorSuccess)
            return 1;
        storeFailReason(reason);
        return 0;
    } catch (...) {
        storeFailReason(platform::kWlanHostedNetworkReasonUnspecified);
        return 0;
    }
}

HALVERN_EXPORT unsigned char* WlanAp_GetPassword()
{
    try {
        const platform::UniqueWlanHandle* handle = client();
        if (handle == nullptr) return nullptr;
        std::vector<std::uint8_t> key;
        bool passPhrase = false, persistent = false;
        std::uint32_t reason = platform::kWlanHostedNetworkReasonSuccess;
        if (platform::wlanHostedNetworkQuerySecondaryKey(*handle, key, passPhrase, persistent, reason) !=
            platform::kErrorSuccess) {
            storeFailReason(reason);
            return nullptr;
        }
        // One zero byte more than the service gave: a key that is not a pass phrase still ends as text.
        return callerBuffer(key.data(), key.size(), 1);
    } catch (...) {
        return nullptr;
    }
}

HALVERN_EXPORT int WlanAp_SetPassword(const unsigned char* password, std::uint32_t length)
{
    if (password == nullptr && length != 0) return 0;
    try {
        const platform::UniqueWlanHandle* handle = client();
        if (handle == nullptr) return 0;
        // The service counts a pass phrase's NUL in its length.
        std::vector<std::uint8_t> key(password, password + length);
        key.push_back(0);
        std::uint32_t reason = platform::kWlanHostedNetworkReasonSuccess;
        if (platform::wlanHostedNetworkSetSecondaryKey(*handle, key, true, true, reason) == platform::kErrorSuccess)
            return 1;
        storeFailReason(reason);
        return 0;
    } catch (...) {
        storeFailReason(platform::kWlanHostedNetworkReasonUnspecified);
        return 0;
    }
}

HALVERN_EXPORT void WlanAp_FreeMemory(void* buffer)
{
    std::free(buffer);
}
