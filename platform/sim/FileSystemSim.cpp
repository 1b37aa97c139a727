#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

std::string resolve(const std::wstring& windowsPath)
{
    return sim::resolveWindowsPath(narrow(windowsPath).value_or(std::string()));
}

bool isReadOnly(const struct stat& st)
{
    return (st.st_mode & 0222) == 0;
}

std::uint32_t errnoToWindows(int error)
{
    switch (error) {
        case ENOENT:
            return kErrorFileNotFound;
        case ENOTDIR:
            return kErrorPathNotFound;
        case EEXIST:
            return kErrorAlreadyExists;
        case EACCES:
        case EPERM:
        case EISDIR:
            return kErrorAccessDenied;
        default:
            return kErrorInvalidParameter;
    }
}

}  // namespace

std::string nativePath(const std::string& windowsPath)
{
    return sim::resolveWindowsPath(windowsPath);
}

UniqueFile openFile(const std::string& windowsPath, const char* mode, int& error)
{
    const std::string path = sim::resolveWindowsPath(windowsPath);
    if (path.empty()) {
        error = ENOENT;
        return nullptr;
    }
    // A read-only file cannot be opened for writing on Windows, not even by an administrator.
    struct stat st {};
    if (mode[0] != 'r' || std::string(mode).find('+') != std::string::npos) {
        if (::stat(path.c_str(), &st) == 0 && isReadOnly(st)) {
            error = EACCES;
            return nullptr;
        }
    }
    UniqueFile file(std::fopen(path.c_str(), mode));
    error = file ? 0 : errno;
    return file;
}

int removeFile(const std::string& windowsPath)
{
    const std::string path = sim::resolveWindowsPath(windowsPath);
    struct stat st {};
    if (path.empty() || ::lstat(path.c_str(), &st) != 0) {
        errno = ENOENT;
        return -1;
    }
    if (isReadOnly(st) || S_ISDIR(st.st_mode)) {
        errno = EACCES;
        return -1;
    }
    return ::unlink(path.c_str());
}

int renameFile(const std::string& fromWindowsPath, const std::string& toWindowsPath)
{
    const std::string from = sim::resolveWindowsPath(fromWindowsPath);
    const std::string to = sim::resolveWindowsPath(toWindowsPath);
    struct stat st {};
    if (from.empty() || ::lstat(from.c_str(), &st) != 0) {
        errno = ENOENT;
        return -1;
    }
    // The C runtime on Windows never replaces an existing target.
    if (::lstat(to.c_str(), &st) == 0) {
        errno = EACCES;
        return -1;
    }
    return std::rename(from.c_str(), to.c_str());
}

std::uint32_t getFileAttributes(const std::wstring& windowsPath)
{
    const std::string path = resolve(windowsPath);
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0) {
        setLastError(path.empty() ? kErrorPathNotFound : errnoToWindows(errno));
        return kInvalidFileAttributes;
    }
    // Files that Windows creates carry the archive attribute until a backup clears it.
    std::uint32_t attributes = S_ISDIR(st.st_mode) ? kFileAttributeDirectory : kFileAttributeArchive;
    if (isReadOnly(st)) attributes |= kFileAttributeReadOnly;
    return attributes;
}

bool setFileAttributes(const std::wstring& windowsPath, std::uint32_t attributes)
{
    const std::string path = resolve(windowsPath);
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0) {
        setLastError(path.empty() ? kErrorPathNotFound : errnoToWindows(errno));
        return false;
    }
    mode_t mode = st.st_mode & 07777;
    mode = (attributes & kFileAttributeReadOnly) != 0 ? (mode & ~0222) : (mode | 0200);
    if (::chmod(path.c_str(), mode) != 0) {
        setLastError(errnoToWindows(errno));
        return false;
    }
    return true;
}

bool deleteFile(const std::wstring& windowsPath)
{
    if (removeFile(narrow(windowsPath).value_or(std::string())) != 0) {
        setLastError(errnoToWindows(errno));
        return false;
    }
    return true;
}

bool createDirectory(const std::wstring& windowsPath)
{
    const std::string path = resolve(windowsPath);
    if (path.empty() || ::mkdir(path.c_str(), 0755) != 0) {
        setLastError(path.empty() ? kErrorPathNotFound : errnoToWindows(errno));
        return false;
    }
    return true;
}

}  // namespace platform
