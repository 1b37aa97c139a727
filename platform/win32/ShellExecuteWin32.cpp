#include <windows.h>
// shellapi.h after windows.h: WIN32_LEAN_AND_MEAN leaves it out.
#include <shellapi.h>

#include "platform/Process.h"
#include "platform/win32/WineGuard.h"

namespace platform {

bool shellExecuteElevated(const std::wstring& file, const std::wstring& parameters, UniqueHandle& process)
{
    if (win32::launchRefusedUnderWine(file, parameters)) return false;
    SHELLEXECUTEINFOW info{};
    info.cbSize = sizeof info;
    info.fMask = SEE_MASK_NOCLOSEPROCESS;
    info.lpVerb = L"runas";
    info.lpFile = file.c_str();
    info.lpParameters = parameters.c_str();
    info.nShow = SW_HIDE;
    if (!ShellExecuteExW(&info)) return false;
    process.reset(info.hProcess);
    return true;
}

}  // namespace platform
