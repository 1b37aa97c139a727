#pragma once
// The WLAN card's driver: old packages of its provider removed, the regular or the test driver installed
// from the instrument's data partition, the driver refreshed and restarted through the device tool, the
// module's power switched on the peripheral bus, and the wait until its interface is usable. Every tool
// runs as a hidden child with its own time limit; results are booleans with a log line where they fail.
#include <string>
#include <vector>

namespace halvern::net {

// The provider of the card's driver packages, as the device tool lists it.
constexpr const char* kWlanDriverProvider = "Atheros";
// The test driver's "Driver version and date" in the driver store's listing.
constexpr const char* kWlanTestDriverDate = "03/15/2017 17.40.52.232";

// The published names of the driver store's packages whose provider contains `keyword`.
bool listDriversByProvider(const std::string& keyword, std::vector<std::string>& packages);
// Number of packages removed; 0 or less when none was (a listing that failed answers -1).
int uninstallDrivers(const std::string& keyword);
// The folder of the test or the regular driver and its one ".inf" and one ".sys" file.
bool getWlanDriverFiles(bool test, std::string& folder, std::string& infName, std::string& sysName);
// True once the new driver is installed, the card updated to it and the driver loaded. False at once (last
// error ERROR_BUSY) while another installation runs.
bool installWlanDriver(bool test);
// Disable, enable and rescan, stopping at the first tool run that fails.
void refreshWlanDriver();
bool restartWlanDriver();
// True once a loaded kernel driver has the base name `sysName`; refreshes the card between looks.
bool waitForDeviceDriver(const std::string& sysName);
// True when the WLAN client sees an interface, or at once when the test driver (which offers none) is in.
bool waitTillWlanInterfaceReady();
// Switches the module's power line; switching on also waits for the module and its interface.
bool setWlanModulePower(bool on);

}  // namespace halvern::net
