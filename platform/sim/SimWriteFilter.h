#pragma once
// The write filter's configuration library as the simulation provides it ("uwfcfgmgmt.dll", installed
// when "C:\Windows\System32\uwfcfgmgmt.dll" exists in the sim root). A commit acts on the sim root's file
// and is recorded as one line in "uwf/commits": the function's name, the volume and the path.
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

}  // namespace platform::sim
