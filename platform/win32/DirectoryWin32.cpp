#include <windows.h>

#include <memory>

#include "platform/FileSystem.h"

namespace platform {

bool listFiles(const std::wstring& folder, std::vector<std::wstring>& names)
{
    names.clear();
    std::wstring pattern = folder;
    if (!pattern.empty() && pattern.back() != L'\\' && pattern.back() != L'/') pattern += L'\\';
    pattern += L'*';
    WIN32_FIND_DATAW found{};
    HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return false;
    const std::unique_ptr<void, decltype(&FindClose)> owner(search, FindClose);
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) names.emplace_back(found.cFileName);
    } while (FindNextFileW(search, &found));
    return true;
}

}  // namespace platform
