#pragma once
// The process-wide system manager: created on first use, destroyed once at teardown. It holds what the
// start-up, the main window and the command server share: the main window, the start settings, the
// instrument application's process and shutdown answer, and the pending power request.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "efi/EFIServiceIPC.h"
#include "platform/Firewall.h"
#include "platform/Handle.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "platform/Usb.h"
#include "platform/Window.h"
#include "sysmanager/OverlayWatchC.h"

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

// One object of a firmware image as the updater describes it. The updater's "IMG_CONFIG" describes the
// installed firmware, a text file of one object per line, "ID;NAME;MAJOR;MINOR;BUILD;SIZE;TYPE" with decimal
// numbers (SIZE in bytes); object 0 is the image as a whole. An image file begins with its own object 0 line.
struct FwObjectInfoT {
    std::string name;
    std::uint32_t objectId = 0;
    std::uint16_t versionMajor = 0;
    std::uint16_t versionMinor = 0;
    std::uint32_t build = 0;
    std::uint32_t sizeBytes = 0;
    std::uint16_t type = 0;
};

// The installed firmware next to an image that an update would install.
struct FwUpdateInfoT {
    std::string installedName;
    std::string imagePath;
    FwObjectInfoT image;
};

class SysManagerC {
public:
    static SysManagerC* Instance();
    // Tears the instance down; runs once however many of the teardown paths call it.
    static void DestroyInstance();
    // Runs at the start of every DestroyInstance(), before the instance goes (the SEP servers install their
    // stop here, so that no command still uses the instance); nullptr: nothing.
    static void SetBeforeTeardown(void (*beforeTeardown)());

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

    // The instrument application (the frontend), once launched; running while its handle is not signalled.
    void SetZentorApplicationProcess(platform::UniqueHandle process);
    bool IsZentorApplicationRunning();

    // The instrument's applications in the user session: started once at start-up, ended in order by the
    // shutdown sequence.
    bool StartComApplication();
    bool RequestComApplicationExit();
    // The launcher of every program the system manager starts; `useWinlogonToken` starts it with the
    // Winlogon token on the interactive desktop, otherwise as the logged-on user.
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
    // Write-filter configuration of the device modes; 0 on success, else the failure code.
    std::uint32_t ConfigureUnifiedWriteFilter();

    // Power control: the configured reboot or shutdown of the whole instrument.
    bool PowerCycleScannerDevice();
    bool RequestSensorboardHalt();
    // Where the sensor board is reached (its Ethernet address as dotted quad): 192.168.2.1 unless the
    // machine's setting "SensorBoardAddress" (REG_SZ) of HKLM "SOFTWARE\Vexar\Halvern" names another, or
    // a test has set one.
    void SetSensorBoardAddress(const std::string& address);
    std::string GetSensorBoardAddress() const;
    // Points the sensor board's telnet client at the board's address and at its telnet port: 23 unless the
    // machine's setting "SensorBoardTelnetPort" (REG_DWORD) names another, as the simulated board does.
    // Logs one line when the endpoint is not 192.168.2.1:23.
    void ApplySensorBoardEndpoint() const;

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

