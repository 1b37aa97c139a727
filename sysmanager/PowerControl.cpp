// The power request of the instrument's applications and the power cycle of the whole instrument: the
// sensor board's Linux is halted over SSH, the remote clients are told, and Windows is shut down. Whether
// the instrument then restarts is the power controller's business, which the shutdown sequence has already
// told.
#include "app/Log.h"
#include "framework/InstrumentEvents.h"
#include "links/TelnetConnection.h"
#include "platform/Clock.h"
#include "platform/Registry.h"
#include "platform/Socket.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/MainWindowSourceI.h"
#include "sysmanager/PowerControlC.h"

namespace {

const wchar_t* const kSshClient = L"C:\\Program Files\\OpenSSH\\ssh.exe";
constexpr std::uint32_t kSshExitWaitMs = 1500;
const char* const kDefaultSensorBoardAddress = halvern::links::kMoraTelnetHost;
// Only an administrator can move the sensor board: the ssh halt and the Ethernet checks go wherever these
// values point.
const wchar_t* const kSensorBoardOverrideKey = L"SOFTWARE\\Vexar\\Halvern";
constexpr std::uint32_t kPlannedShutdownReason = 0x80000000u;

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

}  // namespace

PowerControlC::PowerControlC(ChildProcessesC& childProcesses, const MainWindowSourceI& mainWindow)
    : m_childProcesses(childProcesses), m_mainWindow(mainWindow)
{}

void PowerControlC::ConfigurePowerCycleRequest(std::int32_t type, bool force, std::uint32_t timeoutSeconds)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_applicationPowerRequestType = type;
    m_powerRequestForce = force;
    m_powerRequestTimeout = timeoutSeconds;
}

bool PowerControlC::SendCloseEvent()
{
    const platform::WindowHandle window = m_mainWindow.GetMainWindow();
    if (window == platform::WindowHandle{}) {
        WriteLog("[%s] [ERROR]: tried to send close event, but handle is null.", "SysManagerC::SendCloseEvent");
        return false;
    }
    if (!platform::postMessage(window, platform::wm::Close, 0, 0)) {
        WriteLog("[%s] [ERROR]: Failed to post close message: %d", "SysManagerC::SendCloseEvent",
                 static_cast<int>(platform::lastError()));
        return false;
    }
    return true;
}

void PowerControlC::SetSensorBoardAddress(const std::string& address)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_sensorBoardAddress = address;
}

std::string PowerControlC::GetSensorBoardAddress() const
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (!m_sensorBoardAddress.empty()) return m_sensorBoardAddress;
    }
    // The instrument's board is at its fixed address; a development set-up or the simulated instrument
    // names another one in the machine's settings.
    std::string address = kDefaultSensorBoardAddress;
    platform::UniqueRegKey key;
    std::wstring configured;
    std::uint32_t parsed = 0;
    if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, kSensorBoardOverrideKey, key) == 0 &&
        platform::regQueryString(key, L"SensorBoardAddress", configured) == 0) {
        const std::string text = platform::narrow(configured).value_or(std::string());
        if (platform::parseIpv4(text, parsed))
            address = text;
        else
            WriteLog("[ERROR]: SensorBoardAddress '%s' is not an IPv4 address, using %s", text.c_str(),
                     address.c_str());
    }
    return address;
}

