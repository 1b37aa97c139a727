#pragma once
// What the device modes change on the simulated instrument, read back the way a technician would look.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/Process.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

// Their own namespace: other tests keep helpers of the same names for other folders of the sim root.
namespace halvern::test::modes {

inline std::vector<std::string> rootLines(const std::string& relative)
{
    std::ifstream in(platform::sim::root() + "/" + relative);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

inline bool rootFileExists(const std::string& relative)
{
    return static_cast<bool>(std::ifstream(platform::sim::root() + "/" + relative));
}

// A value's data as stored ("" when it is missing).
inline std::string registryData(platform::RegHive hive, const std::string& key, const std::string& value)
{
    const auto stored = platform::sim::readValue(platform::sim::keyFolder(hive, key), value);
    return stored ? stored->data : std::string();
}

// The cursor file of a pointer role as the user logged on to the instrument's session ("Operator") sees it.
inline std::string loggedOnUserCursor(const std::string& role)
{
    const auto stored = platform::sim::readValue(platform::sim::root() + "/registry/HKU/Operator/Control Panel/Cursors", role);
    return stored ? stored->data : std::string();
}

inline std::string serviceStart(const std::string& service)
{
    return registryData(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Services\\" + service, "Start");
}

inline std::string denyRemoteDesktop()
{
    return registryData(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Control\\Terminal Server",
                        "fDenyTSConnections");
}

inline std::string userinit()
{
    return registryData(platform::RegHive::LocalMachine, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon",
                        "Userinit");
}

// The process ids of the shell stand-ins in the session's process list.
inline std::vector<std::uint32_t> explorerProcesses()
{
    std::vector<std::uint32_t> ids;
    for (const auto& line : rootLines("sim/session/processes")) {
        std::istringstream fields(line);
        std::uint32_t id = 0;
        std::uint32_t session = 0;
        std::string exe;
        if (fields >> id >> session >> exe && exe == "explorer.exe") ids.push_back(id);
    }
    return ids;
}

// A test never leaves a shell stand-in behind.
inline void endExplorers()
{
    for (std::uint32_t id : explorerProcesses())
        platform::terminateProcessById(id, 0);
}

}  // namespace halvern::test::modes
