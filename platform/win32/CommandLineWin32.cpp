#include <windows.h>
// shellapi.h after windows.h: WIN32_LEAN_AND_MEAN leaves it out.
#include <shellapi.h>

#include <memory>

#include "platform/CommandLine.h"

namespace platform {

namespace {

struct LocalFreer {
    void operator()(LPWSTR* arguments) const { LocalFree(arguments); }
};

}  // namespace

std::vector<std::wstring> commandLineArguments()
{
    int count = 0;
    std::unique_ptr<LPWSTR, LocalFreer> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::wstring> result;
    if (!arguments) return result;
    result.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        result.emplace_back(arguments.get()[i]);
    return result;
}

std::wstring currentProgramPath()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) return {};
        if (length < path.size()) return path.substr(0, length);
        path.resize(path.size() * 2);
    }
}

}  // namespace platform
