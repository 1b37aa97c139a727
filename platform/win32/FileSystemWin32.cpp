#include <windows.h>

#include <cerrno>
#include <cstdio>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/win32/OwnHandle.h"

namespace platform {

// Paths arrive as UTF-8; the wide C runtime calls keep names outside the ANSI code page intact while
// behaving exactly like fopen/remove/rename otherwise.

namespace {

bool modeWrites(const std::string& mode)
{
    // Everything after a comma is an option ("ccs=UTF-8"), not an access letter.
    const std::string access = mode.substr(0, mode.find(','));
    return access.find_first_of("wa+") != std::string::npos;
}

bool isReadOnlyFile(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
           (attributes & FILE_ATTRIBUTE_READONLY) != 0;
}

}  // namespace

UniqueFile openFile(const std::string& windowsPath, const char* mode, int& error)
{
    const std::string access = mode != nullptr ? mode : "";
    const std::wstring path = widen(windowsPath);
    // Windows refuses to open a read-only file for writing, and the log's rollover counts on it. Wine run
    // as root lets root write anything, so the refusal is made here as well.
    if (modeWrites(access) && isReadOnlyFile(path)) {
        error = EACCES;
        errno = EACCES;
        return UniqueFile();
    }
    errno = 0;
    UniqueFile file(_wfopen(path.c_str(), widen(access).c_str()));
    error = file ? 0 : errno;
    return file;
}

int removeFile(const std::string& windowsPath)
{
    return _wremove(widen(windowsPath).c_str());
}

int renameFile(const std::string& fromWindowsPath, const std::string& toWindowsPath)
{
    return _wrename(widen(fromWindowsPath).c_str(), widen(toWindowsPath).c_str());
}

std::uint32_t getFileAttributes(const std::wstring& windowsPath)
{
    return GetFileAttributesW(windowsPath.c_str());
}

bool setFileAttributes(const std::wstring& windowsPath, std::uint32_t attributes)
{
    return SetFileAttributesW(windowsPath.c_str(), attributes) != FALSE;
}

bool deleteFile(const std::wstring& windowsPath)
{
    return DeleteFileW(windowsPath.c_str()) != FALSE;
}

bool createDirectory(const std::wstring& windowsPath)
{
    return CreateDirectoryW(windowsPath.c_str(), nullptr) != FALSE;
}

UniqueHandle createFile(const std::wstring& windowsPath, std::uint32_t access, std::uint32_t shareMode,
                        bool inheritHandle, std::uint32_t disposition, std::uint32_t attributes)
{
    SECURITY_ATTRIBUTES security{};
    security.nLength = sizeof security;
    security.bInheritHandle = inheritHandle ? TRUE : FALSE;
    return win32::ownFileHandle(
        CreateFileW(windowsPath.c_str(), access, shareMode, &security, disposition, attributes, nullptr));
}

std::string nativePath(const std::string& windowsPath)
{
    return windowsPath;
}

bool copyFile(const std::wstring& fromWindowsPath, const std::wstring& toWindowsPath, bool failIfExists)
{
    return CopyFileW(fromWindowsPath.c_str(), toWindowsPath.c_str(), failIfExists ? TRUE : FALSE) != FALSE;
}

bool getVolumeLabel(const std::wstring& rootPath, std::wstring& label)
{
    wchar_t name[MAX_PATH + 1] = {};
    if (!GetVolumeInformationW(rootPath.c_str(), name, MAX_PATH + 1, nullptr, nullptr, nullptr, nullptr, 0))
        return false;
    label = name;
    return true;
}

}  // namespace platform
