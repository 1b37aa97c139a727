#pragma once
// The write filter's configuration library as the simulation provides it ("uwfcfgmgmt.dll", installed
// when "C:\Windows\System32\uwfcfgmgmt.dll" exists in the sim root). A commit acts on the sim root's file
// and is recorded as one line in "uwf/commits": the function's name, the volume and the path.
#include <optional>
#include <string>
#include <vector>

#include "platform/DynamicLibrary.h"

namespace platform::sim {

struct SimExportS {
    const char* name;
    ProcAddress address;
};

std::vector<SimExportS> uwfConfigLibraryExports();

// The recorded commits of the sim root `root`, oldest first.
std::vector<std::string> uwfCommits(const std::string& root);

// The filter's state in the sim root's registry. The running session's state is the helper service's
// mirror ("HalvernHelper\Status" "FilterState"); the filter's static settings keep two copies, "Copy0" and
// "Copy1", of which "CurrentSettings" names the running session's; the other copy's "UwfEnabled" is the
// next boot's, as "uwfmgr.exe filter enable|disable" sets it. A simulated restart makes it the running state.
std::optional<bool> currentFilterState();
// Empty when no next-boot state was set.
std::optional<bool> nextBootFilterState();
bool setNextBootFilterState(bool enabled);
// The running state, with nothing pending for the next boot.
bool setFilterState(bool enabled);
// The restart: the next boot's state, when set, becomes the running one.
bool bootWriteFilter();

}  // namespace platform::sim
