#pragma once
// The registry values Halvern.exe reads, carried from a sim root's registry into the registry of its Wine
// prefix as a REGEDIT4 file for "reg import".
#include <string>

namespace halvern::sim {

// The .reg text of the instrument's keys that Halvern reads (its settings in both hives, the WLAN
// driver's values), plus what a Wine run needs on top: the sensor board at 127.0.0.1 with the simulated
// board's telnet port also under HKLM, SEP clients from loopback only unless the instrument says
// otherwise, and the write filter protecting the system (a customer's instrument).
std::string wineRegistryText(const std::string& root);

}  // namespace halvern::sim
