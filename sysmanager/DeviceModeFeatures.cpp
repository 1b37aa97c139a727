// The features that the device modes switch: write filter, services, port forwarding to the sensor board,
// remote desktop with its mouse pointer, the shell, the firewall. Each logs its own failures and leaves the
// Windows error for its caller's log line.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <set>
#include <sstream>

#include "app/Log.h"
#include "links/ProcRunner.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/Service.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/UserRegistry.h"
#include "platform/WinError.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/DeviceModesC.h"
#include "sysmanager/WriteFilterC.h"

namespace {

const wchar_t* const kUwfManager = L"C:\\Windows\\System32\\uwfmgr.exe";
const wchar_t* const kNetsh = L"c:\\windows\\system32\\netsh.exe";
const char* const kPortsConfiguration = "C:\\vexarBatches\\Halvern\\portsConfiguration.txt";
const wchar_t* const kPortTable = L"C:\\vexarBatches\\Unprotected\\portFWDtable.txt";
const wchar_t* const kTerminalServerKey = L"SYSTEM\\CurrentControlSet\\Control\\Terminal Server\\";
const wchar_t* const kWinlogonKey = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon";
const wchar_t* const kUserinitWithShell = L"C:\\Windows\\system32\\userinit.exe, C:\\Windows\\explorer.exe,";
const wchar_t* const kUserinitWithoutShell = L"C:\\Windows\\system32\\userinit.exe,";
const wchar_t* const kExplorer = L"c:\\windows\\explorer.exe";
const wchar_t* const kCursorsKey = L"Control Panel\\Cursors";
// The session the instrument's user is logged on to.
constexpr std::uint32_t kUserSession = 1;
// uwfmgr and netsh end within seconds; one that hangs must not hold a client's command for ever.
constexpr std::uint32_t kToolWaitMs = 30000;
constexpr std::uint32_t kExitCodeTerminated = 1;
// ERROR_TIMEOUT.
constexpr std::uint32_t kErrorTimeout = 1460;

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

// Runs `file` elevated and waits for it; true only when it ended with 0. A tool that ran but failed
// leaves its exit code as the last error.
bool runElevatedTool(const wchar_t* file, const std::wstring& parameters)
{
    platform::UniqueHandle process;
    if (!platform::shellExecuteElevated(file, parameters, process)) return false;
    if (platform::waitForSingleObject(process.get(), kToolWaitMs) != platform::kWaitObject0) {
        platform::setLastError(kErrorTimeout);
        return false;
    }
    std::uint32_t exitCode = 0;
    if (!platform::getExitCodeProcess(process.get(), exitCode)) return false;
    if (exitCode != 0) {
        platform::setLastError(exitCode);
        return false;
    }
    return true;
}

// The ports of the configuration file: every line whose leading decimal digits give a number above 0.
// False with the open's error when the file cannot be read.
bool readConfiguredPorts(std::vector<int>& ports, int& error)
{
    error = 0;
    platform::UniqueFile file = platform::openFile(kPortsConfiguration, "r", error);
    if (!file) return false;
    char line[256];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        const int port = std::atoi(std::isdigit(static_cast<unsigned char>(line[0])) ? line : "0");
        if (port > 0) ports.push_back(port);
    }
    return true;
}

// netsh's port proxy table as it prints it; kept in the unprotected folder for whoever looks after a switch.
bool readPortProxyTable(std::string& table)
{
    std::uint32_t exitCode = 0;
    std::string command = "\"" + platform::narrow(kNetsh).value_or(std::string()) + "\" interface portproxy show all";
    if (!halvern::links::runVantCommand(command, table, exitCode, kToolWaitMs, std::string())) return false;
    if (exitCode != 0) {
        platform::setLastError(exitCode);
        return false;
    }
    int error = 0;
    platform::UniqueFile file = platform::openFile(platform::narrow(kPortTable).value_or(std::string()), "w", error);
    if (file) std::fputs(table.c_str(), file.get());
    return true;
}

// The listening ports of the table's entries: the lines below the dashed separator.
std::set<int> listenPortsOf(const std::string& table)
{
    std::set<int> ports;
    std::istringstream lines(table);
    bool entries = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("---", 0) == 0) {
            entries = true;
            continue;
        }
        std::istringstream fields(line);
        std::string address;
        int port = 0;
        if (entries && fields >> address >> port) ports.insert(port);
    }
    return ports;
}

