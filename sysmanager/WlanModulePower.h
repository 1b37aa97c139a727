#pragma once
// The WLAN module's power line on the IO expander as the firmware update reads it: the updater talks to
// its server over WLAN. Switching it on goes through the WLAN driver management, which also waits for
// the interface.
namespace halvern {

// False when the IO expander cannot be read.
bool readWlanModulePower(bool& on);

}  // namespace halvern
