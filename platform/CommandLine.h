#pragma once
// The process's command line split into arguments (CommandLineToArgvW of GetCommandLineW).
#include <string>
#include <vector>

namespace platform {

// The first element is the program itself.
std::vector<std::wstring> commandLineArguments();

}  // namespace platform