// The cursor scheme's values under HKCU "Control Panel\Cursors": each pointer role with its file from
// Windows' own "Windows Default" scheme, or "hidden.cur" (a fully transparent cursor) for every role, so
// that no pointer shows on the touch screen of a delivered instrument. The scheme takes effect at the next
// logon, which the customer-mode switch's restart provides.
struct CursorRoleT {
    const wchar_t* value;
    const wchar_t* standardFile;
};
const CursorRoleT kCursorRoles[] = {
    {L"Arrow", L"aero_arrow.cur"},  {L"Help", L"aero_helpsel.cur"},  {L"AppStarting", L"aero_working.ani"},
    {L"Wait", L"aero_busy.ani"},    {L"Crosshair", L"cross_r.cur"},  {L"IBeam", L"beam_r.cur"},
    {L"NWPen", L"aero_pen.cur"},    {L"No", L"aero_unavail.cur"},    {L"SizeNS", L"aero_ns.cur"},
    {L"SizeWE", L"aero_ew.cur"},    {L"SizeNWSE", L"aero_nwse.cur"}, {L"SizeNESW", L"aero_nesw.cur"},
    {L"SizeAll", L"aero_move.cur"}, {L"UpArrow", L"aero_up.cur"},    {L"Hand", L"aero_link.cur"},
};
const wchar_t* const kCursorFolder = L"C:\\Windows\\Cursors\\";
const wchar_t* const kHiddenCursor = L"hidden.cur";

// Snapshots name programs as they were started; Windows compares names without case.
bool isExplorer(const std::wstring& exeFile)
{
    std::wstring lower = exeFile;
    for (auto& c : lower)
        c = static_cast<wchar_t>(std::towlower(c));
    return lower == L"explorer.exe";
}

// What Winlogon starts at the next log-on: with the shell or without it.
bool setUserinit(const char* tag, const wchar_t* userinit)
{
    platform::UniqueRegKey winlogon;
    platform::RegStatus status =
        platform::regOpenKey(platform::RegHive::LocalMachine, kWinlogonKey, platform::RegAccess::All, winlogon);
    if (status == 0) status = platform::regSetString(winlogon, L"Userinit", userinit, true);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to set the Userinit value of the Winlogon key, ERROR(%d)", tag,
                 static_cast<int>(status));
        platform::setLastError(static_cast<std::uint32_t>(status));
        return false;
    }
    return true;
}

// The ports of the configuration file; a missing or unreadable file is said with the caller's tag.
bool readConfiguredPortsOrSay(const char* tag, std::vector<int>& ports)
{
    int error = 0;
    if (readConfiguredPorts(ports, error)) return true;
    WriteLog("[%s] [ERROR]:The '%s' with the defined ports is not present!, ERROR(%d)", tag, kPortsConfiguration,
             error);
    platform::setLastError(platform::kErrorFileNotFound);
    return false;
}

}  // namespace

bool DeviceModesC::SetUWFilter(bool enable)
{
    const char* tag = "SysManagerC::SetUWFilter";
    WriteLog("Trying to configure the UWF");
    bool active = true;
    if (!m_writeFilter.GetUWFilter(active)) {
        {
            std::lock_guard<std::recursive_mutex> guard(m_modeLock);
            m_modeFieldText = "Failed to get the current UWF configuration!";
        }
        WriteLog("[%s] [ERROR]: GetUWFilter Failed.", tag);
        if (enable) return false;
    } else if (active == enable) {
        WriteLog(" The UWF is already configured as it is requested to be set. No restart of the system is required.");
        return true;
    }
    WriteLog(" A restart of the system is required in order for the filter to be appropriately configured.");
    WriteLog(enable ? "UWF Activation" : "UWF Deactivation");
    if (!runElevatedTool(kUwfManager, enable ? L"filter enable" : L"filter disable")) {
        const int error = lastErrorNumber();
        WriteLog("[%s] [ERROR]: ShellExecuteEx for UWF filter cmds is failed!, ERROR(%d)", tag, error);
        WriteLog("[ERROR]: UWF filter is not appropriately configured!");
        platform::setLastError(static_cast<std::uint32_t>(error));
        return false;
    }
    WriteLog(" After a system restart, the UWF will be %s", enable ? "activated" : "deactivated");
    return true;
}

bool DeviceModesC::SetServiceStatus(const std::wstring& serviceName, bool disable)
{
    const platform::UniqueServiceHandle manager = platform::openServiceManager();
    if (!manager) return false;
    const platform::UniqueServiceHandle service = platform::openService(manager, serviceName);
    if (!service) return false;
    // Enabled services start with Windows from now on; a disabled one keeps running until the restart.
    if (!platform::changeServiceStartType(service, disable ? platform::kServiceDisabled : platform::kServiceAutoStart))
        return false;
    if (disable) return true;
    return platform::startService(service) || platform::lastError() == platform::kErrorServiceAlreadyRunning;
}

