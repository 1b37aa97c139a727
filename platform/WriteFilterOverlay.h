#pragma once
// The write filter's overlay: how much of it the session's writes fill and how much is still free, in MB
// (WMI class UWF_Overlay in "root\standardcimv2\embedded"). On the simulation platform the figures are the
// two numbers of the sim root's "sim/uwf/overlay" ("USED_MB AVAIL_MB"), set by halvern-sim's
// "uwf overlay USED_MB AVAIL_MB".
#include <cstdint>

namespace platform {

// False with the last error set (an HRESULT on Windows, kErrorNotFound when the filter has no overlay).
bool readWriteFilterOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb);

}  // namespace platform
