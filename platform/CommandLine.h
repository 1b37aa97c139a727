#pragma once
// The process's command line split into arguments (CommandLineToArgvW of GetCommandLineW).
#include <string>
#include <vector>

namespace platform {

// The first element is the program itself.
std::vector<std::wstring> commandLineArguments();
// The full path of the running program's image (GetModuleFileNameW), whatever name it was started by;
// empty on failure.
std::wstring currentProgramPath();

}  // namespace platform
