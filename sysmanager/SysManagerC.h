#pragma once
// The process-wide system manager: created on first use, destroyed once at teardown. It holds what the
// start-up, the main window and the command server share: the main window, the start settings, the
// instrument application's process and shutdown answer, and the pending power request.
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

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

// Windows time information as the command server exchanges it with time keeping: the first six fields of
// a C tm, a zone name and whether automatic daylight-saving adjustment is off.
struct WindowsTimeInfo {
    std::int32_t tm_sec = 0;
    std::int32_t tm_min = 0;
    std::int32_t tm_hour = 0;
    std::int32_t tm_mday = 0;
    std::int32_t tm_mon = 0;   // 0..11
    std::int32_t tm_year = 0;  // years since 1900
    // Setting matches it against the zones' "Std" values; getting answers the zone's registry key name.
    char timeZoneId[256] = {};
    bool daylightSavingDisabled = false;
};

// A zone as the registry's "Time Zones" key describes it.
struct TimeZoneDescription {
    std::string displayName;
    std::string standardName;
    std::string keyName;
    std::string daylightName;
    platform::RegTziFormat tzi;
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

    // True when the Windows time service runs or was started.
    bool startW32TimeService();
    // At start: Windows UTC time from the RTC plus the user's offset, and the user's zone; without a usable
    // offset file the RTC time and "W. Europe Standard Time" with daylight saving. False only when the RTC
    // cannot be reached at all.
    bool GetRtcSystemTime();
    bool GetWindowsTimeInformation(WindowsTimeInfo& info);
    // Sets zone and local time, then keeps their difference to the RTC in the offset file; the RTC itself
    // is never written here.
    bool SetWindowsTimeInformation(const WindowsTimeInfo& info);
    // After the RTC was set the offset means nothing: true when the file is gone (or its deletion was
    // committed through the write filter).
    bool deleteTimeOffsetFile();
    bool CalculateAndSaveOffsetTzStdDlght();
    // True when the three mandatory lines of the offset file were read.
    bool GetCalcOffsetTzStdNameDlght(std::int64_t& offset, std::string& standardName, bool& daylightSaving);
    bool AddCalculatedOffsetToCurTimeDate(const platform::SystemTime& rtcTime, std::int64_t offset,
                                          platform::SystemTime& corrected);
    // The first zone of the registry's "Time Zones" key whose "Std" value is `standardName`.
    bool GetTzDisplayWndKeyAndStdName(const std::wstring& standardName, TimeZoneDescription& zone);
    bool SetWindowsTimeZoneInfo(const WindowsTimeInfo& info);
    bool SetWindowsDateTime(const WindowsTimeInfo& info, bool local);
    // True when the write filter's state could be read; `active` starts as true, so a failure reports it
    // active.
    bool GetUWFilter(bool& active);

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
