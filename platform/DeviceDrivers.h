#pragma once
// The kernel's loaded device drivers as EnumDeviceDrivers and GetDeviceDriverBaseNameW list them: one load
// address per driver, and the driver file's base name by that address. On the simulation platform the
// loaded drivers are the base names in $HALVERN_ROOT/sim/drivers/loaded, one a line, which the device
// tool and driver store stand-ins change as the real tools change the loaded set.
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

using DriverAddress = std::uintptr_t;

// EnumDeviceDrivers: fills `addresses` up to its size and sets `neededBytes` to the bytes the whole list
// takes (an empty vector only asks for the size). False with the last error set.
bool enumDeviceDrivers(std::vector<DriverAddress>& addresses, std::uint32_t& neededBytes);
// GetDeviceDriverBaseNameW of one address from the list. False with the last error set.
bool getDeviceDriverBaseName(DriverAddress address, std::wstring& name);

}  // namespace platform
