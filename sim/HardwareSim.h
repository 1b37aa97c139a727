#pragma once
// The simulated computer module's hardware and system information: the PCI devices the hardware check
// looks for, the BIOS values, the Windows release, the serial-mouse service and the system disk. The
// control command "hw remove|restore wlan|eth-mora|eth-lemo|dma" takes a component away (the device is no
// longer attached) or brings it back; "hw problem NAME CODE" leaves it attached but not working (CODE is the
// configuration manager's problem code, 0 clears it).
#include <string>

#include "sim/ControlCommands.h"

namespace halvern::sim {

// Writes the values below `root`; values already there are the instrument's own and stay.
bool provideHardwareInformation(const std::string& root);

void addHardwareControlCommands(ControlCommandsC& commands);

}  // namespace halvern::sim
