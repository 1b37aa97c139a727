#include <cstdlib>
#include <fstream>
#include <mutex>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"

namespace platform::sim {

namespace {

// HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) and E_INVALIDARG.
constexpr std::int32_t kHresultFileNotFound = static_cast<std::int32_t>(0x80070002u);
constexpr std::int32_t kHresultInvalidArgument = static_cast<std::int32_t>(0x80070057u);

std::mutex g_commitLock;

std::string commitsFile(const std::string& rootPath)
{
    return rootPath + "/uwf/commits";
}

std::int32_t record(const char* function, const wchar_t* volume, const wchar_t* file)
{
    if (volume == nullptr || file == nullptr) return kHresultInvalidArgument;
    const std::string line = std::string(function) + ' ' + narrow(volume).value_or(std::string()) + ' ' +
                             narrow(file).value_or(std::string());
    std::lock_guard<std::mutex> guard(g_commitLock);
    if (!makeDirectories(root() + "/uwf")) return kHresultInvalidArgument;
    std::ofstream out(commitsFile(root()), std::ios::app);
    out << line << '\n';
    return out ? 0 : kHresultInvalidArgument;
}

std::string onVolume(const wchar_t* volume, const wchar_t* file)
{
    return narrow(volume).value_or(std::string()) + narrow(file).value_or(std::string());
}

// The library's entry points: volume ("C:") and the path on that volume, an HRESULT back.
std::int32_t commitFile(const wchar_t* volume, const wchar_t* file)
{
    if (volume == nullptr || file == nullptr) return kHresultInvalidArgument;
    if (getFileAttributes(widen(onVolume(volume, file))) == kInvalidFileAttributes) return kHresultFileNotFound;
    return record("UwfCfgCommitFile", volume, file);
}

std::int32_t commitFileDeletion(const wchar_t* volume, const wchar_t* file)
{
    if (volume == nullptr || file == nullptr) return kHresultInvalidArgument;
    // The file goes from the overlay and from the volume beneath it at once.
    const std::wstring path = widen(onVolume(volume, file));
    if (getFileAttributes(path) == kInvalidFileAttributes) return kHresultFileNotFound;
    if (!deleteFile(path)) return kHresultInvalidArgument;
    return record("UwfCfgCommitFileDeletion", volume, file);
}

// The registry filter's commit: the key ("HKLM\...") and the value name.
std::int32_t commitRegistry(const wchar_t* key, const wchar_t* value)
{
    return record("UwfCfgCommitRegistry", key, value);
}

const char* const kHelperStatusKey = "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status";
const char* const kStaticKey = "SYSTEM\\ControlSet001\\Services\\uwfvol\\Parameters\\Static";

std::optional<bool> dwordFlag(const std::string& subKey, const std::string& valueName)
{
    const auto value = readValue(keyFolder(RegHive::LocalMachine, subKey), valueName);
    if (!value || value->type != kRegDword) return std::nullopt;
    return std::strtoul(value->data.c_str(), nullptr, 0) != 0;
}

bool writeFlag(const std::string& subKey, const std::string& valueName, bool on)
{
    return writeValue(RegHive::LocalMachine, subKey, valueName, {kRegDword, on ? "1" : "0"});
}

// "Copy0" or "Copy1" below the static settings: the running session's, or the other one.
std::string settingsCopy(bool running)
{
    const bool currentIsCopy1 = dwordFlag(kStaticKey, "CurrentSettings").value_or(false);
    return std::string(kStaticKey) + ((currentIsCopy1 == running) ? "\\Copy1" : "\\Copy0");
}

}  // namespace

std::optional<bool> currentFilterState()
{
    return dwordFlag(kHelperStatusKey, "FilterState");
}

std::optional<bool> nextBootFilterState()
{
    return dwordFlag(settingsCopy(false), "UwfEnabled");
}

bool setNextBootFilterState(bool enabled)
{
    return writeFlag(settingsCopy(false), "UwfEnabled", enabled);
}

bool setFilterState(bool enabled)
{
    return writeFlag(kHelperStatusKey, "FilterState", enabled) &&
           writeFlag(settingsCopy(true), "UwfEnabled", enabled) &&
           writeFlag(settingsCopy(false), "UwfEnabled", enabled);
}

bool bootWriteFilter()
{
    const auto next = nextBootFilterState();
    return !next || setFilterState(*next);
}

std::vector<SimExportS> uwfConfigLibraryExports()
{
    using CommitFn = std::int32_t (*)(const wchar_t*, const wchar_t*);
    CommitFn commit = commitFile;
    CommitFn deletion = commitFileDeletion;
    CommitFn registry = commitRegistry;
    return {{"UwfCfgCommitFile", reinterpret_cast<ProcAddress>(commit)},
            {"UwfCfgCommitFileDeletion", reinterpret_cast<ProcAddress>(deletion)},
            {"UwfCfgCommitRegistry", reinterpret_cast<ProcAddress>(registry)}};
}

std::vector<std::string> uwfCommits(const std::string& rootPath)
{
    std::vector<std::string> lines;
    std::ifstream in(commitsFile(rootPath));
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

}  // namespace platform::sim
