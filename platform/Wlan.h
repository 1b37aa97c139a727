#pragma once
// The native WLAN client (wlanapi): a client handle with its one owner, the interfaces it sees, scans and
// their BSS lists with the information elements, scan notifications, and the hosted network (the
// operating system's soft access point). Answers are Windows error numbers, 0 on success, as the WLAN
// functions return them; hosted-network calls also give the service's failure reason.
//
// On the simulation platform the WLAN service always runs; the computer module's WLAN interface exists
// while the module is powered (the WLAN power line of the IO expander "\\.\IOExpander" reads on) and the
// device runs a driver that offers an interface: $HALVERN_ROOT/sim/devices/wlan holds "interface=1", as
// the device tool and driver store stand-ins leave it. The hosted network is kept in the sim root too
// (platform/sim/SimHostedNetwork.h), where halvern-sim and tests can make its starts fail.
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Owner.h"
#include "platform/WinError.h"

namespace platform {

// WLAN_API_VERSION_2_0: the client version of every caller on the instrument.
constexpr std::uint32_t kWlanClientVersion = 2;

// WLAN_INTERFACE_STATE values used by callers.
constexpr std::uint32_t kWlanInterfaceNotReady = 0;
constexpr std::uint32_t kWlanInterfaceConnected = 1;
constexpr std::uint32_t kWlanInterfaceDisconnected = 4;

using WlanHandleValue = void*;

// WlanCloseHandle semantics: the Windows error, 0 when closed.
std::uint32_t wlanCloseHandle(WlanHandleValue handle);

struct WlanHandleTraits {
    using Value = WlanHandleValue;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value handle) noexcept { wlanCloseHandle(handle); }
};
using UniqueWlanHandle = UniqueOwner<WlanHandleTraits>;

struct WlanInterfaceT {
    std::array<std::uint8_t, 16> guid{};  // the GUID's bytes as Windows lays them out
    std::wstring description;
    std::uint32_t state = kWlanInterfaceNotReady;
};

// WlanOpenHandle with `clientVersion`; `negotiatedVersion` gets the service's version.
std::uint32_t wlanOpenHandle(std::uint32_t clientVersion, std::uint32_t& negotiatedVersion, UniqueWlanHandle& handle);
// WlanEnumInterfaces; the service's list is copied out and released with WlanFreeMemory.
std::uint32_t wlanEnumInterfaces(const UniqueWlanHandle& handle, std::vector<WlanInterfaceT>& interfaces);

using WlanGuid = std::array<std::uint8_t, 16>;

// Notification sources and codes (WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_scan_complete).
constexpr std::uint32_t kWlanNotificationSourceAcm = 0x08;
constexpr std::uint32_t kWlanNotificationAcmScanComplete = 7;
constexpr std::uint32_t kWlanNotificationAcmScanFail = 8;

struct WlanNotificationT {
    std::uint32_t source = 0;
    std::uint32_t code = 0;
    WlanGuid interfaceGuid{};
};

// Called on the service's own thread. Registering again replaces the previous callback of the handle;
// closing the handle ends the notifications (no call runs after wlanCloseHandle returned).
using WlanNotificationCallback = std::function<void(const WlanNotificationT&)>;

// WlanRegisterNotification for `sourceMask` (0 unregisters).
std::uint32_t wlanRegisterNotification(const UniqueWlanHandle& handle, std::uint32_t sourceMask, bool ignoreDuplicate,
                                       WlanNotificationCallback callback);
// WlanScan on the interface: the scan completes later with a scan-complete (or scan-fail) notification.
std::uint32_t wlanScan(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid);

// One entry of WlanGetNetworkBssList: the network's name as raw bytes (up to 32), the centre frequency in
// kHz and the information elements as they were received (id, length, data ...).
struct WlanBssEntryT {
    std::string ssid;
    std::uint32_t centerFrequencyKhz = 0;
    std::int32_t rssi = 0;
    std::vector<std::uint8_t> informationElements;
};

// WlanGetNetworkBssList of the interface, any network, any BSS type, without security filtering.
std::uint32_t wlanGetNetworkBssList(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid,
                                    std::vector<WlanBssEntryT>& entries);

// WLAN_HOSTED_NETWORK_STATE values.
constexpr std::uint32_t kWlanHostedNetworkUnavailable = 0;
constexpr std::uint32_t kWlanHostedNetworkIdle = 1;
constexpr std::uint32_t kWlanHostedNetworkActive = 2;

// WLAN_HOSTED_NETWORK_REASON values that callers tell apart.
constexpr std::uint32_t kWlanHostedNetworkReasonSuccess = 0;
constexpr std::uint32_t kWlanHostedNetworkReasonUnspecified = 1;
constexpr std::uint32_t kWlanHostedNetworkReasonBadParameters = 2;
constexpr std::uint32_t kWlanHostedNetworkReasonInterfaceUnavailable = 12;

// WLAN_HOSTED_NETWORK_CONNECTION_SETTINGS as the service lays it out: the DOT11_SSID (length u32, then 32
// bytes) and the maximum number of peers (u32), 40 bytes in all.
constexpr std::uint32_t kWlanHostedNetworkConnectionSettingsBytes = 40;

// WlanHostedNetworkForceStart / ForceStop; `failReason` gets the service's reason.
std::uint32_t wlanHostedNetworkForceStart(const UniqueWlanHandle& handle, std::uint32_t& failReason);
std::uint32_t wlanHostedNetworkForceStop(const UniqueWlanHandle& handle, std::uint32_t& failReason);
// WlanHostedNetworkQueryStatus: the hosted network's state.
std::uint32_t wlanHostedNetworkQueryState(const UniqueWlanHandle& handle, std::uint32_t& state);
// WlanHostedNetworkQueryProperty(wlan_hosted_network_opcode_connection_settings): the property's bytes as the
// service returns them (the caller checks the size).
std::uint32_t wlanHostedNetworkQueryConnectionSettings(const UniqueWlanHandle& handle,
                                                       std::vector<std::uint8_t>& settings);
// WlanHostedNetworkSetProperty(wlan_hosted_network_opcode_connection_settings) with `settings` as given.
std::uint32_t wlanHostedNetworkSetConnectionSettings(const UniqueWlanHandle& handle,
                                                     const std::vector<std::uint8_t>& settings,
                                                     std::uint32_t& failReason);
// WlanHostedNetworkQuerySecondaryKey: the key's bytes with the length the service reports.
std::uint32_t wlanHostedNetworkQuerySecondaryKey(const UniqueWlanHandle& handle, std::vector<std::uint8_t>& key,
                                                 bool& isPassPhrase, bool& persistent, std::uint32_t& failReason);
// WlanHostedNetworkSetSecondaryKey: `key` is passed with its size as the key length (callers include the NUL).
std::uint32_t wlanHostedNetworkSetSecondaryKey(const UniqueWlanHandle& handle, const std::vector<std::uint8_t>& key,
                                               bool isPassPhrase, bool persistent, std::uint32_t& failReason);

}  // namespace platform
