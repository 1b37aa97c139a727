#pragma once
// The instrument's applications in the interactive user's session (dummy console, diagnostics service,
// backend, frontend), the launcher that puts every program of the system manager there, and the computer's
// name, which decides whether the frontend may start.
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/Handle.h"
#include "platform/Process.h"

class WriteFilterC;

class ChildProcessesC {
public:
    // The renaming commits its registry values through the write filter.
    explicit ChildProcessesC(WriteFilterC& writeFilter);

    // Start settings, set by start-up before StartComApplication.
    void SetBackendToFrontendDelay(std::uint32_t milliseconds) { m_backendToFrontendDelay = milliseconds; }
    std::uint32_t GetBackendToFrontendDelay() const { return m_backendToFrontendDelay; }
    void SetAllowMxApplicationStartup(bool allow) { m_allowMxApplicationStartup = allow; }
    bool GetAllowMxApplicationStartup() const { return m_allowMxApplicationStartup; }

    // The instrument application (the frontend), once launched; running while its handle is not signalled.
    void SetZentorApplicationProcess(platform::UniqueHandle process);
    bool IsZentorApplicationRunning();

    // Started once at start-up, ended in order by the shutdown sequence.
    bool StartComApplication();
    bool RequestComApplicationExit();
    // `useWinlogonToken` starts the program with the Winlogon token on the interactive desktop, otherwise as
    // the logged-on user.
    bool CreateChildProcess(const std::wstring& application, const std::wstring& commandLine,
                            std::uint32_t creationFlags, const platform::StartupInfoT& startup,
                            platform::ProcessInformationT* started, bool useWinlogonToken);
    // 1 under a user account, 0 under "SYSTEM" or when the user name cannot be read.
    int IsRunnigFromUserAccount();
    // Waits half a second for the program to end by itself, then terminates it; true when it had ended.
    bool VerifyAndCloseProcess(platform::ProcessInformationT* process);
    void ShutdownDiagnosticsService();
    // True once the computer carries a real instrument name (factory names have numbers up to 1000000).
    bool IsInstrumentNameSet();
    bool SetInstrumentName(const std::wstring& name);
    // Minimises every window of the user's desktop through the shell's taskbar.
    bool ShowDesktop();

private:
    WriteFilterC& m_writeFilter;
    // Held while start-up stores a record and while the frontend's is replaced or read: the main window asks
    // whether it runs.
    mutable std::mutex m_lock;
    std::uint32_t m_backendToFrontendDelay = 1000;
    bool m_allowMxApplicationStartup = true;
    platform::ProcessInformationT m_dummyConsole;
    platform::ProcessInformationT m_diagnosticsService;
    platform::ProcessInformationT m_zentorBackend;
    platform::ProcessInformationT m_zentorFrontend;
};
