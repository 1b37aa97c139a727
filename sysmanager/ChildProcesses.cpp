// The instrument's applications in the interactive user's session, the launcher that puts them there,
// and the computer's name, which decides whether the frontend may start.
#include <cwchar>
#include <cwctype>

#include "app/Log.h"
#include "platform/Clock.h"
#include "platform/NamedPipe.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/Window.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/WriteFilterC.h"

namespace {

const wchar_t* const kDummyConsole = L"c:\\windows\\system32\\cmd.exe";
const wchar_t* const kDiagnosticsService = L"D:\\ZentorBackend\\DiagnosticsService.exe";
const wchar_t* const kBackendCommandLine = L"python D:\\ZentorBackend\\StartScanner.py";
const wchar_t* const kFrontend = L"D:\\ZentorFrontend\\ZentorFrontend.exe";
const wchar_t* const kDiagnosticsPipe = L"\\\\.\\pipe\\DiagnosticsServiceProcessManagement";

constexpr std::uint32_t kUserSession = 1;
constexpr int kUserTokenRetries = 10;
constexpr std::uint32_t kUserTokenRetryMs = 100;
constexpr std::uint32_t kBackendDelayMs = 500;
constexpr std::uint32_t kProcessExitWaitMs = 500;
constexpr std::uint32_t kDiagnosticsPipeWaitMs = 250;
constexpr std::uint32_t kDiagnosticsMessageBytes = 50;
// Factory-default names carry numbers up to this one.
constexpr int kLastDefaultInstrumentNumber = 1000000;

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

// The Winlogon process of the interactive session; 0 when it cannot be found (logged).
std::uint32_t findWinlogon(const char* tag)
{
    std::vector<platform::ProcessEntryT> processes;
    switch (platform::snapshotProcesses(processes)) {
        case platform::SnapshotResultE::SnapshotFailed:
            WriteLog("[%s] [ERROR]: CreateToolhelp32Snapshot failed", tag);
            return 0;
        case platform::SnapshotResultE::FirstFailed:
            WriteLog("[%s] [ERROR]: Process32First failed", tag);
            return 0;
        case platform::SnapshotResultE::Ok:
            break;
    }
    for (const auto& process : processes) {
        if (process.exeFile == L"winlogon.exe" && process.sessionId == kUserSession) {
            WriteLog("[%s]: WinLogon process found, session id = %d, PID = %X", tag,
                     static_cast<int>(process.sessionId), process.processId);
            return process.processId;
        }
    }
    WriteLog("[%s] [ERROR]: WinLogon was not found!", tag);
    return 0;
}

// The Winlogon token made into a primary token of the user's session with the debug privilege; false
// (logged) at the first step that fails.
bool prepareWinlogonToken(const char* tag, std::uint32_t winlogon, platform::UniqueHandle& primary)
{
    platform::UniqueHandle token;
    if (!platform::openProcessTokenForSession(winlogon, token)) {
        WriteLog("[%s] [ERROR]: Process token open failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    std::uint64_t debugPrivilege = 0;
    if (!platform::lookupPrivilege(L"SeDebugPrivilege", debugPrivilege)) {
        WriteLog("[%s] [ERROR]: Lookup Privilege failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    if (!platform::duplicatePrimaryToken(token.get(), primary)) {
        WriteLog("[%s] [ERROR]: DuplicateTokenEx failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    if (!platform::setTokenSessionId(primary.get(), kUserSession)) {
        WriteLog("[%s] [ERROR]: SetTokenInformation failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    platform::setLastError(0);
    const bool adjusted = platform::enableTokenPrivilege(primary.get(), debugPrivilege);
    if (platform::lastError() == platform::kErrorNotAllAssigned) {
        WriteLog("[%s] [ERROR]: Token does not have the privilege", tag);
        return false;
    }
    if (!adjusted) {
        WriteLog("[%s] [ERROR]: Adjust Privilege value, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    return true;
}

platform::StartupInfoT hiddenStartup()
{
    platform::StartupInfoT startup;
    startup.useShowWindow = true;
    startup.useStdHandles = true;
    startup.showWindow = platform::kSwHide;
    return startup;
}

}  // namespace

ChildProcessesC::ChildProcessesC(WriteFilterC& writeFilter) : m_writeFilter(writeFilter) {}

void ChildProcessesC::SetZentorApplicationProcess(platform::UniqueHandle process)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_zentorFrontend = platform::ProcessInformationT{};
    m_zentorFrontend.process = std::move(process);
}

bool ChildProcessesC::IsZentorApplicationRunning()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_zentorFrontend.process &&
           platform::waitForSingleObject(m_zentorFrontend.process.get(), 0) == platform::kWaitTimeout;
}

int ChildProcessesC::IsRunnigFromUserAccount()
{
    const char* tag = "SysManagerC::IsRunnigFromUserAccount";
    std::wstring user;
    if (!platform::getUserName(user)) {
        WriteLog("[%s]: [ERROR]: User name cannot be retrieved, len: &d, error %d", tag, lastErrorNumber());
        return 0;
    }
    const std::string narrowUser = platform::narrow(user).value_or(std::string());
    WriteLog("[%s]: Current User Name: [%s]", tag, narrowUser.c_str());
    return user == L"SYSTEM" ? 0 : 1;
}

bool ChildProcessesC::CreateChildProcess(const std::wstring& application, const std::wstring& commandLine,
                                         std::uint32_t creationFlags, const platform::StartupInfoT& startup,
                                         platform::ProcessInformationT* started, bool useWinlogonToken)
{
    const char* tag = "SysManagerC::CreateChildProcess";
    if (started == nullptr) return false;
    if (IsRunnigFromUserAccount() >= 1) {
        const bool ok = platform::createProcess(application, commandLine, creationFlags, startup, *started);
        WriteLog("[%s]: Application started as a User", tag);
        return ok;
    }
    const std::uint32_t winlogon = findWinlogon(tag);
    if (winlogon == 0) return false;

    platform::UniqueHandle userToken;
    bool haveUserToken = platform::queryUserToken(kUserSession, userToken);
    for (int retry = 0; !haveUserToken && retry < kUserTokenRetries; ++retry) {
        platform::sleepMs(kUserTokenRetryMs);
        haveUserToken = platform::queryUserToken(kUserSession, userToken);
    }
    if (!haveUserToken)
        WriteLog("[%s] [ERROR]: Retries exhausted to obtain User Token give up, ERROR(%d)", tag, lastErrorNumber());

    platform::EnvironmentBlockC environment;
    if (useWinlogonToken) {
        platform::StartupInfoT onDesktop = startup;
        onDesktop.desktop = L"winsta0\\default";
        platform::UniqueHandle primary;
        if (!prepareWinlogonToken(tag, winlogon, primary)) return false;
        if (!environment.create(primary.get(), true))
            WriteLog("[%s]: [ERROR]: CreateEnvironmentBlock failed, gle= %d", tag, lastErrorNumber());
        std::uint32_t flags = creationFlags | platform::kNormalPriorityClass | platform::kCreateNewConsole;
        if (environment.valid()) flags |= platform::kCreateUnicodeEnvironment;
        return platform::createProcessAsUser(primary.get(), application, commandLine, flags, environment, onDesktop,
                                             *started);
    }
    if (!environment.create(userToken.get(), false))
        WriteLog("[%s] [ERROR]: CreateEnvironmentBlock failed, gle= %d", tag, lastErrorNumber());
    std::uint32_t flags = creationFlags;
    if (environment.valid()) flags |= platform::kCreateUnicodeEnvironment;
    return platform::createProcessAsUser(userToken.get(), application, commandLine, flags, environment, startup,
                                         *started);
}

bool ChildProcessesC::StartComApplication()
{
    const char* tag = "SysManagerC::StartComApplication";
    if (!m_allowMxApplicationStartup) return true;
    const platform::StartupInfoT startup = hiddenStartup();
    const std::uint32_t flags = platform::kCreateNoWindow;

    platform::ProcessInformationT console;
    CreateChildProcess(kDummyConsole, {}, flags, startup, &console, false);
    platform::ProcessInformationT diagnostics;
    const bool diagnosticsStarted = CreateChildProcess(kDiagnosticsService, {}, flags, startup, &diagnostics, false);
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_dummyConsole = std::move(console);
        m_diagnosticsService = std::move(diagnostics);
    }
    if (!diagnosticsStarted) {
        WriteLogWindows("[%s] [ERROR]: Failed to start %ws, ERROR(%d)", tag, L"DiagnosticsService.exe",
                        lastErrorNumber());
        return false;
    }

    platform::sleepMs(kBackendDelayMs);
    platform::ProcessInformationT backend;
    const bool backendStarted = CreateChildProcess({}, kBackendCommandLine, flags, startup, &backend, false);
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_zentorBackend = std::move(backend);
    }
    if (!backendStarted) {
        WriteLog("[%s] [ERROR]: Create process for ZentorBackend failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }

    if (!IsInstrumentNameSet()) {
        WriteLog("[%s]: Instrument name is set to default one, Zentor Frontend is not started", tag);
        return true;
    }
    platform::sleepMs(m_backendToFrontendDelay);
    platform::ProcessInformationT frontend;
    const bool frontendStarted = CreateChildProcess(kFrontend, {}, flags, startup, &frontend, false);
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_zentorFrontend = std::move(frontend);
    }
    if (!frontendStarted) {
        WriteLog("[%s] [ERROR]: Create process for ZentorFrontend failed, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    return true;
}

bool ChildProcessesC::VerifyAndCloseProcess(platform::ProcessInformationT* process)
{
    const char* tag = "SysManagerC::VerifyAndCloseProcess";
    if (process == nullptr) return false;
    std::uint32_t exitCode = 0;
    platform::getExitCodeProcess(process->process.get(), exitCode);
    if (exitCode == platform::kStillActive) {
        const std::uint32_t waited = platform::waitForSingleObject(process->process.get(), kProcessExitWaitMs);
        if (waited != platform::kWaitObject0) {
            WriteLog("[%s] [ERROR]: Waiting for Process [0x%X] exit failed, Wait Code: [0x%X]", tag, process->processId,
                     waited);
            platform::terminateProcess(process->process.get(), exitCode);
            process->process.reset();
            process->thread.reset();
            return false;
        }
    }
    WriteLog("[%s]: Process finished Succesfully", tag);
    *process = platform::ProcessInformationT{};
    return true;
}

void ChildProcessesC::ShutdownDiagnosticsService()
{
    const char* tag = "SysManagerC::ShutdownDiagnosticsService";
    const std::string pipeName = platform::narrow(kDiagnosticsPipe).value_or(std::string());
    std::uint8_t request[kDiagnosticsMessageBytes] = {' '};
    std::uint8_t reply[kDiagnosticsMessageBytes] = {};
    std::uint32_t received = 0;
    // One call-and-reply exchange, as CallNamedPipe makes it.
    bool sent = platform::waitNamedPipe(kDiagnosticsPipe, kDiagnosticsPipeWaitMs);
    platform::UniqueHandle pipe;
    if (sent) pipe = platform::openPipe(kDiagnosticsPipe);
    sent = pipe && platform::setPipeMessageReadMode(pipe.get()) &&
           platform::transactPipe(pipe.get(), request, sizeof request, reply, sizeof reply, received);
    if (!sent) {
        WriteLog("[%s] [ERROR]: Failed to send shutfown notification to %s: %d", tag, pipeName.c_str(),
                 lastErrorNumber());
    }
    WriteLog("[%s] got %d bytes from %s", tag, static_cast<int>(received), pipeName.c_str());
}

bool ChildProcessesC::RequestComApplicationExit()
{
    const char* tag = "SysManagerC::RequestComApplicationExit";
    WriteLog("[%s]: Closing Zentor Backend", tag);
    VerifyAndCloseProcess(&m_zentorBackend);
    WriteLog("[%s]: Closing Zentor Frontend", tag);
    {
        platform::ProcessInformationT frontend;
        {
            std::lock_guard<std::mutex> records(m_lock);
            frontend = std::move(m_zentorFrontend);
        }
        VerifyAndCloseProcess(&frontend);
    }
    WriteLog("[%s]: Closing Zentor Diagnostics", tag);
    ShutdownDiagnosticsService();
    VerifyAndCloseProcess(&m_diagnosticsService);
    WriteLog("[%s]: Closing Zentor DummyConsole", tag);
    VerifyAndCloseProcess(&m_dummyConsole);
    return true;
}

bool ChildProcessesC::IsInstrumentNameSet()
{
    std::wstring name;
    if (!platform::getComputerName(platform::ComputerNameE::NetBios, name)) return false;
    for (auto& c : name)
        c = static_cast<wchar_t>(std::towupper(c));
    // More digits than an int holds are a number far above the factory range.
    const std::size_t digits = name.find_first_not_of(L"0123456789", 7);
    if (name.rfind(L"ZENTOR-", 0) == 0 && (digits == std::wstring::npos ? name.size() : digits) - 7 > 9) return true;
    int number = 0;
    if (std::swscanf(name.c_str(), L"ZENTOR-%d[^\n]", &number) < 1) return false;
    return number > kLastDefaultInstrumentNumber;
}

bool ChildProcessesC::SetInstrumentName(const std::wstring& name)
{
    const char* tag = "SysManagerC::SetInstrumentName";
    // Renames take turns: one between the two names of another would leave the DNS name of one client and
    // the NetBIOS name of the other. Each is a few registry writes, so the second simply waits.
    static std::mutex renaming;
    const std::lock_guard<std::mutex> turn(renaming);
    const bool renamed = platform::setComputerName(platform::ComputerNameE::PhysicalDnsHostname, name) &&
                         platform::setComputerName(platform::ComputerNameE::PhysicalNetBios, name);
    if (renamed) WriteLog("[%s]: Instrument name is set to [%S]", tag, name.c_str());
    WriteLog("[%s]: Applying UWF configuration", tag);
    const std::uint32_t result = m_writeFilter.ConfigureUnifiedWriteFilter();
    if (result == 0)
        WriteLog("UWF configuration applied successfuly");
    else
        WriteLog("[%s] [ERROR]: Failed to apply UWF configuration [0x%X]", tag, result);
    return renamed;
}

bool ChildProcessesC::ShowDesktop()
{
    // The taskbar's "minimise all" command.
    constexpr platform::WParam kMinimiseAll = 419;
    const platform::WindowHandle taskbar = platform::findWindow(L"Shell_TrayWnd");
    return taskbar && platform::postMessage(taskbar, platform::wm::Command, kMinimiseAll, 0);
}
