#pragma once
// The Windows tools that the device modes start, as the simulated instrument has them.
#include <string>
#include <vector>

namespace halvern::sim {

// netsh's port proxy table: <root>/sim/network/portproxy, one entry per line ("LISTENPORT ADDRESS PORT").
std::string portProxyTablePath(const std::string& root);

// "uwfmgr.exe filter enable|disable": the write filter's state for the next boot; the running state stays
// until the simulated restart ("uwf reboot").
int runUwfmgr(const std::vector<std::string>& arguments);
// "netsh.exe interface portproxy add v4tov4 listenport=N connectaddress=A connectport=M", "... delete v4tov4
// listenport=N" (an entry that is not there fails, as on Windows) and "... show all" (the table as Windows
// prints it). With "exit-code=N" in <root>/sim/apps/netsh every call fails with N.
int runNetsh(const std::string& root, const std::vector<std::string>& arguments, int failureCode);
// "explorer.exe": enters itself into the session's process list, where a process snapshot finds it and
// from where it can be ended, and runs until then.
int runExplorer(const std::string& root);

}  // namespace halvern::sim
