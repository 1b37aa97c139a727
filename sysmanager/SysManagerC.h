#pragma once
// The process-wide system manager: created on first use, destroyed once at teardown. It holds what the
// start-up, the main window and the command server share: the main window, the start settings, the
// instrument application's process and shutdown answer, and the pending power request.
#include <atomic>
#include <cstdint>
#include <mutex>

#include "efi/EFIServiceIPC.h"
#include "platform/Handle.h"
#include "platform/Time.h"
#include "platform/Window.h"

// The instrument application's answer to the shutdown notification.
enum AppShutdownAnswer : std::int32_t {
    APP_SHUTDOWN_NO_ANSWER = 0,
    APP_SHUTDOWN_NOT_STARTED = 1,
    APP_SHUTDOWN_STARTED = 2,
};

// What the power sequence does once the applications have exited.
enum ApplicationPowerRequestType : std::int32_t {
    POWER_REQUEST_QUIT = 0,
    POWER_REQUEST_REBOOT = 1,
    POWER_REQUEST_SHUTDOWN = 2,
};

class SysManagerC {
public:
    static SysManagerC* Instance();
    // Tears the instance down; runs once however many of the teardown paths call it.
    static void DestroyInstance();

    // The main window also becomes the target of the EFI notifications.
    void SetMainWindow(platform::WindowHandle window);
    platform::WindowHandle GetMainWindow() const;

    EFIServiceIPC& GetEFIServiceIPC() { return m_efiServiceIPC; }

    void SetBackendToFrontendDelay(std::uint32_t milliseconds) { m_backendToFrontendDelay = milliseconds; }
    std::uint32_t GetBackendToFrontendDelay() const { return m_backendToFrontendDelay; }
    void SetAllowMxApplicationStartup(bool allow) { m_allowMxApplicationStartup = allow; }
    bool GetAllowMxApplicationStartup() const { return m_allowMxApplicationStartup; }

    // Set by the command server when the instrument application reports on its shutdown.
    void SetAppShutdownAnswer(std::int32_t answer) { m_appShutdownAnswer = answer; }
    std::int32_t GetAppShutdownAnswer() const { return m_appShutdownAnswer; }

    // The instrument application's process, once launched; running while its handle is not signalled.
    void SetZentorApplicationProcess(platform::UniqueHandle process);
    bool IsZentorApplicationRunning();

    void ConfigurePowerCycleRequest(std::int32_t type, bool force, std::uint32_t timeoutSeconds);
    std::int32_t GetApplicationPowerRequestType() const { return m_applicationPowerRequestType; }
    bool GetPowerRequestForce() const { return m_powerRequestForce; }
    std::uint32_t GetPowerRequestTimeout() const { return m_powerRequestTimeout; }
    // Posts WM_CLOSE to the main window, which starts the close sequence; false without a window.
    bool SendCloseEvent();

    // Time keeping: the I2C RTC's time, or 2018-01-01 00:00:00 when the clock cannot be read (then the RTC
    // valid flag is cleared). False only when the SPB devices cannot be enabled.
    bool GetI2cRtcTime(platform::SystemTime& rtcTime);
    bool IsRtcValid() const { return m_rtcValid; }

    // USB ports and the write filter's overlay, asked for by the main window on behalf of other threads.
    // False (logged) when the operation fails or is not available on this build.
    bool RecycleUsbPort(std::uint16_t portId);
    bool ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb);

private:
    SysManagerC() = default;

    mutable std::mutex m_lock;
    std::atomic<bool> m_rtcValid{false};
    platform::WindowHandle m_mainWindow;
    std::uint32_t m_backendToFrontendDelay = 1000;
    bool m_allowMxApplicationStartup = true;
    std::atomic<std::int32_t> m_appShutdownAnswer{APP_SHUTDOWN_NO_ANSWER};
    platform::UniqueHandle m_zentorApplicationProcess;
    std::int32_t m_applicationPowerRequestType = POWER_REQUEST_QUIT;
    bool m_powerRequestForce = false;
    std::uint32_t m_powerRequestTimeout = 0;
    EFIServiceIPC m_efiServiceIPC;
};
