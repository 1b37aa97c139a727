#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/WlanDriver.h"
#include "platform/win32/OwnHandle.h"

namespace platform {

namespace {

// A machine lists a few hundred names; the buffer doubles until the whole list fits.
constexpr DWORD kFirstListChars = 16384;
constexpr DWORD kMaxListChars = 16 * 1024 * 1024;

// QueryDosDeviceW into a buffer that grows until the answer fits; the NUL-separated strings of the answer.
bool queryDosDevice(const wchar_t* name, std::vector<std::wstring>& strings)
{
    strings.clear();
    for (DWORD size = kFirstListChars; size <= kMaxListChars; size *= 2) {
        std::vector<wchar_t> buffer(size);
        const DWORD written = QueryDosDeviceW(name, buffer.data(), size);
        if (written == 0) {
            if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) continue;
            return false;
        }
        for (DWORD at = 0; at < written && buffer[at] != L'\0';) {
            std::wstring entry(buffer.data() + at);
            at += static_cast<DWORD>(entry.size()) + 1;
            strings.push_back(std::move(entry));
        }
        return true;
    }
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return false;
}

}  // namespace

bool queryDosDeviceNames(std::vector<std::wstring>& names)
{
    return queryDosDevice(nullptr, names);
}

bool queryDosDeviceTargets(const std::wstring& name, std::vector<std::wstring>& targets)
{
    return queryDosDevice(name.c_str(), targets);
}

UniqueHandle openDriverDevice(const std::wstring& name)
{
    const std::wstring path = L"\\\\.\\" + name;
    return win32::ownFileHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

}  // namespace platform
