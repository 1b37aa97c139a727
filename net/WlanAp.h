#pragma once
// The instrument's WLAN access point as the flat API that Halvern.exe exports for the instrument's other
// processes: the WLAN service's hosted network started, stopped and given its SSID and pass phrase. Every
// call uses one client handle of the process, opened on first use and kept until the process ends.
// Results are 1 for success and 0 for failure; a failure the service gives a reason for keeps that reason
// for WlanAp_GetFailReason.
#include <cstdint>

#include "platform/Export.h"

// The hosted network's failure reason of the last call that failed (WLAN_HOSTED_NETWORK_REASON).
HALVERN_EXPORT std::uint32_t WlanAp_GetFailReason();
// 1 while the hosted network is active.
HALVERN_EXPORT int WlanAp_Started();
// Force-starts the hosted network; 1 only when it is active afterwards.
HALVERN_EXPORT int WlanAp_Start();
HALVERN_EXPORT int WlanAp_Stop();
// The SSID's bytes followed by two zero bytes, or nullptr; release with WlanAp_FreeMemory.
HALVERN_EXPORT unsigned char* WlanAp_GetSsid();
// At most 32 bytes; a longer SSID is refused without asking the service.
HALVERN_EXPORT int WlanAp_SetSsid(const unsigned char* ssid, std::uint32_t length);
// The secondary key as the service reports it (a pass phrase with its NUL), or nullptr; release with
// WlanAp_FreeMemory.
HALVERN_EXPORT unsigned char* WlanAp_GetPassword();
// `length` bytes of pass phrase, kept by the service across restarts.
HALVERN_EXPORT int WlanAp_SetPassword(const unsigned char* password, std::uint32_t length);
HALVERN_EXPORT void WlanAp_FreeMemory(void* buffer);