bool DeviceModesC::portForwardCfgCMD(const std::wstring& parameters)
{
    if (runElevatedTool(kNetsh, parameters)) return true;
    const int error = lastErrorNumber();
    WriteLog(
        "[%s] [ERROR]: ShellExecuteEx for netsh cmds regarding port forwarding activation/deactivation is "
        "failed!, ERROR(%d)",
        "SysManagerC::portForwardCfgCMD", error);
    platform::setLastError(static_cast<std::uint32_t>(error));
    return false;
}

bool DeviceModesC::PortForwardingActivation()
{
    const char* tag = "SysManagerC::PortForwardingActivation";
    std::vector<int> ports;
    if (!readConfiguredPortsOrSay(tag, ports)) return false;
    bool added = true;
    for (int port : ports) {
        wchar_t parameters[128];
        std::swprintf(parameters, sizeof parameters / sizeof parameters[0],
                      L"interface portproxy add v4tov4 listenport=%d connectaddress=192.168.2.1 connectport=%d", port,
                      port);
        if (!portForwardCfgCMD(parameters)) {
            const int failure = lastErrorNumber();
            WriteLog("[%s] [ERROR]:The netsh command execution to add the defined ports failed!, ERROR(%d)", tag,
                     failure);
            platform::setLastError(static_cast<std::uint32_t>(failure));
            added = false;
        }
    }
    return added;
}

bool DeviceModesC::PortForwardingDeactivation()
{
    const char* tag = "SysManagerC::PortForwardingDeactivation";
    std::vector<int> ports;
    if (!readConfiguredPortsOrSay(tag, ports)) return false;
    // netsh refuses to delete an entry that is not there; a port never forwarded is already as wanted. When
    // the table cannot be read, every port is deleted and netsh has the last word.
    std::string table;
    const bool tableRead = readPortProxyTable(table);
    const std::set<int> listed = listenPortsOf(table);
    bool deleted = true;
    for (int port : ports) {
        if (tableRead && listed.count(port) == 0) continue;
        wchar_t parameters[96];
        std::swprintf(parameters, sizeof parameters / sizeof parameters[0],
                      L"interface portproxy delete v4tov4 listenport=%d", port);
        if (!portForwardCfgCMD(parameters)) {
            const int failure = lastErrorNumber();
            WriteLog("[%s] [ERROR]:The netsh command execution to delete the defined ports failed!, ERROR(%d)", tag,
                     failure);
            platform::setLastError(static_cast<std::uint32_t>(failure));
            deleted = false;
        }
    }
    return deleted;
}

bool DeviceModesC::GetPortForwardingStatus(bool& active)
{
    std::string table;
    if (!readPortProxyTable(table)) {
        WriteLog("[%s] [ERROR]: Failed to read the port forwarding table, ERROR(%d)",
                 "SysManagerC::GetPortForwardingStatus", lastErrorNumber());
        return false;
    }
    active = !listenPortsOf(table).empty();
    WriteLog(active ? "There are port entries in the port forwarding table!\n"
                    : "No port entries in the port forwarding table!\n");
    return true;
}

bool DeviceModesC::SetRemoteDesktopStatus(bool enable)
{
    const char* tag = "SysManagerC::SetRemoteDesktopStatus";
    WriteLog("SetRemoteDesktopStatus %d", enable ? 1 : 0);
    if (!hideMousePointer(!enable)) {
        const int error = lastErrorNumber();
        if (enable)
            WriteLog("[%s] [ERROR]: Unable to handle mouse cursors registry keys for production mode., ERROR(%d)", tag,
                     error);
        else
            WriteLog("[%s] [ERROR]: Unable to handle mouse cursors registry keys for customer mode., ERROR(%d)", tag,
                     error);
        platform::setLastError(static_cast<std::uint32_t>(error));
        return false;
    }
    platform::UniqueRegKey key;
    platform::RegStatus status =
        platform::regOpenKey(platform::RegHive::LocalMachine, kTerminalServerKey, platform::RegAccess::All, key);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to open the remote control registry key., ERROR(%d)", tag,
                 static_cast<int>(status));
        platform::setLastError(static_cast<std::uint32_t>(status));
        return false;
    }
    status = platform::regSetDword(key, L"fDenyTSConnections", enable ? 0 : 1);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to set a value to the remote control registry key. , ERROR(%d)", tag,
                 static_cast<int>(status));
        platform::setLastError(static_cast<std::uint32_t>(status));
        return false;
    }
    return true;
}

bool DeviceModesC::GetRemoteDesktopStatus(bool& enabled)
{
    platform::UniqueRegKey key;
    std::uint32_t deny = 0;
    std::uint32_t type = platform::kRegNone;
    platform::RegStatus status = platform::regOpenKeyRead(platform::RegHive::LocalMachine, kTerminalServerKey, key);
    if (status == 0) status = platform::regQueryDword(key, L"fDenyTSConnections", deny, type);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to read the remote control registry key., ERROR(%d)",
                 "SysManagerC::GetRemoteDesktopStatus", static_cast<int>(status));
        return false;
    }
    enabled = deny == 0;
    return true;
}

