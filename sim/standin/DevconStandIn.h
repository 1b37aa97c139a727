#pragma once
#include <string>
#include <vector>

namespace halvern::sim {

// The device tool "devcon.exe" of the simulated instrument, run with its arguments (after the program
// name); answers as the real tool does and returns its exit code.
int runDevcon(const std::string& root, const std::vector<std::string>& arguments);

}  // namespace halvern::sim
