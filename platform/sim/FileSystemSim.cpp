#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

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

// An open file of the sim root behind a handle.
class SimFileC final : public sim::SimObjectC {
public:
    explicit SimFileC(int fd) : m_fd(fd) {}

private:
    const sim::UniqueFd m_fd;
};

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
        return UniqueFile();
    }
    // A read-only file cannot be opened for writing on Windows, not even by an administrator.
    struct stat st {};
    if (mode[0] != 'r' || std::string(mode).find('+') != std::string::npos) {
        if (::stat(path.c_str(), &st) == 0 && isReadOnly(st)) {
            error = EACCES;
            return UniqueFile();
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

UniqueHandle createFile(const std::wstring& windowsPath, std::uint32_t access, std::uint32_t, bool,
                        std::uint32_t disposition, std::uint32_t)
{
    const std::string path = resolve(windowsPath);
    if (path.empty()) {
        setLastError(kErrorPathNotFound);
        return UniqueHandle();
    }
    const bool reads = (access & kGenericRead) != 0;
    const bool writes = (access & (kGenericWrite | kFileAppendData)) != 0;
    int flags = reads && writes ? O_RDWR : (writes ? O_WRONLY : O_RDONLY);
    if (disposition == kOpenAlways) flags |= O_CREAT;
    if (disposition == kCreateAlways) flags |= O_CREAT | O_TRUNC;
    struct stat st {};
    // Windows refuses write access to a read-only file even to an administrator; root here would not.
    if (writes && ::stat(path.c_str(), &st) == 0 && isReadOnly(st)) {
        setLastError(kErrorAccessDenied);
        return UniqueHandle();
    }
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0644);
    if (fd < 0) {
        // A missing folder on the way is a path error on Windows, a missing file a file error.
        setLastError(errno == ENOENT && disposition != kOpenExisting ? kErrorPathNotFound : errnoToWindows(errno));
        return UniqueHandle();
    }
    return UniqueHandle(sim::registerObject(std::make_unique<SimFileC>(fd)));
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

bool copyFile(const std::wstring& fromWindowsPath, const std::wstring& toWindowsPath, bool failIfExists)
{
    const std::string from = resolve(fromWindowsPath);
    const std::string to = resolve(toWindowsPath);
    struct stat st {};
    if (from.empty() || ::stat(from.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) {
        setLastError(from.empty() ? kErrorPathNotFound : kErrorFileNotFound);
        return false;
    }
    if (to.empty() || !std::filesystem::is_directory(std::filesystem::path(to).parent_path())) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    if (::stat(to.c_str(), &st) == 0) {
        if (failIfExists) {
            setLastError(kErrorFileExists);
            return false;
        }
        // As on Windows, a read-only or folder target is not replaced.
        if (isReadOnly(st) || S_ISDIR(st.st_mode)) {
            setLastError(kErrorAccessDenied);
            return false;
        }
    }
    std::error_code error;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    if (error) {
        setLastError(errnoToWindows(error.value()));
        return false;
    }
    return true;
}

bool getVolumeLabel(const std::wstring& rootPath, std::wstring& label)
{
    const std::string base = sim::root();
    const std::string path = narrow(rootPath).value_or(std::string());
    if (base.empty() || path.size() < 2 || path[1] != ':' || !std::isalpha(static_cast<unsigned char>(path[0]))) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(path[0])));
    std::ifstream in(base + "/sim/volumes/" + letter);
    if (!in) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    std::string text;
    std::getline(in, text);
    label = widen(text);
    return true;
}

}  // namespace platform
