#pragma once
// What halvern-sim does around Halvern's runs: telling why Halvern ended early, and booting the instrument
// again after a reboot as Windows would (the name set for the next start takes effect, the access point
// is down until Halvern brings it up from its settings).
#include <string>

namespace halvern::sim {

// Forgets the SEP ports of an earlier run, so that only the coming run's announcement counts.
void forgetSepPorts(const std::string& root);
// Whether Halvern shut Windows down (the power request it left in the sim root); whether the instrument
// then restarts is the power controller's part.
bool windowsShutDown(const std::string& root);
// The instrument as it comes out of a reboot; false with `error` when the sim root cannot be changed.
bool bootAgain(const std::string& root, std::string& error);
// Why Halvern ended with `exitCode` before serving SEP, from its log, with what to do about it; empty
// when Halvern served SEP or ended normally.
std::string earlyExitReason(const std::string& root, const std::string& logPath, int exitCode);

}  // namespace halvern::sim
