// USB port control and the write filter belong to the device-mode and hardware-information operations,
// which this build does not carry yet: each says so rather than pretend.
#include "app/Log.h"
#include "sysmanager/SysManagerC.h"

bool SysManagerC::RecycleUsbPort(std::uint16_t portId)
{
    WriteLog("[ERROR]: RecycleUsbPort: USB port control is not available on this build (port %d)",
             static_cast<int>(portId));
    return false;
}

bool SysManagerC::ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb)
{
    consumptionMb = 0;
    availableMb = 0;
    WriteLog("[ERROR]: ReadUWFOverlay: the write filter is not available on this build");
    return false;
}
