#pragma once
// Control commands for the Windows side of the simulated instrument: "clock get" (the instrument's UTC and
// local time and its zone), "uwf set on|off" (the write filter protects the system volume / does not; also "uwf
// on|off"), "uwf show" (the running state and the next boot's, which uwfmgr.exe sets), "uwf reboot" (a restart applies
// the next boot's state) and "service NAME get|stop" (a service's state; a stop as an administrator would make it) and
// "usb plug LABEL|image|unplug" (a USB stick with that volume label in F:, the update image on it, no stick). A
// change of the USB bus reaches the windows registered for USB device notifications as a device change.
#include "sim/ControlCommands.h"

namespace halvern::sim {

void addWindowsControlCommands(ControlCommandsC& commands);

}  // namespace halvern::sim
