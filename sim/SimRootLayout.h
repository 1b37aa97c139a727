#pragma once
// The folders of a fresh simulated instrument: its drives, registry hives, named objects, pipes and
// devices, as halvern-sim and the tests prepare them.
#include <string>

namespace halvern::sim {

// Creates the layout below `root` (which may exist already); false with a message in `error` on failure.
bool createSimRootLayout(const std::string& root, std::string& error);

// Writes the registry's "Time Zones" tree (one key per zone with "Display", "Std", "Dlt" and "TZI") into
// the key folder `zonesFolder`; a tree already there stays as it is.
bool installTimeZones(const std::string& zonesFolder, std::string& error);
// The key folder of "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Time Zones" in a sim root.
std::string timeZonesKeyFolder(const std::string& root);

// Makes a new, empty sim root folder under the system's temporary folder.
std::string makeTemporarySimRoot(std::string& error);

// Where the host build's log lands inside a sim root.
std::string logFilePath(const std::string& root);

}  // namespace halvern::sim
