#pragma once
// Puts the stand-ins of the instrument's Windows programs into a sim root: one launcher per program path
// that runs halvern-standin with the program's role.
#include <string>

namespace halvern::sim {

bool installStandIns(const std::string& root, const std::string& standInProgram, std::string& error);

}  // namespace halvern::sim