    // USB devices and the write filter's overlay: the list of attached USB devices, which the main window
    // refreshes at every device arrival and removal while the command server reads it on its own thread; a
    // restart of the device on a port; the quick format of the USB stick F:; and the overlay watch.
    // `verifyEnumeration` (on arrival): a device whose enumeration did not complete gets its port recycled
    // through the main window (0x4C8, port in wParam), once until it is seen complete or removed.
    bool RefreshUsbDevices(bool verifyEnumeration);
    // The number of devices and how many of them completed their enumeration.
    void GetUsbDeviceCount(std::uint32_t& devices, std::uint32_t& enumerated) const;
    bool GetUsbDeviceAt(std::uint32_t index, platform::UsbDeviceT& device) const;
    // Restarts the device on `port`; false (logged) when no device is there or it refused.
    bool ResetUsbDevice(std::uint32_t port);
    bool RecycleUsbPort(std::uint16_t portId);
    // Runs "C:\Windows\System32\format.com" on F: (quick, no prompts) with the stick's own file system (FAT32
    // when it cannot be read) and label, and waits up to kFormatWaitMs for it. False (logged) without a stick, or when
    // the tool cannot start, fails or does not end in time.
    static constexpr std::uint32_t kFormatWaitMs = 300000;
    bool FormatUsbDevice();
    // False (logged) when the overlay's figures cannot be read; both are 0 then.
    bool ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb);
    // The overlay watch posts 0x537, 0x538 or 0x539 (states 1 to 3 of OverlayWatchC) to the main window when
    // the overlay's state changes. It ends with the system manager at the latest. `pause` replaces the wait
    // between two readings (tests).
    bool startOverlayWatch(OverlayWatchC::PauseFn pause = {});
    bool stopOverlayWatch();

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
    // Makes a registry value written while the write filter protects the system survive the next boot
    // ("HKLM\..." key, value name). True when committed, or when the filter does not protect.
    bool CommitRegistryValue(const std::wstring& key, const std::wstring& valueName);

    // Device modes: customer mode (the delivered state: write filter on, no remote access, shell and port
    // forwarding off, firewall on, 100 Mbit/s) and production or service mode (all of it opened for the
    // factory or for service, 1 Gbit/s). A write-filter change takes effect at the next boot only.
    struct CurDevModeInfo {
        static constexpr std::size_t kTextChars = 256;
        char result[kTextChars] = {};
        char servicesAndPortForwarding[kTextChars] = {};
        char remoteDesktop[kTextChars] = {};
        char fileExplorer[kTextChars] = {};
        char firewall[kTextChars] = {};
        char ethernetSpeed[kTextChars] = {};
        char writeFilter[kTextChars] = {};
        char restart[kTextChars] = {};
        // The requested mode needs another write-filter state than the running one.
        bool restartRequired = false;
    };
    // The texts that tell the two switches apart.
    struct DeviceModeTextsT;
    // `enable` 1: production (service) mode, 0: customer mode. False when the switch was refused or a
    // feature failed; `result` says which. Once a switch changed the write filter for the next boot, every
    // further switch is refused until Halvern restarts.
    bool productionMode(bool enable, CurDevModeInfo& result);
    bool serviceMode(bool enable, CurDevModeInfo& result);
    // The write filter for the next boot, set with "uwfmgr.exe filter enable|disable".
    bool SetUWFilter(bool enable);
    // Start type of a Windows service: automatic and started, or disabled (it stops at the next boot).
    bool SetServiceStatus(const std::wstring& serviceName, bool disable);
    // Port forwarding to the sensor board for every port of "C:\vexarBatches\Halvern\portsConfiguration.txt".
    bool PortForwardingActivation();
    bool PortForwardingDeactivation();
    // `active`: the port proxy table lists entries. False when the table cannot be read.
    bool GetPortForwardingStatus(bool& active);
    // netsh elevated with `parameters`; true when it ran and ended with 0.
    static bool portForwardCfgCMD(const std::wstring& parameters);
    // Remote desktop connections allowed or denied ("fDenyTSConnections"), with the matching mouse pointer.
    bool SetRemoteDesktopStatus(bool enable);
    bool GetRemoteDesktopStatus(bool& enabled);
    // The hidden pointer scheme in customer mode (no mouse on the instrument's touch screen), the
    // standard one otherwise.
    bool hideMousePointer(bool hide);
    bool writeMousePointerToRegistry(bool hidden);
    // The shell: back in Winlogon's "Userinit" and running, or removed from it and ended.
    bool RestartExplorer();
    bool TerminateExplorer();
    bool SetWinFirewall(platform::FirewallProfileE profile, bool enable);
    // Left by a switch to production mode while the filter protects; start-up finishes that switch.
    static constexpr const wchar_t* kProductionModeFlagFile = L"C:\\vexarBatches\\Unprotected\\toProdMode.txt";

    // Firmware update. The update-state record "C:\vexarBatches\Halvern\FW_UPDATE_STATE" belongs to the
    // updater, which writes it: 376 bytes, read whole at start. Halvern reads three of its fields: the image
    // of a pending update (bytes 0..259, ANSI text ended by a NUL; empty: the internal image copy), the
    // update status (u16 at byte 356; 2: an update is pending) and the validity mark (u32 at byte 364,
    // 0xACDC0815), all little-endian.
    static constexpr std::size_t kFwUpdateStateBytes = 376;
    // The production drive's image, and the internal copy the updater installs from (its folder is outside
    // the write filter's protection, so the copy survives the updater's reboots).
    static constexpr const wchar_t* kAutoUpdateImage = L"f:\\system\\software.img";
    static constexpr const wchar_t* kInternalImage = L"C:\\vexarBatches\\Unprotected\\Zentor.fw";
    bool readFwUpdateState();
    bool isFwUpdatePending() const;
    std::wstring GetPendingUpdateImage() const;
    // Looks for the production drive's image for about eleven seconds: the drive may still be mounting.
    bool isAutoUpdateFileAvailable();
    // A client's request: the image goes to the internal copy first, which survives the updater's reboots.
    // With `shutdownRequired` the caller ends Halvern so that the updater can replace its files.
    bool startUpdater(const std::wstring& imagePath, bool force, bool& shutdownRequired);
    // Starts the updater in the user's session once the power and the WLAN module allow it, and waits up to
    // 15 s for it to end or to ask for Halvern's end (`shutdownRequired`). True when it was started and
    // did not fail within the wait.
    bool startFirmwareUpdate(const std::wstring& imagePath, const std::wstring& extraArgument, bool& shutdownRequired,
                             bool batteryCheck);
    // The updater's screen that lists the components the hardware check found failing.
    bool showFirmwareUpdaterErrorMsg(const std::wstring& componentList);
    // The installed firmware's object `objectId` (0: the image itself); false (logged) when the updater's
    // description or the object is missing.
    bool GetFirmwareObjectInfo(std::uint32_t objectId, FwObjectInfoT& info);
    // What an update with `imagePath` would install; an empty path asks for the pending update's image.
    bool GetFirmwareUpdateInfo(const std::wstring& imagePath, FwUpdateInfoT& info);

    // The network observer: a thread that deletes every persistent default route at its start and at each
    // change of the route table, until it is stopped.
    bool startNetworkObserver();
    // `renew`: release and renew the DHCP leases once the observer has ended, so that a gateway can come
    // back. False only when the thread did not end in time.
    bool stopNetworkObserver(bool renew);
    // Without the instance: the observer's thread runs them while the instance may be going away.
    static bool removeGateways();
    static bool runIpconfigCMD(const std::wstring& parameters);

    // Hardware and system information: the instrument's PCI components, the board and BIOS data, the
    // Windows release, and the two registry settings that start-up repairs.
    // Component ids of the hardware query; its state is 1 for a component that is present and working,
    // 2 for one that is present but not working (Device Manager reports a problem or it did not start), 0
    // for one that is not there.
    static constexpr std::uint32_t kHwComponentWlan = 1;
    static constexpr std::uint32_t kHwComponentMoraEthernet = 2;
    static constexpr std::uint32_t kHwComponentLemoEthernet = 3;
    static constexpr std::uint32_t kHwComponentDma = 4;
    static constexpr std::uint16_t kHwComponentMissing = 0;
    static constexpr std::uint16_t kHwComponentWorking = 1;
    static constexpr std::uint16_t kHwComponentFailing = 2;
    // False (logged) for an unknown id or when the PCI devices cannot be listed. `description` is the
    // device's text as Device Manager shows it, or the component's own name when it is not there.
    bool GetHwComponentInfo(std::uint32_t componentId, std::uint16_t& state, std::string& description);
    // What the board data command answers; see GetBoardContent.
    struct BoardContentT {
        std::uint16_t biosRelease = 0;           // BIOS major release in the high byte, minor in the low byte
        std::array<std::uint8_t, 6> moraMac{};   // the sensor-board Ethernet adapter; zero when it is missing
        std::array<std::uint8_t, 4> moraIpv4{};  // its first IPv4 address, first octet first; zero without one
        std::string boardVersion;                // "BaseBoardVersion", at most 9 characters
        std::string biosVersion;                 // "BIOSVersion", at most 21 characters
        std::uint32_t biosDate = 0;              // "BIOSReleaseDate" as yyyymmdd
    };
    // From the BIOS values of "HARDWARE\DESCRIPTION\System\BIOS" and the sensor-board adapter. False
    // (logged) without the BIOS version or a readable release date.
    bool GetBoardContent(BoardContentT& content);
    // Product name, edition, display version, build ("22631.2861": build and update revision), computer
    // name and installation time ("2026-03-01 08:15:00", UTC), from
    // "SOFTWARE\Microsoft\Windows NT\CurrentVersion". False (logged) without product name or build.
    bool GetWindowsOsInfo(std::array<std::string, 6>& info);
    // The "sermouse" service must never start: it would take the HMI board's COM port for a serial
    // mouse. `changed` when its start type had to be set to disabled (4).
    bool DisableSerialMouseService(bool& changed);
    // The system disk's write cache is off, so that a battery pulled during a write loses nothing.
    // `diskKey` is the disk's "Device Parameters\Disk" key below HKLM (empty when no disk has one),
    // `changed` when its "UserWriteCacheSetting" had to be set to 0.
    bool DisableSsdWriteCache(std::wstring& diskKey, bool& changed);

