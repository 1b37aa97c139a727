#include <windows.h>

#include <cstring>
#include <cwctype>
#include <vector>

#include "platform/win32/OwnHandle.h"
#include "platform/win32/WineGuard.h"

namespace platform::win32 {

namespace {

std::wstring lower(std::wstring text)
{
    for (auto& c : text)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return text;
}

// The file CreateProcessW would start for `program`; empty when there is none.
std::wstring programFile(const std::wstring& program)
{
    if (program.empty()) return std::wstring();
    std::vector<wchar_t> found(MAX_PATH);
    for (;;) {
        const DWORD length =
            SearchPathW(nullptr, program.c_str(), L".exe", static_cast<DWORD>(found.size()), found.data(), nullptr);
        if (length == 0) return std::wstring();
        if (length < found.size()) return std::wstring(found.data(), length);
        found.resize(length + 1);
    }
}

// The program a command line starts, found as CreateProcessW finds it: the quoted first word, or else the
// shortest run of words up to a blank that names a file ("C:\Program Files\x.exe" unquoted included).
std::wstring commandLineProgram(const std::wstring& commandLine)
{
    const std::size_t start = commandLine.find_first_not_of(L" \t");
    if (start == std::wstring::npos) return std::wstring();
    if (commandLine[start] == L'"') {
        const std::size_t end = commandLine.find(L'"', start + 1);
        return programFile(
            commandLine.substr(start + 1, end == std::wstring::npos ? std::wstring::npos : end - start - 1));
    }
    for (std::size_t end = commandLine.find_first_of(L" \t", start);;
         end = commandLine.find_first_of(L" \t", end + 1)) {
        const std::wstring file = programFile(commandLine.substr(start, end == std::wstring::npos ? end : end - start));
        if (!file.empty() || end == std::wstring::npos) return file;
    }
}

struct ImageKindT {
    bool windowsProgram = false;
    bool wineBuiltin = false;
};

// A Windows program starts with "MZ" and has "PE\0\0" where its header says; Wine's own programs carry
// "Wine builtin DLL" or "Wine placeholder DLL" after the DOS header.
ImageKindT imageKind(const std::wstring& file)
{
    ImageKindT kind;
    const UniqueHandle handle =
        ownFileHandle(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) return kind;
    char header[0x400] = {};
    DWORD read = 0;
    if (!ReadFile(handle.get(), header, sizeof header, &read, nullptr) || read < 0x40) return kind;
    if (header[0] != 'M' || header[1] != 'Z') return kind;
    kind.wineBuiltin = std::memcmp(header + 0x40, "Wine builtin DLL", 16) == 0 ||
                       std::memcmp(header + 0x40, "Wine placeholder DLL", 20) == 0;
    std::uint32_t peOffset = 0;
    std::memcpy(&peOffset, header + 0x3C, sizeof peOffset);
    if (peOffset + 4 <= read) {
        kind.windowsProgram = std::memcmp(header + peOffset, "PE\0\0", 4) == 0;
    } else {
        // A header beyond the first kilobyte: read it where it is.
        char signature[4] = {};
        LARGE_INTEGER at{};
        at.QuadPart = peOffset;
        kind.windowsProgram = SetFilePointerEx(handle.get(), at, nullptr, FILE_BEGIN) &&
                              ReadFile(handle.get(), signature, sizeof signature, &read, nullptr) && read == 4 &&
                              std::memcmp(signature, "PE\0\0", 4) == 0;
    }
    return kind;
}

bool changesTheMachine(const std::wstring& file)
{
    static const wchar_t* const kTools[] = {L"netsh",  L"route",  L"ipconfig", L"devcon", L"pnputil",
                                            L"uwfmgr", L"format", L"shutdown", L"sc",     L"bcdedit"};
    std::wstring name = lower(file);
    const std::size_t slash = name.find_last_of(L"\\/");
    if (slash != std::wstring::npos) name.erase(0, slash + 1);
    const std::size_t dot = name.rfind(L'.');
    if (dot != std::wstring::npos) name.erase(dot);
    for (const wchar_t* tool : kTools)
        if (name == tool) return true;
    return false;
}

bool refuse()
{
    SetLastError(ERROR_ACCESS_DENIED);
    return true;
}

}  // namespace

bool runningUnderWine()
{
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool refusedUnderWine()
{
    return runningUnderWine() && refuse();
}

bool launchRefusedUnderWine(const std::wstring& application, const std::wstring& commandLine)
{
    if (!runningUnderWine()) return false;
    // Wine's way to a Unix path, also for a shell that the command line starts.
    std::wstring everything = lower(application + L" " + commandLine);
    for (auto& c : everything)
        if (c == L'/') c = L'\\';
    if (everything.find(L"\\\\?\\unix") != std::wstring::npos || everything.find(L"\\??\\unix") != std::wstring::npos)
        return refuse();
    const std::wstring file = application.empty() ? commandLineProgram(commandLine) : programFile(application);
    // What cannot be found cannot start: CreateProcessW reports that itself.
    if (file.empty()) return false;
    const ImageKindT kind = imageKind(file);
    if (!kind.windowsProgram) return refuse();
    return kind.wineBuiltin && changesTheMachine(file) && refuse();
}

}  // namespace platform::win32
