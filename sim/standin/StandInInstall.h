#pragma once
// Puts the stand-ins of the instrument's Windows programs into a sim root: one launcher per program path
// that runs halvern-standin with the program's role.
#include <string>

namespace halvern::sim {

bool installStandIns(const std::string& root, const std::string& standInProgram, std::string& error);

// For a Wine run: a copy of the Windows stand-in program `windowsProgram` at every program path but the
// shell's.
bool installWindowsStandIns(const std::string& root, const std::string& windowsProgram, std::string& error);
// The role of the stand-in at a Windows path ("C:\Python\python.exe": "backend"), matched without
// regard to case; empty for a path that is no stand-in's.
std::string standInRole(const std::string& windowsPath);

}  // namespace halvern::sim