private:
    SysManagerC();
    // The observer's thread ends before its event goes.
    ~SysManagerC();

    mutable std::mutex m_lock;
    std::atomic<bool> m_rtcValid{false};
    platform::WindowHandle m_mainWindow;
    std::uint32_t m_backendToFrontendDelay = 1000;
    bool m_allowMxApplicationStartup = true;
    std::atomic<std::int32_t> m_appShutdownAnswer{APP_SHUTDOWN_NO_ANSWER};
    // Dummy console, diagnostics service, backend, frontend.
    platform::ProcessInformationT m_dummyConsole;
    platform::ProcessInformationT m_diagnosticsService;
    platform::ProcessInformationT m_zentorBackend;
    platform::ProcessInformationT m_zentorFrontend;
    // Empty: the configured address (see GetSensorBoardAddress).
    std::string m_sensorBoardAddress;
    // Written by the command server's thread, read by the main thread.
    std::atomic<std::int32_t> m_applicationPowerRequestType{POWER_REQUEST_QUIT};
    std::atomic<bool> m_powerRequestForce{false};
    std::atomic<std::uint32_t> m_powerRequestTimeout{0};
    std::array<std::uint8_t, kFwUpdateStateBytes> m_fwUpdateState{};
    bool m_fwUpdateStateValid = false;
    EFIServiceIPC m_efiServiceIPC;
    // Both empty while the network observer does not run.
    platform::UniqueHandle m_networkObserverThread;
    platform::UniqueHandle m_networkObserverExit;
    // Device modes. One switch at a time; the latch holds from a switch that changed the write filter for
    // the next boot until Halvern restarts. The scratch texts are the step's field text and the restart text.
    bool switchDeviceMode(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result);
    bool configureModeFeatures(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result);
    void setModeField(char (&field)[CurDevModeInfo::kTextChars], const std::string& text);
    std::recursive_mutex m_modeLock;
    std::atomic<std::uint8_t> m_modeSwitchPending{0};
    std::string m_modeFieldText;
    std::string m_modeRestartText;
    // USB devices and the write filter's overlay. The list is replaced by the main thread and read by the
    // command server's; the recycled ports are the main thread's alone.
    mutable std::mutex m_usbLock;
    std::vector<platform::UsbDeviceT> m_usbDevices;
    std::set<std::uint32_t> m_recycledUsbPorts;
    // Last member: it goes first, so the watch's thread has ended before anything else of the instance goes.
    std::unique_ptr<OverlayWatchC> m_overlayWatch;
};
