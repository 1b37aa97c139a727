#pragma once
// The SPB devices as start-up and the hardware check use them: opened once per process.
namespace halvern {

// Opens the IO expander, RTC and EEPROM under the SPB lock and reads the WLAN module's power line; a
// second call answers the first call's result. Answers whether all three devices opened.
bool enableSpbDevices();
// Whether the WLAN module was powered when the devices were enabled.
bool wlanPoweredAtPowerOn();
// Closes the devices and forgets the result, so that the next enable opens them again.
void forgetSpbDevices();

}  // namespace halvern
