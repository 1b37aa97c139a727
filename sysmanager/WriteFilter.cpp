// The write filter (UWF) as time keeping, the device modes and the renaming need it: whether it protects the
// system volume, and the commits that make a value survive the next boot while it does.
#include "app/Log.h"
#include "platform/Registry.h"
#include "platform/WinError.h"
#include "sysmanager/TimeKeepingInternal.h"
#include "sysmanager/WriteFilterC.h"

namespace {

// A registry result as a number for the log.
int code(platform::RegStatus status)
{
    return static_cast<int>(status);
}

}  // namespace

bool WriteFilterC::GetUWFilter(bool& active)
{
    const char* const function = "SysManagerC::GetUWFilter";
    active = true;
    WriteLog("Get UWF Filter Configuration Status");
    auto report = [&active]() {
        WriteLog("Current status configuration of the UWF Filter: %s", active ? "activated" : "deactivated");
    };
    std::uint32_t value = 0;
    std::uint32_t type = platform::kRegNone;
    {
        // The helper service mirrors the filter's state; the filter's own settings are the fallback.
        platform::UniqueRegKey helper;
        platform::RegStatus status = platform::regOpenKeyRead(
            platform::RegHive::LocalMachine, L"SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status\\", helper);
        if (status == 0) status = platform::regQueryDword(helper, L"FilterState", value, type);
        if (status == 0) {
            active = value == 1;
            report();
            return true;
        }
        WriteLog("[%s][ERROR]: Failed to get FilterState from HalvernHelper registry. : %d", function, code(status));
    }
    platform::UniqueRegKey settings;
    platform::RegStatus status = platform::regOpenKeyRead(
        platform::RegHive::LocalMachine, L"SYSTEM\\ControlSet001\\Services\\uwfvol\\Parameters\\Static\\", settings);
    std::uint32_t currentSettings = 0;
    if (status == 0) status = platform::regQueryDword(settings, L"CurrentSettings", currentSettings, type);
    if (status != 0) {
        WriteLog("[%s][ERROR]: Failed to get the current UWF status configuration. : %d", function, code(status));
        return false;
    }
    platform::UniqueRegKey copy;
    status = platform::regOpenKeyRead(platform::RegHive::LocalMachine,
                                      currentSettings != 0
                                          ? L"SYSTEM\\ControlSet001\\Services\\uwfvol\\Parameters\\Static\\Copy1"
                                          : L"SYSTEM\\ControlSet001\\Services\\uwfvol\\Parameters\\Static\\Copy0",
                                      copy);
    if (status != 0) {
        WriteLog("[%s][ERROR]: Failed to open the registry path. : %d", function, code(status));
        return false;
    }
    status = platform::regQueryDword(copy, L"UwfEnabled", value, type);
    if (status != 0) {
        WriteLog("[%s][ERROR]: Failed to get the current UWF status configuration. : %d", function, code(status));
        return false;
    }
    active = value != 0;
    report();
    return true;
}

bool WriteFilterC::CommitRegistryValue(const std::wstring& key, const std::wstring& valueName)
{
    const char* const function = "SysManagerC::CommitRegistryValue";
    bool active = true;
    if (!GetUWFilter(active)) {
        WriteLog("[%s] [ERROR]: Get UWF status failed.", function);
        return false;
    }
    if (!active) return true;
    const halvern::time::UwfCommitT commit = halvern::time::loadUwfCommit("UwfCfgCommitRegistry");
    if (!commit.function) {
        WriteLog(
            "[%s] [ERROR]: Failed to load uwf library or to retrieve the UwfCfgCommitRegistry function.(ERROR: %d)",
            function, static_cast<int>(commit.error));
        return false;
    }
    const std::int32_t result = commit.function(key.c_str(), valueName.c_str());
    if (result != 0) {
        WriteLogWindows("[%s] [ERROR]: The registry value %ws of %ws wasn't commited. (ERROR: %d)", function,
                        valueName.c_str(), key.c_str(), result);
        return false;
    }
    return true;
}

std::uint32_t WriteFilterC::ConfigureUnifiedWriteFilter()
{
    // What a renaming writes: the computer name for the next boot and the TCP/IP host names.
    const struct {
        const wchar_t* key;
        const wchar_t* value;
    } kNameValues[] = {
        {L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName", L"ComputerName"},
        {L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Hostname"},
        {L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"NV Hostname"},
    };
    // E_FAIL: CommitRegistryValue has logged which value and why.
    constexpr std::uint32_t kFailed = 0x80004005u;
    std::uint32_t result = 0;
    for (const auto& name : kNameValues)
        if (!CommitRegistryValue(name.key, name.value)) result = kFailed;
    return result;
}

namespace halvern::time {

UwfCommitT loadUwfCommit(const char* functionName)
{
    UwfCommitT commit;
    commit.library = platform::loadLibrary(L"uwfcfgmgmt.dll");
    if (!commit.library) {
        commit.error = platform::lastError();
        return commit;
    }
    const platform::ProcAddress address = platform::getProcAddress(commit.library, functionName);
    if (address == nullptr) {
        commit.error = platform::lastError();
        return commit;
    }
    commit.function = reinterpret_cast<UwfCommitFn>(address);
    return commit;
}

}  // namespace halvern::time
