#pragma once
// The devices present on the computer module's PCI bus, of every device class, as the setup API and the
// configuration manager report them: instance id, hardware ids, the text Device Manager shows and whether
// the device is started without a problem. On the simulation platform the devices are the instance keys
// below the registry's "SYSTEM\CurrentControlSet\Enum\PCI" (device, instance) with "HardwareID" and
// "FriendlyName" or "DeviceDesc" as Windows keeps them; a device whose "SimPresent" value is 0 is not
// attached, and a non-zero "SimProblem" value is the configuration manager's problem code of a device that
// is attached but not working.
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct PciDeviceT {
    std::wstring instanceId;  // "PCI\VEN_8086&DEV_1533&...\4&213D5DE2&0&00E1"
    std::vector<std::wstring> hardwareIds;
    std::wstring description;  // the friendly name, else the device description; may be empty
    bool started = false;
    std::uint32_t problem = 0;  // CM_PROB_*; 0: none
};

// SetupDiGetClassDevsW of the enumerator "PCI", present devices only, and CM_Get_DevNode_Status of each.
// False with the last error set when the list cannot be had; a device whose properties cannot be read is
// listed with what could be read.
bool listPresentPciDevices(std::vector<PciDeviceT>& devices);

}  // namespace platform
