#pragma once
// Files named by Windows paths ("D:\logs\Halvern.log"). On the simulation platform a path lives in the sim
// root, resolved case-insensitively per component, and the C runtime's Windows behaviour is kept: a
// read-only file cannot be removed and rename never replaces an existing file.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/Handle.h"
#include "platform/Owner.h"
#include "platform/WinError.h"

namespace platform {

struct FileTraits {
    using Value = std::FILE*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value file) noexcept { std::fclose(file); }
};
using UniqueFile = UniqueOwner<FileTraits>;

// fopen with the C runtime's modes; on failure `error` receives the errno value of the open.
UniqueFile openFile(const std::string& windowsPath, const char* mode, int& error);

// The C runtime's remove() and rename(): 0 on success, else -1 with errno set.
int removeFile(const std::string& windowsPath);
int renameFile(const std::string& fromWindowsPath, const std::string& toWindowsPath);

constexpr std::uint32_t kInvalidFileAttributes = 0xFFFFFFFF;
constexpr std::uint32_t kFileAttributeReadOnly = 0x1;
constexpr std::uint32_t kFileAttributeDirectory = 0x10;
constexpr std::uint32_t kFileAttributeArchive = 0x20;
constexpr std::uint32_t kFileAttributeNormal = 0x80;

// GetFileAttributesW / SetFileAttributesW / DeleteFileW / CreateDirectoryW with their last errors.
std::uint32_t getFileAttributes(const std::wstring& windowsPath);
bool setFileAttributes(const std::wstring& windowsPath, std::uint32_t attributes);
bool deleteFile(const std::wstring& windowsPath);
bool createDirectory(const std::wstring& windowsPath);
// CopyFileW: with `failIfExists` an existing target is left alone (last error 80).
bool copyFile(const std::wstring& fromWindowsPath, const std::wstring& toWindowsPath, bool failIfExists);

// GetVolumeInformationW of a drive's root ("F:\"): the volume's label; false with the last error set when
// no volume is mounted there. On the simulation platform a drive carries a volume while the sim root's
// "sim/volumes/<letter>" exists; its first line is the label (an empty line: a volume without a name).
bool getVolumeLabel(const std::wstring& rootPath, std::wstring& label);

// CreateFileW with the access, sharing, inheritance, disposition and attributes given: an empty owner with
// the last error set on failure.
constexpr std::uint32_t kFileAppendData = 0x4;
constexpr std::uint32_t kGenericRead = 0x80000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kFileShareRead = 0x1;
constexpr std::uint32_t kFileShareWrite = 0x2;
constexpr std::uint32_t kCreateAlways = 2;
constexpr std::uint32_t kOpenExisting = 3;
constexpr std::uint32_t kOpenAlways = 4;
UniqueHandle createFile(const std::wstring& windowsPath, std::uint32_t access, std::uint32_t shareMode,
                        bool inheritHandle, std::uint32_t disposition, std::uint32_t attributes);

// FindFirstFileW / FindNextFileW over "folder\*": the names of the files in `folder` (folders left out).
// False with the last error set when the folder cannot be read.
bool listFiles(const std::wstring& folder, std::vector<std::wstring>& names);

// Where a Windows path lives on this platform (the path itself on Windows, a file in the sim root on the
// host). For diagnostics and for tools that act on the simulated instrument.
std::string nativePath(const std::string& windowsPath);

}  // namespace platform