void PowerControlC::ApplySensorBoardEndpoint() const
{
    halvern::links::TelnetEndpointT endpoint;
    endpoint.host = GetSensorBoardAddress();
    platform::UniqueRegKey key;
    std::uint32_t port = 0;
    std::uint32_t type = 0;
    if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, kSensorBoardOverrideKey, key) == 0 &&
        platform::regQueryDword(key, L"SensorBoardTelnetPort", port, type) == 0 && type == platform::kRegDword) {
        if (port > 0 && port <= 0xFFFF)
            endpoint.port = std::to_string(port);
        else
            WriteLog("[ERROR]: SensorBoardTelnetPort %u is no TCP port, using %s", port, endpoint.port.c_str());
    }
    // An instrument that talks to another board than its own says so once, where a service technician looks.
    if (endpoint.host != kDefaultSensorBoardAddress || endpoint.port != halvern::links::kMoraTelnetPort)
        WriteLog("[%s] [WARN]: sensor board at %s:%s instead of %s:%s (HKLM\\SOFTWARE\\Vexar\\Halvern)",
                 "SysManagerC::ApplySensorBoardEndpoint", endpoint.host.c_str(), endpoint.port.c_str(),
                 kDefaultSensorBoardAddress, halvern::links::kMoraTelnetPort);
    halvern::links::setTelnetEndpoint(endpoint);
}

bool PowerControlC::RequestSensorboardHalt()
{
    const char* tag = "SysManagerC::RequestSensorboardHalt";
    // The leading blank is part of the command line: the executable is named separately. The board's
    // address is the configured one.
    std::wstring commandLine = L" root@192.168.2.1 init 0";
    const std::string address = GetSensorBoardAddress();
    commandLine.replace(commandLine.find(L"192.168.2.1"), 11, std::wstring(address.begin(), address.end()));
    platform::ProcessInformationT ssh;
    if (!m_childProcesses.CreateChildProcess(kSshClient, commandLine, platform::kCreateNoWindow,
                                             platform::StartupInfoT{}, &ssh, false)) {
        WriteLog("[%s] [ERROR]: Failed to spin SSH process to halt MORA board, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    platform::sleepMs(0);
    std::uint32_t exitCode = 0;
    platform::getExitCodeProcess(ssh.process.get(), exitCode);
    std::uint32_t waited = platform::kWaitObject0;
    if (exitCode == platform::kStillActive) waited = platform::waitForSingleObject(ssh.process.get(), kSshExitWaitMs);
    if (waited != platform::kWaitObject0) {
        WriteLog("[%s] [ERROR]: Waiting for SSH Process exit failed ERROR(%d)", tag, lastErrorNumber());
        platform::terminateProcess(ssh.process.get(), exitCode);
        return false;
    }
    WriteLog("[%s]: SSH Process Succesfully finished", tag);
    return true;
}

bool PowerControlC::PowerCycleScannerDevice()
{
    const char* tag = "SysManagerC::PowerCycleScannerDevice";
    const std::int32_t type = GetApplicationPowerRequestType();
    if (type != POWER_REQUEST_REBOOT && type != POWER_REQUEST_SHUTDOWN) {
        WriteLog("[ERROR]: Invalid ApplicationPowerRequestType for power cycle: %d", type);
        return false;
    }
    WriteLog("[%s]: RequestSensorboardHalt", tag);
    RequestSensorboardHalt();

    platform::UniqueHandle token;
    if (!platform::openOwnProcessToken(token)) {
        WriteLog("[%s] [ERROR]: Failed to open Process token (GLE=%d)", tag, lastErrorNumber());
        return false;
    }
    std::uint64_t shutdownPrivilege = 0;
    platform::setLastError(0);
    if (platform::lookupPrivilege(L"SeShutdownPrivilege", shutdownPrivilege))
        platform::enableTokenPrivilege(token.get(), shutdownPrivilege);
    if (platform::lastError() != 0) {
        WriteLog("[%s] [ERROR]: Failed to adjust token Privileges (GLE=%d)", tag, lastErrorNumber());
        return false;
    }
    const std::uint32_t timeout = GetPowerRequestTimeout();
    halvern::instrumentEvents().shutdownAnnounced(timeout * 1000);
    // Windows is always shut down, never rebooted: the power controller restarts the instrument.
    if (!platform::initiateSystemShutdown(timeout, GetPowerRequestForce(), false, kPlannedShutdownReason)) {
        WriteLog("[%s] [ERROR]: Failed to initiate Power cycle on VANT, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    WriteLog("[%s]: System Shutdown initiated successfully ", tag);
    return true;
}