bool DeviceModesC::hideMousePointer(bool hide)
{
    return writeMousePointerToRegistry(hide);
}

bool DeviceModesC::writeMousePointerToRegistry(bool hidden)
{
    platform::UniqueRegKey key;
    platform::RegStatus status = 0;
    if (m_childProcesses.IsRunnigFromUserAccount() >= 1) {
        status = platform::regCreateKey(platform::RegHive::CurrentUser, kCursorsKey, key);
    } else {
        // SYSTEM's own HKCU is nobody's screen: the pointer is the logged-on user's, whose session the
        // applications run in.
        platform::UniqueHandle userToken;
        platform::UniqueRegKey userHive;
        if (!platform::queryUserToken(kUserSession, userToken))
            status = static_cast<platform::RegStatus>(platform::lastError());
        else
            status = platform::regOpenUserHive(userToken.get(), userHive);
        if (status == 0) status = platform::regCreateKey(userHive, kCursorsKey, key);
    }
    if (status == 0) status = platform::regSetString(key, L"", hidden ? L"Hidden" : L"Windows Default", true);
    // 1: a user scheme, 2: one of Windows' own.
    if (status == 0) status = platform::regSetDword(key, L"Scheme Source", hidden ? 1 : 2);
    for (const auto& role : kCursorRoles) {
        if (status != 0) break;
        status = platform::regSetString(
            key, role.value, std::wstring(kCursorFolder) + (hidden ? kHiddenCursor : role.standardFile), true);
    }
    if (status != 0) {
        platform::setLastError(static_cast<std::uint32_t>(status));
        return false;
    }
    return true;
}

bool DeviceModesC::RestartExplorer()
{
    const char* tag = "SysManagerC::RestartExplorer";
    if (!setUserinit(tag, kUserinitWithShell)) return false;
    std::vector<platform::ProcessEntryT> processes;
    if (platform::snapshotProcesses(processes) == platform::SnapshotResultE::Ok) {
        for (const auto& process : processes) {
            if (isExplorer(process.exeFile)) {
                WriteLog("[%s]: Explorer Process is already running", tag);
                return true;
            }
        }
    }
    platform::ProcessInformationT started;
    if (!m_childProcesses.CreateChildProcess(kExplorer, L"", 0, platform::StartupInfoT{}, &started, false)) {
        const int error = lastErrorNumber();
        WriteLog("[%s] [ERROR]: Failed to start the explorer, ERROR(%d)", tag, error);
        platform::setLastError(static_cast<std::uint32_t>(error));
        return false;
    }
    return true;
}

bool DeviceModesC::TerminateExplorer()
{
    const char* tag = "SysManagerC::TerminateExplorer";
    if (!setUserinit(tag, kUserinitWithoutShell)) return false;
    std::vector<platform::ProcessEntryT> processes;
    if (platform::snapshotProcesses(processes) == platform::SnapshotResultE::SnapshotFailed) {
        const int error = lastErrorNumber();
        WriteLog("[%s] [ERROR]: CreateToolhelp32Snapshot failed, ERROR(%d)", tag, error);
        platform::setLastError(static_cast<std::uint32_t>(error));
        return false;
    }
    bool ended = true;
    for (const auto& process : processes) {
        if (!isExplorer(process.exeFile)) continue;
        if (!platform::terminateProcessById(process.processId, kExitCodeTerminated)) {
            const int error = lastErrorNumber();
            WriteLog("[%s] [ERROR]: Failed to terminate explorer.exe [%u], ERROR(%d)", tag,
                     static_cast<unsigned>(process.processId), error);
            platform::setLastError(static_cast<std::uint32_t>(error));
            ended = false;
        }
    }
    return ended;
}

bool DeviceModesC::SetWinFirewall(platform::FirewallProfileE profile, bool enable)
{
    const platform::FirewallResultT result = platform::setFirewallEnabled(profile, enable);
    const unsigned long hresult = result.hresult;
    switch (result.step) {
        case platform::FirewallStepE::None:
            return true;
        case platform::FirewallStepE::CoInitializeEx:
            WriteLog("CoInitializeEx failed: 0x%08lx", hresult);
            break;
        case platform::FirewallStepE::CoCreateInstance:
            WriteLog("[ERROR]: CoCreateInstance for INetFwPolicy2 failed: 0x%08lx", hresult);
            break;
        case platform::FirewallStepE::PutFirewallEnabled:
        case platform::FirewallStepE::GetFirewallEnabled:
            WriteLog("put_FirewallEnabled failed for %s: 0x%08lx", platform::firewallProfileName(profile), hresult);
            break;
    }
    platform::setLastError(result.hresult);
    return false;
}
